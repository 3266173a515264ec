#include "tests/platform/scripted_libraries.h"

namespace platform::test {

ScriptedLibraries& Libraries() {
  static ScriptedLibraries scripted;
  return scripted;
}

}  // namespace platform::test

namespace platform::libraries {
namespace {

using test::Libraries;

Code Fail() {
  const Code code = Libraries().failure;
  SetLastError(code);
  return code == kSuccess ? kGenFailure : code;
}

Code Give(bool isThere, Library* library) {
  *library = Library();
  if (!isThere) {
    return Fail();
  }
  ++Libraries().references;
  *library = Library(&Libraries());
  return kSuccess;
}

}  // namespace

void Library::Free() {
  if (IsLoaded()) {
    --Libraries().references;
    handle_ = nullptr;
  }
}

void NarrowSearch() {}

bool CanNarrowSearch() { return Libraries().canNarrowSearch; }

Code Load(cvn::StringView path, std::uint32_t flags, Library* library) {
  Libraries().loads.push_back({path, flags});
  return Give(Libraries().path == path, library);
}

Code FindLoaded(cvn::StringView /*name*/, Library* library) {
  return Give(Libraries().references > 0, library);
}

Address FindSymbol(const Library& /*library*/, const char* name) {
  const auto found = Libraries().exports.find(name);
  if (found == Libraries().exports.end()) {
    IgnoreError(Fail());
    return nullptr;
  }
  return found->second;
}

cvn::String FileNameOf(const void* /*address*/) { return Libraries().ownModule; }

const void* ProgramModule() { return &Libraries(); }

}  // namespace platform::libraries
