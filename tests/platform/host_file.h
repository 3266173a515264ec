// A look at the host's files past the platform. A test whose child process used the platform needs
// it: the two share the reports of the kernel on directories, and what one has read of them the
// other never sees.
#pragma once

#include <fstream>
#include <iterator>
#include <string>

namespace platform::test {

// The bytes of a file; none when it can't be read.
inline std::string HostContentOf(const std::string& hostPath) {
  std::ifstream stream(hostPath, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace platform::test
