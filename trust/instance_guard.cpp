#include "trust/instance_guard.h"

#include <utility>

#include "logging/log.h"
#include "trace/trace.h"

namespace tessel {
namespace {

using platform::EventSecurityStep;

const char16_t* FormatOf(EventSecurityStep step) {
  switch (step) {
    case EventSecurityStep::AllocateSid:
      return u"AllocateAndInitializeSid Error %u";
    case EventSecurityStep::SetEntries:
      return u"SetEntriesInAcl Error %u";
    case EventSecurityStep::AllocateDescriptor:
      return u"LocalAlloc Error %u";
    case EventSecurityStep::InitializeDescriptor:
      return u"Failed to InitializeSecurityDescriptor error %u";
    case EventSecurityStep::SetDescriptorList:
      break;
  }
  return u"Failed to set security descriptor dacl error %u";
}

platform::InstanceEvent CreateInstanceEvent(cvn::StringView name) {
  platform::InstanceEvent event;
  cvn::List<platform::EventSecurityFailure> failures;
  const platform::Code code = platform::CreateInstanceEvent(name, &event, &failures);
  for (const platform::EventSecurityFailure& failure : failures) {
    logging::WriteLine(logging::kFailure, u"EventHelper::CreateEventSecurityAccess",
                       FormatOf(failure.step), failure.code);
  }
  platform::SetLastError(code);
  return event;
}

}  // namespace

bool IsInstanceFirst(InstanceGuard* guard) {
  guard->handle = CreateInstanceEvent(guard->name);
  const platform::Code code = platform::LastError();
  TraceLine(u"[InstanceVerif] GetLastError returned %d", code);
  if (guard->handle.IsOpen() && code == platform::kSuccess) {
    return true;
  }
  if (guard->handle.IsOpen() && code == platform::kAlreadyExists) {
    return false;
  }
  TraceLine(u"[InstanceVerif][Warning] Could not determine if another instance is running...");
  return true;
}

bool IsInstanceRunning() { return platform::IsInstanceEventHeld(InstanceGuard().name); }

}  // namespace tessel
