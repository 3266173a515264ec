// Runs one case, a folder with a case.txt, and compares what it leaves with what it should.
//
// case_files.py, which writes these folders, tells what a case.txt holds.
#pragma once

#include <string>

#include "kit/text.h"

namespace kit {

struct Kit {
  std::wstring folder;  // where it was unpacked
  Lines gates;          // patterns of lines that are left out of traces
  bool isAdministrator = false;
};

struct Outcome {
  std::string what;  // passed, failed or skipped
  std::string detail;
};

Outcome RunCase(const Kit& kit, const std::string& row);

}  // namespace kit
