// A named event, system-wide, that lives as long as some process holds it.
#pragma once

#include <cstdint>
#include <utility>

#include "platform/error.h"
#include "support/containers.h"
#include "support/string.h"

namespace platform {

// A hold on the event. Move-only; gives it up at the end of its life, as does the end of the
// process, even when it is killed. Programs that this one starts don't hold it.
class InstanceEvent {
 public:
  InstanceEvent() = default;
  explicit InstanceEvent(std::intptr_t handle) : handle_(handle) {}
  InstanceEvent(InstanceEvent&& other) noexcept : handle_(std::exchange(other.handle_, kNone)) {}
  InstanceEvent& operator=(InstanceEvent&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~InstanceEvent() { Close(); }

  bool IsOpen() const { return handle_ != kNone; }
  // Leaves the last error alone.
  void Close();

 private:
  static constexpr std::intptr_t kNone = -1;
  std::intptr_t handle_ = kNone;
};

// A step of preparing the event's access list that failed, with its last error.
enum class EventSecurityStep {
  AllocateSid,
  SetEntries,
  AllocateDescriptor,
  InitializeDescriptor,
  SetDescriptorList,
};
struct EventSecurityFailure {
  EventSecurityStep step;
  Code code;
};

// As CreateEventW for an automatic event, not signalled, that everybody may wait for and
// administrators may do anything with: creates the event, or opens one that is there, atomically.
// The last error is the result: 0 when the event was created; 183 when another process held it, and
// `event` does too from now on; any other code when `event` stays closed. Failures of the access
// list are noted in `failures`; the event is then made with the account's usual one.
//
// On Linux each machine has its own events, which are locks on bytes of a device that every account
// may open, that only root can replace, and that is there before any program runs. The locks are
// the kernel's, so nothing stays after a process and nothing can be planted. As on Windows, any
// account can hold the event, and so keep others from being first. A process that has a /dev of its
// own, as in a container, isn't seen.
Code CreateInstanceEvent(cvn::StringView name, InstanceEvent* event,
                         cvn::List<EventSecurityFailure>* failures);

// Whether a process holds the event of that name, as far as can be seen without holding it.
bool IsInstanceEventHeld(cvn::StringView name);

}  // namespace platform
