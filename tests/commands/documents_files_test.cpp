// Files of documents: their forms, a corpus of them, and hostile ones.
#include <json/value.h>
#include <tinyxml.h>

#include "commands/documents/ccvn_tiny_xml.h"
#include "commands/documents/json_text.h"
#include "support/utf.h"
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

std::string Repeat(const std::string& text, int times) {
  std::string all;
  all.reserve(text.size() * static_cast<std::size_t>(times));
  for (int i = 0; i < times; ++i) {
    all += text;
  }
  return all;
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
      {"<?xml version='1.0' encoding='ISO-8859-1' standalone='yes'?><r>\xC3\xA9</r>",
       "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" standalone=\"yes\" ?>\r\n"
       "<r>\xC3\xA9</r>\r\n"},
      {"<r>\xE9\xED\xA0\x80\xFF</r>", "<r>" + Repeat("\xEF\xBF\xBD", 5) + "</r>\r\n"},
      {"<r>a&#xD83D;b</r>", "<r>a" + Repeat("\xEF\xBF\xBD", 3) + "b</r>\r\n"},
      {Utf16("<r>", false) + std::string("\x00\xD8", 2) + Utf16("</r>", false).substr(2),
       "<r>\xEF\xBF\xBD</r>\r\n"},
      {Utf16("<r/>", true) + "x", "<r />\r\n"},
      {Utf16("<r/>", false).substr(0, 9), "<r />\r\n"},
      {std::string("<r/>\0<x", 7), "<r />\r\n"},
      {"<r/> junk", "<r />\r\n"},
      {"<r a='x' b='&quot;' c='&apos;' d='\"&apos;'/>",
       "<r a=\"x\" b='&quot;' c=\"&apos;\" d='&quot;&apos;' />\r\n"},
      {"<r a='&lt;&gt;&amp;&#9;&#x1;'>&lt;&gt;&amp;&quot;&apos;&#9;&#x1f;</r>",
       "<r a=\"&lt;&gt;&amp;&#x09;&#x01;\">&lt;&gt;&amp;&quot;&apos;&#x09;&#x1F;</r>\r\n"},
      {"<r a='&amp;#x41;'>&amp;#x20AC;&amp;#65;&amp;none;</r>",
       "<r a=\"&#x41;\">&#x20AC;&amp;#65;&amp;none;</r>\r\n"},
      {"<r>&amp;#x; &amp;#x4G; &amp;#x41 &amp;#xaF;</r>",
       "<r>&amp;#x; &amp;#x4G; &amp;#x41 &#xaF;</r>\r\n"},
      {"<!DOCTYPE r SYSTEM 'r.dtd'><!-- top --><?pi data?><r><![CDATA[<&>]]></r><!-- end -->",
       "<!DOCTYPE r SYSTEM 'r.dtd'>\r\n<!-- top -->\r\n<?pi data?>\r\n"
       "<r>\r\n    <![CDATA[<&>]]>\r\n</r>\r\n<!-- end -->\r\n"},
      {"<r>a<b>c</b>d<e/><f> </f></r>",
       "<r>a\r\n    <b>c</b>d\r\n    <e />\r\n    <f />\r\n</r>\r\n"},
      {"<a/><b/>", "<a />\r\n<b />\r\n"},
  };
  for (const auto& testCase : kCases) {
    EXPECT_EQ(SavedXml(testCase.bytes), kMark + testCase.saved) << testCase.bytes;
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
      {"[\"\\udc00\"]", "[ \"\\ufffd\" ]\r\n"},
      {"{\"a\":1,\"b\":2,\"a\":3}", "{\r\n   \"a\" : 3,\r\n   \"b\" : 2\r\n}\r\n"},
      {"[1e999]", "2|"},
      {"[18446744073709551615,18446744073709551616,-9223372036854775808,1.50,-0]",
       "[\r\n   18446744073709551615,\r\n   1.8446744073709552e+19,\r\n   -9223372036854775808,\r\n"
       "   1.5,\r\n   0\r\n]\r\n"},
      {"\"lone\"", "\"lone\"\r\n"},
      {"// only a comment", "2|"},
      {"[1,]", "2|"},
  };
  for (const auto& testCase : kCases) {
    const bool isError = testCase.saved.ends_with("|");
    EXPECT_EQ(SavedJson(testCase.bytes), (isError ? "" : kMark) + testCase.saved) << testCase.bytes;
  }
}

