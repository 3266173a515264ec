// The small libraries of the tests, as a test uses them.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/string.h"

namespace test_libraries {

using Lines = std::vector<std::string>;

// The test program's folder, without a separator at the end.
cvn::String ProgramFolder();
// The path of a library that was built, by its path below the folder of libraries.
cvn::String Built(cvn::StringView library);

// A test with a current directory of its own, where the libraries look for their script and leave
// their record.
class RecordingTest : public testing::Test {
 protected:
  RecordingTest();
  ~RecordingTest() override;

  // Copies a library until the end of the test; one that lies there already is replaced.
  void Put(cvn::StringView library, const cvn::String& path);
  // What the libraries are to do from now on: words "name=number".
  static void Script(const std::string& words);
  // What the libraries recorded since the last call.
  static Lines Recorded();

 private:
  std::filesystem::path before_;
  std::filesystem::path folder_;
  std::vector<cvn::String> copies_;
};

}  // namespace test_libraries
