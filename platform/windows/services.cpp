#include "platform/services.h"

#include <algorithm>
#include <vector>

#include "platform/windows/wide.h"

namespace platform::services {
namespace {

using windows::LastErrorKeeper;
using windows::ViewOf;
using windows::Wide;

SC_HANDLE HandleOf(const Handle& handle) { return reinterpret_cast<SC_HANDLE>(handle.Value()); }

Code Keep(SC_HANDLE opened, LastErrorKeeper* lastError, Handle* handle) {
  const Code code = lastError->Outcome(opened != nullptr);
  if (code == kSuccess) {
    *handle = Handle(reinterpret_cast<std::uintptr_t>(opened));
  }
  return code;
}

cvn::StringView TextOrNone(const wchar_t* text) {
  return text == nullptr ? cvn::StringView()
                         : ViewOf(text, static_cast<std::size_t>(lstrlenW(text)));
}

// The list at `list` with its ends.
cvn::StringView ListOrNone(const wchar_t* list) {
  std::size_t length = 0;
  while (list != nullptr && list[length] != L'\0') {
    length += TextOrNone(list + length).size() + 1;
  }
  return length == 0 ? cvn::StringView() : ViewOf(list, length + 1);
}

}  // namespace

void Handle::Close() {
  if (IsOpen()) {
    const LastErrorKeeper lastError;
    ::CloseServiceHandle(HandleOf(*this));
  }
  value_ = 0;
}

Code OpenManager(std::uint32_t access, Handle* manager) {
  LastErrorKeeper lastError;
  return Keep(::OpenSCManagerW(nullptr, nullptr, access), &lastError, manager);
}

Code Open(const Handle& manager, cvn::StringView name, std::uint32_t access, Handle* service) {
  LastErrorKeeper lastError;
  return Keep(::OpenServiceW(HandleOf(manager), Wide(cvn::PathString(name)), access), &lastError,
              service);
}

Code QueryState(const Handle& service, std::uint32_t* state) {
  LastErrorKeeper lastError;
  SERVICE_STATUS status{};
  const Code code = lastError.Outcome(::QueryServiceStatus(HandleOf(service), &status) != FALSE);
  if (code == kSuccess) {
    *state = status.dwCurrentState;
  }
  return code;
}

Code QueryConfig(const Handle& service, Config* config) {
  LastErrorKeeper lastError;
  std::vector<QUERY_SERVICE_CONFIGW> room(1);
  DWORD needed = 0;
  const auto query = [&] {
    const auto size = static_cast<DWORD>(room.size() * sizeof(room.front()));
    return ::QueryServiceConfigW(HandleOf(service), room.data(), size, &needed) != FALSE
               ? kSuccess
               : Code(::GetLastError());
  };
  Code code = query();
  // Once more whenever it grew in between.
  while (code == ERROR_INSUFFICIENT_BUFFER) {
    room.resize(std::max(room.size(), needed / sizeof(room.front())) + 1);
    code = query();
  }
  if (code != kSuccess) {
    return lastError.Outcome(false);
  }
  const QUERY_SERVICE_CONFIGW& found = room.front();
  config->displayName = TextOrNone(found.lpDisplayName);
  config->serviceType = found.dwServiceType;
  config->startType = found.dwStartType;
  config->errorControl = found.dwErrorControl;
  config->binaryPath = TextOrNone(found.lpBinaryPathName);
  config->hasBinaryPath = found.lpBinaryPathName != nullptr;
  config->group = TextOrNone(found.lpLoadOrderGroup);
  config->dependencies = ListOrNone(found.lpDependencies);
  return kSuccess;
}

Code Start(const Handle& service) {
  LastErrorKeeper lastError;
  return lastError.Outcome(::StartServiceW(HandleOf(service), 0, nullptr) != FALSE);
}

Code Stop(const Handle& service, std::uint32_t* state) {
  LastErrorKeeper lastError;
  SERVICE_STATUS status{};
  const Code code = lastError.Outcome(
      ::ControlService(HandleOf(service), SERVICE_CONTROL_STOP, &status) != FALSE);
  if (code == kSuccess) {
    *state = status.dwCurrentState;
  }
  return code;
}

Code Create(const Handle& manager, const Config& config) {
  LastErrorKeeper lastError;
  const auto wideOrNone = [](const cvn::PathString& text) {
    return text.Empty() ? nullptr : Wide(text);
  };
  Handle created;
  return Keep(::CreateServiceW(HandleOf(manager), Wide(cvn::PathString(config.name)),
                               wideOrNone(cvn::PathString(config.displayName)), 0,
                               config.serviceType, config.startType, config.errorControl,
                               wideOrNone(cvn::PathString(config.binaryPath)),
                               wideOrNone(cvn::PathString(config.group)), nullptr,
                               wideOrNone(cvn::PathString(config.dependencies)), nullptr, nullptr),
              &lastError, &created);
}

Code Delete(const Handle& service) {
  LastErrorKeeper lastError;
  return lastError.Outcome(::DeleteService(HandleOf(service)) != FALSE);
}

}  // namespace platform::services
