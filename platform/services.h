// Services: the service control manager's database and the state of the services.
//
// On Linux the database is the machine's registry, SYSTEM\CurrentControlSet\Services, as the
// service manager stores it, read anew by each operation. A key of it is a service when it has the
// numbers Type, Start and ErrorControl, and has not been left marked for deletion, which the
// manager would delete when it starts. None of the services runs: each is stopped, and stays so.
// An account that may write the SYSTEM hive has all rights; another may query.
#pragma once

#include <cstdint>
#include <span>
#include <utility>

#include "platform/error.h"
#include "support/string.h"

namespace platform::services {

// The codes of this family.
inline constexpr Code kInvalidAddress = 487;
inline constexpr Code kDisabled = 1058;
inline constexpr Code kCircularDependency = 1059;
inline constexpr Code kDoesNotExist = 1060;
inline constexpr Code kNotActive = 1062;
inline constexpr Code kDatabaseDoesNotExist = 1065;
inline constexpr Code kMarkedForDelete = 1072;
inline constexpr Code kExists = 1073;
inline constexpr Code kDependencyDeleted = 1075;
inline constexpr Code kDuplicateName = 1078;

// Access rights of the manager.
inline constexpr std::uint32_t kManagerConnect = 0x1;
inline constexpr std::uint32_t kManagerCreateService = 0x2;
inline constexpr std::uint32_t kManagerEnumerateService = 0x4;
inline constexpr std::uint32_t kManagerAllAccess = 0xF003F;

// Access rights of a service.
inline constexpr std::uint32_t kQueryConfig = 0x1;
inline constexpr std::uint32_t kQueryStatus = 0x4;
inline constexpr std::uint32_t kStart = 0x10;
inline constexpr std::uint32_t kStop = 0x20;
inline constexpr std::uint32_t kDelete = 0x10000;
inline constexpr std::uint32_t kAllAccess = 0xF01FF;

// States of a service (SERVICE_STOPPED and on).
inline constexpr std::uint32_t kStateStopped = 1;
inline constexpr std::uint32_t kStateStartPending = 2;
inline constexpr std::uint32_t kStateStopPending = 3;
inline constexpr std::uint32_t kStateRunning = 4;

// An open manager or service (SC_HANDLE). Move-only; closes at the end of its life.
class Handle {
 public:
  Handle() = default;
  explicit Handle(std::uintptr_t value) : value_(value) {}
  Handle(Handle&& other) noexcept : value_(std::exchange(other.value_, 0)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(value_, other.value_);
    return *this;
  }
  ~Handle() { Close(); }

  bool IsOpen() const { return value_ != 0; }
  void Close();
  std::uintptr_t Value() const { return value_; }

 private:
  std::uintptr_t value_ = 0;
};

// What a service is made of, and what CreateServiceW is given. Empty texts are absent ones.
struct Config {
  cvn::String name;  // of CreateServiceW only
  cvn::String displayName;
  std::uint32_t serviceType = 0;
  std::uint32_t startType = 0;
  std::uint32_t errorControl = 0;
  cvn::String binaryPath;
  bool hasBinaryPath = false;  // of a queried service: whether there is a path at all
  cvn::String group;
  // Each name ended by a NUL, one more NUL after the last; a '+' before the name of a group.
  cvn::String dependencies;
};

// All operations need the right that Windows wants of the handle, and give 5 without it, or 6 for
// a handle of the other kind.

// As OpenSCManagerW for the local machine's active database.
Code OpenManager(std::uint32_t access, Handle* manager);

// As OpenServiceW: 1060 when there is none of that name, 123 for a name that none can have, 5
// without permission.
Code Open(const Handle& manager, cvn::StringView name, std::uint32_t access, Handle* service);

// As QueryServiceStatus: the current state.
Code QueryState(const Handle& service, std::uint32_t* state);

// As QueryServiceConfigW, grown to what it asks for. An image path's variables are expanded, and
// services come before groups in the dependencies.
Code QueryConfig(const Handle& service, Config* config);

// As StartServiceW without arguments. On a system that isn't running 1072, 1058 or 1075 when one
// of these would be the obstacle on the running system too, else 50.
Code Start(const Handle& service);

// As ControlService(SERVICE_CONTROL_STOP): gives the state that the service told.
Code Stop(const Handle& service, std::uint32_t* state);

// As CreateServiceW with desired access 0, no tag, no account and no password: 487 without a path,
// 123 for a name that none can have, 87 for a type, start type or error control that is none or
// doesn't go with the others, 1073 when the name is taken, 1072 when its owner is marked for
// deletion, 1078 when the display name is another's name or, before build 16299 of Windows,
// another's display name, 1059 when the service would depend on itself.
Code Create(const Handle& manager, const Config& config);

// As DeleteService: marks the service, which goes with its last handle once it is stopped. 1072
// when it is marked already.
Code Delete(const Handle& service);

}  // namespace platform::services
