// A small program for the tests to start. What it is to do is its first argument:
//
//   record FILE ARGUMENT...   append each argument to the file, a line each
//   exit CODE                 end with that code
//   flood                     write 4 MiB to standard output and as much to standard error
//   sleep FILE                make the file, and sleep until somebody ends it
//
// Files are found from the current directory.
#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace test_programs {

// `arguments` in UTF-8, without the program. Gives the exit code.
inline int RunChild(const std::vector<std::string>& arguments) {
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
    const std::string megabyte(std::size_t{1} << 20, 'x');
    for (std::FILE* stream : {stdout, stdout, stdout, stdout, stderr, stderr, stderr, stderr}) {
      std::fwrite(megabyte.data(), 1, megabyte.size(), stream);
    }
    return 0;
  }
  if (action == "sleep" && arguments.size() > 1) {
    std::ofstream(arguments[1], std::ios::binary) << "sleeping\n";
    // An end in sight, so that a failed test doesn't leave it behind.
    std::this_thread::sleep_for(std::chrono::minutes(10));
    return 0;
  }
  return 2;
}

}  // namespace test_programs
