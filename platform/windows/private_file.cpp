#include "platform/private_file.h"

#include "platform/windows/wide.h"
// <sddl.h> needs <windows.h> before it.
#include <sddl.h>

#include <cstddef>
#include <memory>
#include <string>

namespace platform::files {
namespace {

struct LocalDeleter {
  void operator()(void* memory) const { ::LocalFree(memory); }
};

struct HandleCloser {
  using pointer = HANDLE;
  void operator()(HANDLE handle) const { ::CloseHandle(handle); }
};

// The account that runs the process, as "S-1-..."; empty on failure.
std::wstring CurrentSid() {
  HANDLE opened = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &opened)) {
    return {};
  }
  const std::unique_ptr<HANDLE, HandleCloser> token(opened);
  alignas(TOKEN_USER) std::byte user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  DWORD size = 0;
  LPWSTR text = nullptr;
  if (!::GetTokenInformation(token.get(), TokenUser, user, sizeof(user), &size) ||
      !::ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(user)->User.Sid, &text)) {
    return {};
  }
  const std::unique_ptr<wchar_t, LocalDeleter> owner(text);
  return text;
}

// Full access for this account, and for nobody else; nothing is inherited from the folder. The
// file's owner would not do: for an administrator that is the whole group.
Code LimitToThisAccount(cvn::StringView path) {
  windows::LastErrorKeeper lastError;
  const std::wstring sid = CurrentSid();
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const bool isMade = !sid.empty() && ::ConvertStringSecurityDescriptorToSecurityDescriptorW(
                                          (L"D:P(A;;FA;;;" + sid + L")").c_str(), SDDL_REVISION_1,
                                          &descriptor, nullptr);
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
  return code == kSuccess ? LimitToThisAccount(path) : code;
}

}  // namespace platform::files
