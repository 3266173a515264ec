// What the fuzzed functions share: the taking apart of an input, and the claims about what comes of
// it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tessel::fuzz {

// Reads an input from its start. What it lacks counts as zeros or as empty.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : rest_(reinterpret_cast<const char*>(data), size) {}

  std::uint8_t Byte();
  // Least significant byte first.
  std::uint64_t Number(std::size_t bytes);
  // The text before the next line feed, or all that is left.
  std::string_view Line();
  std::string_view Rest();
  bool IsEmpty() const { return rest_.empty(); }

 private:
  std::string_view rest_;
};

// Ends the process, which the fuzzer takes for a finding, unless `holds`. `claim` is what should be
// true.
void Require(bool holds, const char* claim);

}  // namespace tessel::fuzz
