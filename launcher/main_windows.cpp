#include "launcher/run_sequence.h"
#include "platform/stop_request.h"
#include "platform/windows/arguments.h"

extern "C" int wmain(int argc, wchar_t** argv) {
  return platform::stop::EndStatus(tessel::RunPatch(platform::windows::ArgumentsOf(argc, argv)));
}
