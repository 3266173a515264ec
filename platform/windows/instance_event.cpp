#include "platform/instance_event.h"

#include "platform/windows/wide.h"
// <aclapi.h> needs <windows.h> before it.
#include <aclapi.h>

#include <array>
#include <memory>

namespace platform {
namespace {

struct SidDeleter {
  void operator()(void* sid) const { ::FreeSid(sid); }
};
struct LocalDeleter {
  void operator()(void* memory) const { ::LocalFree(memory); }
};
using Sid = std::unique_ptr<void, SidDeleter>;

// The access list of the event, and the attributes that hand it over. A step that fails leaves the
// attributes as they begin.
class EventSecurity {
 public:
  explicit EventSecurity(cvn::List<EventSecurityFailure>* failures) : failures_(*failures) {
    everyone_ = AllocateSid(SECURITY_WORLD_SID_AUTHORITY, 1, SECURITY_WORLD_RID, 0);
    FillEntry(&entries_[0], everyone_.get(), TRUSTEE_IS_USER, SYNCHRONIZE);
    administrators_ =
        AllocateSid(SECURITY_NT_AUTHORITY, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS);
    FillEntry(&entries_[1], administrators_.get(), TRUSTEE_IS_GROUP, EVENT_ALL_ACCESS);
    PACL list = nullptr;
    Note(EventSecurityStep::SetEntries,
         ::SetEntriesInAclW(static_cast<ULONG>(entries_.size()), entries_.data(), nullptr, &list) ==
             ERROR_SUCCESS);
    list_.reset(list);
    FillDescriptor();
  }
  EventSecurity(const EventSecurity&) = delete;
  EventSecurity& operator=(const EventSecurity&) = delete;

  SECURITY_ATTRIBUTES* Attributes() { return &attributes_; }

 private:
  bool Note(EventSecurityStep step, bool succeeded) {
    if (!succeeded) {
      failures_.push_back({step, ::GetLastError()});
    }
    return succeeded;
  }

  Sid AllocateSid(SID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD first, DWORD second) {
    PSID sid = nullptr;
    Note(EventSecurityStep::AllocateSid,
         ::AllocateAndInitializeSid(&authority, count, first, second, 0, 0, 0, 0, 0, 0, &sid) != 0);
    return Sid(sid);
  }

  static void FillEntry(EXPLICIT_ACCESSW* entry, PSID sid, TRUSTEE_TYPE type, DWORD rights) {
    entry->grfAccessPermissions = rights;
    entry->grfAccessMode = GRANT_ACCESS;
    entry->grfInheritance = SUB_CONTAINERS_AND_OBJECTS_INHERIT;
    entry->Trustee.TrusteeForm = TRUSTEE_IS_SID;
    entry->Trustee.TrusteeType = type;
    entry->Trustee.ptstrName = static_cast<LPWCH>(sid);
  }

  void FillDescriptor() {
    descriptor_.reset(::LocalAlloc(LPTR, SECURITY_DESCRIPTOR_MIN_LENGTH));
    if (Note(EventSecurityStep::AllocateDescriptor, descriptor_ != nullptr) &&
        Note(
            EventSecurityStep::InitializeDescriptor,
            ::InitializeSecurityDescriptor(descriptor_.get(), SECURITY_DESCRIPTOR_REVISION) != 0) &&
        Note(EventSecurityStep::SetDescriptorList,
             ::SetSecurityDescriptorDacl(descriptor_.get(), TRUE, list_.get(), FALSE) != 0)) {
      attributes_.bInheritHandle = FALSE;
      attributes_.lpSecurityDescriptor = descriptor_.get();
    }
  }

  cvn::List<EventSecurityFailure>& failures_;
  SECURITY_ATTRIBUTES attributes_ = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  std::array<EXPLICIT_ACCESSW, 2> entries_ = {};
  Sid everyone_;
  Sid administrators_;
  std::unique_ptr<ACL, LocalDeleter> list_;
  std::unique_ptr<void, LocalDeleter> descriptor_;
};

}  // namespace

void InstanceEvent::Close() {
  if (IsOpen()) {
    windows::LastErrorKeeper lastError;
    ::CloseHandle(reinterpret_cast<HANDLE>(std::exchange(handle_, kNone)));
  }
}

Code CreateInstanceEvent(cvn::StringView name, InstanceEvent* event,
                         cvn::List<EventSecurityFailure>* failures) {
  *event = InstanceEvent();
  Code code = kSuccess;
  {
    EventSecurity security(failures);
    ::SetLastError(ERROR_SUCCESS);
    const HANDLE handle =
        ::CreateEventW(security.Attributes(), FALSE, FALSE, windows::Wide(cvn::PathString(name)));
    code = ::GetLastError();
    if (handle != nullptr) {
      *event = InstanceEvent(reinterpret_cast<std::intptr_t>(handle));
    }
  }
  ::SetLastError(code);
  return code;
}

bool IsInstanceEventHeld(cvn::StringView name) {
  windows::LastErrorKeeper lastError;
  const HANDLE handle = ::OpenEventW(SYNCHRONIZE, FALSE, windows::Wide(cvn::PathString(name)));
  if (handle == nullptr) {
    return ::GetLastError() == ERROR_ACCESS_DENIED;
  }
  ::CloseHandle(handle);
  return true;
}

}  // namespace platform
