#include "platform/windows/arguments.h"

#include "platform/windows/wide.h"

namespace platform::windows {

cvn::List<cvn::String> ArgumentsOf(int argc, wchar_t** argv) {
  cvn::List<cvn::String> arguments;
  for (int i = 0; i < argc; ++i) {
    arguments.emplace_back(ViewOf(argv[i], static_cast<std::size_t>(::lstrlenW(argv[i]))));
  }
  return arguments;
}

}  // namespace platform::windows
