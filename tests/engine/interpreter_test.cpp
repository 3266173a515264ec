#include <gtest/gtest.h>

#include <string>

#include "support/utf.h"
#include "tests/engine/script_harness.h"

namespace tessel::testing {
namespace {

std::string Mark(const std::string& name) { return "<trace value='" + name + "'/>"; }

// The marks that a script passes, in order.
std::string Road(const ScriptOutcome& outcome) {
  std::string road;
  for (const std::string& line : outcome.trace) {
    if (line.starts_with("Trace: ")) {
      road += line.substr(7);
    }
  }
  return road;
}

TEST(Interpreter, ChoosesTheHandlerByTheErrorText) {
  const auto script = [](const std::string& error) {
    return "<fail error='" + error + "' times='1'><onerrorspec err='2'>" + Mark("a") +
           "</onerrorspec><onerrorspec err='ABC'>" + Mark("b") +
           "</onerrorspec><onerrorspec err='9'/><onerror>" + Mark("c") + "</onerror><onsuccess>" +
           Mark("d") + "</onsuccess></fail>" + Mark("z") + "<trace value='=%error%'/><exit/>";
  };
  const struct {
    const char* error;
    const char* road;
    const char* entered;
  } kCases[] = {
      {"2", "az=2", "Entering onerrorspec handler err='2'"},
      {"ABC", "bz=ABC", "Entering onerrorspec handler err='ABC'"},
      {"abc", "cz=abc", "Entering onerror handler. err='abc'"},
      {"9", "cz=9", "Entering onerror handler. err='9'"},  // an empty handler is none
      {"", "cz=", "Entering onerror handler. err=''"},
  };
  for (const auto& testCase : kCases) {
    const ScriptOutcome outcome = RunScript(script(testCase.error));
    EXPECT_EQ(Road(outcome), testCase.road);
    EXPECT_TRUE(outcome.Traced(testCase.entered)) << testCase.entered;
  }
  EXPECT_EQ(Road(RunScript("<fail error='1' times='0'><onsuccess>" + Mark("d") +
                           "</onsuccess></fail>" + Mark("=%error%"))),
            "d=0");
}

TEST(Interpreter, AFailedInstanceGoesOnReportingItsFailure) {
  const ScriptOutcome outcome = RunScript(
      "<assign var='i' value='0'/><fail id='again' error='E%i%' times='1'><onerror>" +
      Mark("(%error%)") +
      "</onerror><onsuccess><exit code='9'/></onsuccess></fail><addInt var='i' value='1'/>"
      "<test left='%i%' operator='&lt;' right='3' type='number'><onTrue><goto target='again'/>"
      "</onTrue></test><exit code='4'/>");
  EXPECT_EQ(outcome.result, 4);
  EXPECT_EQ(Road(outcome), "(E0)(E0)(E0)");
}

TEST(Interpreter, ContinuesBehindTheOwnerOfAHandler) {
  // Two levels down, each at the end of its list: on with the first ancestor that has a successor.
  EXPECT_EQ(
      Road(RunScript("<fail error='1' times='1'><onerror><fail error='2' times='1'><onerror>" +
                     Mark("a") + "</onerror></fail></onerror></fail>" + Mark("b"))),
      "ab");
  const ScriptOutcome last =
      RunScript("<fail error='1' times='1'><onerror>" + Mark("a") + "</onerror></fail>");
  EXPECT_EQ(last.result, -1);
  EXPECT_FALSE(last.Traced("Stop executing"));
  const ScriptOutcome exited =
      RunScript("<fail error='1' times='1'><onerror><exit code='3'/></onerror></fail>");
  EXPECT_EQ(exited.result, 3);
  EXPECT_TRUE(exited.Traced("Stop executing"));
  // A jump into a handler ends behind its owner as well.
  EXPECT_EQ(Road(RunScript("<goto target='in'/>" + Mark("x") +
                           "<fail error='1' times='0'><onerror>" + Mark("y") +
                           "<nothing id='in'/>" + Mark("a") + "</onerror></fail>" + Mark("b"))),
            "ab");
}

TEST(Interpreter, OnErrorGoToTakesWhatNoHandlerTook) {
  const std::string fail = "<fail error='7' times='1'/>";
  EXPECT_EQ(Road(RunScript(fail + Mark("a") + "<onErrorGoTo target='out'/>" + fail + Mark("b") +
                           "<nothing id='out'/>" + Mark("c"))),
            "ac");
  EXPECT_EQ(
      Road(RunScript("<onErrorGoTo target='out'/><fail error='7' times='1'><onerror>" + Mark("h") +
                     "</onerror></fail>" + Mark("a") + "<onErrorGoTo target=''/>" + fail +
                     Mark("b") + "<exit/><nothing id='out'/>" + Mark("c"))),
      "hab");
  EXPECT_EQ(Road(RunScript(fail + Mark("n"))), "n") << "a target must not outlive its run";
}

TEST(Interpreter, AReplacedHandlerKeepsItsLabels) {
  EXPECT_EQ(Road(RunScript("<goto target='old'/><fail error='1' times='1'><onerrorspec err='1'>" +
                           std::string("<nothing id='old'/>") + Mark("a") +
                           "</onerrorspec><onerrorspec err='1'>" + Mark("b") +
                           "</onerrorspec></fail>" + Mark("c"))),
            "ac");
}

TEST(Interpreter, EndsWithoutExitOnAnEmptyScriptOrTarget) {
  const ScriptOutcome empty = RunScript("<!-- nothing -->");
  EXPECT_EQ(empty.loadCode, kLoadSuccess);
  EXPECT_EQ(empty.result, -1);
  EXPECT_TRUE(empty.Traced("Start executing"));
  const ScriptOutcome jump = RunScript("<goto target=''/>" + Mark("a"));
  EXPECT_EQ(jump.result, -1);
  EXPECT_TRUE(jump.Traced("GoTo label ''"));
  EXPECT_EQ(Road(jump), "");
}

TEST(Loader, RefusesWhatItCannotRunAndSaysWhy) {
  const struct {
    const char* body;
    std::int32_t code;
    const char* line;
  } kCases[] = {
      {"<nosuch/>", kLoadCorrupt, "Function 'nosuch' not found"},
      {"<Exit/>", kLoadCorrupt, "Function 'Exit' not found"},
      {"<sleep/>", kLoadCorrupt, "Function 'sleep' has invalid parameters (attributes)"},
      {"<fail error='' times='0'><onerrorspec/></fail>", kLoadCorrupt,
       "Handler 'onerrorspec' for function 'fail' does not have err attribute or it is empty"},
      {"<nothing id='a'/><nothing id='a'/>", kLoadCorrupt,
       "Label 'a' is used for two different function instances."},
      {"<goto target='b'/><onErrorGoTo target='a'/>", kLoadInvalid,
       "Label 'a' is reffered, but not present"},
      {"<fail error='' times='0'><onerror><nosuch/></onerror></fail>", kLoadCorrupt,
       "Function 'nosuch' not found"},
  };
  for (const auto& testCase : kCases) {
    const ScriptOutcome outcome = RunScript(testCase.body);
    EXPECT_EQ(outcome.loadCode, testCase.code) << testCase.body;
    EXPECT_TRUE(outcome.Traced(testCase.line)) << testCase.line;
  }
}

TEST(Loader, IgnoresHandlersOfTheWrongKindAndText) {
  const ScriptOutcome outcome = RunScript(
      "text<fail error='1' times='1'>more<onTrue><nosuch/></onTrue><unknown/></fail><nothing>"
      "<onerror><nosuch/></onerror></nothing><exit code='2'/>");
  EXPECT_EQ(outcome.result, 2);
}

TEST(Loader, HoldsAMillionCommandsAndDeepHandlers) {
  std::string body = "<goto target='end'/>";
  for (int i = 0; i < 1'000'000; ++i) {
    body += "<sleep milisec='0'/>";
  }
  EXPECT_EQ(RunScript(body + "<exit id='end' code='6'/>").result, 6);
  constexpr int kLevels = 1500;
  std::string deep;
  for (int i = 0; i < kLevels; ++i) {
    deep += "<fail error='1' times='1'><onerror>";
  }
  deep += "<exit code='8'/>";
  for (int i = 0; i < kLevels; ++i) {
    deep += "</onerror></fail>";
  }
  EXPECT_EQ(RunScript(deep).result, 8);
  std::string tooDeep;
  for (int i = 0; i < 100'000; ++i) {
    tooDeep += "<nothing>";
  }
  const ScriptOutcome refused = RunScript(tooDeep);
  EXPECT_FALSE(refused.parsed);
  EXPECT_TRUE(refused.Traced("Elements are nested more than 4096 levels deep."));
}

}  // namespace
}  // namespace tessel::testing
