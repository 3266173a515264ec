#include "platform/services.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/environment.h"
#include "platform/posix/error_map.h"
#include "platform/posix/names.h"
#include "platform/posix/registry_values.h"
#include "platform/registry.h"

namespace platform::services {
namespace {

using posix::Fail;
using posix::Folded;
using posix::UpToZero;
using posix::ValueData;
using registry::Key;

constexpr cvn::StringView kServicesKey = u"SYSTEM\\CurrentControlSet\\Services";

constexpr std::size_t kLongestName = 256;
constexpr std::size_t kLongestKeyName = 255;

constexpr std::uint32_t kInteractive = 0x100;
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

Code OpenServices(std::uint32_t access, Key* services) {
  return registry::OpenKey(Key(registry::Root::LocalMachine), kServicesKey, access, services);
}

// Deletes from the deepest key up, and stops at the first that resists.
Code DeleteTree(const Key& services, cvn::StringView name) {
  struct Doomed {
    cvn::String name;
    Key key;
  };
  std::vector<Doomed> chain(1);
  chain.back().name = name;
  Code code = registry::OpenKey(services, name, registry::kEnumerateSubKeys, &chain.back().key);
  while (code == kSuccess && !chain.empty()) {
    Doomed below;
    if (registry::EnumerateKey(chain.back().key, 0, kLongestKeyName + 1, &below.name) == kSuccess &&
        registry::OpenKey(chain.back().key, below.name, registry::kEnumerateSubKeys, &below.key) ==
            kSuccess) {
      chain.push_back(std::move(below));
      continue;
    }
    const cvn::String emptied = chain.back().name;
    chain.pop_back();
    code = registry::DeleteKey(chain.empty() ? services : chain.back().key, emptied);
  }
  return code;
}

// What can't be deleted stays marked, and the manager will try again when it starts.
Record::~Record() {
  OpenRecords().erase(Folded(name));
  Key services;
  if (isMarked && OpenServices(registry::kEnumerateSubKeys, &services) == kSuccess) {
    DeleteTree(services, name);
  }
}

// The record of a service, when a handle is open on it.
std::shared_ptr<Record> RecordOf(cvn::StringView name) {
  const auto found = OpenRecords().find(Folded(name));
  return found == OpenRecords().end() ? nullptr : found->second.lock();
}

std::optional<ValueData> Read(const Key& key, cvn::StringView name) {
  ValueData value;
  return registry::QueryValue(key, name, &value.type, &value.bytes) == kSuccess
             ? std::optional(std::move(value))
             : std::nullopt;
}

std::optional<std::uint32_t> ReadNumber(const Key& key, cvn::StringView name) {
  const std::optional<ValueData> value = Read(key, name);
  return value ? value->Number() : std::nullopt;
}

std::u16string ReadText(const Key& key, cvn::StringView name) {
  const std::optional<ValueData> value = Read(key, name);
  return (value ? value->Text() : std::nullopt).value_or(std::u16string());
}

std::vector<std::u16string> Split(cvn::StringView list) {
  std::vector<std::u16string> names;
  while (!list.empty() && list.front() != u'\0') {
    names.emplace_back(UpToZero(list));
    list.remove_prefix(std::min(names.back().size() + 1, list.size()));
  }
  return names;
}

std::vector<std::u16string> ReadNames(const Key& key, cvn::StringView name) {
  const std::optional<ValueData> value = Read(key, name);
  if (!value || value->type != registry::kTypeMultiString) {
    return {};
  }
  std::u16string list(value->bytes.size() / sizeof(char16_t), u'\0');
  std::memcpy(list.data(), value->bytes.data(), list.size() * sizeof(char16_t));
  return Split(list);
}

// The services and the groups that a service depends on.
struct Dependencies {
  std::vector<std::u16string> services;
  std::vector<std::u16string> groups;

