#include "launcher/run_sequence.h"
#include "platform/linux/arguments.h"

int main(int argc, char** argv) {
  return tessel::RunPatch(platform::posix::ArgumentsOf(argc, argv));
}
