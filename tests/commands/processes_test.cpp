// What the process commands do with processes that no test can make.

#include <gtest/gtest.h>

#include "tests/commands/scripted_processes.h"
#include "tests/engine/script_harness.h"

namespace tessel::testing {
namespace {

using namespace std::string_literals;
using Lines = std::vector<std::string>;

// The trace of a command without its first lines, the run's and its own, and the run's last.
Lines TraceOf(const std::string& command) {
  const ScriptOutcome outcome = RunScript(command + "<exit/>", {{u"v", u"value"}});
  Lines lines;
  for (const std::string& line : outcome.trace) {
    if (line.starts_with("process") || line.starts_with("Cannot") || line.starts_with("Process")) {
      lines.push_back(line);
    }
  }
  return lines;
}

// The line that ends a command.
std::string EndOf(const std::string& command) {
  const Lines lines = TraceOf(command);
  return lines.empty() ? "" : lines.back();
}

TEST(ProcessCommands, WantTheirAttributes) {
  const struct {
    const char* element;
    bool isAccepted;
  } kCases[] = {
      {"<processRun path='p'/>", true},
      {"<processRun path='p' args='' wkdir='' waittime=''/>", true},
      {"<processRun path='' args='a'/>", false},
      {"<processRun args='a'/>", false},
      {"<processWait name='n' waittime='x'/>", true},
      {"<processWait name='n' waittime=''/>", false},
      {"<processWait name='n'/>", false},
      {"<processWait name='' waittime='1'/>", false},
      {"<processKill name='n'/>", true},
      {"<processKill name=''/>", false},
      {"<processImpersonateUser domain='d' username='u' password='p'/>", true},
      {"<processImpersonateUser domain='' username='u' password='p'/>", false},
      {"<processImpersonateUser domain='d' password='p'/>", false},
      {"<processImpersonateUser domain='d' username='u' password=''/>", false},
      {"<processRevertToSelf/>", true},
      {"<processEntrypoint path='p' entrypoint='e'/>", true},
      {"<processEntrypoint path='p' entrypoint=''/>", false},
      {"<processEntrypoint entrypoint='e'/>", false},
  };
  for (const auto& example : kCases) {
    ResetSystem();
    EXPECT_EQ(RunScript("<exit/>"s + example.element).loadCode == kLoadSuccess, example.isAccepted)
        << example.element;
  }
}

TEST(ProcessCommands, RunBuildsTheCommandLineAndTellsHowItEnded) {
  const struct {
    const char* attributes;
    platform::Code startCode;
    std::uint32_t waitResult;
    Lines calls;
    const char* end;
  } kCases[] = {
      {"path='p'", 0, 9, {"start [\"p\" ] []"}, "success. err:''"},
      {"path='%v% x' args='a \"%v%\"' wkdir='%v%'",
       0,
       9,
       {"start [\"value x\" a \"value\"] [value]"},
       "success. err:''"},
      {"path='p' waittime='%v%'", 0, 9, {"start [\"p\" ] []"}, "success. err:''"},
      {"path='p' waittime='1000'",
       0,
       0,
       {"start [\"p\" ] []", "wait for 1, 1000 ms"},
       "success. err:''"},
      {"path='p' waittime='-1'",
       0,
       258,
       {"start [\"p\" ] []", "wait for 1, 4294967295 ms"},
       "error. err:'timeout'"},
      {"path='p' waittime='5'",
       0,
       0xFFFFFFFF,
       {"start [\"p\" ] []", "wait for 1, 5 ms"},
       "error. err:'-1'"},
      {"path='p' waittime='5'", 740, 0, {"start [\"p\" ] []"}, "error. err:'740'"},
  };
  for (const auto& example : kCases) {
    ScriptedSystem& system = ResetSystem();
    system.startCode = example.startCode;
    system.waitResults = {example.waitResult};
    EXPECT_EQ(EndOf("<processRun "s + example.attributes + "/>"),
              "processRun function end with "s + example.end)
        << example.attributes;
    EXPECT_EQ(system.calls, example.calls);
    EXPECT_EQ(system.openHandles, 0);
  }
}

TEST(ProcessCommands, MatchNamesAndPaths) {
  const struct {
    const char* name;
    const char* shown;
    Lines opened;
  } kCases[] = {
      {"APP.exe", "APP.exe", {"open 100 for 1", "open 101 for 1", "open 103 for 1"}},
      {"pp.exe", "pp.exe", {}},
      {"c:\\one\\APP.EXE", "c:\\one\\APP.EXE", {"open 100 for 1"}},
      {"C:\\\\One\\\\app.exe", "C:\\One\\app.exe", {"open 100 for 1"}},
      {"\\\\server\\\\share\\app.exe", "\\\\server\\share\\app.exe", {"open 103 for 1"}},
      {"\\\\\\\\server", "\\\\\\server", {}},
      {"\\app.exe", "\\app.exe", {}},
  };
  for (const auto& example : kCases) {
    ScriptedSystem& system = ResetSystem();
    system.processes = {{u"app.exe", u"C:\\One\\App.exe"},
                        {u"App.EXE", u""},  // whose modules can't be read
                        {u"other.exe", u"C:\\one\\app.exe"},
                        {u"app.exe", u"\\\\server\\share\\app.exe"}};
    const Lines lines = TraceOf("<processKill name='"s + example.name + "'/>");
    EXPECT_EQ(lines.front(), "processKill function called for '"s + example.shown + "'");
    std::erase_if(system.calls, [](const std::string& call) { return call.starts_with("term"); });
    EXPECT_EQ(system.calls, example.opened) << example.name;
  }
}

TEST(ProcessCommands, WaitInBatches) {
  const struct {
    std::vector<std::uint32_t> waitResults;
    Lines waits;
    const char* end;
  } kCases[] = {
      {{}, {"wait for 64, 250 ms", "wait for 5, 250 ms"}, "success. err:''"},
      {{0, 258}, {"wait for 64, 250 ms", "wait for 5, 250 ms"}, "error. err:'timeout'"},
      {{258}, {"wait for 64, 250 ms"}, "error. err:'timeout'"},
      {{0xFFFFFFFF}, {"wait for 64, 250 ms"}, "error. err:'-1'"},
  };
  for (const auto& example : kCases) {
    ScriptedSystem& system = ResetSystem();
    system.processes.resize(70, {u"app.exe", u""});
    system.processes[10].openCode = 5;
    system.waitResults = example.waitResults;
    EXPECT_EQ(TraceOf("<processWait name='app.exe' waittime='250'/>"),
              (Lines{"processWait function called for 'app.exe', wait 250 ms",
                     "Cannot open process with pid 110. Error:5",
                     "processWait function end with "s + example.end}));
    std::erase_if(system.calls, [](const std::string& call) { return call.starts_with("open"); });
    EXPECT_EQ(system.calls, example.waits);
    EXPECT_EQ(system.openHandles, 0);
  }
}

TEST(ProcessCommands, WaitIsOverWhenNothingCanBeOpened) {
  ScriptedSystem& system = ResetSystem();
  system.processes.resize(3, {u"app.exe", u"", 87});
  EXPECT_EQ(EndOf("<processWait name='app.exe' waittime='-1'/>"),
            "processWait function end with success. err:''");
  EXPECT_EQ(system.calls.size(), 3U);
}

TEST(ProcessCommands, KillGoesOnPastTheProtected) {
  ScriptedSystem& system = ResetSystem();
  system.processes = {{u"app.exe", u"", 5},
                      {u"app.exe", u"", 0, 6},
                      {u"app.exe", u""},
                      {u"app.exe", u"", 0, 7},
                      {u"app.exe", u""}};
  EXPECT_EQ(TraceOf("<processKill name='app.exe'/>"),
            (Lines{"processKill function called for 'app.exe'",
                   "Cannot open process with pid 100 for kill. Error:5",
                   "Cannot terminate process 101. Error:6", "Cannot terminate process 103. Error:7",
                   "processKill function end with error. err:'6'"}));
  EXPECT_TRUE(system.processes[2].isEnded && system.processes[4].isEnded);
  EXPECT_EQ(system.openHandles, 0);

  ResetSystem().processes = {{u"app.exe", u"", 5}};
  EXPECT_EQ(EndOf("<processKill name='app.exe'/>"),
            "processKill function end with success. err:''");
}

TEST(ProcessCommands, AListThatCannotBeReadIsNoProcess) {
  for (const char* command :
       {"<processKill name='app.exe'/>", "<processWait name='app.exe' waittime='-1'/>"}) {
    ScriptedSystem& system = ResetSystem();
    system.processes = {{u"app.exe", u""}};
    system.listCode = platform::kAccessDenied;
    EXPECT_NE(EndOf(command).find("success. err:''"), std::string::npos) << command;
    EXPECT_TRUE(system.calls.empty());
  }
}

TEST(ProcessCommands, PasswordsReachThePlatformAndNoTrace) {
  ScriptedSystem& system = ResetSystem();
  const ScriptOutcome outcome = RunScript(
      "<processImpersonateUser domain='D' username='%v%' password='hush %v% %v% !'/>"
      "<processRevertToSelf/><exit/>",
      {{u"v", u"value"}});
  EXPECT_EQ(system.calls, (Lines{"impersonate D\\value with hush value value !", "revert"}));
  EXPECT_TRUE(outcome.Traced("processImpersonateUser function called for 'D\\value'"));
  EXPECT_TRUE(outcome.Traced("processImpersonateUser function end with success. err:''"));
  EXPECT_TRUE(outcome.Traced("processRevertToSelf function called"));
  EXPECT_TRUE(outcome.Traced("processRevertToSelf function end with success. err:''"));
  for (const std::string& line : outcome.trace) {
    EXPECT_EQ(line.find("hush"), std::string::npos) << line;
  }
}

TEST(ProcessCommands, IdentityFailuresAreCodes) {
  const struct {
    platform::Code code;
    const char* error;
  } kCases[] = {{1326, "1326"}, {50, "50"}, {258, "timeout"}};
  for (const auto& example : kCases) {
    ScriptedSystem& system = ResetSystem();
    system.impersonateCode = system.revertCode = example.code;
    EXPECT_EQ(EndOf("<processImpersonateUser domain='d' username='u' password='p'/>"),
              "processImpersonateUser function end with error. err:'"s + example.error + "'");
    EXPECT_EQ(EndOf("<processRevertToSelf/>"),
              "processRevertToSelf function end with error. err:'"s + example.error + "'");
  }
}

}  // namespace
}  // namespace tessel::testing
