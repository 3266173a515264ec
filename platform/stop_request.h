// A request from outside that the program end, and how its process ends.
#pragma once

#include <cstdint>

namespace platform::stop {

// From now on such a request no longer ends the process at once; it is remembered, and cuts waits
// short: clock::Sleep, waits for processes, downloads. On Linux that is SIGINT, SIGTERM and SIGHUP,
// but for those that the process ignored when it started, as under nohup; on Windows Ctrl-C,
// Ctrl-Break and the closing of the console.
void Watch();

// Whether there was one since then.
bool IsAsked();

// For main to return: what the process is to end with when the program's own code is `exitCode`.
// On Linux a process that was asked to stop ends here, by the very signal that asked, so that the
// caller sees it; otherwise the host keeps the low byte of a code, and 255 stands for every code
// but 0 whose low byte is 0, since it would be seen as success. On Windows it is the code, or
// STATUS_CONTROL_C_EXIT after a request.
int EndStatus(std::int32_t exitCode);

}  // namespace platform::stop
