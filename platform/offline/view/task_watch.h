// Waits for a task, and sees to its limits.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <vector>

#include "platform/machine_view.h"

namespace platform::posix {

class TaskWatch {
 public:
  // Before the task starts: the children that this process has by then are none of its own, the
  // keeper as well as those of whatever this process was before it became this program.
  // `workFolder` lies on the file system that the view writes to.
  TaskWatch(int workFolder, const machine::ViewLimits& limits);

  // Returns when neither the task nor a program that it started runs any more. `started`, the task,
  // is a child of this process, which becomes the parent of all that the task leaves behind.
  machine::ViewEnd Wait(pid_t started,
                        const std::function<void(const machine::ViewUse&)>& progress);

 private:
  using Clock = std::chrono::steady_clock;

  std::vector<pid_t> OwnChildren() const;
  bool IsRunning();
  void Measure();
  machine::ViewEnd LimitReached() const;
  void EndAll();

  const int workFolder_;
  const machine::ViewLimits& limits_;
  const std::vector<pid_t> others_;
  pid_t task_ = -1;
  const Clock::time_point start_ = Clock::now();
  bool hasTaskEnded_ = false;
  machine::ViewUse use_;
  bool isFull_ = false;  // the file system
};

}  // namespace platform::posix
