#include <gtest/gtest.h>

#include "tests/tlx/run_tool.h"

namespace tlx::test {
namespace {

TEST(MachineTest, IsAMatterOfLinux) {
  for (const char* verb : {"create", "show"}) {
    const ToolResult result = Tlx({"machine", verb, "no-such-machine"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("no-such-machine: error: machines belong to tlx on Linux"),
              std::string::npos)
        << result.err;
  }
}

}  // namespace
}  // namespace tlx::test
