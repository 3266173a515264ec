// Loops, over whatever the commands that they are rewritten into do.
#include <gtest/gtest.h>

#include "tests/commands/documents_fixture.h"

namespace tessel::testing {
namespace {

class Loops : public DocumentsTest {
 protected:
  static std::string For(const std::string& value, const std::string& body,
                         const std::string& var = "p") {
    return "<for var='" + var + "' value='" + value + "' delim=';,'>" + body + "</for>";
  }
  static std::string Tell(const std::string& text) { return "<trace value='" + text + "'/>"; }
  static std::string XmlForEach(const std::string& xpath, const std::string& body) {
    return "<xmlForEach handle='d' xpath='" + xpath +
           "' step='following-sibling::*[1]' destHandle='e'>" + body + "</xmlForEach>";
  }
  static std::string JsonForEach(const std::string& path, const std::string& body) {
    return "<jsonForEach handle='d' path='" + path + "' destHandle='e'>" + body + "</jsonForEach>";
  }
};

TEST_F(Loops, ForTakesPieceAfterPiece) {
  const std::string longPiece(10'003, 'x');
  const struct {
    std::string value;
    std::string pieces;
  } kCases[] = {
      {"a;b;;c", "[a]|[b]|[c]|()|"},
      {"a;,;b", "[a]|[b]|()|"},
      {";a", "()|"},
      {"a;", "[a]|()|"},
      {"a", "[a]|()|"},
      {";", "()|"},
      {"%none%", "()|"},
      {"a b;c", "[a b]|[c]|()|"},
      {"%list%", "[x]|[%%y%%]|()|"},
      {longPiece + ";b", "[" + longPiece.substr(0, 10'000) + "]|[xxx]|[b]|()|"},
  };
  for (const auto& testCase : kCases) {
    std::string expected = testCase.pieces;
    for (std::size_t at = expected.find("%%"); at != std::string::npos; at = expected.find("%%")) {
      expected.erase(at, 1);
    }
    EXPECT_EQ(Answers("<assign var='none' value=''/><assign var='list' value='x;%%y%%'/>" +
                      For(testCase.value, Tell("[%p%]")) + Tell("(%p%)")),
              expected)
        << testCase.value.substr(0, 20);
  }
}

// The text is expanded once, before the first piece.
TEST_F(Loops, ForDoesNotSeeItsTextChange) {
  EXPECT_EQ(Answers("<assign var='x' value='a;b'/>" +
                    For("%x%", Tell("%p%") + "<assign var='x' value='c;d'/>")),
            "a|b|");
}

TEST_F(Loops, NestAndFollowEachOther) {
  EXPECT_EQ(Answers(For("a;b", For("1;2", Tell("%p%%q%"), "q") + For("3", Tell("%p%%q%"), "q")) +
                    For("c", Tell("%p%"))),
            "a1|a2|a3|b1|b2|b3|c|");
  EXPECT_EQ(Answers(For("a;b;c", "<test left='%p%' operator='==' right='b' type='string'><onTrue>" +
                                     For("1;2", Tell("%p%%q%"), "q") +
                                     "<goto target='out'/></onTrue></test>" + Tell("%p%")) +
                    "<nothing id='out'/>"),
            "a|b1|b2|");
  EXPECT_EQ(
      Answers(For("a;b;c", "<test left='%p%' operator='==' right='b' type='string'><onFalse>" +
                               For("%p%", "<exit code='3'/>", "q") + "</onFalse></test>")),
      "");
}

TEST_F(Loops, NestDeeply) {
  std::string body = Tell("in");
  for (int level = 0; level < 1'000; ++level) {
    body = For("x", body, "p" + std::to_string(level));
  }
  EXPECT_EQ(Answers(body + Tell("out")), "in|out|");
}

TEST_F(Loops, AreRefusedWithoutTheirAttributes) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> kinds = {
      {"for", {"delim", "var", "value"}},
      {"xmlForEach", {"handle", "step", "destHandle", "xpath"}},
      {"jsonForEach", {"handle", "destHandle", "path"}}};
  for (const auto& [kind, names] : kinds) {
    for (const std::string& changed : names) {
      for (const char* value : {"", " "}) {
        std::string loop = "<" + kind;
        for (const std::string& name : names) {
          loop += name != changed ? " " + name + "='x'" : *value != '\0' ? " " + name + "=''" : "";
        }
        const ScriptOutcome outcome = RunScript("<nothing/>" + loop + "/>");
        EXPECT_EQ(outcome.loadCode, kLoadCorrupt) << loop;
        const std::string line = changed.ends_with("path")
                                     ? "Function '" + kind.substr(0, kind.find("For")) +
                                           "GetElement' has invalid parameters (attributes)"
                                     : (kind == "for" ? "For" : kind) + " function is invalid";
        EXPECT_TRUE(outcome.Traced(line)) << loop;
      }
    }
  }
}

TEST_F(Loops, AreRefusedAsALabelOrWithHandlers) {
  const ScriptOutcome labelled =
      RunScript("<for id='l' var='p' value='a' delim=';'/><goto target='l'/>");
  EXPECT_EQ(labelled.loadCode, kLoadInvalid);
  EXPECT_TRUE(labelled.Traced("Label 'l' is reffered, but not present"));
  for (const char* name : {"onerror", "onsuccess", "onTrue", "data"}) {
    const ScriptOutcome outcome =
        RunScript("<for var='p' value='a' delim=';'><" + std::string(name) + "/></for>");
    EXPECT_EQ(outcome.loadCode, kLoadCorrupt);
    EXPECT_TRUE(outcome.Traced("Function '" + std::string(name) + "' not found"));
  }
}

// A body is read where the loop was: its labels are the script's.
TEST_F(Loops, GoOnWhenALabelInTheBodyIsReached) {
  EXPECT_EQ(Answers("<assign var='n' value='0'/>" + For("a;b", "<trace id='in' value='%p%%n%'/>") +
                    "<addInt var='n' value='1'/><test left='%n%' operator='&lt;' right='3' "
                    "type='number'><onTrue><goto target='in'/></onTrue></test>"),
            "a0|b0|1|2|");
  const ScriptOutcome twice =
      RunScript(For("a", "<nothing id='l'/>") + For("b", "<nothing id='l'/>"));
  EXPECT_EQ(twice.loadCode, kLoadCorrupt);
}

TEST_F(Loops, WalkXmlElements) {
  Put("d.xml", "<r><x n='1'/>t<x n='2'/><!-- c --><y n='3'/></r>");
  EXPECT_EQ(Answers(OpenXml("d.xml") + XmlForEach("x", TellXml("@n", "e")) + Tell("%error%")),
            "1|2|3|3|");
  EXPECT_EQ(Answers(OpenXml("d.xml") + XmlForEach("none", Tell("in")) + Tell("out")), "out|");
  EXPECT_EQ(Answers(XmlForEach("x", Tell("in")) + Tell("%error%")), "6|");
  // The body takes away what it stands on.
  EXPECT_EQ(Answers(OpenXml("d.xml") +
                    XmlForEach("x", TellXml("@n", "e") + "<xmlRemoveChild handle='e' xpath='.'/>") +
                    Tell("%error%")),
            "1|6|");
  EXPECT_EQ(
      Answers(OpenXml("d.xml") + XmlForEach("x", TellXml("@n", "e") + "<xmlClose handle='d'/>") +
              Tell("%error%")),
      "1|6|");
}

TEST_F(Loops, WalkJsonElements) {
  Put("d.json", R"({"l":[1,"two",true],"e":[],"o":{"a":1}})");
  EXPECT_EQ(Answers(OpenJson("d.json") + JsonForEach("l", TellJson("", "e")) + Tell("%error%")),
            "1|two|true|1413|");
  EXPECT_EQ(Answers(OpenJson("d.json") + JsonForEach("e", Tell("in")) + Tell("%error%") +
                    JsonForEach("o", Tell("in")) + Tell("%error%") +
                    JsonForEach("none", Tell("in")) + Tell("%error%")),
            "1413|1388|1168|");
  EXPECT_EQ(
      Answers(OpenJson("d.json") + JsonForEach("l", TellJson("", "e") + "<jsonClose handle='d'/>") +
              Tell("%error%")),
      "1|1168|");
}

// The fetch that ends a loop is one command, and a command that failed stays failed.
TEST_F(Loops, OverDocumentsRunInFullOnce) {
  Put("d.xml", "<r><x>1</x><x>2</x></r>");
  EXPECT_EQ(
      Answers(OpenXml("d.xml") + For("a;b", XmlForEach("x", TellXml("concat(\"%p%\", .)", "e")))),
      "a1|a2|b1|");
  Put("d.json", "{\"l\":[1,2]}");
  EXPECT_EQ(Answers(OpenJson("d.json") + For("a;b", JsonForEach("l", TellJson("", "e")))),
            "1|2|1|");
}

TEST_F(Loops, DoNotReachTheFallbackWhenTheyEnd) {
  Put("d.xml", "<r><x/></r>");
  Put("d.json", "{\"l\":[1]}");
  const std::string caught = "<exit/><trace id='caught' value='caught'/>";
  EXPECT_EQ(Answers("<onErrorGoTo target='caught'/>" + OpenXml("d.xml") + XmlForEach("x", "") +
                    XmlForEach("none", "") + OpenJson("d.json") + JsonForEach("l", "") +
                    Tell("end") + caught),
            "end|");
  EXPECT_EQ(Answers("<onErrorGoTo target='caught'/>" + OpenXml("d.xml") +
                    XmlForEach("x", "<xmlRemoveChild handle='e' xpath='none'/>") + caught),
            "caught|");
}

TEST_F(Loops, TraceOnlyPlainCommands) {
  const ScriptOutcome outcome = Run(For("a", ""));
  EXPECT_EQ(outcome.Count("GoTo label 'forbegin0x"), 1);
  EXPECT_EQ(outcome.Count("GoTo label 'forend0x"), 1);
  EXPECT_EQ(outcome.Count("Executing 'nothing' function"), 1);
  EXPECT_EQ(RunLines(outcome).front().substr(0, 19), "Assign value 'a' to");
}

}  // namespace
}  // namespace tessel::testing
