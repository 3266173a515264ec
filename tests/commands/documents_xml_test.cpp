#include "tests/commands/documents_fixture.h"

namespace tessel::testing {
namespace {

class XmlCommands : public DocumentsTest {
 protected:
  XmlCommands() { Put("d.xml", "<r a=\"1\"><x>one</x><x n=\"2\">two</x><y><z/></y></r>"); }

  // What the document looks like, on one line, after commands on the open document 'd'.
  std::string After(const std::string& commands) const {
    Run(OpenXml("d.xml") + commands + SaveXml("after.xml"));
    std::string flat;
    const std::string text = Get("after.xml");
    for (std::size_t at = 3; at < text.size(); ++at) {
      if (text[at] == '\r') {
        at = std::min(text.find_first_not_of(' ', at + 2), text.size()) - 1;
      } else {
        flat += text[at];
      }
    }
    return flat;
  }
};

// Each way takes the element z of the handle 'e' away.
TEST_F(XmlCommands, HandlesEndWithTheirElements) {
  const std::string kWays[] = {
      "<xmlClose handle='d'/>",
      "<xmlClose handle='e'/>",
      OpenXml("d.xml"),
      "<xmlGetElement handle='d' xpath='/r' destHandle='d'/>",
      "<xmlRemoveChild handle='d' xpath='/r'/>",
      "<xmlRemoveChild handle='e' xpath='.'/>",
      "<xmlSetCDataValue handle='d' xpath='/r' value='v'/>",
      "<jsonOpen handle='e' path='%dir%/d.json'/>",
  };
  Put("d.json", "{}");
  for (const std::string& way : kWays) {
    EXPECT_EQ(Answers(OpenXml("d.xml") + "<xmlGetElement handle='d' xpath='//z' destHandle='e'/>" +
                      way + TellXml(".", "e") + TellError() +
                      "<xmlSave handle='e' path='%dir%/n.xml'/>" + TellError()),
              "-|6|6|")
        << way;
  }
}

TEST_F(XmlCommands, KeepHandlesThatStand) {
  EXPECT_EQ(Answers(OpenXml("d.xml") +
                    "<xmlGetElement handle='d' xpath='x[2]' destHandle='e'/>"
                    "<xmlGetElement handle='d' xpath='x[2]' destHandle='same'/>"
                    "<xmlRemoveChild handle='d' xpath='x[1]'/><xmlClose handle='same'/>" +
                    SaveXml("d2.xml") + TellXml(".", "e") +
                    "<xmlSetValue handle='e' xpath='.' value='new'/>" + TellXml(".", "e") +
                    "<xmlAddChild handle='e' xpath='.' data='&lt;k/>'/>" + TellXml("name(k)", "e") +
                    TellXml("count(../x)", "e") + "<xmlSetValue handle='e' xpath='@n' value='3'/>" +
                    TellXml("@n", "e") +
                    // Handles and arrays share their names; a document isn't an array.
                    "<assign var='d[1]' value='x'/><addString var='e[1]' value='x'/>"
                    "<trace value='%d[1]%'/>" +
                    TellXml("count(x)") + TellXml("name()", "e")),
            "two|new|k|1|3|%d[1]%|1|x|");
}

TEST_F(XmlCommands, FailOnOddExpressions) {
  const struct {
    std::string command;
    std::vector<std::string> xpaths;
    const char* error;
  } kCases[] = {
      {"xmlAddChild data='&lt;!-- a -->'", {"/r"}, "13|"},
      {"xmlAddChild data='&lt;a>&amp;amp;&amp;e;&lt;/a>'", {"/r"}, "13|"},
      {"xmlAddChild data='&lt;a/>'", {"/r/none", "/r/@a", "%nothing%"}, "3|"},
      {"xmlRemoveChild", {"/r/none", "/r/x/text()", "count(/r)", "/r[", "/", "%nothing%"}, "1168|"},
      {"xmlSetValue value='v'",
       {"/r/none", "/r/none/@new", "/r/x/text()", "@none", "/r/x/@", "count(/r)"},
       "1168|"},
      {"xmlGetValue var='v'", {"/r[", "nosuch()", "%nothing%"}, "3|"},
      {"xmlGetElement destHandle='n'", {"/r/@a", "/r/x/text()", "1+1", "]"}, "3|"},
  };
  Run(OpenXml("d.xml") + SaveXml("untouched.xml"));
  for (const auto& example : kCases) {
    for (const std::string& xpath : example.xpaths) {
      const std::string command = "<" + example.command + " handle='d' xpath='" + xpath + "'/>";
      EXPECT_EQ(Answers(OpenXml("d.xml") + command + TellError() + SaveXml("after.xml")),
                example.error)
          << command;
      EXPECT_EQ(Get("after.xml"), Get("untouched.xml")) << command;
    }
  }
}

TEST_F(XmlCommands, ChangeTheDocument) {
  const struct {
    const char* commands;
    const char* after;  // of the root
  } kCases[] = {
      {"<xmlSetValue handle='d' xpath='/r/y/@new' value='v'/>"
       "<xmlSetValue handle='d' xpath='//@n' value='3'/>"
       "<xmlSetValue handle='d' xpath='@a' value='4'/>",
       "<r a=\"4\"><x>one</x><x n=\"3\">two</x><y new=\"v\"><z /></y></r>"},
      {"<xmlSetValue handle='d' xpath='%nothing%' value='v'/>", "<r a=\"1\">v</r>"},
      {"<xmlAddChild handle='d' xpath='y' data='&lt;!-- c -->&lt;a/>&lt;b/>'/>"
       "<xmlAddChild handle='d' xpath='y' cdata='a &amp; b'><data>&lt;a>t&lt;/a></data>"
       "</xmlAddChild>",
       "<r a=\"1\"><x>one</x><x n=\"2\">two</x><y><z /><a /><a>t<![CDATA[a & b]]></a></y></r>"},
      {"<xmlAddChild handle='d' xpath='/r' insert_before='/r/x[2]' insert_after='/r/y' "
       "data='&lt;a/>'/>"
       "<xmlAddChild handle='d' xpath='/r' insert_after='x' data='&lt;b/>'/>"
       "<xmlAddChild handle='d' xpath='/r' insert_before='none' insert_after='y' data='&lt;c/>'/>"
       "<xmlAddChild handle='d' xpath='/r' insert_before='//z' data='&lt;lost/>'/>",
       "<r a=\"1\"><x>one</x><b /><a /><x n=\"2\">two</x><y><z /></y><c /></r>"},
      {"<xmlSetValue handle='d' xpath=\"//x/@n[.='2']\" value='3'/>"
       "<xmlSetValue handle='d' xpath=\"y/@k[.='0']\" value='4'/>"
       "<xmlSetValue handle='d' xpath='y/@\xC3\x97' value='5'/>"
       "<xmlSetValue handle='d' xpath='y/@\xC3\xA4' value='6'/>",
       "<r a=\"1\"><x>one</x><x n=\"3\">two</x><y \xC3\xA4=\"6\"><z /></y></r>"},
      {"<xmlAddChild handle='d' xpath='y/z' cdata='[[a]]>b]]>' data='&lt;a>&amp;#xA;&lt;?b >?>"
       "&lt;/a>'/>",
       "<r a=\"1\"><x>one</x><x n=\"2\">two</x><y><z><a>&#x0A;<?b >?>"
       "<![CDATA[[[a]]]]><![CDATA[>b]]]]><![CDATA[>]]></a></z></y></r>"},
      {"<xmlGetElement handle='d' xpath='y' destHandle='y'/>"
       "<xmlGetElement handle='y' xpath='z' destHandle='y'/>"
       "<xmlSetValue handle='y' xpath='@k' value='none'/>"
       "<xmlSetValue handle='y' xpath='./@k' value='v'/>"
       "<xmlRemoveChild handle='y' xpath='/r/x'/>",
       "<r a=\"1\"><x n=\"2\">two</x><y><z k=\"v\" /></y></r>"},
  };
  for (const auto& testCase : kCases) {
    EXPECT_EQ(After(testCase.commands), testCase.after) << testCase.commands;
  }
}

// The memory of a large document's copies and texts comes and goes.
TEST_F(XmlCommands, SaveLargeDocuments) {
  const std::string rows(std::size_t{18} << 20, 'x');
  Put("large.xml", "<r><a>1</a><b>" + rows + "</b></r>");
  EXPECT_EQ(Answers(OpenXml("large.xml") + "<xmlSetValue handle='d' xpath='a' value='2'/>" +
                    SaveXml("large.xml") + TellXml("a") +
                    "<xmlSetValue handle='d' xpath='a' value='3'/>" + SaveXml("large.xml") +
                    "<xmlRemoveChild handle='d' xpath='/r'/>" + SaveXml("none.xml") + TellError()),
            "2|13|");
  EXPECT_EQ(Get("large.xml").substr(0, 40).find("<a>3</a>") != std::string::npos, true);
  EXPECT_EQ(Get("large.xml").find("<b>" + rows + "</b>") != std::string::npos, true);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "none.xml"));
}

