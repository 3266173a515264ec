#include "platform/services.h"

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/formats/names.h"
#include "platform/linux/error_map.h"
#include "platform/offline/registry/service_keys.h"
#include "platform/registry.h"

namespace platform::services {
namespace {

using posix::Fail;
using posix::Folded;
using posix::IsServiceName;
using posix::OpenServiceKey;
using posix::OpenServiceKeys;
using posix::ServiceDependencies;
using posix::UpToZero;
using registry::Key;

constexpr std::size_t kLongestKeyName = 255;
constexpr std::uint32_t kSystemStart = 1;
constexpr std::uint32_t kDisabledStart = 4;
constexpr std::uint32_t kMostErrorControl = 3;

// What an account that may not change the database still has of the manager and of each service:
// the rights to ask, and to read their security.
constexpr std::uint32_t kManagerReaderAccess = 0x20015;
constexpr std::uint32_t kReaderAccess = 0x2018D;

// A service that handles are open on.
struct Record {
  explicit Record(cvn::StringView itsName) : name(itsName) {}
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;
  ~Record();

  cvn::String name;
  bool isMarked = false;  // for deletion, which comes with the last handle
};

// What a handle stands for.
struct Opened {
  std::uint32_t access = 0;
  std::shared_ptr<Record> service;  // null for the manager
};

std::mutex& Mutex() {
  static std::mutex mutex;
  return mutex;
}

// By the folded name.
using Records = std::map<std::u16string, std::weak_ptr<Record>>;
Records& OpenRecords() {
  static Records records;
  return records;
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
  return code == kSuccess ? kSuccess : Fail(code);
}

// Runs `action` on what a handle of the right kind and with the right access stands for.
template <typename Action>
Code WithHandle(const Handle& handle, bool isManager, std::uint32_t access, Action action) {
  return Guarded([&]() -> Code {
    Opened* opened = reinterpret_cast<Opened*>(handle.Value());
    if (opened == nullptr || (opened->service == nullptr) != isManager) {
      return kInvalidHandle;
    }
    return (opened->access & access) == access ? action(*opened) : kAccessDenied;
  });
}

// What can't be deleted stays marked, and the manager will try again when it starts.
Record::~Record() {
  OpenRecords().erase(Folded(name));
  Key services;
  if (isMarked && OpenServiceKeys(registry::kEnumerateSubKeys, &services) == kSuccess) {
    posix::DeleteServiceKey(services, name);
  }
}

// The record of a service, when a handle is open on it.
std::shared_ptr<Record> RecordOf(cvn::StringView name) {
  const auto found = OpenRecords().find(Folded(name));
  return found == OpenRecords().end() ? nullptr : found->second.lock();
}

// Opens a service's key for reading. What was marked for deletion before, and not deleted, is no
// service any more.
Code FindService(const Key& services, cvn::StringView name, Key* key) {
  const Code code = OpenServiceKey(services, name, key);
  const bool isLeftMarked =
      code == kSuccess && posix::IsMarkedForDeletion(*key) && RecordOf(name) == nullptr;
  return isLeftMarked ? kDoesNotExist : code;
}

Code FindService(cvn::StringView name, Key* key) {
  Key services;
  const Code code = OpenServiceKeys(0, &services);
  return code == kSuccess ? FindService(services, name, key) : code;
}

// The names of services by their folded display names. Read once, as the manager does: a display
// name that others write meanwhile counts from the next start on.
class DisplayNames {
 public:
  // The index of this process, filled when it is first asked for.
  static DisplayNames& Get(const Key& services) {
    static DisplayNames names(services);
    return names;
  }

  void Add(cvn::StringView displayName, cvn::StringView service) {
    services_.emplace(Folded(displayName), service);
  }

  // Whether a service has the display name now. Forgets those that no longer do.
  bool IsTaken(const Key& services, cvn::StringView displayName) {
    const std::u16string folded = Folded(displayName);
    auto [at, end] = services_.equal_range(folded);
    while (at != end) {
      Key key;
      if (FindService(services, at->second, &key) == kSuccess &&
          Folded(posix::ReadDisplayName(key)) == folded) {
        return true;
      }
      at = services_.erase(at);
    }
    return false;
  }

 private:
  explicit DisplayNames(const Key& services) {
    cvn::String name;
    for (std::uint32_t index = 0;
         registry::EnumerateKey(services, index, kLongestKeyName + 1, &name) == kSuccess; ++index) {
      Key key;
      if (registry::OpenKey(services, name, registry::kQueryValue, &key) == kSuccess) {
        const std::u16string displayName = posix::ReadDisplayName(key);
        if (!displayName.empty()) {
          Add(displayName, name);
        }
      }
    }
  }

