// The guard that lets one patch from a custom location run at a time.
#pragma once

#include "platform/instance_event.h"
#include "support/string.h"

namespace tessel {

struct InstanceGuard {
  cvn::String name = u"Global\\AMS.Tessera.{2F0F4B20-3934-4698-9A6C-EA090C5CDBBC}";
  platform::InstanceEvent handle;  // held for as long as the patch runs
};

// Opens the guard's event. False when another instance held it already, and the guard does
// too from now on; true otherwise, also when that can't be found out.
bool IsInstanceFirst(InstanceGuard* guard);

// Whether another instance holds the guard's event, without opening it.
bool IsInstanceRunning();

}  // namespace tessel
