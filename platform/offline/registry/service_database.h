// The services of this process's machine: those that handles are open on, and what the manager asks
// of a new one. Callers take turns.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/error.h"
#include "platform/registry.h"
#include "platform/services.h"
#include "support/string.h"

namespace platform::posix {

constexpr std::uint32_t kDisabledStart = 4;

// A service that handles are open on.
struct OpenService {
  explicit OpenService(cvn::StringView itsName) : name(itsName) {}
  OpenService(const OpenService&) = delete;
  OpenService& operator=(const OpenService&) = delete;
  // What can't be deleted stays marked, and the manager tries again when it starts.
  ~OpenService();

  cvn::String name;
  bool isMarked = false;   // for deletion, which comes with the last handle
  bool isDeleted = false;  // already
};

// The record of a service; null when no handle is open on it.
std::shared_ptr<OpenService> FindOpenService(cvn::StringView name);

// The same, made where it is missing.
std::shared_ptr<OpenService> HoldService(cvn::StringView name);

// Opens a service's key for reading. What was marked for deletion before, and not deleted, is no
// service any more.
Code FindService(cvn::StringView name, registry::Key* key);

// Whether a service can have this type, start type and error control. 87 when not.
Code CheckServiceNumbers(const services::Config& config);

// Whether the manager takes a new service, whose own name is valid, with these names and
// dependencies: no name may be taken, and no service may depend on itself.
Code CheckNewService(const registry::Key& services, const services::Config& config);

// Lets the display name of a new service count.
void AddDisplayName(const registry::Key& services, const services::Config& config);

}  // namespace platform::posix
