#include <fcntl.h>

#include <cerrno>
#include <utility>

#include "platform/linux/descriptor.h"
#include "platform/linux/error_map.h"
#include "platform/linux/file_lock.h"
#include "platform/machine_commit.h"
#include "platform/offline/volume/volume.h"

namespace platform::machine {

struct MachineLock::State {
  posix::Descriptor folder;
  bool isHeld = false;
};

MachineLock::MachineLock() = default;
MachineLock::MachineLock(MachineLock&&) noexcept = default;
MachineLock& MachineLock::operator=(MachineLock&&) noexcept = default;
MachineLock::~MachineLock() = default;

Code MachineLock::Take(bool alone) {
  const posix::Machine& machine = posix::Machine::Get();
  if (machine.State() != kSuccess) {
    return machine.State();
  }
  if (state_ == nullptr) {
    posix::Descriptor folder(
        openat(machine.Folder()->Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.Get() < 0) {
      return posix::CodeOf(errno);
    }
    state_ = std::make_unique<State>();
    state_->folder = std::move(folder);
  }
  return posix::WaitForLock(state_->folder.Get(), alone, &state_->isHeld);
}

Code MachineLock::Share() { return Take(false); }
Code MachineLock::TakeAlone() { return Take(true); }
bool MachineLock::IsHeld() const { return state_ != nullptr && state_->isHeld; }

namespace {

Code ShareUnfinished(MachineLock* lock, PendingCommit* found, Code* why) {
  // Between the two locks another may commit, and be killed.
  constexpr int kAttempts = 8;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    Code code = lock->Share();
    if (code != kSuccess || !IsCommitPending()) {
      return code;
    }
    code = lock->TakeAlone();
    if (code != kSuccess) {
      return code;
    }
    PendingCommit pending = PendingCommit::None;
    *why = FinishPending(&pending);
    if (*why != kSuccess) {
      return kCommitPending;
    }
    if (pending == PendingCommit::None) {
      return lock->Share();  // a volume that is refused anyway
    }
    *found = pending;
  }
  return kBusy;
}

}  // namespace

Code ShareMachine(MachineLock* lock, PendingCommit* found, Code* why) {
  *found = PendingCommit::None;
  *why = kSuccess;
  const Code code = ShareUnfinished(lock, found, why);
  if (code != kSuccess) {
    posix::Machine::Close(code);
  }
  return code;
}

}  // namespace platform::machine
