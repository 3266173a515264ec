#include "platform/linux/program_start.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/formats/names.h"

namespace platform::posix {
namespace {

// A standard stream that the caller closed would be the next file that is opened, and what is
// printed would be written into it.
void OpenStandardStreams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (fcntl(stream, F_GETFD) >= 0 || errno != EBADF) {
      continue;
    }
    // Gets the lowest free number, which is this one: those before it are open.
    if (open("/dev/null", stream == STDIN_FILENO ? O_RDONLY : O_WRONLY) < 0) {
      open("/", O_PATH);  // a host without devices: nothing can be written to this either
    }
  }
}

}  // namespace

cvn::List<cvn::String> StartProgram(int argc, char** argv) {
  OpenStandardStreams();
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
