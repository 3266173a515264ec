#include "launcher/run_sequence.h"
#include "platform/linux/program_start.h"

int main(int argc, char** argv) {
  return tessel::RunPatch(platform::posix::StartProgram(argc, argv));
}
