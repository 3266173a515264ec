// The names of files under construction: "tessel-<process>-<number>.tmp", with the number in
// sixteen hexadecimal digits.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace platform {

// The process that made the draft of this name; 0 for any other name.
template <typename Char>
constexpr std::uint32_t MakerOfDraft(std::basic_string_view<Char> name) {
  constexpr std::string_view kStart = "tessel-";
  constexpr std::string_view kEnd = ".tmp";
  constexpr std::size_t kNumber = 16;
  constexpr std::size_t kMostDigits = 9;
  constexpr std::size_t kRest = kStart.size() + 1 + kNumber + kEnd.size();
  const auto isDigit = [](Char c) { return c >= '0' && c <= '9'; };
  const auto isHexadecimal = [&](Char c) { return isDigit(c) || (c >= 'a' && c <= 'f'); };
  if (name.size() <= kRest || name.size() > kRest + kMostDigits) {
    return 0;
  }
  const auto process = name.substr(kStart.size(), name.size() - kRest);
  const auto behind = name.substr(kStart.size() + process.size());
  if (!std::ranges::equal(name.substr(0, kStart.size()), kStart) || behind[0] != '-' ||
      !std::ranges::equal(behind.substr(1 + kNumber), kEnd) ||
      !std::ranges::all_of(process, isDigit) ||
      !std::ranges::all_of(behind.substr(1, kNumber), isHexadecimal)) {
    return 0;
  }
  std::uint32_t maker = 0;
  for (const Char digit : process) {
    maker = 10 * maker + static_cast<std::uint32_t>(digit - '0');
  }
  return maker;
}

}  // namespace platform
