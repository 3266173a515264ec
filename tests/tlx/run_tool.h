// Runs tlx inside the test's process, and reads and writes the files of its tests.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tlx::test {

struct ToolResult {
  int exitCode;
  std::string out;
  std::string err;
};

ToolResult Tlx(const std::vector<std::string>& arguments);

std::string ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, std::string_view bytes);

}  // namespace tlx::test
