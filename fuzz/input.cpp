#include "fuzz/input.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace tessel::fuzz {

std::uint8_t Input::Byte() {
  if (rest_.empty()) {
    return 0;
  }
  const auto byte = static_cast<std::uint8_t>(rest_.front());
  rest_.remove_prefix(1);
  return byte;
}

std::uint64_t Input::Number(std::size_t bytes) {
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < bytes; ++i) {
    number |= std::uint64_t{Byte()} << (8 * i);
  }
  return number;
}

std::string_view Input::Line() {
  const std::string_view line = rest_.substr(0, rest_.find('\n'));
  rest_.remove_prefix(std::min(line.size() + 1, rest_.size()));
  return line;
}

std::string_view Input::Rest() { return std::exchange(rest_, {}); }

void Require(bool holds, const char* claim) {
  if (!holds) {
    std::fprintf(stderr, "Doesn't hold: %s\n", claim);
    std::abort();
  }
}

}  // namespace tessel::fuzz
