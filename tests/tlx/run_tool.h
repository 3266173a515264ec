// Runs tlx inside the test's process, with files in a folder of the test.
#pragma once

#include <gtest/gtest.h>

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

class FolderTest : public testing::Test {
 protected:
  FolderTest() {
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
  }
  ~FolderTest() override { std::filesystem::remove_all(folder_); }

  std::string In(const std::string& name) const { return (folder_ / name).string(); }

  const std::filesystem::path folder_ = std::filesystem::temp_directory_path() / "tlx_test";
};

}  // namespace tlx::test
