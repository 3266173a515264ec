// The trace: the only record of what a run does.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "support/format.h"
#include "support/string.h"

namespace tessel {

// Whether each trace line also goes to standard output. Off at start.
void SetDiagnosticMode(bool on);

// Closes the current trace file and opens the one at `path` for appending; an empty path changes
// nothing. When the file can't be opened, the run continues without a trace file.
void OpenTraceFile(cvn::StringView path);
void CloseTraceFile();
// From now on OpenTraceFile opens nothing: for a program that judges scripts and runs none.
void RefuseTraceFiles();

// False when a trace line would go nowhere.
bool IsTracing();

// Writes one line, to standard output in diagnostic mode and to the trace file with a time stamp,
// and flushes it. For the main thread only: all lines share one buffer.
void WriteTraceLine(cvn::StringView format, std::span<const cvn::FormatArgument> arguments);

// The same with the arguments of cvn::Format. A format that ends in "\n" leaves a blank line after
// it.
template <typename... Args>
void TraceLine(cvn::StringView format, const Args&... args) {
  if (IsTracing()) {
    WriteTraceLine(format,
                   std::array<cvn::FormatArgument, sizeof...(Args)>{cvn::FormatArgument(args)...});
  }
}

// The milliseconds of a time stamp, 0 to 999, from a time in units of 100 nanoseconds. Rounds to
// the nearest; what rounds to 1000 becomes 0 and the second stays, as the trace format has it.
int StampMilliseconds(std::int64_t ticks);

}  // namespace tessel
