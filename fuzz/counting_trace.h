// Stands in for the trace and the standard streams: nothing is written anywhere, whatever file a
// script names, and a run that has no end is ended.
#pragma once

#include <cstddef>

namespace tessel::fuzz {

// What a trace line throws when its run has used up its lines. No part of the program's own errors,
// so that nobody takes it for one.
struct RunIsTooLong {};

// The trace lines that may follow, and the characters in them: every jump of a script writes a
// line, so a loop meets one of the limits. 0 lifts them.
void LimitTrace(std::size_t lines, std::size_t characters);

}  // namespace tessel::fuzz
