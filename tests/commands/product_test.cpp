// What the product commands ask of the suite's libraries, and make of the answers.
#include <algorithm>

#include "tests/engine/script_harness.h"
#include "tests/libraries/fixture.h"
#include "tests/platform/fixture.h"
#include "tests/platform/scripted_clock.h"

namespace tessel::testing {
namespace {

Lines operator+(Lines left, const Lines& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

const std::string kBroker = "'RunlevelBroker'";
const std::string kPlugin = "'cvn.Integration'";

Lines Refused(const std::string& object) {
  return {"loaded", "create " + object + " b31a5566a3fc90bc5f42c5f792e24b51", "unloaded"};
}

// The calls that surround all others to an object: what a binding does first, and a reset.
Lines Bound(const std::string& object, const Lines& calls) {
  return Lines{"loaded", "create " + object + " b31a5566a3fc90bc5f42c5f792e24b51",
               "object asked for " + std::string(object == kBroker
                                                     ? "18d34db3b905b4883f4b8d20b1d5d159"
                                                     : "23234e41d00433987641887c5d8252e9")} +
         calls + Lines{"destroy " + object, "unloaded"};
}

class ProductCommands : public test_libraries::RecordingTest {
 protected:
  ProductCommands() { platform::test::TakeSleeps(); }

  void PutAt(cvn::StringView place, cvn::StringView library) {
    if (!library.empty()) {
      Put(library, platform::test::Joined(test_libraries::ProgramFolder(), place));
    }
  }
};

// What they trace behind their first lines, and what a failure undoes.
TEST_F(ProductCommands, BindAnObjectAndGiveItBack) {
  const std::string kAsked = "plug-in asked for 2c43eb26f2c8f877929c71a865e116ed";
  const Lines kNoBroker = {"[amStart] Initialization failed",
                           "amStart function end with error. err:'InitFailed'"};
  const Lines kNoPlugin = {
      "[ReApplyHqPolicy] IntegrationPlg init failed",
      "ReApplyHqPolicy function end with error. err:'IntegrationPlg init failed'"};
  const Lines kApplied = {"ReApplyHqPolicy function end with success. err:''"};
  const cvn::StringView kBrokerLibrary = u"runlevelbroker.dll";
  const cvn::StringView kPluginLibrary = u"cvn.integration.comm.dll";
  const struct {
    bool isBroker;
    cvn::StringView library;
    const char* script;
    Lines told;
    Lines recorded;
  } kCases[] = {
      {true, u"", "", kNoBroker, {}},
      {true, u"hollow.dll", "", kNoBroker, {}},
      {true, kBrokerLibrary, "create=5", kNoBroker, Refused(kBroker)},
      {true, kBrokerLibrary, "object=0", kNoBroker, Refused(kBroker)},
      {true, kBrokerLibrary, "interface=0", kNoBroker, Bound(kBroker, {})},
      {true,
       kBrokerLibrary,
       "x=2147942405",
       {"[amStart] Start returned -2147024891.",
        "amStart function end with error. err:'OperationFailed'"},
       Bound(kBroker, {"start 'x' 0"})},
      {false, u"", "", kNoPlugin, {}},
      {false, kPluginLibrary, "create=2", kNoPlugin, Refused(kPlugin)},
      {false, kPluginLibrary, "interface=0", kNoPlugin, Bound(kPlugin, {})},
      {false, kPluginLibrary, "initialize=2250", kNoPlugin, Bound(kPlugin, {"initialize 0"})},
      {false, kPluginLibrary, "start=1", kNoPlugin,
       Bound(kPlugin, {"initialize 0", "start", "uninitialize"})},
      {false, kPluginLibrary, "integration=0", kNoPlugin,
       Bound(kPlugin, {"initialize 0", "start", kAsked, "stop", "uninitialize"})},
      {false, kPluginLibrary, "apply=4294967295", kApplied,
       Bound(kPlugin, {"initialize 0", "start", kAsked, "apply 1", "stop", "uninitialize"})},
  };
  for (const auto& example : kCases) {
    PutAt(example.isBroker ? u"\\runlevelbroker.dll" : u"\\..\\cvn.integration.comm.dll",
          example.library);
    Script(example.script);
    Lines trace =
        RunScript(example.isBroker ? "<amStart name='x'/><exit/>" : "<applyHqPolicies/><exit/>")
            .Ran();
    trace.erase(trace.begin());
    EXPECT_EQ(trace, example.told) << example.script;
    EXPECT_EQ(Recorded(), example.recorded) << example.script;
  }
  EXPECT_EQ(platform::test::TakeSleeps(), std::vector<std::uint32_t>());
}

TEST_F(ProductCommands, WaitForTheManagementServiceThirtyTimes) {
  PutAt(u"\\..\\cvn.integration.comm.dll", u"cvn.integration.comm.dll");
  for (const std::size_t unconnected : {2U, 29U, 30U, 31U}) {
    Script("unconnected=" + std::to_string(unconnected));
    const std::size_t pauses = std::min<std::size_t>(unconnected, 30);
    EXPECT_EQ(
        RunScript("<applyHqPolicies/><exit/>").Ran(),
        Lines{"ReApplyHqPolicy function start"} +
            Lines(pauses, "[ReApplyHqPolicy] ERROR_NOT_CONNECTED") +
            Lines{unconnected < 30 ? "ReApplyHqPolicy function end with success. err:''"
                                   : "ReApplyHqPolicy function end with error. err:'Timeout'"});
    EXPECT_EQ(std::ranges::count(Recorded(), "apply 1"),
              static_cast<int>(std::min<std::size_t>(unconnected + 1, 30)));
    EXPECT_EQ(platform::test::TakeSleeps(), std::vector<std::uint32_t>(pauses, 1000));
  }
}

}  // namespace
}  // namespace tessel::testing
