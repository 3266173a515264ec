#include "platform/linux/arguments.h"

#include "platform/formats/names.h"

namespace platform::posix {

cvn::List<cvn::String> ArgumentsOf(int argc, char** argv) {
  cvn::List<cvn::String> arguments;
  for (int i = 0; i < argc; ++i) {
    arguments.push_back(ToWide(argv[i]));
  }
  return arguments;
}

}  // namespace platform::posix
