#include "platform/offline/registry/service_database.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/formats/names.h"
#include "platform/offline/registry/registry_values.h"
#include "platform/offline/registry/service_keys.h"
#include "platform/version.h"

namespace platform::posix {
namespace {

using registry::Key;
using services::Config;
using services::kCircularDependency;
using services::kDoesNotExist;
using services::kDuplicateName;
using services::kExists;
using services::kMarkedForDelete;

constexpr std::uint32_t kSystemStart = 1;
constexpr std::uint32_t kMostErrorControl = 3;

// By the folded name.
using Records = std::map<std::u16string, std::weak_ptr<OpenService>>;
Records& OpenRecords() {
  static Records records;
  return records;
}

// Opens a service's key for reading. What was marked for deletion before, and not deleted, is no
// service any more.
Code FindService(const Key& services, cvn::StringView name, Key* key) {
  const Code code = OpenServiceKey(services, name, key);
  const bool isLeftMarked =
      code == kSuccess && IsMarkedForDeletion(*key) && FindOpenService(name) == nullptr;
  return isLeftMarked ? kDoesNotExist : code;
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
          Folded(ReadDisplayName(key)) == folded) {
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
        const std::u16string displayName = ReadDisplayName(key);
        if (!displayName.empty()) {
          Add(displayName, name);
        }
      }
    }
  }

  std::multimap<std::u16string, cvn::String> services_;
};

// Whether services may share a display name: from version 1709 of Windows 10 on they may, though
// CreateService is documented to refuse it.
bool MayShareDisplayNames() {
  constexpr std::uint32_t kBuildOf1709 = 16299;
  return version::IsBuildAtLeast(kBuildOf1709);
}

// Whether a new service can't have the display name, because another has it or is named so.
bool IsDuplicate(const Key& services, cvn::StringView displayName) {
  Key other;
  return FindService(services, displayName, &other) == kSuccess ||
         (!MayShareDisplayNames() && DisplayNames::Get(services).IsTaken(services, displayName));
}

Code CheckNames(const Key& services, const Config& config) {
  Key other;
  const std::shared_ptr<OpenService> record = FindOpenService(config.name);
  if (record != nullptr && record->isMarked) {
    return kMarkedForDelete;
  }
  if (FindService(services, config.name, &other) == kSuccess) {
    return kExists;
  }
  if (config.displayName.Length() > kLongestServiceName) {
    return kInvalidName;
  }
  return !config.displayName.Empty() && IsDuplicate(services, config.displayName) ? kDuplicateName
                                                                                  : kSuccess;
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

}  // namespace

OpenService::~OpenService() {
  OpenRecords().erase(Folded(name));
  Key services;
  if (isMarked && !isDeleted &&
      OpenServiceKeys(registry::kEnumerateSubKeys, &services) == kSuccess) {
    IgnoreError(DeleteService(services, name));
  }
}

std::shared_ptr<OpenService> FindOpenService(cvn::StringView name) {
  const auto found = OpenRecords().find(Folded(name));
  return found == OpenRecords().end() ? nullptr : found->second.lock();
}

std::shared_ptr<OpenService> HoldService(cvn::StringView name) {
  std::shared_ptr<OpenService> service = FindOpenService(name);
  if (service == nullptr) {
    service = std::make_shared<OpenService>(name);
    OpenRecords()[Folded(name)] = service;
  }
  return service;
}

Code FindService(cvn::StringView name, Key* key) {
  Key services;
  const Code code = OpenServiceKeys(0, &services);
  return code == kSuccess ? FindService(services, name, key) : code;
}

Code CheckServiceNumbers(const Config& config) {
  // Drivers of the kernel and of file systems; processes of one service and of several, plain, as
  // templates of users, and interactive.
  constexpr std::uint32_t kTypes[] = {0x1, 0x2, 0x10, 0x20, 0x50, 0x60, 0x110, 0x120};
  const bool isValid = std::ranges::find(kTypes, config.serviceType) != std::end(kTypes) &&
                       config.startType <= kDisabledStart &&
                       config.errorControl <= kMostErrorControl &&
                       (config.startType > kSystemStart || IsDriverType(config.serviceType));
  return isValid ? kSuccess : kInvalidParameter;
}

Code CheckNewService(const Key& services, const Config& config) {
  const Code code = CheckNames(services, config);
  return code == kSuccess ? CheckDependencies(services, config) : code;
}

void AddDisplayName(const Key& services, const Config& config) {
  if (!config.displayName.Empty() && !MayShareDisplayNames()) {
    DisplayNames::Get(services).Add(config.displayName, config.name);
  }
}

}  // namespace platform::posix
