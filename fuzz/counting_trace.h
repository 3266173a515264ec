// Replaces the trace and the standard streams: nothing is written, whatever file a script names,
// and an endless run is ended.
#pragma once

#include <cstddef>

namespace tessel::fuzz {

// Thrown by a trace line when its run has used up its lines. Not derived from std::exception, so
// that no handler of a library's exceptions catches it.
struct RunIsTooLong {};

// Limits the trace lines that follow and the characters in them. Every jump of a script writes a
// line, so an endless loop reaches one of the limits. 0 is no limit.
void LimitTrace(std::size_t lines, std::size_t characters);

}  // namespace tessel::fuzz
