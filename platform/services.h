// Services: the service control manager's database and the state of what stands in it.
//
// On Linux the database is the machine's registry, SYSTEM\CurrentControlSet\Services, as the
// service manager stores it. None of its services runs: each is stopped, starting one gives 50, and
// a control sent to one gives 1062.
#pragma once

#include <cstdint>
#include <span>
#include <utility>

#include "platform/error.h"
#include "support/string.h"

namespace platform::services {

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
  cvn::String name;
  cvn::String displayName;
  std::uint32_t serviceType = 0;
  std::uint32_t startType = 0;
  std::uint32_t errorControl = 0;
  cvn::String binaryPath;
  bool hasBinaryPath = false;  // of a queried service: whether there is a path at all
  cvn::String group;
  cvn::String dependencies;  // each name ended by a NUL, one more NUL behind the last
};

// As OpenSCManagerW for the local machine's active database.
Code OpenManager(std::uint32_t access, Handle* manager);

// As OpenServiceW: 1060 when there is none of that name, 123 for a name that none can have, 5
// without permission.
Code Open(const Handle& manager, cvn::StringView name, std::uint32_t access, Handle* service);

// As QueryServiceStatus: the current state.
Code QueryState(const Handle& service, std::uint32_t* state);

// As QueryServiceConfigW, grown to what it asks for.
Code QueryConfig(const Handle& service, Config* config);

// As StartServiceW without arguments.
Code Start(const Handle& service);

// As ControlService(SERVICE_CONTROL_STOP): gives the state that the service told.
Code Stop(const Handle& service, std::uint32_t* state);

// As CreateServiceW with desired access 0, no tag, no account and no password: 1073 when the name
// is taken, 1078 when the display name is, 1072 when the service is marked for deletion, 87 for a
// type, start type or error control that is none.
Code Create(const Handle& manager, const Config& config);

// As DeleteService: 1072 when it is marked for deletion already.
Code Delete(const Handle& service);

}  // namespace platform::services
