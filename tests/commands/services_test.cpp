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
  const std::string create =
      "<serviceCreate name='n' serviceType='x' startType='x' errorControl='x'/>";
  EXPECT_EQ(RunScript("<exit/>" + create).loadCode, kLoadSuccess);
  for (const std::string attribute : {"name", "serviceType", "startType", "errorControl"}) {
    const std::size_t start = create.find(' ' + attribute) + 1;
    const std::size_t length = create.find('\'', start + attribute.size() + 2) + 1 - start;
    for (const std::string& poor : {std::string(), attribute + "=''"}) {
      const std::string element = std::string(create).replace(start, length, poor);
      EXPECT_NE(RunScript("<exit/>" + element).loadCode, kLoadSuccess) << element;
    }
  }
  for (const std::string name : {"Start", "Stop", "Delete", "Installed", "Running"}) {
    const std::string element = "<exit/><service" + name;
    EXPECT_EQ(RunScript(element + " name='n'/>").loadCode, kLoadSuccess) << name;
    EXPECT_NE(RunScript(element + " name='' waittime='1'/>").loadCode, kLoadSuccess) << name;
    EXPECT_NE(RunScript(element + " waittime='1'/>").loadCode, kLoadSuccess) << name;
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
    std::uint32_t state;
    std::string_view calls;
  } kCases[] = {
      {"Start name='%v%'", kStopped, "manager 4, open value 14, query, start"},
      {"Start name='n' waittime='9'", kRunning, "manager 4, open n 14, query"},
      {"Stop name='%v%'", kRunning, "manager 4, open value 24, query, stop"},
      {"Stop name='n' waittime='9'", kStopped, "manager 4, open n 24, query"},
      {"Delete name='%v%'", kRunning, "manager 0, open value 10000, delete"},
      {"Create name='n' serviceType='16' startType='3' errorControl='1'", 0, "manager 2, create"},
      {"Installed name='%v%'", kStopped, "manager 4, open value 4"},
      {"Running name='%v%'", kStopped, "manager 4, open value 4, query"},
  };
  for (const auto& example : kCases) {
    ScriptedServices& services = ResetServices();
    services.states = {example.state};
    TraceOf(std::string("<service") + example.element + "/>");
    std::string calls;
    for (const std::string& call : services.calls) {
      calls += (calls.empty() ? "" : ", ") + call;
    }
    const bool isOpened = example.calls.find("open") != std::string_view::npos;
    EXPECT_EQ(calls,
              std::string(example.calls) + (isOpened ? ", close service" : "") + ", close manager")
        << example.element;
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
  EXPECT_EQ(TraceOf("<serviceStart name='n' waittime='junk'/>"),
            (Lines{"serviceStart function called for 'n', after wait for 0 ms",
                   "serviceStart service already started",
                   "serviceStart function end with success. err:''"}));
}

TEST(ServiceCommands, AnswerNoToWhateverFails) {
  const struct {
    const char* element;
    const char* call;  // that fails
    Code code;
    std::uint32_t state;
    bool answer;
    const char* line;
  } kCases[] = {
      {"serviceInstalled", "", 0, kStopped, true, ""},
      {"serviceInstalled", "open", 5, kStopped, true, ""},
      {"serviceInstalled", "open", 1060, kStopped, false, ""},
      {"serviceInstalled", "manager", 5, kStopped, false, " cannot open scm"},
      {"serviceRunning", "", 0, kRunning, true, ""},
      {"serviceRunning", "", 0, kStopped, false, ""},
      {"serviceRunning", "", 0, kStarting, false, ""},
      {"serviceRunning", "", 0, kStopping, false, ""},
      {"serviceRunning", "open", 5, kRunning, false, ""},
      {"serviceRunning", "open", 1060, kRunning, false, ""},
      {"serviceRunning", "manager", 5, kRunning, false, " cannot open scm"},
      {"serviceRunning", "query", 6, kRunning, false, " cannot query status"},
  };
  for (const auto& example : kCases) {
    const std::string element = example.element;
    ScriptedServices& services = ResetServices();
    services.states = {example.state};
    services.codes[example.call] = example.code;
    Lines expected = {element + " function end with " + (example.answer ? "True." : "False.")};
    if (*example.line != '\0') {
      expected.insert(expected.begin(), element + example.line);
    }
    EXPECT_EQ(TraceOf("<" + element + " name='n'/>"), expected)
        << example.call << ' ' << example.code;
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
