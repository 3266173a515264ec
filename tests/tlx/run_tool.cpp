#include "tests/tlx/run_tool.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>

#include "support/containers.h"
#include "support/utf.h"
#include "tools/tlx/tool.h"

namespace tlx::test {

ToolResult Tlx(const std::vector<std::string>& arguments) {
  cvn::List<cvn::String> wide;
  for (const std::string& argument : arguments) {
    wide.push_back(cvn::Utf8ToWide(argument));
  }
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  ToolResult result{RunTool(wide), "", ""};
  std::fflush(nullptr);
  result.out = testing::internal::GetCapturedStdout();
  result.err = testing::internal::GetCapturedStderr();
  return result;
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

void WriteFile(const std::filesystem::path& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::filesystem::path MakeFolder() {
  std::random_device random;
  std::filesystem::path folder;
  do {
    folder = std::filesystem::temp_directory_path() / ("tlx_test_" + std::to_string(random()));
  } while (!std::filesystem::create_directory(folder));
  return folder;
}

}  // namespace tlx::test
