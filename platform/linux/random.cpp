#include "platform/random.h"

#include <sys/random.h>

#include <cerrno>
#include <cstdlib>

namespace platform {

std::uint32_t SecureRandom32() {
  std::uint32_t value = 0;
  while (getrandom(&value, sizeof(value), 0) != sizeof(value)) {
    if (errno != EINTR) {
      std::abort();  // no answer is better than one that can be guessed
    }
  }
  return value;
}

}  // namespace platform
