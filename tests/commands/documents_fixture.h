// What the tests of the document commands share.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/files.h"
#include "tests/engine/script_harness.h"

namespace tessel::testing {

// Has a folder of its own, which scripts know as %dir%.
class DocumentsTest : public ::testing::Test {
 protected:
  DocumentsTest();
  ~DocumentsTest() override;

  const std::filesystem::path& Folder() const { return folder_; }
  void Put(const std::string& name, const std::string& bytes) const;
  // A test failure when the file isn't there.
  std::string Get(const std::string& name) const;

  // Opens a file so that nobody else may write it.
  platform::files::File Hold(const std::string& name) const;
  // A file that is held still has its content, and nothing was left beside it.
  void ExpectUntouched(const std::string& name, const std::string& bytes) const;

  // Runs a script to its end. The folder stands as '@' in the trace.
  ScriptOutcome Run(const std::string& body) const;
  // Runs it, and gives the values that it traced, each with a '|' behind it.
  std::string Answers(const std::string& body) const;
  // What stands behind "Start executing" in the trace, up to the end of the run.
  static std::vector<std::string> RunLines(const ScriptOutcome& outcome);

  // Commands that open a file of the folder, and that save it.
  static std::string OpenXml(const std::string& name, const std::string& handle = "d");
  static std::string SaveXml(const std::string& name, const std::string& handle = "d");
  static std::string OpenJson(const std::string& name, const std::string& handle = "d");
  static std::string SaveJson(const std::string& name, const std::string& handle = "d");
  // Commands that trace a value, which is first emptied, and the error so far.
  static std::string TellXml(const std::string& xpath, const std::string& handle = "d");
  static std::string TellJson(const std::string& path, const std::string& handle = "d");
  static std::string TellError();

 private:
  std::filesystem::path folder_;
};

}  // namespace tessel::testing
