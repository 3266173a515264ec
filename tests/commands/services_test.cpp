// What the service commands do with services in states that no stopped system has.
#include <gtest/gtest.h>

#include "tests/commands/stand_ins.h"
#include "tests/engine/script_harness.h"
#include "tests/platform/scripted_clock.h"

namespace tessel::testing {
namespace {

using States = std::vector<std::uint32_t>;

constexpr std::uint32_t kStopped = platform::services::kStateStopped;
constexpr std::uint32_t kStarting = platform::services::kStateStartPending;
constexpr std::uint32_t kStopping = platform::services::kStateStopPending;
constexpr std::uint32_t kRunning = platform::services::kStateRunning;

Lines TraceOf(const std::string& command) {
  return RunScript("<service" + command + "/><exit/>").Ran();
}

TEST(ServiceCommands, WaitByPollsAndNotByTheClock) {
  const struct {
    std::string command;
    std::string waittime;
    States states;       // at the queries; the first is before the change
    std::uint32_t told;  // by the stop
    bool isTimeout;
    int polls;
  } kCases[] = {
      {"Start", "0", {kStopped}, 0, false, 0},
      {"Start", "1000", {kStopped, kStarting}, 0, true, 10},
      {"Start", "-1", {kStopped, kRunning}, 0, true, 0},
      {"Start", "300", {kStopped, kStarting, kStarting, kRunning}, 0, false, 3},
      {"Stop", "250", {kRunning, kStopping}, kStopping, true, 3},
      {"Stop", "1000", {kRunning, kStopping}, kStopping, false, 10},
      {"Stop", "-1", {kRunning, kRunning}, kStopped, false, 0},
  };
  for (const auto& example : kCases) {
    const std::string name = "service" + example.command;
    ScriptedSystem& system = ResetSystem();
    system.states = example.states;
    system.stateToldByStop = example.told;
    platform::test::TakeSleeps();
    EXPECT_EQ(TraceOf(example.command + " name='n' waittime='" + example.waittime + "'"),
              (Lines{name + " function called for 'n', after wait for " + example.waittime + " ms",
                     name + " function end with " +
                         (example.isTimeout ? "error. err:'timeout'" : "success. err:''")}));
    EXPECT_EQ(platform::test::TakeSleeps(),
              std::vector<std::uint32_t>(static_cast<std::size_t>(example.polls), 100))
        << name << ' ' << example.waittime;
    EXPECT_EQ(system.Called("query").size(), 1U + static_cast<std::size_t>(example.polls));
    EXPECT_EQ(system.Called("open"), Lines{example.command == "Start" ? "open n 14" : "open n 24"});
  }
}

TEST(ServiceCommands, HaveALineForEachFailure) {
  const struct {
    std::string command;
    const char* call;  // the one that fails
    const char* line;
    const char* end;
  } kCases[] = {
      {"Start", "manager", "cannot open scm", "error. err:'5'"},
      {"Start", "query", "cannot query status", "error. err:'5'"},
      {"Stop", "stop", "cannot stop service", "error. err:'5'"},
      {"Stop", "query #2", "cannot query status2", "error. err:'5'"},
      {"Delete", "remove", "failed", "error. err:'5'"},
      {"Create", "manager", "cannot open scm", "error. err:'5'"},
      {"Installed", "manager", "cannot open scm", "False."},
      {"Running", "query", "cannot query status", "False."},
  };
  for (const auto& example : kCases) {
    ScriptedSystem& system = ResetSystem();
    system.states = {example.command == "Stop" ? kRunning : kStopped};
    system.codes[example.call] = 5;
    const Lines trace = TraceOf(example.command +
                                " name='n' waittime='9' serviceType='16' startType='3' "
                                "errorControl='1'");
    const std::string name = "service" + example.command;
    EXPECT_EQ(trace.back(), name + " function end with " + example.end) << example.call;
    EXPECT_EQ(trace[trace.size() - 2], name + ' ' + example.line) << example.call;
    EXPECT_EQ(system.openHandles, 0) << example.call;
  }
}

TEST(ServiceCommands, AnswerByTheState) {
  for (const std::uint32_t state : {kStopping, kRunning}) {
    ResetSystem().states = {state};
    EXPECT_EQ(TraceOf("Running name='n'").back(), std::string("serviceRunning function end with ") +
                                                      (state == kRunning ? "True." : "False."));
  }
  ResetSystem().codes["open"] = platform::kAccessDenied;
  EXPECT_EQ(TraceOf("Installed name='n'").back(), "serviceInstalled function end with True.");
  ResetSystem().states = {kRunning};
  EXPECT_EQ(TraceOf("Start name='n' waittime='junk'"),
            (Lines{"serviceStart function called for 'n', after wait for 0 ms",
                   "serviceStart service already started",
                   "serviceStart function end with success. err:''"}));
}

}  // namespace
}  // namespace tessel::testing
