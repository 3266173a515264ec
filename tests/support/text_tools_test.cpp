#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "support/format.h"
#include "support/numbers.h"
#include "support/utf.h"
#include "support/xml_nesting.h"

namespace cvn {
namespace {

TEST(Format, FollowsPrintf) {
  const struct {
    String actual;
    const char16_t* expected;
  } kCases[] = {
      {Format(u"%s|%5s|%-5s|%.2s", u"abc", u"abc", u"abc", u"abc"), u"abc|  abc|abc  |ab"},
      {Format(u"%s", static_cast<const char16_t*>(nullptr)), u"(null)"},
      {Format(u"%03d|%5d|%-5d|%+d|% d|%.4d", 7, -7, 7, 7, 7, 7), u"007|   -7|7    |+7| 7|0007"},
      {Format(u"%05d|%010d", -42, 7), u"-0042|0000000007"},
      {Format(u"%x %X %08x %#x", 255, 255, 255, 255), u"ff FF 000000ff 0xff"},
      {Format(u"%x %u", -1, std::int8_t{-1}), u"ffffffff 255"},
      {Format(u"%lld %llu %I64d", std::numeric_limits<std::int64_t>::min(),
              std::numeric_limits<std::uint64_t>::max(), std::int64_t{1}),
       u"-9223372036854775808 18446744073709551615 1"},
      {Format(u"%p", reinterpret_cast<const void*>(std::uintptr_t{0xABC0})), u"0x000000000000ABC0"},
      {Format(u"%s and %d", 12, u"text"), u"12 and text"},
      {Format(u"%s %s", u"one"), u"one %s"},
      {Format(u"%y %"), u"%y %"},
  };
  for (const auto& testCase : kCases) {
    EXPECT_EQ(testCase.actual, testCase.expected) << WideToUtf8(testCase.actual);
  }
  EXPECT_LT(Format(u"%999999999d", 1).Length(), 10000U) << "a mistaken width must not cost memory";
}

TEST(Numbers, ReadAsWtoi) {
  constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
  constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
  const struct {
    const char16_t* text;
    std::int32_t narrow;
    std::int64_t wide;
  } kCases[] = {
      {u"", 0, 0},
      {u"12abc", 12, 12},
      {u" \t\r\n\v\f-12", -12, -12},
      {u"+-5", 0, 0},
      {u"- 5", 0, 0},
      {u"2147483648", kMost, 2147483648},
      {u"-2147483649", kLeast, -2147483649},
      {u"99999999999999999999999", kMost, std::numeric_limits<std::int64_t>::max()},
      {u"-99999999999999999999999", kLeast, std::numeric_limits<std::int64_t>::min()},
      {u"\u0665", 0, 0},
  };
  for (const auto& testCase : kCases) {
    EXPECT_EQ(ReadInt32(testCase.text), testCase.narrow) << WideToUtf8(testCase.text);
    EXPECT_EQ(ReadInt64(testCase.text), testCase.wide) << WideToUtf8(testCase.text);
  }
}

TEST(Numbers, CompareFoldsOnlyAsciiToLowerCase) {
  EXPECT_EQ(CompareNoCase(u"ABC", u"abc"), 0);
  EXPECT_NE(CompareNoCase(u"\u00C4", u"\u00E4"), 0);
  EXPECT_GT(CompareNoCase(u"A", u"_"), 0);  // which stands between the cases
  EXPECT_LT(CompareNoCase(u"ab", u"ABC"), 0);
}

TEST(Utf, ReplacesWhatIsMalformedAndKeepsTheRest) {
  const struct {
    std::string narrow;
    std::u16string wide;
    bool valid;
  } kCases[] = {
      {"", u"", true},
      {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", u"\u00E4\u20AC\U0001F600", true},
      {"\xC2\x80\xDF\xBF\xE0\xA0\x80\xF4\x8F\xBF\xBF", u"\u0080\u07FF\u0800\U0010FFFF", true},
      {"\xC0\xAF", u"\uFFFD\uFFFD", false},                      // overlong
      {"\xE2\x82", u"\uFFFD", false},                            // cut: one part, one mark
      {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD", false},            // a surrogate
      {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD", false},  // beyond U+10FFFF
  };
  for (const auto& testCase : kCases) {
    for (const std::size_t padding : {0U, 7U, 254U, 255U, 600U}) {
      const std::string narrow = std::string(padding, 'p') + testCase.narrow;
      const std::u16string wide = std::u16string(padding, u'p') + testCase.wide;
      EXPECT_EQ(Utf8ToWide(narrow).AsView(), wide) << testCase.narrow << padding;
      std::size_t offset = 0;
      EXPECT_EQ(IsValidUtf8(narrow, &offset), testCase.valid);
      if (testCase.valid) {
        EXPECT_EQ(WideToUtf8(wide), narrow);
      } else {
        EXPECT_LT(offset, narrow.size());
        EXPECT_GE(offset, padding);
      }
    }
  }
  EXPECT_EQ(WideToUtf8(StringView(u"a\xD800z\xDC00", 4)), "a\xEF\xBF\xBDz\xEF\xBF\xBD");
}

TEST(XmlNesting, CountsElementsAsTheParserMeetsThem) {
  std::string deep;
  for (std::size_t i = 0; i <= kDeepestXml; ++i) {
    EXPECT_TRUE(i % 1024 != 0 || IsXmlNestingAllowed(deep));
    deep += "<a b='>'>";
  }
  std::size_t offset = 0;
  EXPECT_FALSE(IsXmlNestingAllowed(deep, &offset));
  EXPECT_EQ(offset, deep.rfind('<'));
  // What could hide elements from a scanner that cuts tokens otherwise than the parser.
  for (const char* cover : {"</x>", "<?foo x=\">", "<?xml foo=\">", "<?xml version=\">\"?>",
                            "<!DOCTYPE a [\">", "<!-- <a> -->", "<a x=\xEF\xBB\xBF'</a></a>'>",
                            "<a>'\"</a>", "<a x=c></a>", "<a x='/>'/>", "<![CDATA[<\"]]>"}) {
    EXPECT_FALSE(IsXmlNestingAllowed(cover + deep)) << cover;
  }
  EXPECT_TRUE(IsXmlNestingAllowed("<a x=")) << "nothing behind the text is looked at";
  // And what only looks like nesting.
  std::string flat;
  for (std::size_t i = 0; i < 2 * kDeepestXml; ++i) {
    flat += "<a/><b x='<b>'></b><!-- <c> --><![CDATA[<d>]]>";
  }
  EXPECT_TRUE(IsXmlNestingAllowed("<r>" + flat + "</r>"));
}

}  // namespace
}  // namespace cvn
