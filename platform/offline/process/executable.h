// What the host is to execute for a program: the program itself, or the interpreter of a script.
#pragma once

#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/offline/process/program_file.h"

namespace platform::posix {

class Executable {
 public:
  // Opens the program that `arguments` begins with. When it is a script, the interpreter that it
  // names is judged as the program was, and stands with its argument before the arguments then, as
  // the host's kernel would put it there. The codes are those of ProgramFile::Open, 5 for a script
  // that isn't marked as a program, and 193 for one without an interpreter.
  Code Open(std::vector<std::string>* arguments);

  // The descriptor that has to be open in the child until it executes, and the path to execute. The
  // former is negative for a program that is neither the host's own kind nor a script: the host may
  // know how to run it, and then wants its name.
  int Descriptor() const { return isNative_ ? file_.Descriptor() : -1; }
  std::string Path() const { return isNative_ ? file_.OpenPath() : file_.Path(); }

  // Whether it is for Windows.
  bool IsWindowsProgram() const;

 private:
  ProgramFile file_;
  bool isNative_ = false;
};

}  // namespace platform::posix
