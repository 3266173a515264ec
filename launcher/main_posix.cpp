#include "launcher/run_sequence.h"
#include "platform/linux/program_start.h"
#include "platform/stop_request.h"

int main(int argc, char** argv) {
  return platform::stop::EndStatus(tessel::RunPatch(platform::posix::StartProgram(argc, argv)));
}
