// What the host tells of a process below /proc.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/error.h"

namespace platform::posix {

// The beginning of /proc/<id>/<name>, as far as `buffer` takes it; empty when it can't be read.
std::string_view ReadProcessFile(std::uint32_t id, const char* name, std::span<char> buffer);

// The host's path of the image that a process runs, also when it has been deleted since. 87 when
// there is no such process, 5 when it may not be looked into, and 31 when it has no image: a thread
// of the kernel, or a process that has ended and still waits for its parent.
Code ReadImageLink(std::uint32_t id, std::string* path);

}  // namespace platform::posix
