#include "fuzz/scratch_machine.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "fuzz/input.h"
#include "platform/machine.h"
#include "support/utf.h"

// Replaces the C library's: the folder needs no protection from a power failure, and waiting for
// the disk would take most of a fuzzer's time.
extern "C" int fsync(int /*descriptor*/) { return 0; }  // NOLINT(readability-identifier-naming)

namespace tessel::fuzz {
namespace {

class Scratch {
 public:
  Scratch() {
    std::string folder = (std::filesystem::temp_directory_path() / "tessel-fuzz-XXXXXX").string();
    Require(mkdtemp(folder.data()) != nullptr, "there is a place for temporary files");
    folder_ = folder;
    const std::string machine = folder_ / "C";
    Require(platform::machine::Create(cvn::Utf8ToWide(machine), {}) == platform::kSuccess &&
                platform::machine::Use(cvn::Utf8ToWide(machine)) == platform::kSuccess,
            "a machine can be made");
    files_ = machine + "/Fuzz";
    std::filesystem::create_directory(files_);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  const std::string& Files() const { return files_; }

 private:
  std::filesystem::path folder_;
  std::string files_;
};

const Scratch& TheScratch() {
  static const Scratch kScratch;
  return kScratch;
}

}  // namespace

const std::string& ScratchFolder() { return TheScratch().Files(); }

void WriteScratchFile(const std::string& name, std::string_view bytes) {
  std::ofstream file(ScratchFolder() + "/" + name, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace tessel::fuzz

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
  tessel::fuzz::TheScratch();
  return 0;
}
