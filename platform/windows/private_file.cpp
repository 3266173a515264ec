#include "platform/private_file.h"

#include "platform/windows/wide.h"
// <sddl.h> needs <windows.h> before it.
#include <sddl.h>

#include <memory>

namespace platform::files {
namespace {

struct LocalDeleter {
  void operator()(void* memory) const { ::LocalFree(memory); }
};

// Full access for the owner, and for nobody else; nothing is inherited from the folder.
Code LimitToOwner(cvn::StringView path) {
  windows::LastErrorKeeper lastError;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const BOOL isMade = ::ConvertStringSecurityDescriptorToSecurityDescriptorW(
      L"D:P(A;;FA;;;OW)", SDDL_REVISION_1, &descriptor, nullptr);
  const std::unique_ptr<void, LocalDeleter> owner(descriptor);
  return lastError.Outcome(
      isMade && ::SetFileSecurityW(windows::Wide(windows::PathForCall(path)),
                                   DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                   descriptor));
}

}  // namespace

Code CreatePrivate(cvn::StringView path, File* file) {
  // Without sharing, nobody gets at the file before its rights are narrowed.
  const Code code = Open(path, Access::Write, Share::None, Disposition::CreateNew, file);
  return code == kSuccess ? LimitToOwner(path) : code;
}

}  // namespace platform::files
