#include "tests/libraries/fixture.h"

#include <fstream>

#include "platform/files.h"
#include "platform/paths.h"

namespace test_libraries {
namespace {

namespace files = platform::files;

constexpr char kRecord[] = "library-record.txt";

}  // namespace

cvn::String ProgramFolder() {
  cvn::String folder = platform::paths::ModuleFileName();
  platform::paths::RemoveFileSpec(&folder);
  return folder;
}

cvn::String Built(cvn::StringView library) {
  cvn::String path = ProgramFolder();
  path.Append(u"\\libraries\\");
  path.Append(library);
  return path;
}

RecordingTest::RecordingTest()
    : before_(std::filesystem::current_path()),
      folder_(std::filesystem::path(testing::TempDir()) / "tessel_recording_test") {
  std::filesystem::create_directories(folder_);
  std::filesystem::current_path(folder_);
  Script("");
}

RecordingTest::~RecordingTest() {
  std::filesystem::current_path(before_);
  std::filesystem::remove_all(folder_);
  for (const cvn::String& copy : copies_) {
    platform::IgnoreError(files::Delete(copy));
  }
}

void RecordingTest::Put(cvn::StringView library, const cvn::String& path) {
  ASSERT_EQ(files::Copy(Built(library), path, false), platform::kSuccess);
  copies_.push_back(path);
}

void RecordingTest::Script(const std::string& words) {
  std::ofstream("library-script.txt", std::ios::binary) << words << "\n";
}

Lines RecordingTest::Recorded() {
  Lines lines;
  {
    std::ifstream record(kRecord, std::ios::binary);
    for (std::string line; std::getline(record, line);) {
      lines.push_back(line);
    }
  }
  std::filesystem::remove(kRecord);
  return lines;
}

}  // namespace test_libraries
