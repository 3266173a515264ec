#include "platform/streams.h"

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "platform/stop_request.h"
#include "platform/windows/wide.h"
#include "support/utf.h"

namespace platform::streams {
namespace {

void SetMode(std::FILE* stream, int mode) {
  // Negative for a stream that the process was started without.
  const int descriptor = ::_fileno(stream);
  if (descriptor >= 0) {
    ::_setmode(descriptor, mode);
  }
}

// As the runtime's text modes end lines.
cvn::String WithCarriageReturns(cvn::StringView text) {
  cvn::String out;
  out.Reserve(text.size() + 2);
  for (std::size_t feed = text.find(u'\n'); feed != cvn::StringView::npos;
       feed = text.find(u'\n')) {
    out.Append(text.substr(0, feed));
    out.Append(u"\r\n");
    text.remove_prefix(feed + 1);
  }
  out.Append(text);
  return out;
}

void WriteToConsole(HANDLE console, const cvn::String& text) {
  // A console of Windows 7 refuses much more than 64 KiB at a time.
  constexpr std::size_t kMost = 16 * 1024;
  cvn::StringView rest = text;
  DWORD written = 0;
  while (!rest.empty() &&
         ::WriteConsoleW(console, rest.data(), static_cast<DWORD>(std::min(rest.size(), kMost)),
                         &written, nullptr) != 0 &&
         written != 0) {
    rest.remove_prefix(written);
  }
}

bool WriteBytes(HANDLE stream, std::string_view bytes) {
  DWORD written = 0;
  while (!bytes.empty() &&
         ::WriteFile(stream, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) !=
             0 &&
         written != 0) {
    bytes.remove_prefix(written);
  }
  return bytes.empty();
}

// Standard output, and standard error.
bool hasFailed[2] = {};

}  // namespace

void SetTextModes() {
  SetMode(stdout, _O_U8TEXT);
  SetMode(stdin, _O_WTEXT);
  SetMode(stderr, _O_U8TEXT);
}

// Bypasses the runtime, whose UTF-8 mode converts a long text in pieces and loses a surrogate pair
// that falls on their border. Nothing else writes to its streams, so the order holds.
bool WriteLine(Output stream, cvn::StringView text) {
  windows::LastErrorKeeper lastError;
  cvn::String line = WithCarriageReturns(text);
  line.Append(u"\r\n");
  const HANDLE handle =
      ::GetStdHandle(stream == Output::Out ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
  DWORD mode = 0;
  if (::GetConsoleMode(handle, &mode) != 0) {
    WriteToConsole(handle, line);
    return true;
  }
  const bool isWritten = WriteBytes(handle, cvn::WideToUtf8(line));
  hasFailed[static_cast<int>(stream)] |= !isWritten;
  return isWritten;
}

bool AwaitRoom(Output stream) { return !hasFailed[static_cast<int>(stream)] && !stop::IsAsked(); }

// What takes so long that it shows a status, or asks, is there on Linux alone.
void SendOutputToError() { ::SetStdHandle(STD_OUTPUT_HANDLE, ::GetStdHandle(STD_ERROR_HANDLE)); }

bool IsTerminal(Output /*stream*/) { return false; }
void WriteStatus(Output /*stream*/, cvn::StringView /*text*/) {}
bool ReadAnswer(cvn::String* line) {
  line->Clear();
  return false;
}

}  // namespace platform::streams
