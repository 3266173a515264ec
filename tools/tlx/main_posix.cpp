#include "platform/linux/program_start.h"
#include "platform/streams.h"
#include "tools/tlx/tool.h"

int main(int argc, char** argv) {
  platform::streams::SetTextModes();
  const cvn::List<cvn::String> arguments = platform::posix::StartProgram(argc, argv);
  return tlx::RunTool(std::span(arguments).subspan(arguments.empty() ? 0 : 1));
}
