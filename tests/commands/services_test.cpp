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
constexpr std::uint32_t kPaused = 7;

Lines TraceOf(const std::string& command) {
  return RunScript("<service" + command + "/><exit/>", {{u"v", u"value"}}).Ran();
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
      {"Start", "250", {kStopped, kStarting}, 0, true, 3},
      {"Start", "1000", {kStopped, kStarting}, 0, true, 10},
      {"Start", "-1", {kStopped, kRunning}, 0, true, 0},
      {"Start", "300", {kPaused, kStarting, kStarting, kRunning}, 0, false, 3},
      {"Start", "300", {kStopped, kStarting, kStopped}, 0, true, 3},
      {"Stop", "250", {kRunning, kStopping}, kStopping, true, 3},
      {"Stop", "1000", {kRunning, kStopping}, kStopping, false, 10},
      {"Stop", "-1", {kRunning, kStopped}, kStopping, true, 0},
      {"Stop", "-1", {kRunning, kRunning}, kStopped, false, 0},
      {"Stop", "1000", {kPaused, kStopping, kStopped}, kRunning, false, 2},
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
  }
}

// And each failure has its line, and is theirs.
TEST(ServiceCommands, AskForNoMoreThanTheyNeed) {
  using Failures = std::vector<std::pair<std::string, std::string>>;
  const auto failures = [](const std::string& verb) {
    return Failures{{"manager", "cannot open scm"},
                    {"open", "cannot open service"},
                    {"query", "cannot query status"},
                    {verb, "cannot " + verb + " service"},
                    {"query #2", "cannot query status2"}};
  };
  const struct {
    std::string command;
    Lines calls;        // without the closings
    std::string last;   // what failures end with
    Failures failures;  // calls, and their lines
  } kCases[] = {
      {"Start name='%v%' waittime='9'",
       {"manager 4", "open value 14", "query", "start", "query"},
       "error. err:'timeout'",
       failures("start")},
      {"Stop name='%v%' waittime='9'",
       {"manager 4", "open value 24", "query", "stop", "query"},
       "error. err:'timeout'",
       failures("stop")},
      {"Delete name='%v%'",
       {"manager 0", "open value 10000", "remove"},
       "error. err:'258'",
       {{"manager", "cannot open scm"}, {"open", "cannot open service"}, {"remove", "failed"}}},
      {"Create name='n' serviceType='16' startType='3' errorControl='1'",
       {"manager 2", "create"},
       "error. err:'258'",
       {{"manager", "cannot open scm"}, {"create", "cannot create service"}}},
      {"Installed name='%v%'",
       {"manager 4", "open value 4"},
       "False.",
       {{"manager", "cannot open scm"}, {"open", ""}}},
      {"Running name='%v%'",
       {"manager 4", "open value 4", "query"},
       "False.",
       {{"manager", "cannot open scm"}, {"open", ""}, {"query", "cannot query status"}}},
  };
  for (const auto& example : kCases) {
    const std::string name = "service" + example.command.substr(0, example.command.find(' '));
    ScriptedSystem& system = ResetSystem();
    system.states = {kPaused};
    TraceOf(example.command);
    EXPECT_EQ(system.calls, example.calls);
    for (const auto& [call, line] : example.failures) {
      ResetSystem().states = {kPaused};
      system.codes[call] = 258;
      const Lines trace = TraceOf(example.command);
      EXPECT_EQ(trace.back(), name + " function end with " + example.last) << call;
      EXPECT_TRUE(line.empty() || trace[trace.size() - 2] == name + ' ' + line) << call;
      EXPECT_EQ(system.openHandles, 0) << call;
    }
  }
}

TEST(ServiceCommands, AnswerByTheState) {
  for (const std::uint32_t state : {kStopped, kStarting, kStopping, kRunning, kPaused}) {
    ResetSystem().states = {state};
    EXPECT_EQ(TraceOf("Running name='n'"), Lines{std::string("serviceRunning function end with ") +
                                                 (state == kRunning ? "True." : "False.")});
  }
  for (const platform::Code code : {0U, 5U, 1060U}) {
    ResetSystem().codes["open"] = code;
    EXPECT_EQ(TraceOf("Installed name='n'"),
              Lines{std::string("serviceInstalled function end with ") +
                    (code == 1060 ? "False." : "True.")});
  }
  ResetSystem().states = {kRunning};
  EXPECT_EQ(TraceOf("Start name='n' waittime='junk'"),
            (Lines{"serviceStart function called for 'n', after wait for 0 ms",
                   "serviceStart service already started",
                   "serviceStart function end with success. err:''"}));
}

}  // namespace
}  // namespace tessel::testing
