// Shared by the fuzzers: reading values from an input, and assertions about what the code makes of
// them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tessel::fuzz {

// Reads an input from its start. Past its end there are zeros and empty texts.
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

// Ends the process unless `holds`, which the fuzzer reports as a finding. `claim` says what should
// be true.
void Require(bool holds, const char* claim);

}  // namespace tessel::fuzz