  static Dependencies Of(const Key& service) {
    return {ReadNames(service, u"DependOnService"), ReadNames(service, u"DependOnGroup")};
  }
  static Dependencies In(cvn::StringView list) {
    Dependencies dependencies;
    for (const std::u16string& name : Split(list)) {
      if (name.starts_with(u'+')) {
        dependencies.groups.push_back(name.substr(1));
      } else {
        dependencies.services.push_back(name);
      }
    }
    return dependencies;
  }
};

bool IsServiceName(cvn::StringView name) {
  return !name.empty() && name.size() <= kLongestName &&
         name.find_first_of(u"/\\") == cvn::StringView::npos;
}

bool IsDriverType(std::uint32_t type) { return (type & 0xF) != 0; }

// Opens a service's key for reading.
Code FindService(const Key& services, cvn::StringView name, Key* key) {
  if (!IsServiceName(name)) {
    return kDoesNotExist;
  }
  const Code code = registry::OpenKey(services, name, registry::kQueryValue, key);
  if (code != kSuccess) {
    return code == kFileNotFound ? kDoesNotExist : code;
  }
  constexpr std::uint32_t kAllTypes = 0x3F;
  const bool isService = (ReadNumber(*key, u"Type").value_or(0) & kAllTypes) != 0 &&
                         ReadNumber(*key, u"Start") && ReadNumber(*key, u"ErrorControl");
  const bool isLeftMarked =
      isService && ReadNumber(*key, u"DeleteFlag").value_or(0) != 0 && RecordOf(name) == nullptr;
  return isService && !isLeftMarked ? kSuccess : kDoesNotExist;
}

Code FindService(cvn::StringView name, Key* key) {
  Key services;
  const Code code = OpenServices(0, &services);
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
          Folded(ReadText(key, u"DisplayName")) == folded) {
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
        const std::u16string displayName = ReadText(key, u"DisplayName");
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
                       (config.startType > kSystemStart || IsDriverType(config.serviceType));
  return isValid ? kSuccess : kInvalidParameter;
}

Code CheckNames(const Key& services, const Config& config) {
  Key other;
  if (FindService(services, config.name, &other) == kSuccess) {
    const std::shared_ptr<Record> record = RecordOf(config.name);
    return record != nullptr && record->isMarked ? kMarkedForDelete : kExists;
  }
  if (config.displayName.Length() > kLongestName) {
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
  std::vector<Dependencies> open = {Dependencies::In(config.dependencies)};
  while (!open.empty()) {
    const Dependencies dependencies = std::move(open.back());
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
        open.push_back(Dependencies::Of(key));
      }
    }
  }
  return kSuccess;
}

// A driver's image is named as the kernel knows it, and a path on a drive isn't known to it.
cvn::String StoredPath(const Config& config) {
  const cvn::StringView path = config.binaryPath;
  if (!IsDriverType(config.serviceType)) {
    return path;
  }
  cvn::String root = environment::Get(u"SystemRoot").value_or(u"");
  root.Append(u'\\');
  for (const cvn::StringView start : {root.AsView(), cvn::StringView(u"%SystemRoot%\\")}) {
    if (Folded(path.substr(0, start.size())) == Folded(start)) {
      cvn::String stored(u"\\SystemRoot\\");
      stored.Append(path.substr(start.size()));
      return stored;
    }
  }
  cvn::String stored(path.size() > 2 && path.substr(1, 2) == u":\\" ? u"\\??\\" : u"");
  stored.Append(path);
  return stored;
}

// Writes the values of a service. The first failure is kept, and nothing written behind it.
class Writer {
 public:
  explicit Writer(const Key& key) : key_(key) {}

  void Number(cvn::StringView name, std::uint32_t number) {
    Write(name, registry::kTypeDword, std::as_bytes(std::span(&number, 1)));
  }
  // An empty text leaves no value.
  void Text(cvn::StringView name, cvn::StringView text,
            std::uint32_t type = registry::kTypeString) {
    const std::u16string ended(text);
    if (text.empty()) {
      Remove(name);
    } else {
      Write(name, type, std::as_bytes(std::span(ended.c_str(), ended.size() + 1)));
    }
  }
  void Names(cvn::StringView name, const std::vector<std::u16string>& names) {
    std::u16string list;
    for (const std::u16string& each : names) {
      list.append(each).push_back(u'\0');
    }
    Text(name, list, registry::kTypeMultiString);
  }
  Code Outcome() const { return code_; }

 private:
  void Write(cvn::StringView name, std::uint32_t type, std::span<const std::byte> data) {
    if (code_ == kSuccess) {
      code_ = registry::SetValue(key_, name, type, data);
    }
  }
  void Remove(cvn::StringView name) {
    const Code code = code_ == kSuccess ? registry::DeleteValue(key_, name) : kFileNotFound;
    if (code != kFileNotFound) {
      code_ = code;
    }
  }

