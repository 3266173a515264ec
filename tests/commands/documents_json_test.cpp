#include "tests/commands/documents_fixture.h"

namespace tessel::testing {
namespace {

class JsonCommands : public DocumentsTest {
 protected:
  // The document after commands on the open document 'd', without blanks and line ends.
  std::string After(const std::string& document, const std::string& commands) const {
    Put("d.json", document);
    Run(OpenJson("d.json") + commands + SaveJson("after.json"));
    return Flat("after.json");
  }

  std::string Flat(const std::string& name) const {
    std::string flat;
    for (const char c : Get(name).substr(3)) {
      flat += c == ' ' || c == '\t' || c == '\r' || c == '\n' ? "" : std::string(1, c);
    }
    return flat;
  }

  static std::string Set(const std::string& kind, const std::string& path,
                         const std::string& value) {
    return "<jsonSet" + kind + "Value handle='d' path='" + path + "' value='" + value + "'/>";
  }
  static std::string Add(const std::string& path, const std::string& data) {
    return "<jsonAddChild handle='d' path='" + path + "' data='" + data + "'/>";
  }
  static std::string Remove(const std::string& path) {
    return "<jsonRemoveChild handle='d' path='" + path + "'/>";
  }
  static std::string Element(const std::string& path, const std::string& name) {
    return "<jsonGetElement handle='d' path='" + path + "' destHandle='" + name + "'/>";
  }
  static std::string Next(const std::string& step, const std::string& name = "e") {
    return "<jsonGetElement handle='d' path='list' destHandle='" + name + "' enumStep='" + step +
           "'/>";
  }
};

TEST_F(JsonCommands, TraceTheirLines) {
  Put("d.json", R"({"list":[1,"two"]})");
  const ScriptOutcome outcome =
      Run("<assign var='n' value='list'/><jsonOpen path='%dir%/d.json' handle='d'/>"
          "<jsonGetValue handle='d' path='/%n%[1]' var='v'/>"
          "<jsonGetElement handle='d' path='%n%' destHandle='e' enumStep='begin'/>"
          "<jsonAddChild handle='d' path='a' data='[\"%n%\"]'/>"
          "<jsonSetStringValue handle='d' path='%n%[0]' value='%v%'/>"
          "<jsonSetIntValue handle='d' path='i' value='12x'/>"
          "<jsonSetBoolValue handle='d' path='b' value='False'/>"
          "<jsonRemoveChild handle='d' path='%n%/1'/>"
          "<jsonSave handle='d' path='%dir%/%n%.json'/><jsonClose handle='d'/>"
          "<jsonClose handle='unknown'/>");
  const std::vector<std::string> expected = {
      "Assign value 'list' to the variable n",
      "jsonOpen begin [handle = d] [path = @/d.json]",
      "jsonOpen end   [handle = d] [path = @/d.json] [error = 0]",
      "jsonGetValue begin       [handle = d] [path = /list[1]] [variable = v]",
      "jsonGetValue end         [handle = d] [path = /list[1]] [error = 0]",
      "jsonGetElement begin     [handle = d] [path = list] [dest handle = e]",
      "jsonGetElement end       [handle = d] [path = list] [error = 0]",
      "jsonAddChild begin       [handle = d] [path = a] [data = [\"list\"]]",
      "jsonAddChild end         [handle = d] [path = a] [error = 0]",
      "jsonSetStringValue begin [handle = d] [path = list[0]] [value = two]",
      "jsonSetStringValue end   [handle = d] [path = list[0]] [error = 0]",
      "jsonSetIntValue begin    [handle = d] [path = i] [value = 12x]",
      "jsonSetIntValue end      [handle = d] [path = i] [error = 0]",
      "jsonSetIntValue begin    [handle = d] [path = b] [value = False]",
      "jsonSetIntValue end      [handle = d] [path = b] [error = 0]",
      "jsonRemoveChild begin    [handle = d] [path = list/1]",
      "jsonRemoveChild end      [handle = d] [path = list/1] [error = 0]",
      "jsonSave begin [handle = d] [path = @/list.json]",
      "jsonSave end   [handle = d] [path = @/list.json] [error = 0]",
      "jsonClose      [handle = d]",
      "jsonClose      [handle = unknown]"};
  EXPECT_EQ(RunLines(outcome), expected);
  EXPECT_EQ(Get("list.json"),
            "\xEF\xBB\xBF{\r\n   \"a\" : [ \"list\" ],\r\n   \"b\" : true,\r\n   \"i\" : 12,\r\n"
            "   \"list\" : [ \"two\" ]\r\n}\r\n");
}

TEST_F(JsonCommands, FailWithTheirCodes) {
  const std::string document =
      R"({"a":[{"b":1}],"big":2147483648,"e":[],"list":[1],"n":null,"o":{},"r":1.5,"s":"t"})";
  Put("d.json", document);
  Put("bad.json", "{\"a\":");
  Put("empty.json", "");
  Put("x.xml", "<r/>");
  const std::string open = OpenJson("d.json") + OpenXml("x.xml", "xml") +
                           "<assign var='nothing' value=''/><assign var='array[1]' value='x'/>";
  const struct {
    const char* command;
    const char* name;
    const char* code;
  } kCases[] = {
      {"jsonOpen path='%dir%/none.json' handle='n'", "jsonOpen", "2"},
      {"jsonOpen path='%dir%/none/d.json' handle='n'", "jsonOpen", "2"},
      {"jsonOpen path='%dir%' handle='n'", "jsonOpen", "2"},
      {"jsonOpen path='%dir%/bad.json' handle='n'", "jsonOpen", "2"},
      {"jsonOpen path='%dir%/empty.json' handle='n'", "jsonOpen", "2"},
      {"jsonSave path='%dir%/n.json' handle='n'", "jsonSave", "1627"},
      {"jsonSave path='%dir%/n.json' handle='xml'", "jsonSave", "1627"},
      {"jsonSave path='%dir%/none/n.json' handle='d'", "jsonSave", "1627"},
      {"jsonAddChild handle='n' path='a' data='{'", "jsonAddChild", "13"},
      {"jsonAddChild handle='n' path='a' data='{}'", "jsonAddChild", "1168"},
      {"jsonAddChild handle='d' path='a[' data='{}'", "jsonAddChild", "1627"},
      {"jsonAddChild handle='d' path='list[2000000000]' data='{}'", "jsonAddChild", "1627"},
      {"jsonRemoveChild handle='n' path='/a'", "jsonRemoveChild", "1168"},
      {"jsonRemoveChild handle='array' path='/a'", "jsonRemoveChild", "1168"},
      {"jsonSetStringValue handle='n' path='a' value='v'", "jsonSetStringValue", "1168"},
      {"jsonSetStringValue handle='xml' path='a' value='v'", "jsonSetStringValue", "1168"},
      {"jsonSetStringValue handle='d' path='//' value='v'", "jsonSetStringValue", "1627"},
      {"jsonSetStringValue handle='d' path='o[0]' value='v'", "jsonSetStringValue", "1627"},
      {"jsonSetStringValue handle='d' path='s[0]' value='v'", "jsonSetStringValue", "1627"},
      {"jsonSetStringValue handle='d' path='s[0]x' value='v'", "jsonSetStringValue", "1627"},
      {"jsonSetIntValue handle='n' path='a' value='1'", "jsonSetIntValue", "1168"},
      {"jsonSetIntValue handle='d' path='new[2000000000]' value='1'", "jsonSetIntValue", "1627"},
      {"jsonSetBoolValue handle='n' path='a' value='1'", "jsonSetIntValue", "1168"},
      {"jsonSetBoolValue handle='d' path='[-1]' value='1'", "jsonSetIntValue", "1627"},
      {"jsonGetValue handle='n' path='a' var='v'", "jsonGetValue", "1168"},
      {"jsonGetValue handle='d' path='none' var='v'", "jsonGetValue", "1627"},
      {"jsonGetValue handle='d' path='a[0]/b' var='v'", "jsonGetValue", "1627"},
      {"jsonGetValue handle='d' path='a//b' var='v'", "jsonGetValue", "1627"},
      {"jsonGetValue handle='d' path='a[0' var='v'", "jsonGetValue", "1627"},
      {"jsonGetValue handle='d' path='a[1]' var='v'", "jsonGetValue", "1627"},
      {"jsonGetValue handle='d' path='a[2000000000]' var='v'", "jsonGetValue", "1627"},
      {"jsonGetValue handle='d' path='n' var='v'", "jsonGetValue", "1627"},
      {"jsonGetValue handle='d' path='n/x' var='v'", "jsonGetValue", "1627"},
      {"jsonGetValue handle='d' path='' var='v'", "jsonGetValue", "1627"},
      {"jsonGetValue handle='d' path='o' var='v'", "jsonGetValue", "1627"},
      {"jsonGetValue handle='d' path='e' var='v'", "jsonGetValue", "1627"},
      {"jsonGetValue handle='d' path='r' var='v'", "jsonGetValue", "1627"},
      {"jsonGetValue handle='d' path='big' var='v'", "jsonGetValue", "1627"},
      {"jsonGetElement handle='n' path='a' destHandle='e'", "jsonGetElement", "1168"},
      {"jsonGetElement handle='d' path='none' destHandle='e'", "jsonGetElement", "1627"},
      {"jsonGetElement handle='d' path='n' destHandle='e'", "jsonGetElement", "1627"},
      {"jsonGetElement handle='n' path='list' destHandle='e' enumStep='begin'", "jsonGetElement",
       "1168"},
      {"jsonGetElement handle='d' path='none' destHandle='e' enumStep='begin'", "jsonGetElement",
       "1168"},
      {"jsonGetElement handle='d' path='o' destHandle='e' enumStep='begin'", "jsonGetElement",
       "1388"},
      {"jsonGetElement handle='d' path='s' destHandle='e' enumStep='begin'", "jsonGetElement",
       "1388"},
      {"jsonGetElement handle='d' path='e' destHandle='e' enumStep='begin'", "jsonGetElement",
       "1413"},
  };
  for (const auto& testCase : kCases) {
    const ScriptOutcome outcome =
        Run(open + "<" + testCase.command + "/><trace value='%error%%v%'/>" + SaveJson("n.json"));
    const std::string start = std::string(testCase.name) + " end ";
    const std::string code = std::string("[error = ") + testCase.code + "]";
    const bool ended = std::any_of(
        outcome.trace.begin(), outcome.trace.end(),
        [&](const std::string& line) { return line.starts_with(start) && line.ends_with(code); });
    EXPECT_TRUE(ended) << testCase.command;
    EXPECT_TRUE(outcome.Traced(std::string("Trace: ") + testCase.code + "%v%")) << testCase.command;
    EXPECT_EQ(Flat("n.json"), document) << testCase.command;
  }
}

TEST_F(JsonCommands, ReadByPath) {
  Put("d.json",
      R"({"a":[{"b":1,"c":[[2,3]]}],"t":true,"f":false,"i":-2147483648,"w":3.0,"":"none",)"
      R"("s":"\u00e9\u20ac\ud83d\ude00","p":{"q":{"r":"deep"}},"x]":"odd","5":"five"})");
  const struct {
    const char* path;
    const char* answer;
  } kCases[] = {
      {"a[0]b", "1"},
      {"/a[0]b", "1"},
      {"\\a[0]b", "1"},
      {"a[0]b/", "1"},
      {"a[00]b", "1"},
      {"a[x]b", "1"},
      {"a[]b", "1"},
      {"a[0]c[0][1]", "3"},
      {"p/q\\r", "deep"},
      {"p[-1]q/r", "deep"},
      {"/p/q/r/", "deep"},
      {"t", "true"},
      {"f", "false"},
      {"i", "-2147483648"},
      {"w", "3"},
      {"s", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {"x]", "odd"},
      {"5", "five"},
      {"p//q/r", "-"},
      {"//p/q/r", "-"},
      {"p/q/r//", "-"},
      {"a[0]/b", "-"},
      {"a[0]c[0]/[1]", "-"},
      {"a/[0]b", "1"},
      {"[0]", "-"},
  };
  for (const auto& testCase : kCases) {
    EXPECT_EQ(Answers(OpenJson("d.json") + TellJson(testCase.path)),
              std::string(testCase.answer) + "|")
        << testCase.path;
  }
  Put("root.json", "\"text\"");
  EXPECT_EQ(Answers(OpenJson("root.json") + TellJson("") + TellJson("/")), "text|text|");
}

TEST_F(JsonCommands, ChangeTheDocument) {
  const struct {
    const char* before;
    std::string commands;
    const char* after;
  } kCases[] = {
      {"{}", Set("String", "a/b", "v"), R"({"a":{"b":"v"}})"},
      {"{}", Set("String", "a[2]", "v"), R"({"a":[null,null,"v"]})"},
      {"{}", Set("Int", "a[1]b[0]c", "1"), R"({"a":[null,{"b":[{"c":1}]}]})"},
      {R"({"a":5})", Set("Int", "a/b", "1"), R"({"a":{"b":1}})"},
      {R"({"a":[5]})", Set("Int", "a[0]b", "1"), R"({"a":[{"b":1}]})"},
      {R"({"a":[5]})", Set("Int", "a/b", "1"), R"({"a":{"b":1}})"},
      {R"({"a":[5,6]})", Set("String", "a[3]", "v"), R"({"a":[5,6,null,"v"]})"},
      {"null", Set("String", "[1]", "v"), R"([null,"v"])"},
      {"[1]", Set("String", "a", "v"), R"({"a":"v"})"},
      {R"({"a":1})", Set("String", "", "v"), R"("v")"},
      {R"({"a":1})", Set("Bool", "/", "0"), "false"},
      {"{}", Set("Int", "a", "12x") + Set("Int", "b", "x") + Set("Int", "c", " -7"),
       R"({"a":12,"b":0,"c":-7})"},
      {"{}", Set("Int", "a", "99999999999") + Set("Int", "b", "-99999999999"),
       R"({"a":2147483647,"b":-2147483648})"},
      {"{}",
       Set("Bool", "a", "false") + Set("Bool", "b", "0") + Set("Bool", "c", "no") +
           Set("Bool", "d", "False") + Set("Bool", "e", "") + Set("Bool", "f", "00"),
       R"({"a":false,"b":false,"c":true,"d":true,"e":true,"f":true})"},
      {R"({"a":1})", Add("a", "[1, {\"b\": null} /* gone */]"), R"({"a":[1,{"b":null}]})"},
      {R"({"a":1})", Add("b/c", "7"), R"({"a":1,"b":{"c":7}})"},
      {R"({"a":1})", Add("", "\"text\""), R"("text")"},
      {R"({"a":1,"x":2})", Remove("/x"), R"({"a":1})"},
      {R"({"a":1,"x":{"x":2,"y":3}})", Remove("x"), R"({"a":1,"x":{"y":3}})"},
      {R"({"a":1})", Remove("/none") + Remove("none/x") + Remove("/a/") + Remove("a/b"),
       R"({"a":1})"},
      {R"({"l":[1,2,3,4]})", Remove("l/0") + Remove("l/[1]") + Remove("/l/9") + Remove("l/-1"),
       R"({"l":[2,4]})"},
      {R"({"l":[1,2,3]})", Remove("l/%%[%[1]]"), R"({"l":[1,3]})"},
      {R"({"l":[1,2,3]})", Remove("l[2]"), R"({"l":[1,2,3]})"},
      {R"({"l":[[1,2],[3]]})", Remove("l[0]/1"), R"({"l":[[1],[3]]})"},
      {R"([1,2])", Remove("/1"), R"([1])"},
      {R"({"o":{"a":{"b":1,"c":2}}})",
       Element("o/a", "e") + "<jsonRemoveChild handle='e' path='/b'/><jsonSetIntValue handle='e' "
                             "path='d[1]' value='3'/>",
       R"({"o":{"a":{"c":2,"d":[null,3]}}})"},
      {R"({"o":{"a":1}})", Element("o", "e") + "<jsonSetStringValue handle='e' path='' value='t'/>",
       R"({"o":"t"})"},
  };
  for (const auto& testCase : kCases) {
    EXPECT_EQ(After(testCase.before, testCase.commands), testCase.after) << testCase.commands;
  }
}

TEST_F(JsonCommands, SaveAPart) {
  Put("d.json", R"({"o":{"a":[1,{}]}})");
  Run(OpenJson("d.json") + Element("o/a", "e") + SaveJson("part.json", "e"));
  EXPECT_EQ(Get("part.json"), "\xEF\xBB\xBF[ 1, {} ]\r\n");
}

// A value that is replaced goes with its comments; so does an array that loses an element.
TEST_F(JsonCommands, KeepComments) {
  const char* const document =
      "// head\n{\n/* a */ \"a\" : 1,\n/* l */ \"l\" : [ 1,\n/* two */ 2 ],\n \"z\" : 3 // z\n}\n";
  EXPECT_EQ(After(document, ""), "//head{/*a*/\"a\":1,/*l*/\"l\":[1,/*two*/2],\"z\":3//z}");
  EXPECT_EQ(After(document, Set("Int", "a", "2") + Remove("l/0")),
            "//head{\"a\":2,\"l\":[/*two*/2],\"z\":3//z}");
}

TEST_F(JsonCommands, WalkAnArray) {
  Put("d.json", R"({"list":[1,[2],3],"other":["x"],"o":{}})");
  EXPECT_EQ(Answers(OpenJson("d.json") + Next("begin") + TellJson("", "e") + Next("next") +
                    TellJson("[0]", "e") + Next("whatever") + TellJson("", "e") + Next("next") +
                    TellError() + TellJson("", "e")),
            "1|2|3|1413|3|");
  // What happens to the array meanwhile.
  const struct {
    std::string between;
    const char* answers;
  } kCases[] = {
      {"<jsonClose handle='d'/>", "1168|"},
      {OpenJson("d.json"), "1168|"},
      {Remove("list/0"), "0|"},
      {Remove("/list"), "1168|"},
      {Set("Int", "list", "1"), "1413|"},
      {Set("Int", "", "1"), "1168|"},
      {Add("list", "[]"), "1413|"},
      {"<jsonGetElement handle='d' path='other' destHandle='x' enumStep='begin'/>", "1413|"},
      {"<jsonGetElement handle='d' path='o' destHandle='x' enumStep='begin'/>"
       "<assign var='error' value='0'/>",
       "0|"},
  };
  for (const auto& testCase : kCases) {
    EXPECT_EQ(
        Answers(OpenJson("d.json") + Next("begin") + testCase.between + Next("next") + TellError()),
        testCase.answers)
        << testCase.between;
  }
}

// Each way takes the value under the handle 'e', o/a[1], away.
TEST_F(JsonCommands, KnowHandlesThatAreGone) {
  Put("d.json", R"({"o":{"a":[0,{"b":1},2]}})");
  const std::string kWays[] = {
      "<jsonClose handle='d'/>",
      "<jsonClose handle='e'/>",
      OpenJson("d.json"),
      "<jsonGetElement handle='d' path='o' destHandle='d'/>",
      Remove("/o"),
      Remove("o/a"),
      Remove("o/a/0"),
      Remove("o/a/1"),
      Set("Int", "o/a", "1"),
      Set("Bool", "", "1"),
      Set("String", "o/a/x", "1"),
      Add("o", "{}"),
  };
  const std::string uses =
      "<jsonGetValue handle='e' path='b' var='v'/><jsonSetStringValue handle='e' path='b' "
      "value='v'/><jsonSetIntValue handle='e' path='' value='1'/><jsonSetBoolValue handle='e' "
      "path='b' value='1'/><jsonAddChild handle='e' path='b' data='1'/><jsonRemoveChild handle='e' "
      "path='/b'/><jsonGetElement handle='e' path='b' destHandle='f'/><jsonGetElement handle='e' "
      "path='b' destHandle='f' enumStep='begin'/><jsonSave handle='e' path='%dir%/n.json'/>";
  for (const std::string& way : kWays) {
    const ScriptOutcome outcome = Run(OpenJson("d.json") + Element("o/a[1]", "e") + way + uses);
    int unknown = 0;
    for (const std::string& line : outcome.trace) {
      unknown += line.ends_with("[error = 1168]") ? 1 : 0;
    }
    EXPECT_EQ(unknown, 8) << way;
    EXPECT_TRUE(outcome.Traced("jsonSave end   [handle = e] [path = @/n.json] [error = 1627]"))
        << way;
  }
}

TEST_F(JsonCommands, KeepHandlesThatStand) {
  Put("d.json", R"({"o":{"a":[0,{"b":1}],"c":1}})");
  EXPECT_EQ(Answers(OpenJson("d.json") + Element("o/a[1]", "e") + Element("o/c", "c") +
                    Set("Int", "o/a[1]b", "2") + Set("Int", "o/a[0]", "9") + Remove("o/none") +
                    Set("Int", "o/a[9]", "1") + TellJson("b", "e") + Set("String", "o/c", "t") +
                    TellJson("", "c") + "<assign var='d[1]' value='x'/>" + TellJson("o/c")),
            "2|t|t|");
}

TEST_F(JsonCommands, AnUnwritableTargetKeepsWhatItHas) {
  Put("d.json", "{}");
  Put("old.json", "old");
  const platform::files::File held = Hold("old.json");
  EXPECT_EQ(Answers(OpenJson("d.json") + SaveJson("old.json") + TellError()), "1627|");
  ExpectUntouched("old.json", "old");
}

}  // namespace
}  // namespace tessel::testing
