// A task in a view: a process of its own, with the programs that it starts, and limits for all.
#pragma once

#include <sys/types.h>

#include <functional>

#include "platform/machine_view.h"
#include "platform/offline/view/keeper.h"

namespace platform::posix {

// What a task leaves for its caller, in memory that both share.
struct TaskResult {
  int error;  // the value of errno that kept the task from its start
  int exitCode;
  bool hasEnded;
};

// Runs the task and gives how it ended. The code is that of what kept it from its start.
class ViewTask {
 public:
  ViewTask(const ViewFolders& folders, const Keeper& keeper, const machine::ViewLimits& limits,
           TaskResult* result)
      : folders_(folders), keeper_(keeper), limits_(limits), result_(*result) {}

  Code Run(const std::function<int()>& task,
           const std::function<void(const machine::ViewUse&)>& progress, machine::ViewEnd* end);

 private:
  [[noreturn]] void Perform(const std::function<int()>& task, pid_t parent) const;
  int EnterView(pid_t parent) const;

  const ViewFolders& folders_;
  const Keeper& keeper_;
  const machine::ViewLimits& limits_;
  TaskResult& result_;
};

}  // namespace platform::posix
