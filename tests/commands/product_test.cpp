// What the product commands ask of the suite's libraries, and make of the answers.
#include "tests/engine/script_harness.h"
#include "tests/libraries/fixture.h"
#include "tests/platform/fixture.h"
#include "tests/platform/scripted_clock.h"

namespace tessel::testing {
namespace {

using platform::test::Joined;
using test_libraries::Lines;
using test_libraries::ProgramFolder;

Lines operator+(Lines left, const Lines& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// The calls that surround all others to an object: what a binding does first, and a reset.
Lines Bound(const std::string& object, const std::string& interfaceId, const Lines& calls) {
  return Lines{"loaded", "create '" + object + "' b31a5566a3fc90bc5f42c5f792e24b51",
               "object asked for " + interfaceId} +
         calls + Lines{"destroy '" + object + "'", "unloaded"};
}

Lines BoundBroker(const Lines& calls) {
  return Bound("RunlevelBroker", "18d34db3b905b4883f4b8d20b1d5d159", calls);
}

Lines BoundPlugin(const Lines& calls) {
  return Bound("cvn.Integration", "23234e41d00433987641887c5d8252e9", calls);
}

constexpr char kAsked[] = "plug-in asked for 2c43eb26f2c8f877929c71a865e116ed";

class ProductCommands : public test_libraries::RecordingTest {
 protected:
  ProductCommands() { platform::test::TakeSleeps(); }

  void PutBroker(cvn::StringView library) {
    Put(library, Joined(ProgramFolder(), u"\\runlevelbroker.dll"));
  }
  void PutIntegration(cvn::StringView library) {
    Put(library, Joined(ProgramFolder(), u"\\..\\cvn.integration.comm.dll"));
  }

  // What the command itself traces.
  static Lines Traced(const std::string& command) {
    const ScriptOutcome outcome = RunScript(command + "<exit/>");
    Lines lines;
    for (const std::string& line : outcome.trace) {
      if (line.starts_with("am") || line.starts_with("[") || line.starts_with("ReApply")) {
        lines.push_back(line);
      }
    }
    return lines;
  }
};

TEST_F(ProductCommands, WantTheirAttributes) {
  const struct {
    const char* element;
    bool isAccepted;
  } kCases[] = {
      {"<amStart name='x'/>", true},
      {"<amStart name='x' waittime='soon'/>", true},
      {"<amStart name=''/>", false},
      {"<amStart waittime='1'/>", false},
      {"<amStop name='x' waittime=''/>", true},
      {"<amStop/>", false},
      {"<applyHqPolicies name='x'/>", true},
  };
  for (const auto& example : kCases) {
    const ScriptOutcome outcome = RunScript("<exit/>" + std::string(example.element));
    EXPECT_EQ(outcome.loadCode == kLoadSuccess, example.isAccepted) << example.element;
  }
}

TEST_F(ProductCommands, TellFailuresOfTheBrokerByTwoWords) {
  const Lines kStart = {"amStart function called for 'x', with wait time set to 0s"};
  const Lines kUnusable = kStart + Lines{"[amStart] Initialization failed",
                                         "amStart function end with error. err:'InitFailed'"};
  const std::string kRefused = "create 'RunlevelBroker' b31a5566a3fc90bc5f42c5f792e24b51";
  const struct {
    cvn::StringView library;
    const char* script;
    Lines trace;
    Lines recorded;
  } kCases[] = {
      {u"", "", kUnusable, {}},
      {u"hollow.dll", "", kUnusable, {}},
      {u"runlevelbroker.dll", "create=5", kUnusable, {"loaded", kRefused, "unloaded"}},
      {u"runlevelbroker.dll", "object=0", kUnusable, {"loaded", kRefused, "unloaded"}},
      {u"runlevelbroker.dll", "interface=0", kUnusable, BoundBroker({})},
      {u"runlevelbroker.dll", "start=5",
       kStart + Lines{"[amStart] Start returned 5.",
                      "amStart function end with error. err:'OperationFailed'"},
       BoundBroker({"start 'x' 0"})},
      {u"runlevelbroker.dll", "start=2147942405",
       kStart + Lines{"[amStart] Start returned -2147024891.",
                      "amStart function end with error. err:'OperationFailed'"},
       BoundBroker({"start 'x' 0"})},
      {u"runlevelbroker.dll", "stop=5",
       kStart + Lines{"[amStart] Start returned 0.", "amStart function end with success. err:''"},
       BoundBroker({"start 'x' 0"})},
  };
  for (const auto& example : kCases) {
    if (!example.library.empty()) {
      PutBroker(example.library);
    }
    Script(example.script);
    EXPECT_EQ(Traced("<amStart name='x'/>"), example.trace) << example.script;
    EXPECT_EQ(Recorded(), example.recorded) << example.script;
  }
}

TEST_F(ProductCommands, KeepAFormerFailureOfTheSameInstance) {
  PutBroker(u"runlevelbroker.dll");
  Script("First=5");
  const Lines lines =
      Traced("<for var='n' value='First;Second' delim=';'><amStart name='%n%'/></for>");
  EXPECT_EQ(lines, (Lines{"amStart function called for 'First', with wait time set to 0s",
                          "[amStart] Start returned 5.",
                          "amStart function end with error. err:'OperationFailed'",
                          "amStart function called for 'Second', with wait time set to 0s",
                          "[amStart] Start returned 0.",
                          "amStart function end with error. err:'OperationFailed'"}));
}

TEST_F(ProductCommands, RunThePluginWhileThePoliciesAreApplied) {
  PutIntegration(u"cvn.integration.comm.dll");
  for (const char* status : {"", "apply=87", "apply=4294967295"}) {
    Script(status);
    EXPECT_EQ(Traced("<applyHqPolicies/>"),
              (Lines{"ReApplyHqPolicy function start",
                     "ReApplyHqPolicy function end with success. err:''"}))
        << status;
    EXPECT_EQ(Recorded(),
              BoundPlugin({"initialize 0", "start", kAsked, "apply 1", "stop", "uninitialize"}));
  }
  EXPECT_EQ(platform::test::TakeSleeps(), std::vector<std::uint32_t>());
}

TEST_F(ProductCommands, UndoWhatAPluginGotDone) {
  const std::string kRefused = "create 'cvn.Integration' b31a5566a3fc90bc5f42c5f792e24b51";
  const struct {
    cvn::StringView library;
    const char* script;
    Lines recorded;
  } kCases[] = {
      {u"", "", {}},
      {u"hollow.dll", "", {}},
      {u"cvn.integration.comm.dll", "create=2", {"loaded", kRefused, "unloaded"}},
      {u"cvn.integration.comm.dll", "interface=0", BoundPlugin({})},
      {u"cvn.integration.comm.dll", "initialize=2250", BoundPlugin({"initialize 0"})},
      {u"cvn.integration.comm.dll", "start=1",
       BoundPlugin({"initialize 0", "start", "uninitialize"})},
      {u"cvn.integration.comm.dll", "integration=0",
       BoundPlugin({"initialize 0", "start", kAsked, "stop", "uninitialize"})},
  };
  for (const auto& example : kCases) {
    if (!example.library.empty()) {
      PutIntegration(example.library);
    }
    Script(example.script);
    EXPECT_EQ(
        Traced("<applyHqPolicies/>"),
        (Lines{"ReApplyHqPolicy function start", "[ReApplyHqPolicy] IntegrationPlg init failed",
               "ReApplyHqPolicy function end with error. err:'IntegrationPlg init failed'"}))
        << example.script;
    EXPECT_EQ(Recorded(), example.recorded) << example.script;
  }
}

TEST_F(ProductCommands, WaitForTheManagementServiceThirtyTimes) {
  PutIntegration(u"cvn.integration.comm.dll");
  for (const std::size_t unconnected : {2U, 29U, 30U, 31U}) {
    Script("unconnected=" + std::to_string(unconnected));
    const std::size_t pauses = std::min<std::size_t>(unconnected, 30);
    const std::size_t calls = std::min<std::size_t>(unconnected + 1, 30);
    EXPECT_EQ(
        Traced("<applyHqPolicies/>"),
        Lines{"ReApplyHqPolicy function start"} +
            Lines(pauses, "[ReApplyHqPolicy] ERROR_NOT_CONNECTED") +
            Lines{unconnected < 30 ? "ReApplyHqPolicy function end with success. err:''"
                                   : "ReApplyHqPolicy function end with error. err:'Timeout'"});
    EXPECT_EQ(Recorded(), BoundPlugin(Lines{"initialize 0", "start", kAsked} +
                                      Lines(calls, "apply 1") + Lines{"stop", "uninitialize"}));
    EXPECT_EQ(platform::test::TakeSleeps(), std::vector<std::uint32_t>(pauses, 1000));
  }
}

}  // namespace
}  // namespace tessel::testing
