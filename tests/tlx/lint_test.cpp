#include <gtest/gtest.h>

#include <regex>
#include <set>
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

TEST(LintTest, TellsOfAllThatRefusesTheLoad) {
  const Row rows[] = {
      {"<Exit/>\n<trase/>\n<zzz/><exit/>",
       {"2:1: error: there is no command 'Exit'; did you mean 'exit'?",
        "3:1: error: there is no command 'trase'; did you mean 'trace'?",
        "4:1: error: there is no command 'zzz'"}},
      {"<goto target='nowhere'/>\n<nothing id='there'/><onErrorGoTo target='There'/>\n"
       "<goto target='%x%'/><exit/>",
       {"2:7: error: there is no label 'nowhere'",
        "3:35: error: there is no label 'There'; did you mean 'there'?",
        "4:7: error: there is no label '%x%'; it is used as written"}},
      {"<for id='a' var='v' value='x' delim=';'><onerror/></for><goto target='a'/>",
       {"2:6: warning: the label 'a' is lost: a loop keeps none",
        "2:41: error: there is no command 'onerror'; a loop such as 'for' has no handlers",
        "2:63: error: there is no label 'a'; a loop keeps none"}},
      {"<fileExists path='x' id='a'><onTrue><trace id='a'/></onTrue></fileExists>\n<exit id='a'/>",
       {"2:44: error: the label 'a' is taken, in line 2",
        "3:7: error: the label 'a' is taken, in line 2"}},
      {"<traceSetFile><onerrorspec/>\n<onerrorspec "
       "err=''><nope/></onerrorspec></traceSetFile><exit/>",
       {"2:15: error: 'onerrorspec': attribute 'err' is missing or empty",
        "2:15: warning: an empty 'onerrorspec' takes no error",
        "3:14: error: 'onerrorspec': attribute 'err' is missing or empty",
        "3:21: error: there is no command 'nope'"}},
      {"<exit/><unknown><onTrue><goto target='x'/></onTrue></unknown>",
       {"2:8: error: there is no command 'unknown'", "2:31: error: there is no label 'x'"}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Lint(row.body), row.expected) << row.body;
  }
}

TEST(LintTest, WarnsOfWhatIsPassedOver) {
  const Row rows[] = {
      {"<trace><onerror/><data>x</data>y</trace><exit>z</exit>",
       {"2:8: warning: 'onerror' is ignored: 'trace' has no handlers",
        "2:18: warning: 'trace' has no 'data'", "2:32: warning: a text in 'trace' is ignored",
        "2:47: warning: a text in 'exit' is ignored"}},
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
      {"<xmlAddChild handle='h' xpath='x'><data>a</data><data>b</data></xmlAddChild>\n"
       "<xmlAddChild handle='h' xpath='x' data='a'><data>b</data></xmlAddChild>\n"
       "<xmlAddChild handle='h' xpath='x'><data><!-- c -->b</data></xmlAddChild><exit/>",
       {"2:49: warning: only the first 'data' of a command counts",
        "3:44: warning: the attribute 'data' counts, and not this element",
        "4:1: error: 'xmlAddChild': attribute 'data' is empty",
        "4:35: warning: 'data' counts as empty, since it doesn't begin with a text"}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Lint(row.body), row.expected) << row.body;
  }
}

// What no run comes to, by the position of its warning, and where the script may run off its end.
TEST(LintTest, FollowsTheFlow) {
  const struct {
    const char* body;
    Lines expected;
  } rows[] = {
      // Straight on, and a list that ends behind its owner.
      {"<exit/><trace/><trace/>", {"2:8: no run"}},
      {"<goto target='a'/><trace><nothing/></trace><exit id='a'/>", {"2:19: no run"}},
      {"<trace/>", {"2:1: end"}},
      {"<fileExists path='x'><onTrue><trace/></onTrue></fileExists>", {"2:1: end"}},
      {"<fileExists path='x'><onTrue><exit/></onTrue><onFalse><exit/></onFalse></fileExists>", {}},
      {"<fileExists "
       "path='x'><onTrue><exit/></onTrue><onFalse><exit/></onFalse></fileExists><exit/>",
       {"2:85: no run"}},
      // A failure that nobody takes goes on, a success that somebody takes doesn't.
      {"<fileCreate path='x'><onsuccess><exit/></onsuccess></fileCreate><exit/>", {}},
      {"<fileCreate path='x'><onsuccess><exit/></onsuccess><onerror><exit/></onerror></fileCreate>"
       "<exit/>",
       {"2:91: no run"}},
      {"<fileCreate path='x'><onerrorspec err='5'><exit/><exit/></onerrorspec></fileCreate><exit/>",
       {"2:50: no run"}},
      // The fallback takes it, unless it may have been switched off.
      {"<onErrorGoTo target='f'/><fileCreate path='x'><onsuccess><exit/></onsuccess></fileCreate>"
       "<exit/><trace id='f'/><exit/>",
       {"2:90: no run"}},
      {"<onErrorGoTo target='f'/><onErrorGoTo target=''/><fileCreate path='x'>"
       "<onsuccess><exit/></onsuccess></fileCreate><exit/><trace id='f'/><exit/>",
       {"2:120: no run"}},
      {"<test type='string' operator='==' left='a' right='%a%'><onTrue><onErrorGoTo target='f'/>"
       "</onTrue></test><fileCreate path='x'><onsuccess><exit/></onsuccess></fileCreate><exit/>"
       "<trace id='f'/><exit/>",
       {}},
      {"<test type='string' operator='==' left='a' right='%a%'><onTrue><onErrorGoTo target='f'/>"
       "</onTrue><onFalse><onErrorGoTo target='g'/></onFalse></test><fileCreate path='x'/><exit/>"
       "<exit id='f'/><exit id='g'/>",
       {}},
      // Into a handler that nothing enters, and behind its owner.
      {"<goto target='in'/><trace/><traceSetFile><onerror><trace/><trace id='in'/></onerror>"
       "</traceSetFile><trace/><exit/>",
       {"2:20: no run", "2:28: no run"}},
      // Loops end, also those whose body doesn't.
      {"<for var='v' value='%x%' delim=';'><exit/><trace/></for>", {"2:1: end", "2:43: no run"}},
      {"<for var='v' value='%x%' delim=';'><goto target='o'/></for><exit/><exit id='o'/>", {}},
      {"<goto target='in'/><for var='v' value='x' delim=';'><nothing id='in'/></for><exit/>", {}},
      // Nothing is told of the flow while a jump leads nowhere.
      {"<goto target='typo'/><trace id='a'/>", {"2:7: there is no label 'typo'"}},
      {"<goto/><exit/>", {"2:1: 'goto': attribute"}},
      {"<goto target=''/><exit/>", {"2:7: a 'goto' without a target", "2:18: no run"}},
      {"", {"1:"}},
  };
  for (const auto& row : rows) {
    Lines seen = Lint(row.body);
    for (std::string& line : seen) {
      line = std::regex_replace(line, std::regex("(warning|error): (the script may )?"), "");
    }
    bool isAsExpected = seen.size() >= row.expected.size();
    for (std::size_t at = 0; isAsExpected && at < row.expected.size(); ++at) {
      isAsExpected = seen[at].starts_with(row.expected[at]);
    }
    EXPECT_TRUE(isAsExpected &&
                seen.size() ==
                    row.expected.size() + (row.body == std::string("<goto/><exit/>") ? 1 : 0))
        << row.body << "\n"
        << testing::PrintToString(seen);
  }
}

}  // namespace