// All that a tree holds, as text.
void Dump(const TiXmlNode& node, std::string* out) {
  *out += std::to_string(node.Type()) + "{" + (node.ToDocument() ? "" : node.ValueStr());
  if (const TiXmlElement* element = node.ToElement()) {
    for (const TiXmlAttribute* at = element->FirstAttribute(); at != nullptr; at = at->Next()) {
      *out += "|" + at->NameTStr() + "=" + at->ValueStr();
    }
  } else if (const TiXmlDeclaration* declaration = node.ToDeclaration()) {
    *out +=
        std::string(declaration->Version()) + declaration->Encoding() + declaration->Standalone();
  } else if (const TiXmlText* text = node.ToText()) {
    *out += text->CDATA() ? "|cdata" : "";
  }
  for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
    Dump(*child, out);
  }
  *out += "}";
}

std::string DumpFile(const std::filesystem::path& path) {
  auto document = std::make_shared<CCVNTinyXml>();
  std::string dump;
  if (document->Load(cvn::Utf8ToWide(path.string()))) {
    Dump(*document->GetRootElement()->Parent(), &dump);
  }
  return dump;
}

std::vector<std::string> XmlCorpus() {
  std::string wide = "<wide>";
  std::string attributes = "<r";
  for (int i = 0; i < 1'000; ++i) {
    const std::string number = std::to_string(i);
    wide += "<item id='" + number + "'>text " + number + "</item>";
    attributes += " a" + number + "='" + number + "'";
  }
  return {
      "<r/>",
      "<r></r>",
      "<r a=''/>",
      "<?xml version='1.0' encoding='UTF-8'?><r/>",
      "<?xml version='1.0' standalone='no'?><!-- a --><r/><!-- b -->",
      "<!DOCTYPE html PUBLIC '-//W3C//DTD XHTML 1.0//EN' 'x.dtd'><html><body/></html>",
      "<?xml-stylesheet type='text/xsl' href='s.xsl'?><r><?inner one?><a/></r>",
      "<r><![CDATA[a < b && c > d]]></r>",
      "<r>before<![CDATA[<in>]]>after</r>",
      "<r><![CDATA[one]]><![CDATA[two]]></r>",
      "<r><![CDATA[]]></r>",
      "<r>&lt;tag&gt; &amp; &quot;quoted&quot; &apos;s</r>",
      "<r a='&lt;&gt;&amp;' b='\"' c=\"'\" d='&quot;&apos;'/>",
      "<r>&#233;&#x20ac;&#x1F600;</r>",
      "<r a='line&#10;feed&#9;tab'>x&#10;y</r>",
      "<p>mixed <b>bold</b> and <i>italic <u>under</u></i> text<br/>end</p>",
      "<a><b><c><d><e><f>deep</f></e></d></c></b></a>",
      Repeat("<n>", 1'000) + "x" + Repeat("</n>", 1'000),
      wide + "</wide>",
      attributes + "/>",
      "<x:r xmlns:x='urn:x' xmlns='urn:y'><x:a x:k='1'/><b xml:lang='de'/></x:r>",
      "<\xD0\xBA\xD0\xBE\xD1\x80\xD0\xB5\xD0\xBD\xD1\x8C \xD0\xB8='\xE6\x97\xA5\xE6\x9C\xAC'>"
      "\xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D \xE0\xA4\xA8</\xD0\xBA\xD0\xBE\xD1\x80\xD0\xB5\xD0\xBD"
      "\xD1\x8C>",
      "<configuration><appSettings><add key='Server' value='host;port=1'/><!-- <add/> -->"
      "</appSettings></configuration>",
      "<r><!-- comment with -- dashes & <tags> --></r>",
      "<r><!----><a/><!-- --></r>",
      "<a-b.c_d:e1 f-g.h='1'/>",
      "<r>\n\n  <a>\n    1\n  </a>\n\n</r>\n",
      "<plist version='1.0'><dict><key>k</key><true/><key>l</key><string/></dict></plist>",
      "<r a=unquoted b = 'spaced' />",
      "<a/><b>two roots</b>",
  };
}

