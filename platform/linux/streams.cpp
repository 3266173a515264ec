#include "platform/streams.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "support/utf.h"

namespace platform::streams {

// A reader that goes away must not end a patch half-way, hence no SIGPIPE: the write fails instead.
// Programs that this process starts would inherit that; process::Start gives them the default
// action back.
void SetTextModes() { signal(SIGPIPE, SIG_IGN); }

void WriteLine(Output stream, cvn::StringView text) {
  const int descriptor = stream == Output::Out ? STDOUT_FILENO : STDERR_FILENO;
  std::string line = cvn::WideToUtf8(text);
  line.push_back('\n');
  std::string_view rest = line;
  while (!rest.empty()) {
    const ssize_t written = write(descriptor, rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      pollfd room = {descriptor, POLLOUT, 0};
      poll(&room, 1, -1);
    } else if (errno != EINTR) {
      return;
    }
  }
}

}  // namespace platform::streams
