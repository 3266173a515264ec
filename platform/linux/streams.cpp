#include "platform/streams.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <iterator>
#include <string>
#include <string_view>

#include "platform/linux/stop_signals.h"
#include "platform/stop_request.h"
#include "support/utf.h"

namespace platform::streams {

// A reader that goes away must not end a patch half-way, hence no SIGPIPE: the write fails instead.
// Programs that this process starts would inherit that; process::Start gives them the default
// action back.
void SetTextModes() { signal(SIGPIPE, SIG_IGN); }

namespace {

int DescriptorOf(Output stream) { return stream == Output::Out ? STDOUT_FILENO : STDERR_FILENO; }

bool WriteBytes(int descriptor, std::string_view rest) {
  while (!rest.empty()) {
    const ssize_t written = write(descriptor, rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      pollfd room = {descriptor, POLLOUT, 0};
      poll(&room, 1, -1);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool WriteLine(Output stream, cvn::StringView text) {
  std::string line = cvn::WideToUtf8(text);
  line.push_back('\n');
  return WriteBytes(DescriptorOf(stream), line);
}

bool AwaitRoom(Output stream) {
  pollfd waited[] = {{DescriptorOf(stream), POLLOUT, 0}, {posix::StopDescriptor(), POLLIN, 0}};
  while (poll(waited, std::size(waited), -1) < 0 && errno == EINTR) {
  }
  constexpr int kGone = POLLERR | POLLHUP | POLLNVAL;
  return (waited[0].revents & kGone) == 0 && !stop::IsAsked();
}

void SendOutputToError() { dup2(STDERR_FILENO, STDOUT_FILENO); }

bool IsTerminal(Output stream) { return isatty(DescriptorOf(stream)) == 1; }

void WriteStatus(Output stream, cvn::StringView text) {
  // Back to the line's beginning, and erase to its end (ECMA-48: EL).
  WriteBytes(DescriptorOf(stream), "\r\x1B[K" + cvn::WideToUtf8(text));
}

bool ReadAnswer(cvn::String* line) {
  std::string bytes;
  char byte = '\0';
  bool isRead = isatty(STDIN_FILENO) == 1;
  while (isRead && (isRead = read(STDIN_FILENO, &byte, 1) == 1) && byte != '\n') {
    bytes.push_back(byte);
  }
  *line = cvn::Utf8ToWide(bytes);
  return isRead;
}

}  // namespace platform::streams