TEST_F(DocumentFiles, XmlCorpusSurvives) {
  for (const std::string& text : XmlCorpus()) {
    const std::string first = SavedXml(text);
    const std::string tree = DumpFile(Folder() / "in.xml");
    EXPECT_FALSE(tree.empty()) << text.substr(0, 200);
    EXPECT_EQ(DumpFile(Folder() / "out.xml"), tree) << text.substr(0, 200);
    EXPECT_EQ(SavedXml(first), first) << text.substr(0, 200);
  }
}

std::vector<std::string> JsonCorpus() {
  std::string wide = "[0";
  std::string members = "{\"m\":0";
  for (int i = 1; i < 1'000; ++i) {
    wide += "," + std::to_string(i);
    members += ",\"m" + std::to_string(i) + "\":[" + std::to_string(i) + "]";
  }
  return {
      "{}",
      "[]",
      "null",
      "true",
      "-12",
      "\"text\"",
      "[[],{},[[]],{\"a\":{}}]",
      R"({"a":{"b":{"c":[1,2,{"d":null}]}}})",
      R"(["\"\\\/\b\f\n\r\t\u0001",""])",
      R"(["\u00e9\u20ac\ud83d\ude00"])",
      "[\"\xD0\xBA\xE6\x97\xA5\xD7\xA9\xF0\x9F\x98\x80\"]",
      R"({"":"empty","a/b":1,"a[0]":2,"\u00e9":3," ":4})",
      "[1.5,-0.25,1e10,1.7976931348623157e308,4.9e-324,0.1]",
      "[2147483647,2147483648,-2147483649,9007199254740993]",
      Repeat("[", 990) + "1" + Repeat("]", 990),
      Repeat("{\"a\":", 900) + "1" + Repeat("}", 900),
      wide + "]",
      members + "}",
      "// head\n{\n// before a\n\"a\" : 1, // behind a\n/* block\n over lines */ \"b\" : [ 1, // "
      "x\n"
      " 2 ]\n}\n// tail\n",
      "[ \"" + std::string(100, 'x') + "\", \"" + std::string(5'000, 'y') + "\" ]",
  };
}

TEST_F(DocumentFiles, JsonCorpusSurvives) {
  for (const std::string& text : JsonCorpus()) {
    Json::Value before;
    Json::Value after;
    const std::string first = SavedJson(text);
    EXPECT_TRUE(ParseJson(text, JsonComments::Keep, &before)) << text.substr(0, 200);
    EXPECT_TRUE(ParseJson(first.substr(kMark.size()), JsonComments::Keep, &after));
    EXPECT_EQ(after, before) << text.substr(0, 200);
    EXPECT_EQ(SavedJson(first), first) << text.substr(0, 200);
  }
}

