#include "platform/linux/program_start.h"

#include <sys/stat.h>

#include "platform/formats/names.h"

namespace platform::posix {

cvn::List<cvn::String> StartProgram(int argc, char** argv) {
  constexpr mode_t kOthersWrite = S_IWGRP | S_IWOTH;
  // The mask can't be read without being set.
  umask(umask(kOthersWrite) | kOthersWrite);
  cvn::List<cvn::String> arguments;
  for (int i = 0; i < argc; ++i) {
    arguments.push_back(ToWide(argv[i]));
  }
  return arguments;
}

}  // namespace platform::posix
