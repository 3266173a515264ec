// What the process commands do with processes that no test can make.
#include <gtest/gtest.h>

#include "tests/commands/stand_ins.h"
#include "tests/engine/script_harness.h"

namespace tessel::testing {
namespace {

Lines TraceOf(const std::string& command) {
  return RunScript("<process" + command + "/><exit/>", {{u"v", u"value"}}).Ran();
}

TEST(ProcessCommands, RunTellsHowItEnded) {
  const auto expect = [](const std::string& waittime, const char* failingCall, platform::Code code,
                         Lines waits, const std::string& end) {
    ScriptedSystem& system = ResetSystem();
    system.codes[failingCall] = code;
    EXPECT_EQ(
        TraceOf("Run path='%v% x' args='a \"%v%\"' wkdir='%v%' waittime='" + waittime + "'").back(),
        "processRun function end with " + end);
    waits.insert(waits.begin(), "run [\"value x\" a \"value\"] [value]");
    EXPECT_EQ(system.calls, waits);
    EXPECT_EQ(system.openHandles, 0);
  };
  expect("0", "wait", 9, {}, "success. err:''");
  expect("1000", "", 0, {"wait 1 3e8"}, "success. err:''");
  expect("-1", "wait", 258, {"wait 1 ffffffff"}, "error. err:'timeout'");
  expect("5", "wait", 0xFFFFFFFF, {"wait 1 5"}, "error. err:'-1'");
  expect("5", "run", 740, {}, "error. err:'740'");
}

TEST(ProcessCommands, MatchNamesAndPaths) {
  const struct {
    const char* name;
    const char* shown;
    Lines opened;
  } kCases[] = {
      {"APP.exe", "APP.exe", {"process 100 1", "process 101 1", "process 103 1"}},
      {"pp.exe", "pp.exe", {}},
      {"C:\\\\One\\\\app.EXE", "C:\\One\\app.EXE", {"process 100 1"}},
      {"\\\\server\\\\share\\app.exe", "\\\\server\\share\\app.exe", {"process 103 1"}},
      {"\\\\\\\\server", "\\\\\\server", {}},
      {"\\app.exe", "\\app.exe", {}},
  };
  for (const auto& example : kCases) {
    ScriptedSystem& system = ResetSystem();
    system.processes = {{u"app.exe", u"C:\\One\\App.exe"},
                        {u"App.EXE", u""},
                        {u"other.exe", u"C:\\one\\app.exe"},
                        {u"app.exe", u"\\\\server\\share\\app.exe"}};
    EXPECT_EQ(TraceOf(std::string("Kill name='") + example.name + "'").front(),
              std::string("processKill function called for '") + example.shown + "'");
    EXPECT_EQ(system.Called("process"), example.opened) << example.name;
  }
}

TEST(ProcessCommands, WaitInBatches) {
  const Lines both = {"wait 40 fa", "wait 5 fa"};
  const auto expect = [](const std::string& failingWait, platform::Code code, const Lines& waits,
                         const std::string& end) {
    ScriptedSystem& system = ResetSystem();
    system.processes.resize(70, {u"app.exe", u""});
    system.codes = {{"process 10a 100000", 5}, {failingWait, code}};
    EXPECT_EQ(TraceOf("Wait name='app.exe' waittime='250'"),
              (Lines{"processWait function called for 'app.exe', wait 250 ms",
                     "Cannot open process with pid 266. Error:5",
                     "processWait function end with " + end}));
    EXPECT_EQ(system.Called("wait"), waits);
    EXPECT_EQ(system.openHandles, 0);
  };
  expect("", 0, both, "success. err:''");
  expect("wait #2", 258, both, "error. err:'timeout'");
  expect("wait #1", 0xFFFFFFFF, {both[0]}, "error. err:'-1'");
}

// Neither is there anything to be done with processes that can't be opened, or listed.
TEST(ProcessCommands, SucceedWithNoProcess) {
  for (const char* failingCall : {"process", "list"}) {
    for (const std::string command : {"Kill name='app.exe'", "Wait name='app.exe' waittime='-1'"}) {
      ScriptedSystem& system = ResetSystem();
      system.processes.resize(3, {u"app.exe", u""});
      system.codes[failingCall] = platform::kAccessDenied;
      EXPECT_TRUE(TraceOf(command).back().ends_with("success. err:''")) << command;
      EXPECT_EQ(system.Called("process").size(), *failingCall == 'p' ? 3U : 0U);
      EXPECT_TRUE(system.Called("wait").empty() && system.Called("terminate").empty());
    }
  }
}

TEST(ProcessCommands, KillGoesOnPastTheProtected) {
  ScriptedSystem& system = ResetSystem();
  system.processes.resize(5, {u"app.exe", u""});
  system.codes = {{"process 100 1", 5}, {"terminate 101 0", 6}, {"terminate 103 0", 7}};
  EXPECT_EQ(TraceOf("Kill name='app.exe'"),
            (Lines{"processKill function called for 'app.exe'",
                   "Cannot open process with pid 256 for kill. Error:5",
                   "Cannot terminate process 257. Error:6", "Cannot terminate process 259. Error:7",
                   "processKill function end with error. err:'6'"}));
  EXPECT_EQ(system.Called("terminate"),
            (Lines{"terminate 101 0", "terminate 102 0", "terminate 103 0", "terminate 104 0"}));
  EXPECT_EQ(system.openHandles, 0);
}

TEST(ProcessCommands, PasswordsReachThePlatformAndNoTrace) {
  const std::pair<platform::Code, std::string> kCases[] = {
      {0, "success. err:''"}, {1326, "error. err:'1326'"}, {258, "error. err:'timeout'"}};
  for (const auto& [code, end] : kCases) {
    ScriptedSystem& system = ResetSystem();
    system.codes = {{"impersonate", code}, {"revert", code}};
    EXPECT_EQ(TraceOf("ImpersonateUser domain='D' username='%v%' password='hush %v% !'/>"
                      "<processRevertToSelf"),
              (Lines{"processImpersonateUser function called for 'D\\value'",
                     "processImpersonateUser function end with " + end,
                     "processRevertToSelf function called",
                     "processRevertToSelf function end with " + end}));
    EXPECT_EQ(system.calls, (Lines{"impersonate D\\value with hush value !", "revert"}));
  }
}

}  // namespace
}  // namespace tessel::testing
