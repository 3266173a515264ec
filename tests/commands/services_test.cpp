// What the service commands do with services in states that no stopped system has.

#include <gtest/gtest.h>

#include <algorithm>

#include "support/utf.h"
#include "tests/commands/scripted_services.h"
#include "tests/engine/script_harness.h"
#include "tests/platform/scripted_clock.h"

namespace tessel::testing {
namespace {

using platform::Code;
using Lines = std::vector<std::string>;
using States = std::vector<std::uint32_t>;

constexpr std::uint32_t kStopped = platform::services::kStateStopped;
constexpr std::uint32_t kStarting = platform::services::kStateStartPending;
constexpr std::uint32_t kStopping = platform::services::kStateStopPending;
constexpr std::uint32_t kRunning = platform::services::kStateRunning;
constexpr std::uint32_t kPaused = 7;

// The trace of a command, between the first lines of the run and its last.
Lines TraceOf(const std::string& command) {
  const ScriptOutcome outcome = RunScript(command + "<exit/>", {{u"v", u"value"}});
  Lines lines;
  for (const std::string& line : outcome.trace) {
    if (line.starts_with("service")) {
      lines.push_back(line);
    }
  }
  return lines;
}

TEST(ServiceCommands, WantTheirAttributes) {
  const struct {
    const char* element;
    bool isAccepted;
  } kCases[] = {
      {"<serviceStart name='n'/>", true},
      {"<serviceStart name='n' waittime='junk'/>", true},
      {"<serviceStart name='' waittime='1'/>", false},
      {"<serviceStart waittime='1'/>", false},
      {"<serviceStop name='n'/>", true},
      {"<serviceStop/>", false},
      {"<serviceDelete name='n'/>", true},
      {"<serviceDelete name=''/>", false},
      {"<serviceInstalled name='n'/>", true},
      {"<serviceInstalled/>", false},
      {"<serviceRunning name='n'/>", true},
      {"<serviceRunning name=''/>", false},
      {"<serviceCreate name='n' serviceType='16' startType='3' errorControl='1'/>", true},
      {"<serviceCreate name='n' serviceType='x' startType='x' errorControl='x'/>", true},
      {"<serviceCreate name='' serviceType='16' startType='3' errorControl='1'/>", false},
      {"<serviceCreate name='n' serviceType='' startType='3' errorControl='1'/>", false},
      {"<serviceCreate name='n' serviceType='16' startType='' errorControl='1'/>", false},
      {"<serviceCreate name='n' serviceType='16' startType='3' errorControl=''/>", false},
      {"<serviceCreate name='n' startType='3' errorControl='1'/>", false},
      {"<serviceCreate name='n' serviceType='16' errorControl='1'/>", false},
      {"<serviceCreate name='n' serviceType='16' startType='3'/>", false},
  };
  for (const auto& example : kCases) {
    ResetServices();
    const ScriptOutcome outcome = RunScript("<exit/>" + std::string(example.element));
    EXPECT_EQ(outcome.loadCode == kLoadSuccess, example.isAccepted) << example.element;
  }
}

TEST(ServiceCommands, WaitByPollsAndNotByTheClock) {
  constexpr char kStart[] = "serviceStart";
  constexpr char kStop[] = "serviceStop";
  const struct {
    const char* command;
    const char* waittime;
    States states;       // at the queries; the first is before the change
    std::uint32_t told;  // by the stop
    const char* end;
    int polls;
  } kCases[] = {
      {kStart, "0", {kStopped}, 0, "success. err:''", 0},
      {kStart, "250", {kStopped, kStarting}, 0, "error. err:'timeout'", 3},
      {kStart, "1000", {kStopped, kStarting}, 0, "error. err:'timeout'", 10},
      {kStart, "1050", {kStopped, kStarting}, 0, "error. err:'timeout'", 11},
      {kStart, "-1", {kStopped, kRunning}, 0, "error. err:'timeout'", 0},
      {kStart, "-2147483648", {kStopped, kRunning}, 0, "error. err:'timeout'", 0},
      {kStart, "1", {kStopped, kRunning}, 0, "success. err:''", 1},
      {kStart, "1000", {kStarting, kStarting, kStarting, kRunning}, 0, "success. err:''", 3},
      {kStart, "300", {kPaused, kStarting, kStarting, kRunning}, 0, "success. err:''", 3},
      {kStart, "300", {kStopped, kStarting, kStopped}, 0, "error. err:'timeout'", 3},
      {kStop, "0", {kRunning}, kStopping, "success. err:''", 0},
      {kStop, "250", {kRunning, kStopping}, kStopping, "error. err:'timeout'", 3},
      {kStop, "1000", {kRunning, kStopping}, kStopping, "success. err:''", 10},
      {kStop, "1050", {kRunning, kStopping}, kStopping, "error. err:'timeout'", 11},
      {kStop, "-1", {kRunning, kStopped}, kStopping, "error. err:'timeout'", 0},
      {kStop, "-1", {kRunning, kRunning}, kStopped, "success. err:''", 0},
      {kStop, "1", {kRunning, kStopped}, kStopping, "success. err:''", 1},
      {kStop, "1000", {kPaused, kStopping, kStopped}, kRunning, "success. err:''", 2},
      {kStop, "1000", {kRunning, kRunning}, kStopped, "success. err:''", 0},
  };
  for (const auto& example : kCases) {
    const std::string name = std::string(example.command) + ' ' + example.waittime;
    ScriptedServices& services = ResetServices();
    services.states = example.states;
    services.stateToldByStop = example.told;
    platform::test::TakeSleeps();
    const Lines trace = TraceOf(std::string("<") + example.command + " name='n' waittime='" +
                                example.waittime + "'/>");
    EXPECT_EQ(trace,
              (Lines{std::string(example.command) + " function called for 'n', after wait for " +
                         example.waittime + " ms",
                     std::string(example.command) + " function end with " + example.end}))
        << name;
    EXPECT_EQ(services.Count("query"), 1 + example.polls) << name;
    EXPECT_EQ(platform::test::TakeSleeps(),
              std::vector<std::uint32_t>(static_cast<std::size_t>(example.polls), 100))
        << name;
    EXPECT_EQ(services.Count(example.command == kStart ? "start" : "stop"), 1) << name;
  }
}

TEST(ServiceCommands, AskForNoMoreThanTheyNeedAndCloseInOrder) {
  const struct {
    const char* element;
    States states;
    Lines calls;
  } kCases[] = {
      {"<serviceStart name='%v%'/>",
       {kStopped},
       {"manager 4", "open value 14", "query", "start", "close service", "close manager"}},
      {"<serviceStart name='n' waittime='100'/>",
       {kRunning},
       {"manager 4", "open n 14", "query", "close service", "close manager"}},
      {"<serviceStop name='%v%'/>",
       {kRunning},
       {"manager 4", "open value 24", "query", "stop", "close service", "close manager"}},
      {"<serviceStop name='n' waittime='100'/>",
       {kStopped},
       {"manager 4", "open n 24", "query", "close service", "close manager"}},
      {"<serviceDelete name='%v%'/>",
       {kRunning},
       {"manager 0", "open value 10000", "delete", "close service", "close manager"}},
      {"<serviceCreate name='n' serviceType='16' startType='3' errorControl='1'/>",
       {kStopped},
       {"manager 2", "create", "close manager"}},
      {"<serviceInstalled name='%v%'/>",
       {kStopped},
       {"manager 4", "open value 4", "close service", "close manager"}},
      {"<serviceRunning name='%v%'/>",
       {kStopped},
       {"manager 4", "open value 4", "query", "close service", "close manager"}},
  };
  for (const auto& example : kCases) {
    ScriptedServices& services = ResetServices();
    services.states = example.states;
    TraceOf(example.element);
    EXPECT_EQ(services.calls, example.calls) << example.element;
  }
}

TEST(ServiceCommands, TellWhichStepFailed) {
  const struct {
    const char* element;  // its name
    const char* attributes;
    const char* call;
    Code code;
    const char* line;
    const char* error;
  } kCases[] = {
      {"serviceStart", "", "manager", 5, "cannot open scm", "5"},
      {"serviceStart", "", "open", 1060, "cannot open service", "1060"},
      {"serviceStart", "", "query", 6, "cannot query status", "6"},
      {"serviceStart", "waittime='500'", "start", 1056, "cannot start service", "1056"},
      {"serviceStart", "", "start", 258, "cannot start service", "timeout"},
      {"serviceStart", "waittime='500'", "query 3", 1115, "cannot query status2", "1115"},
      {"serviceStop", "", "manager", 1115, "cannot open scm", "1115"},
      {"serviceStop", "", "open", 5, "cannot open service", "5"},
      {"serviceStop", "", "query", 6, "cannot query status", "6"},
      {"serviceStop", "waittime='500'", "stop", 1051, "cannot stop service", "1051"},
      {"serviceStop", "waittime='500'", "query 2", 258, "cannot query status2", "timeout"},
      {"serviceDelete", "", "manager", 258, "cannot open scm", "258"},
      {"serviceDelete", "", "open", 5, "cannot open service", "5"},
      {"serviceDelete", "", "delete", 1072, "failed", "1072"},
      {"serviceCreate", "serviceType='1' startType='3' errorControl='0'", "manager", 5,
       "cannot open scm", "5"},
      {"serviceCreate", "serviceType='1' startType='3' errorControl='0'", "create", 258,
       "cannot create service", "258"},
  };
  for (const auto& example : kCases) {
    const std::string element = example.element;
    ScriptedServices& services = ResetServices();
    services.states = {kPaused};
    services.codes[example.call] = example.code;
    const Lines trace = TraceOf("<" + element + " name='n' " + example.attributes + "/>");
    ASSERT_EQ(trace.size(), 3U) << element << ' ' << example.call;
    EXPECT_EQ(trace[1], element + ' ' + example.line);
    EXPECT_EQ(trace[2], element + " function end with error. err:'" + example.error + "'");
    EXPECT_EQ(services.Count("close service"),
              std::ranges::count_if(services.calls, [&](const std::string& call) {
                return call.starts_with("open") && example.call != std::string("open");
              }));
  }
}

TEST(ServiceCommands, SayWhenThereIsNothingToDo) {
  ResetServices().states = {kRunning};
  EXPECT_EQ(TraceOf("<serviceStart name='n' waittime='-1'/>"),
            (Lines{"serviceStart function called for 'n', after wait for -1 ms",
                   "serviceStart service already started",
                   "serviceStart function end with success. err:''"}));
  ResetServices();
  EXPECT_EQ(TraceOf("<serviceStop name='n' waittime='junk'/>"),
            (Lines{"serviceStop function called for 'n', after wait for 0 ms",
                   "serviceStop service already stopped",
                   "serviceStop function end with success. err:''"}));
}

TEST(ServiceCommands, AnswerNoToWhateverFails) {
  const struct {
    const char* element;
    const char* call;
    Code code;
    std::uint32_t state;
    Lines trace;
  } kCases[] = {
      {"serviceInstalled", "", 0, kStopped, {"serviceInstalled function end with True."}},
      {"serviceInstalled", "open", 5, kStopped, {"serviceInstalled function end with True."}},
      {"serviceInstalled", "open", 1060, kStopped, {"serviceInstalled function end with False."}},
      {"serviceInstalled",
       "manager",
       5,
       kStopped,
       {"serviceInstalled cannot open scm", "serviceInstalled function end with False."}},
      {"serviceRunning", "", 0, kRunning, {"serviceRunning function end with True."}},
      {"serviceRunning", "", 0, kStopped, {"serviceRunning function end with False."}},
      {"serviceRunning", "", 0, kStarting, {"serviceRunning function end with False."}},
      {"serviceRunning", "", 0, kStopping, {"serviceRunning function end with False."}},
      {"serviceRunning", "", 0, kPaused, {"serviceRunning function end with False."}},
      {"serviceRunning", "open", 5, kRunning, {"serviceRunning function end with False."}},
      {"serviceRunning", "open", 1060, kRunning, {"serviceRunning function end with False."}},
      {"serviceRunning",
       "manager",
       5,
       kRunning,
       {"serviceRunning cannot open scm", "serviceRunning function end with False."}},
      {"serviceRunning",
       "query",
       6,
       kRunning,
       {"serviceRunning cannot query status", "serviceRunning function end with False."}},
  };
  for (const auto& example : kCases) {
    ScriptedServices& services = ResetServices();
    services.states = {example.state};
    services.codes[example.call] = example.code;
    EXPECT_EQ(TraceOf(std::string("<") + example.element + " name='n'/>"), example.trace)
        << example.element << ' ' << example.call << ' ' << example.code;
  }
}

TEST(ServiceCommands, HandOnWhatAServiceIsMadeOf) {
  const struct {
    const char* attributes;
    std::string_view displayName;
    std::string_view path;
    std::string_view group;
    std::string dependencies;
    const char* line;
  } kCases[] = {
      {"", "n value", "", "", "",
       "Display name: 'n value', serviceType: 16, startType: 3, errorControl: 1, path: '', group: "
       "'', depends: ''"},
      {"displayName='' dependencies='' path='C:\\%v%.exe' group='%v%'", "n value", "C:\\value.exe",
       "%v%", "",
       "Display name: 'n value', serviceType: 16, startType: 3, errorControl: 1, path: "
       "'C:\\value.exe', group: '%v%', depends: ''"},
      {"displayName='The %v%' dependencies='a|%v%'", "The value", "", "",
       std::string("a\0%v%\0\0", 7),
       "Display name: 'The value', serviceType: 16, startType: 3, errorControl: 1, path: '', "
       "group: '', depends: 'a'"},
      {"dependencies='a|b|'", "n value", "", "", std::string("a\0b\0\0\0", 6),
       "Display name: 'n value', serviceType: 16, startType: 3, errorControl: 1, path: '', group: "
       "'', depends: 'a'"},
  };
  for (const auto& example : kCases) {
    ScriptedServices& services = ResetServices();
    const Lines trace =
        TraceOf("<serviceCreate name='n %v%' serviceType='16' startType='3x' errorControl=' 1' " +
                std::string(example.attributes) + "/>");
    const platform::services::Config& created = services.created;
    EXPECT_EQ(cvn::WideToUtf8(created.name), "n value");
    EXPECT_EQ(cvn::WideToUtf8(created.displayName), example.displayName);
    EXPECT_EQ(cvn::WideToUtf8(created.binaryPath), example.path);
    EXPECT_EQ(cvn::WideToUtf8(created.group), example.group);
    EXPECT_EQ(cvn::WideToUtf8(created.dependencies), example.dependencies);
    EXPECT_EQ(created.serviceType, 16U);
    EXPECT_EQ(created.startType, 3U);
    EXPECT_EQ(created.errorControl, 1U);
    ASSERT_EQ(trace.size(), 2U);
    EXPECT_EQ(trace[0],
              std::string("serviceCreate function called for 'n value'. ") + example.line);
  }
}

}  // namespace
}  // namespace tessel::testing
