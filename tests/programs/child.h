// A small program for the tests to start. What it is to do is its first argument:
//
//   record FILE ARGUMENT...   append each argument to the file, a line each
//   exit CODE                 end with that code
//   flood                     write 4 MiB to standard output and as much to standard error
//   sleep FILE                make the file, and sleep until somebody ends it
//
// Files are found from the current directory.
#pragma once

#include <string>
#include <vector>

namespace test_programs {

// `arguments` in UTF-8, without the program. Gives the exit code.
int RunChild(const std::vector<std::string>& arguments);

}  // namespace test_programs
