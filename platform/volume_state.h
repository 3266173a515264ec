// What keeps the machine's volume from being changed, apart from what it holds.
#pragma once

#include <cstdint>

#include "platform/error.h"

namespace platform::machine {

// ERROR_HIBERNATED: the volume belongs to a Windows that will go on from hiberfil.sys, with parts
// of the volume in its memory. What is written there until then destroys it.
inline constexpr Code kHibernated = 726;

struct VolumeState {
  // Whether hiberfil.sys holds the state of a Windows, which was hibernated or shut down with fast
  // startup; also when it can't be read.
  bool isHibernated = false;
  bool isReadOnly = false;      // mounted so
  std::uint64_t freeBytes = 0;  // for this account; 0 also when no file can be made
};

// Looks at the volume of the opened machine. The host's code on failure; always success on Windows,
// with a volume that nothing keeps from being changed.
Code LookAtVolume(VolumeState* state);

}  // namespace platform::machine
