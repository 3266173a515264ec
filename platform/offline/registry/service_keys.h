// The keys in which the service manager keeps its services,
// SYSTEM\CurrentControlSet\Services\<name>.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/registry.h"
#include "platform/services.h"
#include "support/string.h"

namespace platform::posix {

constexpr std::size_t kLongestServiceName = 256;

// Whether a service may have the name at all.
bool IsServiceName(cvn::StringView name);

bool IsDriverType(std::uint32_t type);

// The key that holds those of all services. 1065 when there is none.
Code OpenServiceKeys(std::uint32_t access, registry::Key* services);

// Opens a service's key for reading. 1060 when there is none, or one that isn't a service's.
Code OpenServiceKey(const registry::Key& services, cvn::StringView name, registry::Key* key);

// What a service is made of. The rest can be had with less work than the whole.
services::Config ReadService(const registry::Key& key, cvn::StringView name);
std::uint32_t ReadStartType(const registry::Key& key);
std::u16string ReadDisplayName(const registry::Key& key);  // empty when the name serves for it

// Writes a new service. What a key of that name holds of other things stays, unless a service that
// is marked for deletion has left it.
Code WriteService(const registry::Key& services, const services::Config& config);

// The mark that a service bears until it is deleted.
bool IsMarkedForDeletion(const registry::Key& key);
Code MarkForDeletion(const registry::Key& services, cvn::StringView name);

// Deletes a service's key with all below it, or nothing.
Code DeleteService(const registry::Key& services, cvn::StringView name);

// The services and the groups that a service depends on.
struct ServiceDependencies {
  std::vector<std::u16string> services;
  std::vector<std::u16string> groups;

  static ServiceDependencies Of(const registry::Key& key);
  // In the form of services::Config.
  static ServiceDependencies In(cvn::StringView list);
  cvn::String List() const;
};

}  // namespace platform::posix
