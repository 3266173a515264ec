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

// Makes a folder under a name that no other has.
std::filesystem::path MakeFolder();

class FolderTest : public testing::Test {
 protected:
  ~FolderTest() override { std::filesystem::remove_all(folder_); }

  std::string In(const std::string& name) const { return (folder_ / name).string(); }

  const std::filesystem::path folder_ = MakeFolder();
};

}  // namespace tlx::test
