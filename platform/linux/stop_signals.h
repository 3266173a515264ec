// The signals that ask the program to end.
#pragma once

namespace platform::posix {

// Is readable from the first such signal on, for poll; -1, which poll passes over, while they
// aren't watched for.
int StopDescriptor();

}  // namespace platform::posix
