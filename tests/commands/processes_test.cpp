// What the process commands do with processes that no test can make.
#include <gtest/gtest.h>

#include "tests/commands/stand_ins.h"
#include "tests/engine/script_harness.h"

namespace tessel::testing {
namespace {

Lines TraceOf(const std::string& command) {
  return RunScript("<process" + command + "/><exit/>").Ran();
}

TEST(ProcessCommands, MatchNamesAndPaths) {
  const std::pair<std::string, Lines> kCases[] = {
      {"APP.exe", {"process 100 1", "process 101 1", "process 103 1"}},
      {"pp.exe", {}},
      {"C:\\\\One\\\\app.EXE", {"process 100 1"}},
      {"\\\\server\\\\share\\app.exe", {"process 103 1"}},
      {"\\app.exe", {}},
      {"\u00C4pp.EXE", {"process 104 1"}},
      {"C:\\gr\u00F6\u00DFe\\\u00C4PP.exe", {"process 104 1"}},
      {"C:\\gr\u00F6SSe\\\u00E4pp.exe", {}},
  };
  for (const auto& [name, opened] : kCases) {
    ScriptedSystem& system = ResetSystem();
    system.processes = {{u"app.exe", u"C:\\One\\App.exe"},
                        {u"App.EXE", u""},
                        {u"other.exe", u"C:\\one\\app.exe"},
                        {u"app.exe", u"\\\\server\\share\\app.exe"},
                        {u"\u00E4pp.exe", u"C:\\Gr\u00D6\u00DFe\\\u00E4pp.exe"}};
    TraceOf("Kill name='" + name + "'");
    EXPECT_EQ(system.Called("process"), opened) << name;
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

TEST(ProcessCommands, KillGoesOnPastTheProtected) {
  ScriptedSystem& system = ResetSystem();
  system.processes.resize(4, {u"app.exe", u""});
  system.codes = {{"process 100 1", 5}, {"terminate 101 0", 6}, {"terminate 103 0", 7}};
  EXPECT_EQ(TraceOf("Kill name='app.exe'"),
            (Lines{"processKill function called for 'app.exe'",
                   "Cannot open process with pid 256 for kill. Error:5",
                   "Cannot terminate process 257. Error:6", "Cannot terminate process 259. Error:7",
                   "processKill function end with error. err:'6'"}));
  EXPECT_EQ(system.Called("terminate").size(), 3U);
  EXPECT_EQ(system.openHandles, 0);
}

TEST(ProcessCommands, PasswordsReachThePlatformAndNoTrace) {
  ScriptedSystem& system = ResetSystem();
  system.codes = {{"impersonate", 1326}};
  EXPECT_EQ(TraceOf("ImpersonateUser domain='D' username='user' password='hush !'"),
            (Lines{"processImpersonateUser function called for 'D\\user'",
                   "processImpersonateUser function end with error. err:'1326'"}));
  EXPECT_EQ(system.calls, Lines{"impersonate D\\user with hush !"});
}

}  // namespace
}  // namespace tessel::testing
