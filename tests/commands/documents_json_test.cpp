#include "tests/commands/documents_fixture.h"

namespace tessel::testing {
namespace {

class JsonCommands : public DocumentsTest {
 protected:
  // The document after commands on the open document 'd', without blanks and line ends.
  std::string After(const std::string& document, const std::string& commands) const {
    Put("d.json", document);
    Run(OpenJson("d.json") + commands + SaveJson("after.json"));
    std::string flat = Get("after.json").substr(3);
    std::erase_if(flat, [](char c) { return c == ' ' || c == '\r' || c == '\n'; });
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
  static std::string Element(const std::string& path, const std::string& name,
                             const std::string& step = "") {
    return "<jsonGetElement handle='d' path='" + path + "' destHandle='" + name + "' enumStep='" +
           step + "'/>";
  }
  static std::string Next(const std::string& step) { return Element("list", "e", step); }
};

TEST_F(JsonCommands, FailOnOddPaths) {
  const std::string document =
      R"({"a":[{"b":1}],"e":[],"list":[1],"n":null,"o":{},"r":1.5,"s":"t"})";
  const struct {
    std::string command;
    const char* error;
    std::vector<std::string> paths;
  } kCases[] = {
      {"jsonSetStringValue value='v'", "1627%v%|", {"//", "o[0]", "s[0]x", "[-1]"}},
      {"jsonGetValue var='v'",
       "1627%v%|",
       {"a[0]/b", "a//b", "a[0", "a[1]", "n/x", "", "o", "e", "r"}},
      {"jsonGetElement destHandle='e' enumStep='begin'", "1388%v%|", {"o", "s"}},
  };
  for (const auto& example : kCases) {
    for (const std::string& path : example.paths) {
      Put("d.json", document);
      EXPECT_EQ(Answers(OpenJson("d.json") + "<" + example.command + " handle='d' path='" + path +
                        "'/><trace value='%error%%v%'/>" + SaveJson("n.json")),
                example.error)
          << example.command << path;
      EXPECT_EQ(After(Get("n.json"), ""), document) << example.command << path;
    }
  }
}

TEST_F(JsonCommands, ReadByPath) {
  Put("d.json", R"({"a":[{"b":1,"c":[[2,3]]}],"t":true,"w":3.0,"":"none",)"
                R"("s":"\u00e9\u20ac\ud83d\ude00","p":{"q":{"r":"deep"}},"x]":"odd"})");
  const std::pair<std::string, std::vector<const char*>> kCases[] = {
      {"1", {"a[0]b", "/a[0]b", "\\a[0]b", "a[0]b/", "a[00]b", "a[x]b", "a[]b", "a/[0]b"}},
      {"3", {"a[0]c[0][1]", "w"}},
      {"deep", {"p/q\\r", "p[-1]q/r", "/p/q/r/"}},
      {"true", {"t"}},
      {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", {"s"}},
      {"odd", {"x]"}},
      {"-", {"p//q/r", "//p/q/r", "p/q/r//", "a[0]/b", "a[0]c[0]/[1]", "[0]"}},
  };
  for (const auto& [answer, paths] : kCases) {
    for (const char* path : paths) {
      EXPECT_EQ(Answers(OpenJson("d.json") + TellJson(path)), answer + "|") << path;
    }
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
      {"{}", Set("Int", "a[1]b[0]c", "1"), R"({"a":[null,{"b":[{"c":1}]}]})"},
      {R"({"a":5})", Set("Int", "a/b", "1"), R"({"a":{"b":1}})"},
      {R"({"a":[5,6]})", Set("String", "a[3]", "v"), R"({"a":[5,6,null,"v"]})"},
      {R"({"a":1})", Set("String", "", "v"), R"("v")"},
      {"{}",
       Set("Bool", "a", "false") + Set("Bool", "b", "0") + Set("Bool", "c", "no") +
           Set("Bool", "d", "False") + Set("Bool", "e", "") + Set("Bool", "f", "00"),
       R"({"a":false,"b":false,"c":true,"d":true,"e":true,"f":true})"},
      {R"({"a":1})", Add("a", "[1, {\"b\": null} /* gone */]"), R"({"a":[1,{"b":null}]})"},
      {R"({"a":1})", Add("", "\"text\""), R"("text")"},
      {R"({"a":1,"x":{"x":2,"y":3}})", Remove("x"), R"({"a":1,"x":{"y":3}})"},
      {R"({"a":1})", Remove("/none") + Remove("none/x") + Remove("/a/") + Remove("a/b"),
       R"({"a":1})"},
      {R"({"l":[1,2,3,4]})", Remove("l/0") + Remove("l/[1]") + Remove("/l/9") + Remove("l/-1"),
       R"({"l":[2,4]})"},
      {R"({"l":[1,2,3]})", Remove("l/%%[%[1]]"), R"({"l":[1,3]})"},
      {R"({"l":[[1,2],[3]]})", Remove("l[0]/1"), R"({"l":[[1],[3]]})"},
      {R"({"o":{"a":{"b":1,"c":2}}})",
       Element("o/a", "e") + "<jsonRemoveChild handle='e' path='/b'/><jsonSetIntValue handle='e' "
                             "path='d[1]' value='3'/>",
       R"({"o":{"a":{"c":2,"d":[null,3]}}})"},
  };
  for (const auto& testCase : kCases) {
    EXPECT_EQ(After(testCase.before, testCase.commands), testCase.after) << testCase.commands;
  }
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
      {OpenJson("d.json"), "1168|"},
      {Remove("list/0"), "0|"},
      {Remove("/list"), "1168|"},
      {Set("Int", "list", "1"), "1413|"},
      {Add("list", "[]"), "1413|"},
      {Element("o", "x", "begin") + "<assign var='error' value='0'/>", "0|"},
  };
  for (const auto& testCase : kCases) {
    EXPECT_EQ(
        Answers(OpenJson("d.json") + Next("begin") + testCase.between + Next("next") + TellError()),
        testCase.answers)
        << testCase.between;
  }
}

// Each way takes the value under the handle 'e', o/a[1], away.
TEST_F(JsonCommands, HandlesEndWithTheirValues) {
  Put("d.json", R"({"o":{"a":[0,{"b":1},2]}})");
  Put("x.xml", "<r/>");
  const std::string kWays[] = {
      "<jsonClose handle='d'/>",
      "<jsonClose handle='e'/>",
      OpenJson("d.json"),
      Remove("o/a"),
      Remove("o/a/0"),
      Remove("o/a/1"),
      Set("String", "o/a/x", "1"),
      Add("o", "{}"),
      OpenXml("x.xml", "e"),
  };
  for (const std::string& way : kWays) {
    EXPECT_EQ(Answers(OpenJson("d.json") + Element("o/a[1]", "e") + way + TellJson("b", "e") +
                      TellError() + SaveJson("n.json", "e") + TellError()),
              "-|1168|1627|")
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

}  // namespace
}  // namespace tessel::testing
