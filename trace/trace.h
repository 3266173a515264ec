// The trace: the one channel through which the program reports what it does.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "support/format.h"
#include "support/string.h"

namespace tessel {

// Whether each trace line also goes to standard output. Off at start.
void SetDiagnosticMode(bool on);

// Closes the current trace file and appends to the one at `path` from now on; an empty path changes
// nothing. When the file can't be opened, the run goes on without a trace file.
void OpenTraceFile(cvn::StringView path);
void CloseTraceFile();

// False when a trace line would go nowhere.
bool IsTracing();

// Writes one line: to standard output in diagnostic mode, and to the trace file, stamped and
// flushed. For the main thread only, since all lines share their buffers.
void WriteTraceLine(cvn::StringView format, std::span<const cvn::FormatArgument> arguments);

// The same with arguments as cvn::Format takes them. A format that ends in "\n" leaves a blank
// line.
template <typename... Args>
void TraceLine(cvn::StringView format, const Args&... args) {
  if (IsTracing()) {
    WriteTraceLine(format,
                   std::array<cvn::FormatArgument, sizeof...(Args)>{cvn::FormatArgument(args)...});
  }
}

// The milliseconds of a stamp, 0 to 999, from a time in units of 100 nanoseconds: rounded to the
// nearest, and what rounds up to a whole second becomes 0 without a carry.
int StampMilliseconds(std::int64_t ticks);

}  // namespace tessel
