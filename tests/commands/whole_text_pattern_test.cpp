#include "commands/common/whole_text_pattern.h"

#include <gtest/gtest.h>

#include <string>

#include "support/utf.h"

namespace tessel {
namespace {

std::string Match(cvn::StringView pattern, const std::u16string& text, std::uint32_t group = 0) {
  WholeTextPattern compiled;
  if (!compiled.Compile(pattern)) {
    return "refused";
  }
  cvn::StringView match;
  switch (compiled.MatchGroup(text, group, &match)) {
    case WholeTextPattern::Outcome::Match:
      return cvn::WideToUtf8(match);
    case WholeTextPattern::Outcome::NoMatch:
      return "none";
    default:
      return "given up";
  }
}

TEST(WholeTextPattern, MatchesAsEcmaScriptDoes) {
  const struct {
    const char16_t* pattern;
    std::u16string text;
    const char* expected;
  } kCases[] = {
      {u"\\d+", u"1\n", "none"},
      {u"a|ab", u"ab", "ab"},  // goes on to the alternative that reaches the end
      {u"[]a", u"a", "none"},
      {u"[^]*", u"a\nb", "a\nb"},
      {u"(?:a(b))?\\1c", u"c", "c"},  // an unset group matches nothing
      {u"\\w", u"\u00E4", "none"},
      {u"..", u"\U0001F600", "\xF0\x9F\x98\x80"},  // two code units
      {u"\\u0041\\x42\\/\\.", u"AB/.", "AB/."},
  };
  for (const auto& testCase : kCases) {
    EXPECT_EQ(Match(testCase.pattern, testCase.text), testCase.expected)
        << cvn::WideToUtf8(testCase.pattern);
  }
  for (const char16_t* pattern :
       {u"(",       u")",     u"[",     u"a**",     u"*a",      u"a\\",
        u"(?<n>a)", u"(?i)a", u"(?>a)", u"(?#c)a",  u"(*UTF)a", u"(*LIMIT_MATCH=9)a",
        u"a++",     u"a?+",   u"a{1}+", u"\\Aa",    u"a\\z",    u"\\Qa\\E",
        u"\\pL",    u"\\R",   u"(?R)",  u"(?<=a)b", u"x{2,1}"}) {
    EXPECT_EQ(Match(pattern, u"a"), "refused") << cvn::WideToUtf8(pattern);
  }
}

TEST(WholeTextPattern, EndsAHopelessSearchAndBearsLongText) {
  EXPECT_EQ(Match(u"(a+)+[bc]", std::u16string(60, u'a')), "given up");
  EXPECT_EQ(Match(u"(?:a|b)*", std::u16string(1'000'000, u'a')).size(), 1'000'000U);
}

}  // namespace
}  // namespace tessel
