#include <gtest/gtest.h>

#include "tests/engine/script_harness.h"

namespace tessel::testing {
namespace {

// What a run leaves for the next: no target, no variables. Saving what isn't open fails.
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
