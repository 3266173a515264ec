#include "platform/offline/view/task_watch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "platform/linux/descriptor.h"
#include "platform/linux/directory_stream.h"
#include "platform/linux/process_info.h"

namespace platform::posix {
namespace {

using machine::ViewEnd;

constexpr auto kGrace = std::chrono::seconds(2);  // from the request to stop to the end
constexpr int kTick = 20;                         // milliseconds between two looks at the limits

// The children of one thread of a process, as many as a buffer takes. A number that isn't whole,
// since the buffer ended in it, would be that of another process; a blank follows the others.
void AddChildren(pid_t process, const std::string& thread, std::vector<pid_t>* children) {
  char buffer[4096];
  const std::string name = "task/" + thread + "/children";
  std::string_view list =
      ReadProcessFile(static_cast<std::uint32_t>(process), name.c_str(), buffer);
  pid_t child = 0;
  while (!list.empty()) {
    const auto [end, fault] = std::from_chars(list.begin(), list.end(), child);
    if (fault != std::errc() || end == list.end()) {
      return;
    }
    children->push_back(child);
    list.remove_prefix(static_cast<std::size_t>(end - list.begin()) + 1);
  }
}

std::vector<pid_t> ChildrenOf(pid_t process) {
  std::vector<pid_t> children;
  const std::string folder = "/proc/" + std::to_string(process) + "/task";
  // One that has ended has no children.
  std::ignore = ForEachEntry({AT_FDCWD, folder.c_str()}, 0, [&](const dirent& entry) {
    AddChildren(process, entry.d_name, &children);
    return true;
  });
  return children;
}

std::uint64_t CounterIn(std::string_view counters, std::string_view name) {
  const std::size_t at = counters.find(name);
  std::uint64_t value = 0;
  if (at != std::string_view::npos) {
    std::from_chars(counters.begin() + at + name.size(), counters.end(), value);
  }
  return value;
}

// What a process has written: by calls, or into memory that stands for files, whichever is more.
std::uint64_t BytesWrittenBy(pid_t process) {
  char buffer[1024];
  const std::string_view counters =
      ReadProcessFile(static_cast<std::uint32_t>(process), "io", buffer);
  return std::max(CounterIn(counters, "wchar: "), CounterIn(counters, "write_bytes: "));
}

// What is left for others: runs out of neither bytes nor names.
bool IsNearlyFull(int folder) {
  constexpr std::uint64_t kBytesLeft = std::uint64_t{64} << 20;
  constexpr std::uint64_t kNamesLeft = 4096;
  struct statvfs volume {};
  if (fstatvfs(folder, &volume) != 0) {
    return false;
  }
  // Some file systems count neither.
  return (volume.f_blocks != 0 && volume.f_bavail * volume.f_frsize < kBytesLeft) ||
         (volume.f_files != 0 && volume.f_favail < kNamesLeft);
}

}  // namespace

TaskWatch::TaskWatch(int workFolder, const machine::ViewLimits& limits)
    : workFolder_(workFolder), limits_(limits), others_(ChildrenOf(getpid())) {}

// The task, as long as nobody has waited for it, and its orphans.
std::vector<pid_t> TaskWatch::OwnChildren() const {
  std::vector<pid_t> children = ChildrenOf(getpid());
  std::erase_if(children, [this](pid_t child) { return std::ranges::count(others_, child) != 0; });
  return children;
}

// Takes those off the host's list that have ended.
bool TaskWatch::IsRunning() {
  bool isAny = false;
  for (const pid_t child : OwnChildren()) {
    const bool hasEnded = waitpid(child, nullptr, WNOHANG) == child;
    hasTaskEnded_ = hasTaskEnded_ || (hasEnded && child == task_);
    isAny = isAny || !hasEnded;
  }
  return isAny;
}

void TaskWatch::Measure() {
  std::vector<pid_t> processes = OwnChildren();
  std::uint64_t bytes = 0;
  for (std::size_t i = 0; i < processes.size() && i <= limits_.processes + 1; ++i) {
    bytes += BytesWrittenBy(processes[i]);
    const std::vector<pid_t> children = ChildrenOf(processes[i]);
    processes.insert(processes.end(), children.begin(), children.end());
  }
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start_);
  use_.seconds = static_cast<std::uint32_t>(seconds.count());
  use_.bytes = std::max(use_.bytes, bytes);  // programs that have ended still count
  const std::size_t own = hasTaskEnded_ || processes.empty() ? 0 : 1;
  use_.processes = static_cast<std::uint32_t>(processes.size() - own);
  isFull_ = IsNearlyFull(workFolder_);
}

ViewEnd TaskWatch::LimitReached() const {
  if (use_.seconds >= limits_.seconds) {
    return ViewEnd::TimeOut;
  }
  if (use_.bytes > limits_.bytes || isFull_) {
    return ViewEnd::TooMuchWritten;
  }
  return use_.processes > limits_.processes ? ViewEnd::TooManyProcesses : ViewEnd::Ended;
}

// The children of what is killed become this process's.
void TaskWatch::EndAll() {
  while (IsRunning()) {
    for (const pid_t child : OwnChildren()) {
      kill(child, SIGKILL);
    }
    poll(nullptr, 0, 1);
  }
}

ViewEnd TaskWatch::Wait(pid_t started,
                        const std::function<void(const machine::ViewUse&)>& progress) {
  task_ = started;
  Descriptor task(static_cast<int>(syscall(SYS_pidfd_open, task_, 0)));
  ViewEnd end = ViewEnd::Ended;
  auto deadline = Clock::time_point::max();
  std::uint32_t told = 0;
  for (;;) {
    pollfd ended{hasTaskEnded_ ? -1 : task.Get(), POLLIN, 0};
    const bool isDue = poll(&ended, 1, kTick) > 0;
    if ((isDue || hasTaskEnded_) && !IsRunning()) {
      return end;
    }
    Measure();
    if (end == ViewEnd::Ended) {
      end = LimitReached();
      if (end != ViewEnd::Ended && !hasTaskEnded_) {
        kill(task_, SIGTERM);
        deadline = Clock::now() + kGrace;
      }
    }
    if (Clock::now() >= deadline || (end != ViewEnd::Ended && hasTaskEnded_)) {
      EndAll();
      return end;
    }
    if (progress && use_.seconds > told) {
      told = use_.seconds;
      progress(use_);
    }
  }
}

}  // namespace platform::posix
