// A change set that is kept: a folder with manifest.json, which docs/change-set.schema.json
// describes, and the bytes of its files in bytes/, each under its SHA-256.
#pragma once

#include <cstdint>
#include <string>

#include "platform/machine_changes.h"

namespace tessel {

enum class SetState { Rehearsed, Committed, Undone };

// What a set tells beside the changes.
struct SetRecord {
  SetState state = SetState::Rehearsed;
  std::int64_t time = 0;      // of the run, in units of 100 nanoseconds since 1601-01-01 UTC
  cvn::String machineFolder;  // as the host names it
  cvn::String patch;          // its path, as it was given
  cvn::String patchId;        // as its header has it; empty for a bare script
  std::int32_t exitCode = 0;
  std::string reason;  // as the event of the run's end has it
  std::string view;    // how the view was made: overlay, sharedCopy, plainCopy
};

// Makes the folder, which must not be there, all or nothing: it has its name, which has no
// separator at its end, when all of it has reached the disk. Bytes are kept of each file that
// differs in them; what only moved, or changed its state, is on the machine. 183 when there is
// something of that name. After a failure
// `*problem` says in a sentence what it concerns.
platform::Code WriteSet(cvn::StringView folder, const SetRecord& record,
                        const platform::machine::ChangeSet& changes,
                        platform::machine::ChangeBytes* bytes, cvn::String* problem);

// Replaces the manifest in a set's folder by one with this record, at once.
platform::Code PutRecord(cvn::StringView folder, const SetRecord& record,
                         const platform::machine::ChangeSet& changes);

class KeptSet final : public platform::machine::ChangeBytes {
 public:
  // Reads the set in a folder, and every byte of it. What isn't as the schema has it, or not as the
  // digests say, is refused: 13, and `*problem` says in a sentence what is wrong.
  platform::Code Read(cvn::StringView folder, cvn::String* problem);

  const SetRecord& Record() const { return record_; }
  const platform::machine::ChangeSet& Changes() const { return changes_; }

  // 2 also for a file whose bytes are the same on both sides: the set doesn't have them.
  platform::Code Open(const platform::machine::FileChange& change, platform::machine::Side side,
                      platform::files::File* file) override;

  // Replaces the manifest by one with this state, at once.
  platform::Code PutState(SetState state);

 private:
  platform::Code CheckBytes(const platform::machine::EntryState& state, cvn::String* problem) const;

  cvn::String folder_;
  SetRecord record_;
  platform::machine::ChangeSet changes_;
};

inline constexpr platform::Code kDamagedSet = 13;  // ERROR_INVALID_DATA

// Whether a set has bytes of the file on that side.
bool HasKeptBytes(const platform::machine::FileChange& change, platform::machine::Side side);

}  // namespace tessel