  std::multimap<std::u16string, cvn::String> services_;
};

Code CheckNumbers(const Config& config) {
  constexpr std::uint32_t kTypes[] = {0x1, 0x2, 0x10, 0x20, 0x50, 0x60, 0x110, 0x120};
  const bool isValid = std::ranges::find(kTypes, config.serviceType) != std::end(kTypes) &&
                       config.startType <= kDisabledStart &&
                       config.errorControl <= kMostErrorControl &&
                       (config.startType > kSystemStart || posix::IsDriverType(config.serviceType));
  return isValid ? kSuccess : kInvalidParameter;
}

Code CheckNames(const Key& services, const Config& config) {
  Key other;
  if (FindService(services, config.name, &other) == kSuccess) {
    const std::shared_ptr<Record> record = RecordOf(config.name);
    return record != nullptr && record->isMarked ? kMarkedForDelete : kExists;
  }
  if (config.displayName.Length() > posix::kLongestServiceName) {
    return kInvalidName;
  }
  const bool isTaken = !config.displayName.Empty() &&
                       (FindService(services, config.displayName, &other) == kSuccess ||
                        DisplayNames::Get(services).IsTaken(services, config.displayName));
  return isTaken ? kDuplicateName : kSuccess;
}

// A new service can depend on itself when services that are there depend on its name, or on a group
// that it joins.
Code CheckDependencies(const Key& services, const Config& config) {
  const std::u16string ownName = Folded(config.name);
  const std::u16string ownGroup = Folded(config.group);
  std::set<std::u16string> seen;
  std::vector<ServiceDependencies> open = {ServiceDependencies::In(config.dependencies)};
  while (!open.empty()) {
    const ServiceDependencies dependencies = std::move(open.back());
    open.pop_back();
    for (const std::u16string& group : dependencies.groups) {
      if (!ownGroup.empty() && Folded(group) == ownGroup) {
        return kCircularDependency;
      }
    }
    for (const std::u16string& name : dependencies.services) {
      const std::u16string folded = Folded(name);
      Key key;
      if (folded == ownName) {
        return kCircularDependency;
      }
      if (seen.insert(folded).second && FindService(services, name, &key) == kSuccess) {
        open.push_back(ServiceDependencies::Of(key));
      }
    }
  }
  return kSuccess;
}

bool MayWrite(const Key& key) {
  Key again;
  return registry::OpenKey(key, u"", registry::kSetValue, &again) == kSuccess;
}

void Publish(std::uint32_t access, std::shared_ptr<Record> service, Handle* handle) {
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
    std::shared_ptr<Record> record = RecordOf(name);
    if (record == nullptr) {
      record = std::make_shared<Record>(name);
      OpenRecords()[Folded(name)] = record;
    }
    Publish(access, std::move(record), &opened);
    return kSuccess;
  });
  if (code == kSuccess) {
    *service = std::move(opened);
  }
  return code;
}

Code QueryState(const Handle& service, std::uint32_t* state) {
  return WithHandle(service, false, kQueryStatus, [state](const Opened&) {
    *state = kStateStopped;
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
    if (posix::ReadStartType(key) == kDisabledStart) {
      return kDisabled;
    }
    for (const std::u16string& name : ServiceDependencies::Of(key).services) {
      const std::shared_ptr<Record> record = RecordOf(name);
      Key dependency;
      if (FindService(name, &dependency) != kSuccess || (record != nullptr && record->isMarked)) {
        return kDependencyDeleted;
      }
    }
    return kNotSupported;
  });
}

Code Stop(const Handle& service, std::uint32_t* /*state*/) {
  return WithHandle(service, false, kStop, [](const Opened&) { return kNotActive; });
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
    Code code = CheckNumbers(config);
    if (code == kSuccess) {
      code = OpenServiceKeys(registry::kEnumerateSubKeys, &services);
    }
    if (code == kSuccess) {
      code = CheckNames(services, config);
    }
    if (code == kSuccess) {
      code = CheckDependencies(services, config);
    }
    if (code == kSuccess) {
      code = posix::WriteService(services, config);
    }
    if (code == kSuccess && !config.displayName.Empty()) {
      DisplayNames::Get(services).Add(config.displayName, config.name);
    }
    return code;
  });
}

Code Delete(const Handle& service) {
  return WithHandle(service, false, kDelete, [](const Opened& opened) -> Code {
    if (opened.service->isMarked) {
      return kMarkedForDelete;
    }
    Key services;
    Code code = OpenServiceKeys(0, &services);
    if (code == kSuccess) {
      code = posix::MarkForDeletion(services, opened.service->name);
    }
    opened.service->isMarked = code == kSuccess;
    return code;
  });
}

}  // namespace platform::services
