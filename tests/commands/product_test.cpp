// What the product commands undo when a plug-in fails, and how long they wait for it.
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

class ProductCommands : public test_libraries::RecordingTest {
 protected:
  ProductCommands() {
    Put(u"cvn.integration.comm.dll",
        platform::test::Joined(test_libraries::ProgramFolder(), u"\\..\\cvn.integration.comm.dll"));
    platform::test::TakeSleeps();
  }
};

TEST_F(ProductCommands, UndoWhatWasDoneBeforeAFailure) {
  const Lines kBound = {"loaded", "create 'cvn.Integration' b31a5566a3fc90bc5f42c5f792e24b51",
                        "object asked for 23234e41d00433987641887c5d8252e9"};
  const Lines kDestroyed = {"destroy 'cvn.Integration'", "unloaded"};
  const std::pair<const char*, Lines> kCases[] = {
      {"create=2", {kBound[0], kBound[1], "unloaded"}},
      {"initialize=2250", kBound + Lines{"initialize 0"} + kDestroyed},
      {"start=1", kBound + Lines{"initialize 0", "start", "uninitialize"} + kDestroyed},
      {"integration=0",
       kBound +
           Lines{"initialize 0", "start", "plug-in asked for 2c43eb26f2c8f877929c71a865e116ed",
                 "stop", "uninitialize"} +
           kDestroyed},
  };
  for (const auto& [script, recorded] : kCases) {
    Script(script);
    EXPECT_EQ(RunScript("<applyHqPolicies/><exit/>").Ran().back(),
              "ReApplyHqPolicy function end with error. err:'IntegrationPlg init failed'");
    EXPECT_EQ(Recorded(), recorded) << script;
  }
  EXPECT_EQ(platform::test::TakeSleeps(), std::vector<std::uint32_t>());
}

TEST_F(ProductCommands, WaitForTheManagementServiceThirtyTimes) {
  for (const std::size_t unconnected : {29U, 30U}) {
    Script("unconnected=" + std::to_string(unconnected));
    EXPECT_EQ(
        RunScript("<applyHqPolicies/><exit/>").Ran(),
        Lines{"ReApplyHqPolicy function start"} +
            Lines(unconnected, "[ReApplyHqPolicy] ERROR_NOT_CONNECTED") +
            Lines{unconnected < 30 ? "ReApplyHqPolicy function end with success. err:''"
                                   : "ReApplyHqPolicy function end with error. err:'Timeout'"});
    EXPECT_EQ(std::ranges::count(Recorded(), "apply 1"), 30);
    EXPECT_EQ(platform::test::TakeSleeps(), std::vector<std::uint32_t>(unconnected, 1000));
  }
}

}  // namespace
}  // namespace tessel::testing
