#define _CRT_RAND_S  // stdlib.h declares rand_s only then
#include "platform/random.h"

#include <cstdlib>
#include <exception>

namespace platform {

std::uint32_t SecureRandom32() {
  unsigned int value = 0;
  if (::rand_s(&value) != 0) {
    // A number that can be guessed would be worse than no program.
    std::terminate();
  }
  return value;
}

}  // namespace platform