// What no other reader takes isn't saved.
TEST_F(XmlCommands, KeepTheOldFile) {
  Put("t.xml",
      "<r><a\x7F"
      "b>1</a\x7F"
      "b><b \x7F='2'>3</b></r>");
  Put("old.xml", "old");
  EXPECT_EQ(Answers(OpenXml("t.xml") + TellXml("b") + TellXml("name(*[1])") + TellXml("b/@*") +
                    SaveXml("old.xml") + TellError() + OpenXml("d.xml") +
                    "<xmlRemoveChild handle='d' xpath='/r'/>" + SaveXml("old.xml") + TellError()),
            "3|a\x7F"
            "b|2|13|13|");
  EXPECT_EQ(Get("old.xml"), "old");
}

TEST_F(XmlCommands, AnswerXPath) {
  Put("t.xml",
      "<r><a k='v'>t<b>u</b>w</a><c><![CDATA[<&>]]></c>"
      "<n:e xmlns:n='urn:n'>\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80</n:e></r>");
  const std::pair<const char*, const char*> kCases[] = {
      {"/r/a", "tuw"},
      {"/r/a/text()[2]", "w"},
      {"*[3]", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {"string(//b/following-sibling::text())", "w"},
      {"string-length(*[3])", "3"},
      {"count(*[string-length()=3])", "3"},
      {"substring(*[3], 2)", "\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {"substring(*[3], 1.5, 1)", "\xE2\x82\xAC"},
      {"substring(*[3], -1 div 0, 3)", ""},
      {"concat(substring(*[3], 3, 9), substring(\"\xC3\xA9\", 0), substring(*[3], 4))",
       "\xF0\x9F\x98\x80\xC3\xA9"},
      {"translate(*[3], \"\xF0\x9F\x98\x80\xC3\xA9\xE2\x82\xAC\", \"x\xE2\x82\xAC\")",
       "\xE2\x82\xACx"},
      {"translate(\"aba\xC3\xA8\", \"ab\", \"\xC3\xA9\xC3\xA8\")",
       "\xC3\xA9\xC3\xA8\xC3\xA9\xC3\xA8"},
      {"translate(*[3], \"a\", \"b\")", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
  };
  for (const auto& [xpath, answer] : kCases) {
    EXPECT_EQ(Answers(OpenXml("t.xml") + TellXml(xpath)), std::string(answer) + "|") << xpath;
  }
}

}  // namespace
}  // namespace tessel::testing
