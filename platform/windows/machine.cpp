#include "platform/machine.h"

#include <limits>

#include "platform/machine_commit.h"
#include "platform/volume_state.h"

namespace platform::machine {
namespace {

Code Refuse() {
  SetLastError(kNotSupported);
  return kNotSupported;
}

}  // namespace

Code Create(cvn::StringView /*folder*/, const Description& /*description*/) { return Refuse(); }

Code Use(cvn::StringView /*folder*/) { return Refuse(); }

Code UseDefault() { return kSuccess; }

Code UseOrCreateDefault(const Description& /*description*/) { return kSuccess; }

cvn::String DefaultFolder() { return {}; }

void Leave() {}

Code CheckRegistry() { return kSuccess; }

Code LookAtVolume(VolumeState* state) {
  *state = {};
  state->freeBytes = std::numeric_limits<std::uint64_t>::max();
  return kSuccess;
}

Code Commit(const ChangeSet& /*changes*/, ChangeBytes& /*bytes*/,
            const CommitProgress& /*progress*/, CommitResult* /*result*/) {
  return Refuse();
}

Code FindConflicts(const ChangeSet& /*changes*/, cvn::List<Conflict>* /*conflicts*/) {
  return Refuse();
}

Code FinishPending(PendingCommit* found) {
  *found = PendingCommit::None;
  return kSuccess;
}

bool IsCommitPending() { return false; }

struct MachineLock::State {};

MachineLock::MachineLock() = default;
MachineLock::MachineLock(MachineLock&&) noexcept = default;
MachineLock& MachineLock::operator=(MachineLock&&) noexcept = default;
MachineLock::~MachineLock() = default;
Code MachineLock::Take(bool /*alone*/) { return kSuccess; }
Code MachineLock::Share() { return Take(false); }
Code MachineLock::TakeAlone() { return Take(true); }
bool MachineLock::IsHeld() const { return false; }

Code ShareMachine(MachineLock* lock, PendingCommit* found, Code* why) {
  *found = PendingCommit::None;
  *why = kSuccess;
  return lock->Share();
}

}  // namespace platform::machine
