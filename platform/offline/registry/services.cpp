#include "platform/services.h"

#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <utility>

#include "platform/formats/names.h"
#include "platform/linux/error_map.h"
#include "platform/offline/registry/service_database.h"
#include "platform/offline/registry/service_keys.h"
#include "platform/registry.h"
#include "platform/rehearsal.h"

namespace platform::services {
namespace {

using posix::Fail;
using posix::FindService;
using posix::IsServiceName;
using posix::OpenServiceKeys;
using posix::ServiceDependencies;
using posix::UpToZero;
using registry::Key;

// What an account that may not change the database still has of the manager and of each service.
// READ_CONTROL, and the rights to connect, to enumerate and to query the lock.
constexpr std::uint32_t kManagerReaderAccess = 0x20015;
// READ_CONTROL, and the rights to query configuration and state, to enumerate dependents, to
// interrogate and to send controls of the user's own.
constexpr std::uint32_t kReaderAccess = 0x2018D;

// What a handle stands for.
struct Opened {
  std::uint32_t access = 0;
  std::shared_ptr<posix::OpenService> service;  // null for the manager
};

std::mutex& Mutex() {
  static std::mutex mutex;
  return mutex;
}

// Runs `action` alone, without letting an exception out, and makes its failure the last error.
template <typename Action>
Code Guarded(Action action) {
  Code code = kNotEnoughMemory;
  try {
    const std::lock_guard lock(Mutex());
    code = action();
  } catch (const std::bad_alloc&) {
  } catch (const std::length_error&) {
  }
  return posix::Report(code);
}

// Runs `action` on what a handle of the right kind and with the right access stands for.
template <typename Action>
Code WithHandle(const Handle& handle, bool isManager, std::uint32_t access, Action action) {
  return Guarded([&]() -> Code {
    auto* opened = reinterpret_cast<Opened*>(handle.Value());
    if (opened == nullptr || (opened->service == nullptr) != isManager) {
      return kInvalidHandle;
    }
    return (opened->access & access) == access ? action(*opened) : kAccessDenied;
  });
}

bool MayWrite(const Key& key) {
  Key again;
  return registry::OpenKey(key, u"", registry::kSetValue, &again) == kSuccess;
}

// Gives the answer of a rehearsal; else `otherwise`, since nothing runs.
Code Rehearse(rehearsal::Action action, const Opened& opened, Code otherwise) {
  if (!rehearsal::IsOn()) {
    return otherwise;
  }
  const cvn::String& name = opened.service->name;
  const Code code = rehearsal::Answer(action, name);
  if (code == kSuccess) {
    rehearsal::SetRunning(name, action == rehearsal::Action::StartService);
  }
  return code;
}

void Publish(std::uint32_t access, std::shared_ptr<posix::OpenService> service, Handle* handle) {
  auto opened = std::make_unique<Opened>();
  opened->access = access;
  opened->service = std::move(service);
  *handle = Handle(reinterpret_cast<std::uintptr_t>(opened.release()));
}

}  // namespace

void Handle::Close() {
  if (IsOpen()) {
    const std::lock_guard lock(Mutex());
    delete reinterpret_cast<Opened*>(value_);
  }
  value_ = 0;
}

Code OpenManager(std::uint32_t access, Handle* manager) {
  Handle opened;
  const Code code = Guarded([&]() -> Code {
    Key services;
    const Code found = OpenServiceKeys(0, &services);
    if (found != kSuccess) {
      return found;
    }
    if ((access & ~kManagerReaderAccess) != 0 && !MayWrite(services)) {
      return kAccessDenied;
    }
    Publish(access | kManagerConnect, nullptr, &opened);
    return kSuccess;
  });
  if (code == kSuccess) {
    *manager = std::move(opened);
  }
  return code;
}

Code Open(const Handle& manager, cvn::StringView name, std::uint32_t access, Handle* service) {
  Handle opened;
  name = UpToZero(name);
  const Code code = WithHandle(manager, true, kManagerConnect, [&](const Opened&) -> Code {
    if (!IsServiceName(name)) {
      return kInvalidName;
    }
    Key key;
    const Code found = FindService(name, &key);
    if (found != kSuccess) {
      return found;
    }
    if ((access & ~kReaderAccess) != 0 && !MayWrite(key)) {
      return kAccessDenied;
    }
    Publish(access, posix::HoldService(name), &opened);
    return kSuccess;
  });
  if (code == kSuccess) {
    *service = std::move(opened);
  }
  return code;
}

Code QueryState(const Handle& service, std::uint32_t* state) {
  return WithHandle(service, false, kQueryStatus, [state](const Opened& opened) {
    *state = rehearsal::IsRunning(opened.service->name) ? kStateRunning : kStateStopped;
    return kSuccess;
  });
}

Code QueryConfig(const Handle& service, Config* config) {
  return WithHandle(service, false, kQueryConfig, [config](const Opened& opened) {
    const cvn::String& name = opened.service->name;
    Key key;
    const Code code = FindService(name, &key);
    if (code != kSuccess) {
      return code;
    }
    *config = posix::ReadService(key, name);
    return kSuccess;
  });
}

Code Start(const Handle& service) {
  return WithHandle(service, false, kStart, [](const Opened& opened) -> Code {
    if (opened.service->isMarked) {
      return kMarkedForDelete;
    }
    Key key;
    const Code code = FindService(opened.service->name, &key);
    if (code != kSuccess) {
      return code;
    }
    if (posix::ReadStartType(key) == posix::kDisabledStart) {
      return kDisabled;
    }
    for (const std::u16string& name : ServiceDependencies::Of(key).services) {
      const std::shared_ptr<posix::OpenService> record = posix::FindOpenService(name);
      Key dependency;
      if (FindService(name, &dependency) != kSuccess || (record != nullptr && record->isMarked)) {
        return kDependencyDeleted;
      }
    }
    return Rehearse(rehearsal::Action::StartService, opened, kNotSupported);
  });
}

Code Stop(const Handle& service, std::uint32_t* /*state*/) {
  return WithHandle(service, false, kStop, [](const Opened& opened) {
    return Rehearse(rehearsal::Action::StopService, opened, kNotActive);
  });
}

Code Create(const Handle& manager, const Config& config) {
  if (config.binaryPath.Empty()) {
    return Fail(kInvalidAddress);
  }
  return WithHandle(manager, true, kManagerCreateService, [&config](const Opened&) -> Code {
    if (!IsServiceName(config.name)) {
      return kInvalidName;
    }
    Key services;
    registry::Change change;
    Code code = posix::CheckServiceNumbers(config);
    if (code == kSuccess) {
      code = OpenServiceKeys(registry::kEnumerateSubKeys, &services);
    }
    if (code == kSuccess) {
      code = change.Begin(services, u"");
    }
    if (code == kSuccess) {
      code = posix::CheckNewService(services, config);
    }
    if (code == kSuccess) {
      code = posix::WriteService(services, config);
    }
    if (code == kSuccess) {
      code = change.End();
    }
    if (code == kSuccess) {
      posix::AddDisplayName(services, config);
    }
    return code;
  });
}

Code Delete(const Handle& service) {
  return WithHandle(service, false, kDelete, [](const Opened& opened) -> Code {
    posix::OpenService& record = *opened.service;
    if (record.isMarked) {
      return kMarkedForDelete;
    }
    Key services;
    Code code = OpenServiceKeys(0, &services);
    // With its last handle the service goes, and that handle is here: nothing is left to be done,
    // and to fail, when it is closed.
    if (code == kSuccess && opened.service.use_count() == 1) {
      record.isDeleted = posix::DeleteService(services, record.name) == kSuccess;
    }
    if (code == kSuccess && !record.isDeleted) {
      code = posix::MarkForDeletion(services, record.name);
    }
    record.isMarked = code == kSuccess;
    return code;
  });
}

}  // namespace platform::services
