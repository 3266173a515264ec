// Commits changes to the opened machine, all of them or none, and takes turns with others who use
// it. On Windows all of it gives 50, but for the lock, which is none there.
//
// What a commit needs is first put into a folder of its own at the machine's root, at last a
// journal. From the moment at which that has its name the commit happens: whatever ends the process
// then, FinishPending goes on from the journal; before that moment the machine is as it was, and
// FinishPending removes what was put there.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "platform/error.h"
#include "platform/machine_changes.h"
#include "support/containers.h"
#include "support/string.h"

namespace platform::machine {

// ERROR_TRANSACTIONAL_CONFLICT: the machine isn't as the changes expect it.
inline constexpr Code kConflict = 6800;
// ERROR_INSTALL_SUSPEND: a commit has begun, and isn't complete.
inline constexpr Code kCommitPending = 1604;
// ERROR_FILE_CORRUPT: bytes that don't have the digest which was told of them; a journal that isn't
// what was written.
inline constexpr Code kCorrupt = 1392;
// ERROR_REVISION_MISMATCH: the journal of a later release.
inline constexpr Code kLaterJournal = 1306;

// An entry, or a key, that is not what a change expects to find.
struct Conflict {
  cvn::String place;    // C:\..., or the hive's file and the key in it
  cvn::String problem;  // "has other bytes"
};

struct CommitResult {
  cvn::List<Conflict> conflicts;  // a thousand at most
  // The commit has begun: it happens, by FinishPending at the latest.
  bool isPending = false;
};

// Told now and then: how much is done, of how much, in units that mean nothing but that.
using CommitProgress = std::function<void(std::uint64_t done, std::uint64_t all)>;

// Makes the opened machine what the changes say that it is afterwards. Who calls has the machine's
// lock alone, and has called FinishPending.
//
// Every entry and key is first compared with its state before: of files their bytes, of all the
// attributes, permissions and extended attributes. The time of the last write isn't compared, for a
// file that was written with the bytes that it had is no other one; nor is the owner. A folder that
// is to go may hold nothing that the changes don't name. kConflict when anything differs, and then
// nothing was changed.
//
// A file that has several hard links keeps them: its bytes are written in their place. Any other is
// replaced as a whole. Owners stay; what is added belongs to this account.
//
// Room for all bytes, and twice for those of files with several links, has to be free: 112. 17
// where another file system is mounted in the machine on the way to an entry; 5 where this account
// may not change one; kCorrupt when bytes differ from what a change tells of them;
// files::kNotPrivate where the folder for the commit can't be kept from other accounts; 50 for an
// attribute that the volume can't store; otherwise the host's code. Unless `result->isPending`,
// nothing was changed after a failure.
Code Commit(const ChangeSet& changes, ChangeBytes& bytes, const CommitProgress& progress,
            CommitResult* result);

// Lists what on the opened machine isn't as the changes expect it, a thousand at most, as Commit
// does before it begins. Nothing is changed. The code is that of something that can't be looked at.
Code FindConflicts(const ChangeSet& changes, cvn::List<Conflict>* conflicts);

enum class PendingCommit {
  None,      // nothing, or an empty folder, which is gone
  Finished,  // it had begun, and is complete now
  Dropped,   // it had not begun, and what was put on the machine for it is gone
};

// Ends what an interrupted commit has left on the opened machine. Who calls has the machine's lock
// alone. A volume that is read-only or hibernated is left as it is.
//
// files::kForeignPlace when the folder of a commit is another account's, files::kNotPrivate when
// others can write to it or it is none: nothing in it is looked at, since whoever made it would
// have this account write. kCorrupt for a damaged journal, kLaterJournal. After
// any failure it is still pending.
Code FinishPending(PendingCommit* found);

// Whether there is something for FinishPending.
bool IsCommitPending();

// The changes that lead back, and the bytes for them. `bytes` outlives what is made of it.
ChangeSet Reversed(const ChangeSet& changes);
std::unique_ptr<ChangeBytes> ReversedBytes(ChangeBytes& bytes);

// The whole machine, for as long as this lives: many may share it, or one has it alone.
class MachineLock {
 public:
  MachineLock();
  MachineLock(MachineLock&&) noexcept;
  MachineLock& operator=(MachineLock&&) noexcept;
  ~MachineLock();

  // Of the opened machine. 170 when it couldn't be had for half a minute. Shared after alone, and
  // alone after shared, gives up the one before it has the other.
  Code Share();
  Code TakeAlone();
  // False after these where the file system has no locks; then nobody waits.
  bool IsHeld() const;

 private:
  Code Take(bool alone);

  struct State;  // the backend's
  std::unique_ptr<State> state_;
};

// For a run, or whoever else uses the opened machine beside others: shares the lock, and ends what
// an interrupted commit has left. 170 as above; kCommitPending when that couldn't be ended, with
// `*why` the code of FinishPending. After a failure everything on drive C: fails with the same
// code.
Code ShareMachine(MachineLock* lock, PendingCommit* found, Code* why);

}  // namespace platform::machine
