#include "trace/trace.h"

#include <array>
#include <cmath>

#include "platform/clock.h"
#include "platform/streams.h"
#include "platform/text_file.h"

namespace tessel {
namespace {

struct TraceState {
  platform::TextFile file;
  bool diagnosticMode = false;
  bool refusesFiles = false;
  cvn::String line;
  std::int64_t stampedSecond = -1;
  cvn::String stamp;  // "2026-11-12 21:40:26" of stampedSecond
};

TraceState& State() {
  static TraceState state;
  return state;
}

// A longer line gives its memory back, rather than hold it for the rest of the run.
constexpr std::size_t kKeptLineLength = 65536;

cvn::StringView StampOf(std::int64_t second, TraceState* state) {
  if (second != state->stampedSecond) {
    const platform::clock::LocalTime time = platform::clock::ToLocalTime(second);
    state->stamp = cvn::Format(u"%d-%02d-%02d %02d:%02d:%02d", time.year, time.month, time.day,
                               time.hour, time.minute, time.second);
    state->stampedSecond = second;
  }
  return state->stamp;
}

}  // namespace

void SetDiagnosticMode(bool on) { State().diagnosticMode = on; }

void OpenTraceFile(cvn::StringView path) {
  if (!path.empty() && !State().refusesFiles) {
    CloseTraceFile();
    // A run without a trace file is a run all the same; IsTracing tells.
    platform::IgnoreError(State().file.OpenForAppend(path));
  }
}

void CloseTraceFile() { State().file.Close(); }

void RefuseTraceFiles() { State().refusesFiles = true; }

bool IsTracing() { return State().diagnosticMode || State().file.IsOpen(); }

void WriteTraceLine(cvn::StringView format, std::span<const cvn::FormatArgument> arguments) {
  TraceState& state = State();
  state.line.Clear();
  if (state.file.IsOpen()) {
    // Formats a second once, and its fraction without Format: a run may trace millions of lines,
    // and the stamp would cost more than the rest.
    const std::int64_t now = platform::clock::NowTicks();
    state.line.Append(StampOf(now / platform::clock::kTicksPerSecond, &state));
    const int milliseconds = StampMilliseconds(now);
    const auto digit = [](int number) { return static_cast<char16_t>(u'0' + number % 10); };
    const std::array fraction = {u'.', digit(milliseconds / 100), digit(milliseconds / 10),
                                 digit(milliseconds), u' '};
    state.line.Append(cvn::StringView(fraction.data(), fraction.size()));
  }
  const std::size_t message = state.line.Length();
  cvn::AppendFormat(&state.line, format, arguments);
  if (state.diagnosticMode) {
    platform::streams::WriteLine(platform::streams::Output::Out,
                                 state.line.AsView().substr(message));
  }
  if (state.file.IsOpen()) {
    state.line.Append(u'\n');
    // A full disk takes lines from the trace, and doesn't stop the run.
    platform::IgnoreError(state.file.Write(state.line));
  }
  if (state.line.Length() > kKeptLineLength) {
    state.line = cvn::String();
  }
}

int StampMilliseconds(std::int64_t ticks) {
  const std::int64_t microseconds = ticks % platform::clock::kTicksPerSecond / 10;
  const auto milliseconds =
      static_cast<int>(std::lround(static_cast<double>(microseconds) / 1000.0));
  return milliseconds >= 1000 ? milliseconds - 1000 : milliseconds;
}

}  // namespace tessel
