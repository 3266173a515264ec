// Programs that the kit starts. What one of them leaves running ends with it, and all end with the
// kit.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kit {

struct Command {
  std::wstring program;  // its path
  std::vector<std::wstring> arguments;
  std::vector<std::pair<std::wstring, std::wstring>> environment;  // beside the kit's own
  std::wstring folder;  // its current one, where the files with its output are, too
  DWORD seconds = 120;  // after which it is ended
};

struct Ended {
  std::string fault;  // why it could not be run to its end, or nothing
  DWORD exitCode = 0;
  std::string out;
  std::string err;
};

Ended Run(const Command& command);

// From now on Ctrl+C, and the end of the console, end the program that runs, and no other starts.
void HandleAborts();
bool IsAborted();
// The end of the console waits for this.
void TellThatAllIsUndone();

bool RunsUnderWine();

}  // namespace kit
