#include <gtest/gtest.h>

#include "tests/engine/script_harness.h"

namespace tessel::testing {
namespace {

// Saving what isn't open fails with 6.
TEST(Interpreter, TracesEachStep) {
  const std::string fail = "<xmlSave handle='x' path='p'>";
  const std::string end = "</xmlSave>";
  EXPECT_EQ(
      RunScript("<goto target='in'/><nothing/>" + fail + "<onerrorspec err='6'><nothing id='in'/>" +
                "</onerrorspec><onerrorspec err='6'><trace value='a'/></onerrorspec>" + end + fail +
                "<onerrorspec err='6'>" + fail + "<onerror><trace value='b'/></onerror>" + end +
                "</onerrorspec><onerrorspec err='60'/><onTrue><nosuch/></onTrue>" + end +
                "<traceSetFile><onsuccess><trace value='c'/></onsuccess></traceSetFile>"
                "<onErrorGoTo target='out'/>" +
                fail + end + "<nothing/>" +
                "<test id='out' left='a' right='A' operator='==' type='string'><onTrue>"
                "<test left='a' right='b' operator='==' type='string'><onFalse><trace value='d'/>"
                "</onFalse></test></onTrue></test><exit code='4'/>")
          .trace,
      (Lines{"set trace file: (null)",
             "Start executing",
             "GoTo label 'in'",
             "Executing 'nothing' function",
             "xmlSave in 'p'.handle: x",
             "xmlSave function end with error. err:'6'",
             "Entering onerrorspec handler err='6'",
             "xmlSave in 'p'.handle: x",
             "xmlSave function end with error. err:'6'",
             "Entering onerror handler. err='6'",
             "Trace: b",
             "TraceSetFile skipped.",
             "Entering onsuccess handler.",
             "Trace: c",
             "xmlSave in 'p'.handle: x",
             "xmlSave function end with error. err:'6'",
             "Entering onErrorGoTo handler. err='6'",
             "test function called ('a' 1 'A'). type: 0",
             "test function end with True.",
             "Entering onTrue handler.",
             "test function called ('a' 1 'b'). type: 0",
             "test function end with False.",
             "Entering onFalse handler.",
             "Trace: d",
             "Exit function called with exitcode 4",
             "Stop executing",
             "set trace file: (null)"}));
}

// What a run leaves for the next: no target, no variables.
TEST(Interpreter, ForgetsItsRun) {
  RunScript("<onErrorGoTo target='l'/><assign id='l' var='v' value='1'/>");
  const ScriptOutcome next = RunScript("<xmlSave handle='x' path='p'/><trace value='%v%'/>");
  EXPECT_EQ(next.Told(), "%v%|");
  EXPECT_EQ(next.result, kRanOffTheEnd);
}

TEST(Loader, HoldsAMillionCommandsAndDeepOnes) {
  EXPECT_EQ(RunScript("<goto target='end'/>" + Repeat("<sleep milisec='0'/>", 1'000'000) +
                      "<exit id='end' code='6'/>")
                .result,
            6);
  EXPECT_EQ(RunScript(Repeat("<xmlSave handle='x' path='p'><onerror>", 1'500) + "<exit code='8'/>" +
                      Repeat("</onerror></xmlSave>", 1'500))
                .result,
            8);
  EXPECT_EQ(RunScript(Repeat("<for var='p' value='x' delim=';'>", 1'000) + "<trace value='in'/>" +
                      Repeat("</for>", 1'000) + "<trace value='out'/>")
                .Told(),
            "in|out|");
  EXPECT_EQ(RunScript(Repeat("<nothing>", 100'000)).loadCode, -1);
}

// What is left of a text that is longer than a piece may be comes in the next round.
TEST(Loops, TakePieceAfterPiece) {
  const std::string longest(10'000, 'x');
  EXPECT_EQ(RunScript("<for var='p' value='" + longest +
                      "yz;b' delim=';'><trace value='[%p%]'/>"
                      "</for>")
                .Told(),
            "[" + longest + "]|[yz]|[b]|");
}

}  // namespace
}  // namespace tessel::testing
