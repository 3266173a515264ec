// Waits for a task, and sees to its limits.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>

#include "platform/machine_view.h"

namespace platform::posix {

class TaskWatch {
 public:
  // `task` and `keeper` are children of this process, which becomes the parent of all that the task
  // leaves behind. `workFolder` lies on the file system that the view writes to.
  TaskWatch(pid_t task, pid_t keeper, int workFolder, const machine::ViewLimits& limits)
      : task_(task), keeper_(keeper), workFolder_(workFolder), limits_(limits) {}

  // Returns when neither the task nor a program that it started runs any more.
  machine::ViewEnd Wait(const std::function<void(const machine::ViewUse&)>& progress);

 private:
  using Clock = std::chrono::steady_clock;

  bool IsRunning();
  void Measure();
  machine::ViewEnd LimitReached() const;
  void EndAll();

  const pid_t task_;
  const pid_t keeper_;
  const int workFolder_;
  const machine::ViewLimits& limits_;
  const Clock::time_point start_ = Clock::now();
  bool hasTaskEnded_ = false;
  machine::ViewUse use_;
  bool isFull_ = false;  // the file system
};

}  // namespace platform::posix
