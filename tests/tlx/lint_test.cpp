#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/flow_dot.h"
#include "tools/tlx/script_check.h"
#include "tools/tlx/script_lint.h"

namespace {

using Lines = std::vector<std::string>;

constexpr char kHeader[] = "<header><property name='patchType' value='update'/></header>";

Lines LintDocument(const std::string& text) {
  TiXmlDocument document;
  const auto fault = tlx::CheckScript(text, &document);
  if (fault) {
    return {"refused: " + cvn::WideToUtf8(fault->text)};
  }
  Lines lines;
  for (const tlx::Finding& finding : tlx::LintScript(document)) {
    lines.push_back(cvn::WideToUtf8(
        cvn::Format(u"%u:%u: %s: %s", finding.position.line, finding.position.column,
                    finding.isError ? u"error" : u"warning", finding.text)));
  }
  return lines;
}

std::string ScriptOf(const std::string& body) {
  return std::string("<p version='1.0'>") + kHeader + "<script>\n" + body + "</script></p>";
}

// Of a script with this text, from its second line on.
Lines Lint(const std::string& body) { return LintDocument(ScriptOf(body)); }

std::string Dot(const std::string& body) {
  TiXmlDocument document;
  EXPECT_FALSE(tlx::CheckScript(ScriptOf(body), &document)) << body;
  return tlx::DotOf(tlx::ScriptFlow(*document.RootElement()->FirstChildElement("script")));
}

struct Row {
  const char* body;
  Lines expected;
};

TEST(LintTest, TellsOfWhatIsRefusedOrPassedOver) {
  const Row rows[] = {
      // What refuses the load.
      {"<trase/>\n<zzz/><exit/>",
       {"2:1: error: there is no command 'trase'; did you mean 'trace'?",
        "3:1: error: there is no command 'zzz'"}},
      {"<nothing id='there'/><onErrorGoTo target='There'/>\n<goto target='%x%'/><exit/>",
       {"2:35: error: there is no label 'There'; did you mean 'there'?",
        "3:7: error: there is no label '%x%'; it is used as written"}},
      {"<for id='a' var='v' value='x' delim=';'><onerror/></for><goto target='a'/>",
       {"2:6: warning: the label 'a' is lost: a loop keeps none",
        "2:41: error: there is no command 'onerror'; a loop such as 'for' has no handlers",
        "2:63: error: there is no label 'a'; a loop keeps none"}},
      {"<fileExists path='x' id='a'><onTrue><trace id='a'/></onTrue></fileExists>\n<exit id='a'/>",
       {"2:44: error: the label 'a' is taken, in line 2",
        "3:7: error: the label 'a' is taken, in line 2"}},
      {"<traceSetFile><onerrorspec err=''><nope/></onerrorspec></traceSetFile><exit/>",
       {"2:28: error: 'onerrorspec': attribute 'err' is missing or empty",
        "2:35: error: there is no command 'nope'"}},
      // What is ignored.
      {"<fileExists path='x'><onerror><zzz/></onerror><ontrue/><onTrue/>\n<onTrue/><data/>"
       "</fileExists>oops<exit/>",
       {"2:22: warning: 'onerror' is ignored: 'fileExists' has the handlers 'onTrue', 'onFalse'",
        "2:47: warning: 'ontrue' in 'fileExists' is ignored; did you mean 'onTrue'?",
        "3:1: warning: only the first 'onTrue' of a command counts",
        "3:10: warning: 'fileExists' has no 'data'",
        "3:30: warning: a text in 'script' is ignored"}},
      {"<fileCreate path='x'><onerrorspec err='5'><exit/></onerrorspec>\n"
       "<onerrorspec err='5'><nothing/></onerrorspec><onerrorspec err='5'/>\n"
       "<onerror err='6'/>text</fileCreate><exit/>",
       {"2:22: warning: a later handler of '5' takes this one's place",
        "3:46: warning: an empty 'onerrorspec' takes no error",
        "4:1: warning: an empty 'onerror' takes no error",
        "4:10: warning: 'onerror' has no attribute 'err'",
        "4:19: warning: a text in 'fileCreate' is ignored"}},
      {"<xmlOpen path='p' handle='h'/>\n"
       "<xmlAddChild handle='h' xpath='x'><data>%a</data><data>b</data></xmlAddChild>\n"
       "<xmlAddChild handle='h' xpath='x' data='&lt;a/>'><data>b</data></xmlAddChild>\n"
       "<xmlAddChild handle='h' xpath='x'><data><!-- c -->b</data></xmlAddChild><exit/>",
       {"3:35: warning: attribute 'data' is '%a', which isn't an element in XML",
        "3:50: warning: only the first 'data' of a command counts",
        "4:50: warning: the attribute 'data' counts, and not this element",
        "5:35: error: 'xmlAddChild': attribute 'data' is empty",
        "5:35: warning: 'data' counts as empty, since it doesn't begin with a text"}},
      // Attributes.
      {"<sleep Milisec='1'/><assign var=''/><exit/>",
       {"2:1: error: 'sleep': attribute 'milisec' is missing",
        "2:8: warning: 'sleep' has no attribute 'Milisec'; did you mean 'milisec'?",
        "2:21: error: 'assign': attribute 'value' is missing",
        "2:29: error: 'assign': attribute 'var' is empty"}},
      {"<test left='' right='' operator='&gt;' type='%t%'/><exit/>",
       {"2:24: error: 'test': attribute 'operator' is '>', and must be one of '==', '<', '<='",
        "2:40: error: 'test': attribute 'type' is '%t%', and must be one of 'string', 'number'"}},
      {"<assignToken var='v' value='x' regexp='(' index='0'/>\n"
       "<assignToken var='v' value='x' regexp='50%+(%p%)' index='%i%'/><exit/>",
       {"2:32: error: 'assignToken': attribute 'regexp' is no valid pattern: '('",
        "3:32: warning: '%p%' is not replaced: attribute 'regexp' is used as written"}},
      {"<assign id='%l%' var='a[%i%]' value='%x%'/><assign var='a%i%' value=''/>\n"
       "<fileCreate path='x'><onerrorspec err='%e%'><exit/></onerrorspec></fileCreate><exit/>",
       {"2:9: warning: '%l%' is not replaced: a label is used as written",
        "2:52: warning: '%i%' is not replaced: attribute 'var' is used as written",
        "3:35: warning: '%e%' is not replaced: attribute 'err' is used as written"}},
      {"<sleep milisec='2147483648'/><exit/>",
       {"2:8: warning: 'milisec' is '2147483648', which counts as 2147483647"}},
      {"<exit code='%c%'/><exit id='a' code=' +7 '/><exit id='b' code='7x'/>",
       {"2:7: warning: '%c%' is not replaced: attribute 'code' is used as written; it counts as 0",
        "2:19: warning: no run comes to this 'exit'",
        "2:58: warning: 'code' is '7x', which counts as 7"}},
      {"<fileCopySingle src='a' dest='b' failIfExists='0' diffLWTOnly='yes'/><trace std='Out'/>"
       "<jsonOpen path='p' handle='h'/>\n<jsonGetElement handle='h' path='p' destHandle='e' "
       "enumStep='Next'/>"
       "<exit xml:space='default'/>",
       {"2:51: warning: attribute 'diffLWTOnly' is 'yes', neither 'true' nor 'false'; it counts as "
        "false",
        "2:77: warning: attribute 'std' is 'Out', none of 'out', 'err'; it counts as ''",
        "3:52: warning: attribute 'enumStep' is 'Next', none of 'begin', 'next'; it counts as "
        "'next'"}},
      {"<jsonOpen path='p' handle='h'/>\n"
       "<jsonForEach handle='h' path='p' destHandle='e'><for var='v' value='x' delim='%d%'>"
       "<jsonForEach handle='h' path='p' destHandle='f' step='x'/></for></jsonForEach>\n"
       "<for var='v' value=''/><for var='v' value=';%x%' delim=',;'/><exit/>",
       {"3:72: warning: '%d%' is not replaced: attribute 'delim' is used as written",
        ("3:84: warning: a 'jsonForEach' in another takes its place in the array away: the outer "
         "one doesn't go on where it was"),
        "3:132: warning: 'jsonForEach' has no attribute 'step'",
        "4:1: error: 'for': attribute 'delim' is missing",
        "4:14: error: 'for': attribute 'value' is empty",
        ("4:37: warning: the text begins with a separator, which ends the loop before its first "
         "round")}},
      // Literals, which the libraries judge.
      {"<xmlOpen path='p' handle='h'/><jsonOpen path='p' handle='j'/>\n"
       "<xmlGetValue handle='h' xpath='x[' var='v'/><xmlGetValue handle='h' xpath='1' var='v'/>\n"
       "<xmlSetValue handle='h' xpath='count(x)' value=''/><xmlSetValue handle='h' xpath='x[%i%'"
       " value=''/>\n<xmlForEach handle='h' xpath='x' step='y(' destHandle='e'/>\n"
       "<jsonAddChild handle='j' path='a[0]/b' data='{'/><jsonRemoveChild handle='j' path='a'/>\n"
       "<jsonRemoveChild handle='j' path='a/b[1]'/><jsonRemoveChild handle='j' path='a/[1]'/>"
       "<exit/>",
       {"3:25: warning: attribute 'xpath' is 'x[', which isn't valid XPath",
        ("4:25: warning: attribute 'xpath' is 'count(x)', which is an expression that leads to no "
         "element"),
        "5:34: warning: attribute 'step' is 'y(', which isn't valid XPath",
        "6:26: warning: attribute 'path' is 'a[0]/b', which isn't a path that leads anywhere",
        "6:40: warning: attribute 'data' is '{', which isn't JSON",
        ("6:78: warning: attribute 'path' is 'a', which looks for a member in the member of the "
         "same name; with '/' in front, for the member"),
        ("7:29: warning: attribute 'path' is 'a/b[1]', which removes no element of an array; the "
         "index follows a '/'")}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Lint(row.body), row.expected) << row.body;
  }
}

TEST(LintTest, TellsWhetherTheHeaderLetsThePatchRun) {
  const Row rows[] = {
      {"",
       {"1:1: warning: the patch has expired, and no gate lets it through: there is no 'header'"}},
      {"<header><property name='PatchType' value='update'/>"
       "<property name='created' value='907200'/><property name='expires' value='2d'/></header>",
       {"1:18: warning: the patch's type is '', neither 'external' nor 'update': no gate lets it "
        "through",
        "1:36: warning: nobody reads a property 'PatchType'; did you mean 'patchType'?",
        "1:94: warning: the patch has expired on 1970-01-13",
        "1:135: warning: 'expires' is '2d', which counts as 2"}},
      {"<header><property name='patchType' value='external'/>"
       "<property name='created' value='9000000000000'/></header>",
       {"1:96: warning: the patch is refused until its 'created', which is in the future"}},
      {"<header><property name='patchType' value='external'/>"
       "<property name='created' value='0'/><property name='expires' value='99999'/></header>",
       {}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(
        LintDocument(std::string("<p version='1.0'>") + row.body + "<script><exit/></script></p>"),
        row.expected)
        << row.body;
  }
}

// What no run comes to, by the position of its warning, and where the script may run off its end.
TEST(LintTest, FollowsTheFlow) {
  const std::string loop = "<xmlForEach handle='h' xpath='x' step='s' destHandle='e'>";
  const std::string end = "</xmlForEach>";
  const std::pair<std::string, Lines> rows[] = {
      // Straight on, and a list that ends behind its owner.
      {"<trace/>", {"2:1: end"}},
      // A failure that nobody takes goes on, a success that somebody takes doesn't.
      {"<fileCreate path='x'><onsuccess><exit/></onsuccess><onerror><exit/></onerror></fileCreate>"
       "<exit/>",
       {"2:91: no run"}},
      {"<fileCreate path='x'><onerrorspec err='5'><exit/><exit/></onerrorspec></fileCreate><exit/>",
       {"2:50: no run"}},
      // The fallback takes it, unless it may have been switched off.
      {"<onErrorGoTo target='f'/><fileCreate path='x'><onsuccess><exit/></onsuccess></fileCreate>"
       "<exit/><trace id='f'/><exit/>",
       {"2:90: no run"}},
      {"<test type='string' operator='==' left='a' right='%a%'><onTrue><onErrorGoTo target='f'/>"
       "</onTrue></test><fileCreate path='x'><onsuccess><exit/></onsuccess></fileCreate><exit/>"
       "<trace id='f'/><exit/>",
       {}},
      // Into a handler that nothing enters, and behind its owner.
      {"<goto target='in'/><trace/><traceSetFile><onerror><trace/><trace id='in'/></onerror>"
       "</traceSetFile><trace/><exit/>",
       {"2:20: no run"}},
      // Loops end, also those whose body doesn't.
      {"<for var='v' value='%x%' delim=';'><exit/><trace/></for>", {"2:1: end", "2:43: no run"}},
      // Those over documents run in full once.
      {"<trace id='a'/>" + loop + "<trace/>" + end +
           "<fileExists path='x'><onTrue><goto target='a'/></onTrue></fileExists><exit/>",
       {"2:16: again",
        "2:28: 'xmlForEach' fails with the handle 'h': nothing is open under it here"}},
      // Handles: some run has a document, one fails on purpose, and no run has one of that kind.
      {"<xmlOpen path='p' handle='h'><onerror><jsonOpen path='p' handle='h'/></onerror></xmlOpen>"
       "<xmlSave path='p' handle='h'/><jsonSave path='p' handle='h'/><xmlClose handle='h'/>"
       "<xmlSave path='p' handle='h'><onerror><trace/></onerror></xmlSave>\n"
       "<xmlSave path='p' handle='h'/><exit/>",
       {"3:19: 'xmlSave' fails with the handle 'h': nothing is open under it here"}},
      {"<xmlOpen path='p' handle='h'/><jsonSave path='p' handle='h'/>\n"
       "<xmlGetElement handle='h' xpath='x' destHandle='e'/><xmlSave path='p' handle='e'/>\n"
       "<jsonOpen path='p' handle='j'/><xmlSetValue handle='j' xpath='x' value=''/><exit/>",
       {"2:50: 'jsonSave' fails with the handle 'h': it is one of XML here",
        "3:71: 'xmlSave' fails with the handle 'e': it holds an element here, and no document",
        "4:45: 'xmlSetValue' fails with the handle 'j': it is one of JSON here"}},
      // Nothing is told of the flow while a jump leads nowhere.
      {"<goto target=''/><goto target='typo'/><trace id='a'/>",
       {"2:7: a 'goto' without a target ends the run with -1", "2:24: there is no label 'typo'"}},
      {"", {"1:78: there is no command: the run ends with -1"}},
  };
  for (const auto& [body, expected] : rows) {
    Lines seen;
    for (const std::string& line : Lint(body)) {
      const std::string text = line.substr(line.find(": ", line.find(' ')) + 2);
      const std::string word = text.starts_with("no run")       ? "no run"
                               : text.starts_with("the script") ? "end"
                               : text.starts_with("a run may")  ? "again"
                                                                : text;
      seen.push_back(line.substr(0, line.find(' ') + 1) + word);
    }
    EXPECT_EQ(seen, expected) << body;
  }
}

// The statements of a graph that have `part` in them.
Lines Statements(const std::string& dot, const std::string& part) {
  Lines found;
  std::istringstream lines(dot);
  for (std::string line; std::getline(lines, line);) {
    if (line.find(part) != std::string::npos) {
      found.push_back(line.substr(line.find_first_not_of(' ')));
    }
  }
  return found;
}

TEST(GraphTest, HasAnEdgeForEachWayThatARunMayTake) {
  const Row rows[] = {
      {"", {"start -> end"}},
      {"<goto target='a'/><exit/><nothing id='a'/><goto target='b'/>",
       {"start -> c0", "c0 -> c2", "c2 -> c3", "c3 -> end [label=\"no such label\", color=red]"}},
      {"<fileCreate path='x'><onerrorspec err='&quot;\\'><exit/></onerrorspec>"
       "<onerror><trace/></onerror><onsuccess><exit/></onsuccess></fileCreate><exit/>",
       {"start -> c0", "c0 -> c1 [label=\"onerrorspec \\\"\\\\\"]", "c0 -> c2 [label=\"onerror\"]",
        "c0 -> c3 [label=\"onsuccess\"]", "c2 -> c4"}},
      {"<onErrorGoTo target='f'/><traceSetFile><onsuccess><onErrorGoTo target='g'/></onsuccess>"
       "</traceSetFile><fileCreate id='f' path='x'/><exit id='g'/>",
       {"start -> c0", "c0 -> c1", "c1 -> c2 [label=\"onsuccess\"]",
        "c1 -> c3 [label=\"onErrorGoTo\", style=dashed]", "c2 -> c3",
        "c3 -> fallback [label=\"onErrorGoTo\", style=dashed]", "c3 -> c4",
        "fallback -> c3 [style=dashed]", "fallback -> c4 [style=dashed]"}},
  };
  for (const Row& row : rows) {
    Lines edges = Statements(Dot(row.body), " -> ");
    std::ranges::sort(edges);
    Lines expected = row.expected;
    for (std::string& edge : expected) {
      edge += ";";
    }
    std::ranges::sort(expected);
    EXPECT_EQ(edges, expected) << row.body;
    const std::string dot = Dot(row.body);
    EXPECT_EQ(dot.find("end [label=\"-1\"") == dot.npos, dot.find("> end") == dot.npos) << row.body;
  }
  const std::string cut = "\\ny" + std::string(47, 'x') + "...\"";
  EXPECT_EQ(Statements(Dot("<trace value='y" + std::string(99, 'x') + "'/>"), cut).size(), 1u);
}

TEST(GraphTest, ManyAndDeepCommandsAreNoTrouble) {
  std::string many;
  for (int at = 0; at < 100'000; ++at) {
    const std::string label = std::to_string(at);
    many += at % 3 == 0 ? "<onErrorGoTo id='" + label + "' target='" + label + "'/>"
            : at % 3 == 1
                ? "<fileCreate path='x'/>"
                : "<goto target='" + std::to_string(at - 2) + "'/><nothing/><goto target='x'/>";
  }
  EXPECT_EQ(Lint(many).size(), 33'333u);
  EXPECT_GT(Statements(Dot(many), " -> ").size(), 100'000u);

  std::string deep = "<exit/>";
  for (int at = 0; at < 1'000; ++at) {
    deep = "<for var='v' value='x' delim=';'><fileExists path='x'><onTrue>" + deep +
           "</onTrue></fileExists></for>";
  }
  EXPECT_EQ(Lint(deep), Lines({"2:1: warning: the script may end behind this command without an "
                               "'exit', with -1"}));
  EXPECT_EQ(Statements(Dot(deep), "subgraph cluster_").size(), 1'000u);
}

}  // namespace
