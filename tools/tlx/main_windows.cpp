#include "platform/streams.h"
#include "platform/windows/arguments.h"
#include "tools/tlx/tool.h"

int wmain(int argc, wchar_t** argv) {
  platform::streams::SetTextModes();
  const cvn::List<cvn::String> arguments = platform::windows::ArgumentsOf(argc, argv);
  return tlx::RunTool(std::span(arguments).subspan(arguments.empty() ? 0 : 1));
}
