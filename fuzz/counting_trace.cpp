#include "fuzz/counting_trace.h"

#include "platform/streams.h"
#include "trace/trace.h"

namespace tessel {
namespace {

std::size_t linesLeft = 0;
std::size_t charactersLeft = 0;
bool isLimited = false;

}  // namespace

namespace fuzz {

void LimitTrace(std::size_t lines, std::size_t characters) {
  linesLeft = lines;
  charactersLeft = characters;
  isLimited = lines != 0;
}

}  // namespace fuzz

void SetDiagnosticMode(bool /*on*/) {}
void OpenTraceFile(cvn::StringView /*path*/) {}
void CloseTraceFile() {}
bool IsTracing() { return true; }

void WriteTraceLine(cvn::StringView format, std::span<const cvn::FormatArgument> arguments) {
  cvn::String line;
  cvn::AppendFormat(&line, format, arguments);
  if (!isLimited) {
    return;
  }
  if (linesLeft == 0 || charactersLeft < line.Length()) {
    isLimited = false;
    throw fuzz::RunIsTooLong();
  }
  --linesLeft;
  charactersLeft -= line.Length();
}

}  // namespace tessel

namespace platform::streams {

void SetTextModes() {}
bool WriteLine(Output /*stream*/, cvn::StringView /*text*/) { return true; }

}  // namespace platform::streams
