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
  std::int64_t stampedTime = -1;  // in units of kStampTicks
  cvn::String stamp;              // "2026-11-12 21:40:26.123 " of stampedTime
};

TraceState& State() {
  static TraceState state;
  return state;
}

// A longer line gives its memory back, rather than hold it for the rest of the run.
constexpr std::size_t kKeptLineLength = 65536;

// Between two borders of rounding, which is what this divides time into, a stamp stays the same.
constexpr std::int64_t kStampTicks = platform::clock::kTicksPerSecond / 2000;

// The stamp of this moment. A run may trace millions of lines, and stamps that are made anew for
// each would cost more than the rest.
cvn::StringView Stamp(TraceState* state) {
  const std::int64_t now = platform::clock::NowTicks();
  if (now / kStampTicks != state->stampedTime) {
    const platform::clock::LocalTime time =
        platform::clock::ToLocalTime(now / platform::clock::kTicksPerSecond);
    state->stamp =
        cvn::Format(u"%d-%02d-%02d %02d:%02d:%02d.%03d ", time.year, time.month, time.day,
                    time.hour, time.minute, time.second, StampMilliseconds(now));
    state->stampedTime = now / kStampTicks;
  }
  return state->stamp;
}

// A full disk takes lines from the trace, and doesn't stop the run.
void WriteToFile(cvn::StringView line, TraceState* state) {
  platform::IgnoreError(state->file.Write(line));
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
    state.line.Append(Stamp(&state));
  }
  const std::size_t message = state.line.Length();
  cvn::AppendFormat(&state.line, format, arguments);
  if (state.diagnosticMode) {
    platform::streams::WriteLine(platform::streams::Output::Out,
                                 state.line.AsView().substr(message));
  }
  if (state.file.IsOpen()) {
    state.line.Append(u'\n');
    if (state.line.Length() > kKeptLineLength) {
      const cvn::String line = std::move(state.line);
      WriteToFile(line, &state);
      return;
    }
    // Last of all, since each return that follows a system call is slow.
    WriteToFile(state.line, &state);
  }
}

int StampMilliseconds(std::int64_t ticks) {
  const std::int64_t microseconds = ticks % platform::clock::kTicksPerSecond / 10;
  const auto milliseconds =
      static_cast<int>(std::lround(static_cast<double>(microseconds) / 1000.0));
  return milliseconds >= 1000 ? milliseconds - 1000 : milliseconds;
}

}  // namespace tessel
