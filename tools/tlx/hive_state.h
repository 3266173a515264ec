// What a hive's file, and its logs, tell of its state before anybody loads it.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/error.h"
#include "support/containers.h"
#include "support/string.h"

namespace tlx {

struct HiveState {
  cvn::String path;
  platform::Code code = platform::kSuccess;  // why the file can't be read
  std::uint32_t majorVersion = 0;
  std::uint32_t minorVersion = 0;
  // Whether the last write came to its end: both sequence numbers and the sum are right.
  bool isClean = false;
  // Of one that isn't: the changes in its logs that complete it, which the next run, or Windows,
  // takes in. A log of the older kind counts as one.
  std::uint32_t pendingEntries = 0;
  std::optional<std::uint64_t> damagedAt;  // where the file first is no hive

  bool IsUsable() const { return code == platform::kSuccess && !damagedAt; }
};

// The hive in the file at `path`, of the opened machine.
HiveState LookAtHive(cvn::StringView path);

// The hives of the opened machine that are there, or have to be: those of the system, and the
// users'.
cvn::List<cvn::String> HivesOfMachine();

}  // namespace tlx
