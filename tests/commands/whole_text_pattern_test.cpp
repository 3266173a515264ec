#include "commands/common/whole_text_pattern.h"

#include <gtest/gtest.h>

#include <string>

#include "support/utf.h"

namespace tessel {
namespace {

constexpr const char* kNoMatch = "<none>";

std::string Match(cvn::StringView pattern, const std::u16string& text, std::uint32_t group = 0) {
  WholeTextPattern compiled;
  if (!compiled.Compile(pattern)) {
    return "<refused>";
  }
  const auto match = compiled.MatchGroup(text, group);
  return match ? cvn::WideToUtf8(*match) : kNoMatch;
}

TEST(WholeTextPattern, MatchesTheWholeTextAsEcmaScript) {
  const struct {
    const char16_t* pattern;
    std::u16string text;
    std::uint32_t group;
    const char* expected;
  } kCases[] = {
      {u"(\\d+)-(\\d+)", u"10-20", 2, "20"},
      {u"(\\d+)-(\\d+)", u"10-20", 0, "10-20"},
      {u"(\\d+)-(\\d+)", u"10-20", 3, kNoMatch},
      {u"(\\d+)-(\\d+)", u"10-20", 0xFFFFFFFF, kNoMatch},
      {u"\\d+", u"a1", 0, kNoMatch},
      {u"\\d+", u"1\n", 0, kNoMatch},
      {u"a|ab", u"ab", 0, "ab"},  // goes on to the alternative that reaches the end
      {u"(a)|(b)", u"b", 1, ""},  // a group without part
      {u"(a)|(b)", u"b", 2, "b"},
      {u"", u"", 0, ""},
      {u"", u"x", 0, kNoMatch},
      {u".*", u"a\nb", 0, kNoMatch},
      {u"[]a", u"a", 0, kNoMatch},
      {u"[^]*", u"a\nb", 0, "a\nb"},
      {u"\\u0041\\x42", u"AB", 0, "AB"},
      {u"(?:a(b))?\\1c", u"c", 0, "c"},  // an unset group matches nothing
      {u"\\w", u"\u00E4", 0, kNoMatch},
      {u"..", u"\U0001F600", 0, "\xF0\x9F\x98\x80"},  // two code units
      {u"a(?=b)b", u"ab", 0, "ab"},
      {u"\\/\\.", u"/.", 0, "/."},
  };
  for (const auto& testCase : kCases) {
    EXPECT_EQ(Match(testCase.pattern, testCase.text, testCase.group), testCase.expected)
        << cvn::WideToUtf8(testCase.pattern);
  }
}

TEST(WholeTextPattern, RefusesWhatEcmaScriptDoesNotHave) {
  for (const char16_t* pattern :
       {u"(",       u")",     u"[",     u"a**",     u"*a",      u"a\\",
        u"(?<n>a)", u"(?i)a", u"(?>a)", u"(?#c)a",  u"(*UTF)a", u"(*LIMIT_MATCH=9)a",
        u"a++",     u"a?+",   u"a{1}+", u"\\Aa",    u"a\\z",    u"\\Qa\\E",
        u"\\pL",    u"\\R",   u"(?R)",  u"(?<=a)b", u"x{2,1}"}) {
    EXPECT_EQ(Match(pattern, u"a"), "<refused>") << cvn::WideToUtf8(pattern);
  }
}

TEST(WholeTextPattern, EndsAHopelessSearchAndBearsLongText) {
  EXPECT_EQ(Match(u"(a+)+b", std::u16string(60, u'a')), kNoMatch);
  EXPECT_EQ(Match(u"(?:a|b)*", std::u16string(1'000'000, u'a')).size(), 1'000'000U);
  EXPECT_EQ(Match(u"(\\w+);.*", std::u16string(100'000, u'a') + u";b", 1).size(), 100'000U);
}

}  // namespace
}  // namespace tessel
