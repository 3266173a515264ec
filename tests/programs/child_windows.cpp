#include "support/utf.h"
#include "tests/programs/child.h"

extern "C" int wmain(int argc, wchar_t** argv) {
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) {
    arguments.push_back(cvn::WideToUtf8(reinterpret_cast<const char16_t*>(argv[i])));
  }
  return test_programs::RunChild(arguments);
}
