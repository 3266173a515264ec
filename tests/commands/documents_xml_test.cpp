#include "tests/commands/documents_fixture.h"

namespace tessel::testing {
namespace {

const char* const kSample = "<r a=\"1\"><x>one</x><x n=\"2\">two</x><y><z/></y></r>";

class XmlCommands : public DocumentsTest {
 protected:
  XmlCommands() { Put("d.xml", kSample); }

  // What the document looks like, on one line, after commands on the open document 'd'.
  std::string After(const std::string& commands) const {
    Run(OpenXml("d.xml") + commands + SaveXml("after.xml"));
    std::string flat;
    std::string text = Get("after.xml");
    EXPECT_TRUE(text.starts_with("\xEF\xBB\xBF"));
    for (std::size_t at = 3; at < text.size(); ++at) {
      if (text[at] == '\r' && text.substr(at, 2) == "\r\n") {
        at = std::min(text.find_first_not_of(' ', at + 2), text.size()) - 1;
      } else {
        flat += text[at];
      }
    }
    return flat;
  }
};

TEST_F(XmlCommands, TraceTheirLines) {
  const ScriptOutcome outcome =
      Run("<assign var='n' value='x'/><xmlOpen path='%dir%/d.xml' handle='d'/>"
          "<xmlGetValue handle='d' xpath='/r/%n%[2]' var='v'/>"
          "<xmlGetElement handle='d' xpath='/r/y' destHandle='e'/>"
          "<xmlAddChild handle='e' xpath='z' data='&lt;%n%/>' cdata='&amp;'/>"
          "<xmlSetValue handle='e' xpath='z/@k' value='[%v%]'/>"
          "<xmlSetCDataValue handle='d' xpath='/r/x' value='%n%'/>"
          "<xmlRemoveChild handle='d' xpath='/r/%n%[2]'/>"
          "<xmlSave handle='d' path='%dir%/%n%.xml'/><xmlClose handle='e'/><xmlClose handle='d'/>"
          "<xmlClose handle='unknown'/>");
  const std::vector<std::string> expected = {"Assign value 'x' to the variable n",
                                             "xmlOpen from '@/d.xml'.handle: d",
                                             "xmlOpen function end with success. err:''",
                                             "xmlGetValue in 'd' at '/r/x[2]'. variable: 'v'",
                                             "xmlGetValue function end with success. err:''",
                                             "xmlGetElement in 'd' at '/r/y'. destHandle: 'e'",
                                             "xmlGetValue function end with success. err:''",
                                             "xmlAddChild in 'e' at 'z'. xml: '<x/>'",
                                             "xmlAddChild function end with success. err:''",
                                             "xmlSetValue in 'e' at 'z/@k'. value: '[two]'",
                                             "xmlSetValue function end with success. err:''",
                                             "xmlSetValue in 'd' at '/r/x'. value: 'x'",
                                             "xmlSetCDataValue function end with success. err:''",
                                             "xmlRemoveChild in 'd' at '/r/x[2]'",
                                             "xmlRemoveChild function end with success. err:''",
                                             "xmlSave in '@/x.xml'.handle: d",
                                             "xmlSave function end with success. err:''",
                                             "xmlClose for handle: e",
                                             "xmlClose for handle: d",
                                             "xmlClose for handle: unknown"};
  EXPECT_EQ(RunLines(outcome), expected);
  EXPECT_EQ(Get("x.xml"),
            "\xEF\xBB\xBF<r a=\"1\">\r\n    <x>x</x>\r\n    <y>\r\n        <z k=\"[two]\">\r\n"
            "            <x>\r\n                <![CDATA[&]]>\r\n</x>\r\n        </z>\r\n"
            "    </y>\r\n</r>\r\n");
}

TEST_F(XmlCommands, FailWithTheirCodes) {
  Put("cut.xml", "<r><x></r>");
  Put("empty.xml", "");
  Put("rootless.xml", "<!-- nothing -->");
  Put("d.json", "{}");
  std::filesystem::create_directory(Folder() / "folder.xml");
  const std::string open = OpenXml("d.xml") + OpenXml("rootless.xml", "rootless") +
                           OpenJson("d.json", "json") + "<assign var='list[1]' value='x'/>" +
                           "<xmlGetElement handle='d' xpath='/r/y' destHandle='e'/>" +
                           "<assign var='nothing' value=''/>";
  const struct {
    const char* command;
    const char* name;  // in the last line
    const char* error;
  } kCases[] = {
      {"xmlOpen path='%dir%/none.xml' handle='n'", "xmlOpen", "2"},
      {"xmlOpen path='%dir%/none/d.xml' handle='n'", "xmlOpen", "3"},
      {"xmlOpen path='%dir%/folder.xml' handle='n'", "xmlOpen", "5"},
      {"xmlOpen path='%dir%/cut.xml' handle='n'", "xmlOpen", "2"},
      {"xmlOpen path='%dir%/empty.xml' handle='n'", "xmlOpen", "2"},
      {"xmlSave path='%dir%/n.xml' handle='n'", "xmlSave", "6"},
      {"xmlSave path='%dir%/n.xml' handle='e'", "xmlSave", "6"},
      {"xmlSave path='%dir%/n.xml' handle='json'", "xmlSave", "6"},
      {"xmlSave path='%dir%/n.xml' handle='list'", "xmlSave", "6"},
      {"xmlSave path='%dir%/none/n.xml' handle='d'", "xmlSave", "3"},
      {"xmlAddChild handle='none' xpath='/r' data='&lt;a>'", "xmlAddChild", "13"},
      {"xmlAddChild handle='d' xpath='/r' data='&lt;!-- a -->'", "xmlAddChild", "13"},
      {"xmlAddChild handle='d' xpath='/r' data='a'", "xmlAddChild", "13"},
      {"xmlAddChild handle='d' xpath='/r' data='%nothing%'", "xmlAddChild", "13"},
      {"xmlAddChild handle='none' xpath='/r' data='&lt;a/>'", "xmlAddChild", "6"},
      {"xmlAddChild handle='json' xpath='/r' data='&lt;a/>'", "xmlAddChild", "6"},
      {"xmlAddChild handle='rootless' xpath='/r' data='&lt;a/>'", "xmlAddChild", "1168"},
      {"xmlAddChild handle='d' xpath='/r/none' data='&lt;a/>'", "xmlAddChild", "3"},
      {"xmlAddChild handle='d' xpath='/r/@a' data='&lt;a/>'", "xmlAddChild", "3"},
      {"xmlAddChild handle='d' xpath='%nothing%' data='&lt;a/>'", "xmlAddChild", "3"},
      {"xmlRemoveChild handle='none' xpath='/r/x'", "xmlRemoveChild", "6"},
      {"xmlRemoveChild handle='list' xpath='/r/x'", "xmlRemoveChild", "6"},
      {"xmlRemoveChild handle='rootless' xpath='/r/x'", "xmlRemoveChild", "1168"},
      {"xmlRemoveChild handle='d' xpath='/r/none'", "xmlRemoveChild", "1168"},
      {"xmlRemoveChild handle='d' xpath='/r/@a'", "xmlRemoveChild", "1168"},
      {"xmlRemoveChild handle='d' xpath='/r/x/text()'", "xmlRemoveChild", "1168"},
      {"xmlRemoveChild handle='d' xpath='count(/r)'", "xmlRemoveChild", "1168"},
      {"xmlRemoveChild handle='d' xpath='/r['", "xmlRemoveChild", "1168"},
      {"xmlRemoveChild handle='d' xpath='/'", "xmlRemoveChild", "1168"},
      {"xmlRemoveChild handle='d' xpath='%nothing%'", "xmlRemoveChild", "1168"},
      {"xmlSetValue handle='none' xpath='/r/x' value='v'", "xmlSetValue", "6"},
      {"xmlSetValue handle='rootless' xpath='/r/x' value='v'", "xmlSetValue", "1168"},
      {"xmlSetValue handle='d' xpath='/r/none' value='v'", "xmlSetValue", "1168"},
      {"xmlSetValue handle='d' xpath='/r/none/@new' value='v'", "xmlSetValue", "1168"},
      {"xmlSetValue handle='d' xpath='/r/x/text()' value='v'", "xmlSetValue", "1168"},
      {"xmlSetValue handle='d' xpath='@none' value='v'", "xmlSetValue", "1168"},
      {"xmlSetValue handle='d' xpath='/r/x/@' value='v'", "xmlSetValue", "1168"},
      {"xmlSetValue handle='d' xpath='count(/r)' value='v'", "xmlSetValue", "1168"},
      {"xmlGetValue handle='none' xpath='/r/x' var='v'", "xmlGetValue", "6"},
      {"xmlGetValue handle='rootless' xpath='/r/x' var='v'", "xmlGetValue", "1168"},
      {"xmlGetValue handle='d' xpath='/r[' var='v'", "xmlGetValue", "3"},
      {"xmlGetValue handle='d' xpath='nosuch()' var='v'", "xmlGetValue", "3"},
      {"xmlGetValue handle='d' xpath='%nothing%' var='v'", "xmlGetValue", "3"},
      {"xmlGetElement handle='none' xpath='/r/x' destHandle='n'", "xmlGetValue", "6"},
      {"xmlGetElement handle='rootless' xpath='/r' destHandle='n'", "xmlGetValue", "1168"},
      {"xmlGetElement handle='d' xpath='/r/none' destHandle='n'", "xmlGetValue", "3"},
      {"xmlGetElement handle='d' xpath='/r/@a' destHandle='n'", "xmlGetValue", "3"},
      {"xmlGetElement handle='d' xpath='/r/x/text()' destHandle='n'", "xmlGetValue", "3"},
      {"xmlGetElement handle='d' xpath='1+1' destHandle='n'", "xmlGetValue", "3"},
      {"xmlGetElement handle='d' xpath=']' destHandle='n'", "xmlGetValue", "3"},
      {"xmlSetCDataValue handle='none' xpath='/r' value='v'", "xmlSetCDataValue",
       "Invalid handle value"},
      {"xmlSetCDataValue handle='rootless' xpath='/r' value='v'", "xmlSetCDataValue",
       "Could not convert to XML handle type"},
      {"xmlSetCDataValue handle='json' xpath='/r' value='v'", "xmlSetCDataValue",
       "Invalid handle type"},
      {"xmlSetCDataValue handle='list' xpath='/r' value='v'", "xmlSetCDataValue",
       "Invalid handle type"},
      {"xmlSetCDataValue handle='d' xpath='/r/none' value='v'", "xmlSetCDataValue",
       "Could not set value"},
  };
  for (const auto& testCase : kCases) {
    const ScriptOutcome outcome =
        Run(open + "<" + testCase.command + "/>" + TellError() + SaveXml("after.xml"));
    const std::string last =
        std::string(testCase.name) + " function end with error. err:'" + testCase.error + "'";
    EXPECT_TRUE(outcome.Traced(last)) << testCase.command;
    EXPECT_TRUE(outcome.Traced(std::string("Trace: ") + testCase.error)) << testCase.command;
    Run(OpenXml("d.xml") + SaveXml("untouched.xml"));
    EXPECT_EQ(Get("after.xml"), Get("untouched.xml")) << testCase.command;
  }
}

TEST_F(XmlCommands, ChangeTheDocument) {
  const struct {
    const char* commands;
    const char* after;
  } kCases[] = {
      {"<xmlSetValue handle='d' xpath='/r/y/@new' value='v'/>",
       "<r a=\"1\"><x>one</x><x n=\"2\">two</x><y new=\"v\"><z /></y></r>"},
      {"<xmlSetValue handle='d' xpath='//@n' value='3'/>",
       "<r a=\"1\"><x>one</x><x n=\"3\">two</x><y><z /></y></r>"},
      {"<xmlSetValue handle='d' xpath='@a' value='3'/>",
       "<r a=\"3\"><x>one</x><x n=\"2\">two</x><y><z /></y></r>"},
      {"<xmlSetValue handle='d' xpath='/r/y' value='&lt;&amp;'/>",
       "<r a=\"1\"><x>one</x><x n=\"2\">two</x><y>&lt;&amp;</y></r>"},
      {"<xmlSetValue handle='d' xpath='/r/y' value=''/>",
       "<r a=\"1\"><x>one</x><x n=\"2\">two</x><y></y></r>"},
      {"<xmlSetCDataValue handle='d' xpath='/r/y' value='&lt;&amp;'/>",
       "<r a=\"1\"><x>one</x><x n=\"2\">two</x><y>&lt;&amp;</y></r>"},
      {"<assign var='n' value=''/><xmlSetValue handle='d' xpath='%n%' value='v'/>",
       "<r a=\"1\">v</r>"},
      {"<assign var='n' value=''/><xmlSetCDataValue handle='d' xpath='%n%' value='v'/>",
       "<r a=\"1\">v</r>"},
      {"<xmlAddChild handle='d' xpath='y' data='&lt;!-- c -->&lt;a/>&lt;b/>'/>",
       "<r a=\"1\"><x>one</x><x n=\"2\">two</x><y><z /><a /></y></r>"},
      {"<xmlAddChild handle='d' xpath='y' cdata='a &amp; b'><data>&lt;a>t&lt;/a></data>"
       "</xmlAddChild>",
       "<r a=\"1\"><x>one</x><x n=\"2\">two</x><y><z /><a>t<![CDATA[a & b]]></a></y></r>"},
      {"<xmlAddChild handle='d' xpath='/r' insert_before='/r/x[2]' insert_after='/r/y' "
       "data='&lt;a/>'/>",
       "<r a=\"1\"><x>one</x><a /><x n=\"2\">two</x><y><z /></y></r>"},
      {"<xmlAddChild handle='d' xpath='/r' insert_after='x' data='&lt;a/>'/>",
       "<r a=\"1\"><x>one</x><a /><x n=\"2\">two</x><y><z /></y></r>"},
      {"<xmlAddChild handle='d' xpath='/r' insert_before='none' insert_after='y' data='&lt;a/>'/>",
       "<r a=\"1\"><x>one</x><x n=\"2\">two</x><y><z /></y><a /></r>"},
      {"<xmlAddChild handle='d' xpath='/r' insert_before='//z' data='&lt;a/>'/>",
       "<r a=\"1\"><x>one</x><x n=\"2\">two</x><y><z /></y></r>"},
      {"<xmlRemoveChild handle='d' xpath='x'/><xmlRemoveChild handle='d' xpath='x'/>",
       "<r a=\"1\"><y><z /></y></r>"},
      {"<xmlRemoveChild handle='d' xpath='/r'/>", ""},
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

TEST_F(XmlCommands, AnswerXPath) {
  Put("t.xml",
      "<r><a k='v'>t<b>u</b>w</a><c><![CDATA[<&>]]></c><!-- note -->"
      "<n:e xmlns:n='urn:n'>\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80</n:e></r>");
  const struct {
    const char* xpath;
    const char* answer;
  } kCases[] = {
      {"/r/a/@k", "v"},
      {"/r/a", "tuw"},
      {"/r/a/text()[2]", "w"},
      {"c", "<&>"},
      {"comment()", " note "},
      {"count(*)", "3"},
      {"count(/r/none)", "0"},
      {"/r/none", ""},
      {"name(*[3])", "n:e"},
      {"*[3]", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {"concat(\"a\", 1 + 2, true())", "a3true"},
      {"1 div 4", "0.25"},
      {"local-name(*[3])", "e"},
      {"string(//b/following-sibling::text())", "w"},
      {"name(//b/ancestor::*[last()])", "r"},
      {"substring-after(/r/a/@k, \"none\")", ""},
  };
  for (const auto& testCase : kCases) {
    EXPECT_EQ(Answers(OpenXml("t.xml") + TellXml(testCase.xpath)),
              std::string(testCase.answer) + "|")
        << testCase.xpath;
  }
}

// A failed instance stays failed; the one command that starts anew each time doesn't.
TEST_F(XmlCommands, KeepAnOldFailureOrClearIt) {
  const auto twice = [](const std::string& name) {
    return "<assign var='p' value='/r/none'/><" + name +
           " id='again' handle='d' xpath='%p%' value='v'/><test left='%p%' operator='==' "
           "right='/r/none' type='string'><onTrue><assign var='p' value='/r/y'/>"
           "<goto target='again'/></onTrue></test>";
  };
  const ScriptOutcome kept = Run(OpenXml("d.xml") + twice("xmlSetValue"));
  EXPECT_EQ(kept.Count("xmlSetValue function end with error. err:'1168'"), 2);
  const ScriptOutcome cleared = Run(OpenXml("d.xml") + twice("xmlSetCDataValue"));
  EXPECT_EQ(cleared.Count("xmlSetCDataValue function end with error. err:'Could not set value'"),
            1);
  EXPECT_EQ(cleared.Count("xmlSetCDataValue function end with success. err:''"), 1);
}

// Each script takes the handle 'e' of the element z or the text below it away, and all that use it
// must find none.
TEST_F(XmlCommands, KnowHandlesThatAreGone) {
  const char* const kWays[] = {
      "<xmlClose handle='d'/>",
      "<xmlOpen path='%dir%/d.xml' handle='d'/>",
      "<xmlGetElement handle='d' xpath='/r' destHandle='d'/>",
      "<xmlRemoveChild handle='d' xpath='//z'/>",
      "<xmlRemoveChild handle='d' xpath='/r/y'/>",
      "<xmlRemoveChild handle='d' xpath='/r'/>",
      "<xmlRemoveChild handle='e' xpath='.'/>",
      "<xmlSetValue handle='d' xpath='/r/y' value='v'/>",
      "<xmlSetCDataValue handle='d' xpath='/r' value='v'/>",
      "<xmlClose handle='e'/>",
  };
  const std::string uses =
      "<xmlGetValue handle='e' xpath='.' var='v'/><xmlSetValue handle='e' xpath='.' value='v'/>"
      "<xmlAddChild handle='e' xpath='.' data='&lt;a/>'/><xmlRemoveChild handle='e' xpath='.'/>"
      "<xmlGetElement handle='e' xpath='.' destHandle='f'/><xmlSave handle='e' path='%dir%/n.xml'/>"
      "<xmlSetCDataValue handle='e' xpath='.' value='v'/>";
  for (const char* way : kWays) {
    const ScriptOutcome outcome = Run(
        OpenXml("d.xml") + "<xmlGetElement handle='d' xpath='//z' destHandle='e'/>" + way + uses);
    int sixes = 0;
    for (const std::string& line : outcome.trace) {
      sixes += line.ends_with("function end with error. err:'6'") ? 1 : 0;
    }
    EXPECT_EQ(sixes, 6) << way;
    EXPECT_TRUE(
        outcome.Traced("xmlSetCDataValue function end with error. err:'Invalid handle value'"))
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
                    TellXml("count(../x)", "e")),
            "two|new|k|1|");
}

// Handles and arrays share their names; a document isn't an array.
TEST_F(XmlCommands, ADocumentIsNoArray) {
  EXPECT_EQ(Answers(OpenXml("d.xml") + "<assign var='d[1]' value='x'/><trace value='%d[1]%'/>" +
                    TellXml("x") +
                    "<xmlGetElement handle='d' xpath='y' destHandle='e'/>"
                    "<addString var='e[1]' value='x'/>" +
                    TellXml("name()", "e")),
            "%d[1]%|one|y|");
}

TEST_F(XmlCommands, AnUnwritableTargetKeepsWhatItHas) {
  Put("old.xml", "old");
  const platform::files::File held = Hold("old.xml");
  const ScriptOutcome outcome = Run(OpenXml("d.xml") + SaveXml("old.xml"));
  EXPECT_EQ(outcome.Count("xmlSave function end with error."), 1);
  ExpectUntouched("old.xml", "old");
}

}  // namespace
}  // namespace tessel::testing
