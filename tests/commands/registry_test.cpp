// The texts of values that no script can store.
#include <gtest/gtest.h>

#include <span>
#include <string_view>

#include "commands/system/registry_values.h"
#include "support/utf.h"

namespace tessel {
namespace {

using namespace std::string_view_literals;

TEST(RegistryValues, AreReadHoweverTheyAreStored) {
  constexpr struct {
    std::uint32_t type;
    std::string_view data;
    const char* expected;
  } kCases[] = {
      {1, "a\0b\0"sv, "ab"},  // without its zero
      {1, "a\0\0\0b\0\0\0"sv, "a"},
      {4, ""sv, "0"},
      {4, "\xFE\xFF"sv, "65534"},
      {4, "\x01\0\0\0\x07"sv, "1"},
      {11, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv, "72057594037927935"},
      {11, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x01"sv, "-1"},
      {7, "a\0|\0\0\0|\0\0\0\0\0"sv, "a"},
      {7, "|\0a\0\0\0b\0"sv, "|a|b"},  // without any end
  };
  for (const auto& example : kCases) {
    const auto bytes = std::as_bytes(std::span(example.data));
    std::optional<cvn::String> text;
    EXPECT_EQ(TextOfValue(example.type, {bytes.begin(), bytes.end()}, &text), platform::kSuccess);
    EXPECT_EQ(cvn::WideToUtf8(text.value_or(u"none")), example.expected)
        << example.type << " of " << example.data.size();
  }
  std::optional<cvn::String> text;
  EXPECT_EQ(TextOfValue(platform::registry::kTypeNone, {}, &text), platform::kUnsupportedType);
  EXPECT_FALSE(text.has_value());
}

}  // namespace
}  // namespace tessel
