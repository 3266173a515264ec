// The keeper of a view: a process that holds the view's namespaces, and removes all of it when the
// process that started it ends, however that ends.
#pragma once

#include <sys/types.h>

#include "platform/linux/descriptor.h"
#include "platform/offline/view/spaces.h"

namespace platform::posix {

// What a keeper is asked to do, each at most once and in this order.
enum class KeeperStep : char { EnterSealed, EnterOpen, MountOverlay, MountCopy, Seal };

class Keeper {
 public:
  // `folders` outlives it.
  explicit Keeper(const ViewFolders& folders) : folders_(folders) {}
  Keeper(const Keeper&) = delete;
  Keeper& operator=(const Keeper&) = delete;
  // Has the keeper remove the view and waits for its end; removes it where the keeper didn't.
  ~Keeper();

  // Starts the process. 0, or the value of errno.
  int Start();
  // The same for a step that it takes; EPIPE when it has ended.
  int Ask(KeeperStep step);

  // Takes the calling process, a child, into the view's namespaces. 0, or the value of errno.
  int Join() const;
  bool HidesOwners() const { return hidesOwners_; }
  bool IsSealed() const { return isSealed_; }

 private:
  struct Answer {
    int error;
    int flags;
    bool hasUsers;
  };

  [[noreturn]] void Serve(int channel);

  const ViewFolders& folders_;
  Descriptor place_;  // the folder that holds the work folder, as the host has it
  Descriptor channel_;
  Descriptor process_;
  pid_t id_ = -1;
  int flags_ = 0;
  bool hidesOwners_ = false;
  bool isSealed_ = false;
};

}  // namespace platform::posix