  const Key& key_;
  Code code_ = kSuccess;
};

Code WriteService(const Key& services, const Config& config) {
  Key key;
  // What a marked service left would be deleted with the new one at the manager's next start.
  Code code = registry::OpenKey(services, config.name, registry::kQueryValue, &key);
  if (code == kSuccess && ReadNumber(key, u"DeleteFlag").value_or(0) != 0) {
    key.Close();
    code = DeleteTree(services, config.name);
  }
  if (code == kSuccess || code == kFileNotFound) {
    code = registry::CreateKey(services, config.name, false, registry::kSetValue, &key);
  }
  if (code != kSuccess) {
    return code;
  }
  const Dependencies dependencies = Dependencies::In(config.dependencies);
  Writer writer(key);
  writer.Number(u"Type", config.serviceType);
  writer.Number(u"Start", config.startType);
  writer.Number(u"ErrorControl", config.errorControl);
  writer.Text(u"ImagePath", StoredPath(config), registry::kTypeExpandString);
  writer.Text(u"DisplayName", config.displayName);
  writer.Text(u"Group", config.group);
  writer.Names(u"DependOnService", dependencies.services);
  writer.Names(u"DependOnGroup", dependencies.groups);
  writer.Text(u"ObjectName", IsDriverType(config.serviceType) ? u"" : u"LocalSystem");
  return writer.Outcome();
}

bool MayWrite(const Key& parent, cvn::StringView path) {
  Key key;
  return registry::OpenKey(parent, path, registry::kSetValue, &key) == kSuccess;
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
    const Code found = OpenServices(0, &services);
    if (found != kSuccess) {
      return found == kFileNotFound ? kDatabaseDoesNotExist : found;
    }
    if ((access & ~kManagerReaderAccess) != 0 && !MayWrite(services, u"")) {
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
    if ((access & ~kReaderAccess) != 0 && !MayWrite(key, u"")) {
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
    const std::u16string displayName = ReadText(key, u"DisplayName");
    config->displayName = displayName.empty() ? name.AsView() : displayName;
    config->serviceType = ReadNumber(key, u"Type").value_or(0);
    config->startType = ReadNumber(key, u"Start").value_or(0);
    config->errorControl = ReadNumber(key, u"ErrorControl").value_or(0);
    const std::optional<ValueData> path = Read(key, u"ImagePath");
    const std::u16string text = ReadText(key, u"ImagePath");
    config->hasBinaryPath = path && path->Text();
    config->binaryPath = path && path->type == registry::kTypeExpandString
                             ? environment::Expand(text).value_or(cvn::String(text))
                             : cvn::String(text);
    config->group.Assign(ReadText(key, u"Group"));
    config->dependencies.Clear();
    const Dependencies dependencies = Dependencies::Of(key);
    for (const std::u16string& each : dependencies.services) {
      config->dependencies.Append(each);
      config->dependencies.Append(u'\0');
    }
    for (const std::u16string& each : dependencies.groups) {
      config->dependencies.Append(u'+');
      config->dependencies.Append(each);
      config->dependencies.Append(u'\0');
    }
    if (!config->dependencies.Empty()) {
      config->dependencies.Append(u'\0');
    }
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
    if (ReadNumber(key, u"Start") == kDisabledStart) {
      return kDisabled;
    }
    for (const std::u16string& name : Dependencies::Of(key).services) {
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
      code = OpenServices(registry::kEnumerateSubKeys, &services);
    }
    if (code == kSuccess) {
      code = CheckNames(services, config);
    }
    if (code == kSuccess) {
      code = CheckDependencies(services, config);
    }
    if (code == kSuccess) {
      code = WriteService(services, config);
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
    Key key;
    Code code = OpenServices(0, &services);
    if (code == kSuccess) {
      code = registry::OpenKey(services, opened.service->name, registry::kSetValue, &key);
    }
    if (code == kSuccess) {
      Writer writer(key);
      writer.Number(u"DeleteFlag", 1);
      code = writer.Outcome();
    }
    opened.service->isMarked = code == kSuccess;
    return code;
  });
}

}  // namespace platform::services
