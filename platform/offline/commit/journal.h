// What a commit does once it has begun, as it stands in its journal: steps that can be taken again
// from the first one, whichever of them were taken before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/machine_changes.h"

namespace platform::posix {

// Paths are the host's, below the machine's folder; empty for that folder itself. A slot is a
// number that names an entry in the commit's folder.
struct CommitPlan {
  // An entry that leaves its place, for good or for another one. Only the one with that number
  // does: what has it no more was there before, or has come after.
  struct Departure {
    std::string path;
    std::uint64_t inode = 0;
    std::uint32_t slot = 0;
  };
  // One that comes from a slot, if it is still there; or a new folder.
  struct Arrival {
    std::string path;
    std::uint32_t slot = 0;  // 0 for a folder
    bool inherits = false;   // a new file: its descriptor on NTFS is what its folder passes on
  };
  // A file whose bytes are to be those of a slot.
  struct Rewrite {
    std::string path;
    std::uint32_t slot = 0;
  };
  // What an entry is like in the end.
  struct Settled {
    std::string path;
    machine::EntryState state;
  };
  // A folder that its owner may not write to until its names have changed.
  struct Opened {
    std::string path;
    std::uint32_t mode = 0;
  };

  std::vector<Opened> opened;
  std::vector<Departure> departures;  // what is in a folder before the folder
  std::vector<Arrival> arrivals;      // a folder before what is in it
  std::vector<Rewrite> rewrites;
  std::vector<Settled> settled;  // a folder before what is in it
  cvn::List<machine::KeyChange> keys;
  // The machine's folder gets this time of its last write at the end, in the host's units.
  std::int64_t rootSeconds = 0;
  std::int64_t rootNanoseconds = 0;
};

// The largest journal that is read.
inline constexpr std::uint64_t kLargestJournal = std::uint64_t{1} << 30;

std::vector<std::byte> WriteJournal(const CommitPlan& plan);

// machine::kCorrupt for bytes that aren't as they were written, or a path that leads out of the
// machine; machine::kLaterJournal. `*plan` is then undefined.
Code ReadJournal(std::span<const std::byte> bytes, CommitPlan* plan);

}  // namespace platform::posix
