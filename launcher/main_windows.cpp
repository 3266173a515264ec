#include "launcher/run_sequence.h"
#include "platform/windows/arguments.h"

extern "C" int wmain(int argc, wchar_t** argv) {
  return tessel::RunPatch(platform::windows::ArgumentsOf(argc, argv));
}
