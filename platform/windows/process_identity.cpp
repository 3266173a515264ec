#include "platform/process.h"
#include "platform/windows/wide.h"
// Needs what <windows.h> declares.
#include <sddl.h>

#include <cwchar>
#include <vector>

namespace platform::process {
namespace {

using windows::LastErrorKeeper;
using windows::Wide;

// Of the impersonation that is active; null when there is none.
HANDLE impersonationToken = nullptr;

// A zero-ended text whose memory is overwritten at the end of its life.
class Secret {
 public:
  explicit Secret(cvn::StringView text) : text_(text.begin(), text.end()) { text_.push_back(0); }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  ~Secret() { ::SecureZeroMemory(text_.data(), text_.size() * sizeof(wchar_t)); }

  LPCWSTR Text() const { return text_.data(); }

 private:
  std::vector<wchar_t> text_;
};

// The user of a token, as text; empty on failure.
cvn::String SidOf(HANDLE token) {
  DWORD size = 0;
  ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
  std::vector<std::byte> data(size);
  LPWSTR text = nullptr;
  if (size < sizeof(TOKEN_USER) ||
      ::GetTokenInformation(token, TokenUser, data.data(), size, &size) == 0 ||
      ::ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(data.data())->User.Sid, &text) == 0) {
    return {};
  }
  cvn::String sid = windows::ViewOf(text, std::wcslen(text));
  ::LocalFree(text);
  return sid;
}

}  // namespace

cvn::String UserSid(std::uint32_t id) {
  LastErrorKeeper lastError;
  cvn::String sid;
  const HANDLE process = ::OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, id);
  if (process == nullptr) {
    return sid;
  }
  HANDLE token = nullptr;
  if (::OpenProcessToken(process, TOKEN_QUERY, &token) != 0) {
    sid = SidOf(token);
    ::CloseHandle(token);
  }
  ::CloseHandle(process);
  return sid;
}

Code Impersonate(cvn::StringView user, cvn::StringView domain, cvn::StringView password) {
  LastErrorKeeper lastError;
  const Secret secret(password);
  HANDLE token = nullptr;
  if (::LogonUserW(Wide(cvn::PathString(user)), Wide(cvn::PathString(domain)), secret.Text(),
                   LOGON32_LOGON_INTERACTIVE, LOGON32_PROVIDER_DEFAULT, &token) == 0) {
    return lastError.Outcome(false);
  }
  const Code code = lastError.Outcome(::ImpersonateLoggedOnUser(token) != 0);
  if (code == kSuccess) {
    impersonationToken = token;
  } else {
    ::CloseHandle(token);
  }
  return code;
}

Code Revert() {
  LastErrorKeeper lastError;
  const bool isReverted = ::RevertToSelf() != 0;
  if (impersonationToken != nullptr) {
    ::CloseHandle(std::exchange(impersonationToken, nullptr));
  }
  return lastError.Outcome(isReverted);
}

}  // namespace platform::process
