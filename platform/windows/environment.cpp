#include "platform/environment.h"

#include "platform/windows/wide.h"

namespace platform::environment {

using windows::Wide;

std::optional<cvn::String> Get(cvn::StringView name) {
  const cvn::PathString text(name);
  return windows::ReadText<1024>([&](wchar_t* buffer, DWORD size) {
    return ::GetEnvironmentVariableW(Wide(text), buffer, size);
  });
}

Code Set(cvn::StringView name, cvn::StringView value) {
  windows::LastErrorKeeper lastError;
  return lastError.Outcome(
      ::SetEnvironmentVariableW(Wide(cvn::PathString(name)), Wide(cvn::PathString(value))) != 0);
}

std::optional<cvn::String> Expand(cvn::StringView text) {
  const cvn::PathString source(text);
  return windows::ReadText<1024>([&](wchar_t* buffer, DWORD size) {
    const DWORD written = ::ExpandEnvironmentStringsW(Wide(source), buffer, size);
    // It counts the closing zero even when all fits.
    return written == 0 || written > size ? written : written - 1;
  });
}

}  // namespace platform::environment
