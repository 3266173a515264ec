#include "tests/programs/child.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

namespace test_programs {
namespace {

void Flood(std::FILE* stream) {
  const std::string block(65536, 'x');
  for (int i = 0; i < 64; ++i) {
    std::fwrite(block.data(), 1, block.size(), stream);
  }
}

}  // namespace

int RunChild(const std::vector<std::string>& arguments) {
  const std::string action = arguments.empty() ? "" : arguments[0];
  if (action == "record" && arguments.size() > 1) {
    std::ofstream record(arguments[1], std::ios::binary | std::ios::app);
    for (std::size_t i = 2; i < arguments.size(); ++i) {
      record << arguments[i] << '\n';
    }
    return 0;
  }
  if (action == "exit" && arguments.size() > 1) {
    return std::atoi(arguments[1].c_str());
  }
  if (action == "flood") {
    Flood(stdout);
    Flood(stderr);
    return 0;
  }
  if (action == "sleep" && arguments.size() > 1) {
    std::ofstream(arguments[1], std::ios::binary) << "sleeping\n";
    // Not for ever, lest a test that fails leaves it behind.
    std::this_thread::sleep_for(std::chrono::minutes(10));
    return 0;
  }
  return 2;
}

}  // namespace test_programs
