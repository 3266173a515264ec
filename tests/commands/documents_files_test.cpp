// Files of documents: their forms, and hostile ones.
#include "tests/commands/documents_fixture.h"

namespace tessel::testing {
namespace {

const std::string kMark = "\xEF\xBB\xBF";

std::string Utf16(const std::string& utf8, bool bigEndian) {
  std::string bytes = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
  const cvn::String wide = cvn::Utf8ToWide(utf8);
  for (const char16_t unit : wide.AsView()) {
    const char high = static_cast<char>(unit >> 8);
    const char low = static_cast<char>(unit & 0xFF);
    bytes += bigEndian ? std::string{high, low} : std::string{low, high};
  }
  return bytes;
}

class DocumentFiles : public DocumentsTest {
 protected:
  // The bytes that a file is saved as after it was opened; the error when it can't be.
  std::string SavedXml(const std::string& bytes) const {
    Put("in.xml", bytes);
    const std::string error = Answers(OpenXml("in.xml") + TellError() + SaveXml("out.xml"));
    return error == "0|" ? Get("out.xml") : error;
  }
  std::string SavedJson(const std::string& bytes) const {
    Put("in.json", bytes);
    const std::string error = Answers(OpenJson("in.json") + TellError() + SaveJson("out.json"));
    return error == "0|" ? Get("out.json") : error;
  }
};

TEST_F(DocumentFiles, XmlComesInEveryForm) {
  const std::string text = "<?xml version=\"1.0\"?>\n<r>\xC3\xA9\xF0\x9F\x98\x80</r>\n";
  const std::string saved =
      kMark + "<?xml version=\"1.0\" ?>\r\n<r>\xC3\xA9\xF0\x9F\x98\x80</r>\r\n";
  for (const std::string& bytes : {text, kMark + text, Utf16(text, false), Utf16(text, true)}) {
    EXPECT_EQ(SavedXml(bytes), saved);
  }
  const struct {
    std::string bytes;
    std::string saved;  // without the mark
  } kCases[] = {
      {"<r a=\"1\r\n2\r3\">x\r\ny\rz</r>", "<r a=\"1&#x0A;2&#x0A;3\">x y z</r>\r\n"},
      {"<r a='x' b='&quot;' c='&apos;' d='\"&apos;'/>",
       "<r a=\"x\" b='&quot;' c=\"&apos;\" d='&quot;&apos;' />\r\n"},
      {"<r a='&lt;&gt;&amp;&#9;&#x1;'>&lt;&gt;&amp;&quot;&apos;&#9;&#x1f;</r>",
       "<r a=\"&lt;&gt;&amp;&#x09;&#x01;\">&lt;&gt;&amp;&quot;&apos;&#x09;&#x1F;</r>\r\n"},
      {"<r a='&amp;#x41;'>&amp;#x20AC;&amp;#65;&amp;none;</r>",
       "<r a=\"&#x41;\">&#x20AC;&amp;#65;&amp;none;</r>\r\n"},
      {"<!DOCTYPE r SYSTEM 'r.dtd'><!-- top --><?pi data?><r><![CDATA[<&>]]></r><!-- end -->",
       "<!DOCTYPE r SYSTEM 'r.dtd'>\r\n<!-- top -->\r\n<?pi data?>\r\n"
       "<r>\r\n    <![CDATA[<&>]]>\r\n</r>\r\n<!-- end -->\r\n"},
      {"<r>a<b>c</b>d<e/><f> </f></r>",
       "<r>a\r\n    <b>c</b>d\r\n    <e />\r\n    <f />\r\n</r>\r\n"},
  };
  for (const auto& testCase : kCases) {
    EXPECT_EQ(SavedXml(testCase.bytes), kMark + testCase.saved) << testCase.bytes;
    if (testCase.saved.find("&#x") == std::string::npos) {
      EXPECT_EQ(SavedXml(testCase.saved), kMark + testCase.saved) << testCase.bytes;
    }
  }
}

TEST_F(DocumentFiles, JsonComesInItsForms) {
  const std::string text = "{\r\n\"a\" : \"\xC3\xA9\xF0\x9F\x98\x80\" }";
  const std::string saved = kMark + "{\r\n   \"a\" : \"\\u00e9\\ud83d\\ude00\"\r\n}\r\n";
  for (const std::string& bytes :
       {text, kMark + text, Utf16(text, false), text + "\x1A garbage", "\r" + text}) {
    EXPECT_EQ(SavedJson(bytes), saved);
  }
  const struct {
    std::string bytes;
    std::string saved;  // without the mark, or the error
  } kCases[] = {
      {Utf16(text, true), "2|"},
      {"[\"\xE9\xFF\"]", "[ \"\\ufffd\\ufffd\" ]\r\n"},
      {"[\"\\ud800\"]", "2|"},
      {"{\"a\":1,\"b\":2,\"a\":3}", "{\r\n   \"a\" : 3,\r\n   \"b\" : 2\r\n}\r\n"},
      {"[1e999]", "2|"},
      {"[18446744073709551615,18446744073709551616,-9223372036854775808,1.50,-0]",
       "[\r\n   18446744073709551615,\r\n   1.8446744073709552e+19,\r\n   -9223372036854775808,\r\n"
       "   1.5,\r\n   0\r\n]\r\n"},
  };
  for (const auto& testCase : kCases) {
    const bool isError = testCase.saved.ends_with("|");
    EXPECT_EQ(SavedJson(testCase.bytes), (isError ? "" : kMark) + testCase.saved) << testCase.bytes;
    EXPECT_TRUE(isError || SavedJson(testCase.saved) == kMark + testCase.saved) << testCase.bytes;
  }
}

TEST_F(DocumentFiles, NestingHasALimit) {
  const auto xml = [](int levels) { return Repeat("<a>", levels) + Repeat("</a>", levels); };
  EXPECT_TRUE(SavedXml(xml(4'096)).starts_with(kMark));
  EXPECT_EQ(SavedXml(xml(4'097)), "2|");
  const auto json = [](int levels) { return Repeat("[", levels) + Repeat("]", levels); };
  EXPECT_TRUE(SavedJson(json(1'000)).starts_with(kMark));
  EXPECT_EQ(SavedJson(json(100'000)), "2|");
}

TEST_F(DocumentFiles, NestingHasALimitForScriptsToo) {
  Put("d.xml", Repeat("<a>", 4'000) + "<z/>" + Repeat("</a>", 4'000));
  const auto add = [](int levels) {
    return "<xmlAddChild handle='d' xpath='(//z)[last()]'><data><![CDATA[" + Repeat("<z>", levels) +
           Repeat("</z>", levels) + "]]></data></xmlAddChild>" + TellError();
  };
  EXPECT_EQ(Answers(OpenXml("d.xml") + add(95) + add(1) + add(100'000) + TellXml("count(//z)") +
                    SaveXml("deep.xml") + OpenXml("deep.xml", "e") + TellXml("count(//z)", "e")),
            "0|13|13|96|96|");
  Put("d.json", "{}");
  const auto set = [](int levels) {
    return "<jsonSetIntValue handle='d' path='" + Repeat("a/", levels) + "' value='1'/>" +
           TellError();
  };
  EXPECT_EQ(Answers(OpenJson("d.json") + set(3'000) + set(3'001) + set(100'000) +
                    TellJson(Repeat("a/", 3'000)) + SaveJson("deep.json") + TellError()),
            "0|1627|1627|1|0|");
}

// Declared entities are not replaced, so they can't multiply.
TEST_F(DocumentFiles, EntitiesAreNotExpanded) {
  Put("d.xml",
      "<!DOCTYPE r SYSTEM 'file:///etc/passwd'><r a='&b;'>&a;&a;&lol9;&#xD83D;&#xDE00;</r>");
  EXPECT_EQ(Answers(OpenXml("d.xml") + TellXml(".") + TellXml("@a")),
            "&a;&a;&lol9;\xF0\x9F\x98\x80|&b;|");
  EXPECT_EQ(SavedXml("<r a='1' a='2'/>"), "2|");
}

}  // namespace
}  // namespace tessel::testing
