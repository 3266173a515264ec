#include "platform/offline/view/task.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "platform/linux/error_map.h"
#include "platform/linux/host_view.h"
#include "platform/offline/view/task_watch.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {
namespace {

// The task ends when its parent is killed, also when that is before it asked for it.
int DieWith(pid_t parent) {
  return prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && getppid() == parent ? 0 : ESRCH;
}

// In a namespace of its own a user has all capabilities over his own files, and so could do what a
// run can't.
int DropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct none[2] = {};
  return syscall(SYS_capset, &header, none) == 0 ? 0 : errno;
}

// A larger file can't be written, which its writer is told instead of being killed.
void LimitFiles(std::uint64_t bytes) {
  const rlimit limit{bytes, bytes};
  setrlimit(RLIMIT_FSIZE, &limit);  // where that fails, the watch ends the task
  signal(SIGXFSZ, SIG_IGN);
}

// Orphans of the task become children of this process, while it lives.
class OrphanCare {
 public:
  OrphanCare() {
    prctl(PR_GET_CHILD_SUBREAPER, &before_);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
  }
  OrphanCare(const OrphanCare&) = delete;
  OrphanCare& operator=(const OrphanCare&) = delete;
  ~OrphanCare() { prctl(PR_SET_CHILD_SUBREAPER, before_); }

 private:
  int before_ = 0;
};

}  // namespace

int ViewTask::EnterView(pid_t parent) const {
  char current[PATH_MAX];
  const bool isInFolder = getcwd(current, sizeof(current)) != nullptr;
  int error = DieWith(parent);
  error = error == 0 ? keeper_.Join() : error;
  if (error == 0 && keeper_.HidesOwners()) {
    error = DropCapabilities();
  }
  // A change of credentials takes the signal back.
  error = error == 0 ? DieWith(parent) : error;
  if (error != 0) {
    return error;
  }
  // By its name it is the view's; one that can't be entered leaves the root.
  if (isInFolder && chdir(current) != 0 && chdir("/") != 0) {
    return errno;
  }
  CurrentView() = {
      .keepsFolders = true, .hidesOwners = keeper_.HidesOwners(), .isSealed = keeper_.IsSealed()};
  if (const int forgotten = ForgetHost(); forgotten != 0) {
    return forgotten;
  }
  setenv("TESSEL_MACHINE", folders_.machine.c_str(), 1);
  setenv("TMPDIR", (folders_.work + '/' + ViewFolders::kTemporary).c_str(), 1);
  LimitFiles(limits_.bytes);
  signal(SIGTERM, SIG_DFL);
  return 0;
}

void ViewTask::Perform(const std::function<int()>& task, pid_t parent) const {
  result_.error = EnterView(parent);
  if (result_.error == 0) {
    result_.exitCode = task();
    result_.hasEnded = true;
  }
  std::fflush(nullptr);
  _exit(0);
}

Code ViewTask::Run(const std::function<int()>& task,
                   const std::function<void(const machine::ViewUse&)>& progress,
                   machine::ViewEnd* end) {
  result_ = {};
  std::fflush(nullptr);  // else both processes would print what is buffered
  const OrphanCare care;
  TaskWatch watch(folders_.workFolder.Get(), limits_);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) {
    Perform(task, parent);
  }
  if (child < 0) {
    return CodeOf(errno);
  }
  *end = watch.Wait(child, progress);
  if (result_.error != 0) {
    return CodeOf(result_.error);
  }
  if (*end == machine::ViewEnd::Ended && !result_.hasEnded) {
    *end = machine::ViewEnd::Crashed;
  }
  return kSuccess;
}

}  // namespace platform::posix
