// Converts between the texts of this system and those of Windows: the only place that includes
// <windows.h> and casts to wchar_t.
#pragma once

#include <windows.h>
// Macros that would rename operations of ours.
#undef CreateDirectory
#undef RemoveDirectory

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

#include "platform/error.h"
#include "support/string.h"

namespace platform::windows {

static_assert(sizeof(wchar_t) == sizeof(char16_t));

// A zero-ended text for a call: Wide(cvn::PathString(text)) lives to the end of the full
// expression.
inline LPCWSTR Wide(const cvn::PathString& text) { return reinterpret_cast<LPCWSTR>(text.CStr()); }

inline cvn::StringView ViewOf(const wchar_t* text, std::size_t length) {
  return {reinterpret_cast<const char16_t*>(text), length};
}

// `path` for a call that opens or changes something: a path too long for the classic limits gets
// the form that has none, \\?\C:\..., so that long paths need neither a manifest nor a policy.
cvn::PathString PathForCall(cvn::StringView path);

// The usual form of what PathForCall gave a prefix.
cvn::String WithoutLongPrefix(cvn::StringView path);

// Puts the thread's last error back at the end of its life, as a successful operation leaves it
// alone while the calls behind it may not.
class LastErrorKeeper {
 public:
  LastErrorKeeper() = default;
  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;
  ~LastErrorKeeper() { ::SetLastError(code_); }

  // Takes the result of a call: the last error of one that failed stays.
  void Settle(bool succeeded) {
    if (!succeeded) {
      code_ = ::GetLastError();
    }
  }

  // The same, and gives the code of that call.
  Code Outcome(bool succeeded) {
    Settle(succeeded);
    return succeeded ? kSuccess : Code(code_);
  }

 private:
  DWORD code_ = ::GetLastError();
};

// The text that `call(buffer, size)` writes: `call` returns its length, or the size that it needs,
// or `size` when it can't tell more than that the buffer is too small. Tried with kFirstSize
// characters, then with more as long as needed. Nothing when the call fails, which is when it
// returns 0 with a last error.
template <DWORD kFirstSize, typename Call>
std::optional<cvn::String> ReadText(Call call) {
  LastErrorKeeper lastError;
  std::array<wchar_t, kFirstSize> first;
  std::vector<wchar_t> more;
  wchar_t* buffer = first.data();
  for (DWORD size = kFirstSize;;) {
    ::SetLastError(ERROR_SUCCESS);
    const DWORD length = call(buffer, size);
    if (lastError.Outcome(length != 0 || ::GetLastError() == ERROR_SUCCESS) != kSuccess) {
      return std::nullopt;
    }
    if (length < size) {
      return cvn::String(ViewOf(buffer, length));
    }
    size = length > size ? length : size * 2;
    more.resize(size);
    buffer = more.data();
  }
}

// A function that not every Windows has, looked up in a module that is loaded. Null when it isn't
// there.
template <typename Function>
Function* FindFunction(const char* module, const char* name) {
  const HMODULE handle = ::GetModuleHandleA(module);
  return handle == nullptr
             ? nullptr
             : reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(handle, name)));
}

}  // namespace platform::windows