TEST_F(DocumentFiles, NestingHasALimit) {
  const auto xml = [](int levels) { return Repeat("<a>", levels) + Repeat("</a>", levels); };
  EXPECT_TRUE(SavedXml(xml(4'096)).starts_with(kMark));
  EXPECT_EQ(SavedXml(xml(4'097)), "2|");
  EXPECT_EQ(SavedXml(xml(100'000)), "2|");
  EXPECT_EQ(SavedXml(Repeat("<a>", 100'000)), "2|");
  const auto json = [](int levels) { return Repeat("[", levels) + Repeat("]", levels); };
  EXPECT_TRUE(SavedJson(json(1'000)).starts_with(kMark));
  EXPECT_EQ(SavedJson(json(100'000)), "2|");
  EXPECT_EQ(SavedJson(Repeat("{\"a\":[", 50'000)), "2|");
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
                    TellJson(Repeat("a/", 3'000)) + "<assign var='error' value='0'/>" +
                    SaveJson("deep.json") + TellError()),
            "0|1627|1627|1|0|");
}

// Whatever a cut leaves opens or doesn't, with the code of a file that is none.
TEST_F(DocumentFiles, CutAnywhere) {
  const std::string xml =
      "\xEF\xBB\xBF<?xml version=\"1.0\" encoding='x' standalone = \"no\" ?> <!DOCTYPE r [ "
      "<!ENTITY "
      "a \"b\"> ]><!-- c --><?pi d?><r a=\"&lt;\" b = 'c'\t><![CDATA[ ]] ]]>t&#233;&#xE9;&x;\xC3"
      "\xA9<a:b/><c d=e></c ></r>";
  const std::string json =
      "\xEF\xBB\xBF/* c */ { \"a\" : [ -1.5e+3, true, false, null, \"\\u00e9\\ud83d\\ude00\\n\xC3"
      "\xA9\" ], // d\n \"b\" : { \"c\" : { } } }";
  std::string script;
  for (std::size_t length = 0; length <= std::max(xml.size(), json.size()); ++length) {
    const std::string number = std::to_string(length);
    Put(number + ".xml", xml.substr(0, length));
    Put(number + ".json", json.substr(0, length));
    Put(number + "w.xml", Utf16(xml.substr(3), length % 2 == 0).substr(0, length));
    script += "<assign var='error' value='0'/>" + OpenXml(number + ".xml") +
              OpenXml(number + "w.xml", "w") + OpenJson(number + ".json", "j") + TellError() +
              TellXml("count(//node())") + TellXml("count(//node())", "w") + TellJson("", "j");
  }
  const ScriptOutcome outcome = Run(script);
  EXPECT_EQ(outcome.result, kRanOffTheEnd);
  EXPECT_GT(outcome.Count("Trace: 2"), 100);
  EXPECT_GT(outcome.Count("xmlOpen function end with success"), 1);
  for (const std::string& line : outcome.trace) {
    EXPECT_FALSE(line.starts_with("xmlOpen function end with error") && !line.ends_with("'2'"))
        << line;
  }
}

TEST_F(DocumentFiles, HugeOnesStillWork) {
  constexpr int kMillions = 20'000'000;
  Put("d.xml", "<r a='" + std::string(kMillions, 'x') + "'>" + Repeat("&amp;", 500'000) + "</r>");
  EXPECT_EQ(Answers(OpenXml("d.xml") + TellXml("string-length(@a)") + TellXml("string-length(.)") +
                    TellXml("*[2000000000]") + "<xmlSetValue handle='d' xpath='@a' value='&lt;'/>" +
                    SaveXml("e.xml")),
            "20000000|500000||");
  EXPECT_EQ(Get("e.xml").size(), 3 + sizeof("<r a=\"&lt;\"></r>\r\n") - 1 + 5 * 500'000);
  Put("d.json", "{\"a\":\"" + std::string(kMillions, 'x') + "\",\"l\":[1]}");
  EXPECT_EQ(Answers(OpenJson("d.json") + TellJson("l[2000000000]") + TellJson("l[99999999999]") +
                    "<jsonSetIntValue handle='d' path='l[1000001]' value='7'/>"
                    "<jsonSetIntValue handle='d' path='l[1000]' value='7'/>" +
                    TellJson("l[1000]") + "<assign var='error' value='0'/>" + SaveJson("e.json") +
                    TellError()),
            "-|-|7|0|");
}

// Declared entities are not replaced, so they can't multiply.
TEST_F(DocumentFiles, EntitiesAreNotExpanded) {
  Put("d.xml",
      "<!DOCTYPE r SYSTEM 'file:///etc/passwd'><r a='&b;'>&a;&a;&lol9;&#99999999999;&#x;</r>");
  EXPECT_EQ(Answers(OpenXml("d.xml") + TellXml(".") + TellXml("@a")), "a;a;lol9;|b;|");
  EXPECT_EQ(SavedXml("<r a='1' a='2'/>"), "2|");
}

}  // namespace
}  // namespace tessel::testing
