// Replaces libFuzzer's main: calls its entry points with the kept inputs.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* count, char*** arguments);

namespace tessel::fuzz {
namespace {

// A finding ends the process, so the input's name is printed before.
TEST(KeptInputs, EndWithoutAFinding) {
  if (LLVMFuzzerInitialize != nullptr) {
    LLVMFuzzerInitialize(nullptr, nullptr);
  }
  std::vector<std::filesystem::path> inputs;
  for (const char* folder : {"fuzz/corpus", "fuzz/regressions"}) {
    const auto kept = std::filesystem::path(folder) / TESSEL_FUZZ_TARGET;
    if (std::filesystem::exists(kept)) {
      std::copy(std::filesystem::directory_iterator(kept), {}, std::back_inserter(inputs));
    }
  }
  ASSERT_FALSE(inputs.empty()) << "the test runs in the source folder";
  for (const std::filesystem::path& input : inputs) {
    std::cout << input.string() << std::endl;
    std::ifstream file(input, std::ios::binary);
    // A buffer of exactly this size, so that the sanitizer sees a read past the end.
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
}

}  // namespace
}  // namespace tessel::fuzz
