#include "platform/linux/process_handle.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <csignal>
#include <system_error>
#include <thread>

#include "platform/formats/names.h"
#include "platform/linux/error_map.h"
#include "platform/linux/helper_thread.h"
#include "platform/linux/process_info.h"
#include "platform/linux/stop_signals.h"
#include "platform/rehearsal.h"
#include "support/format.h"

namespace platform::process {
namespace {

using posix::Fail;
using Clock = std::chrono::steady_clock;

// Marks the handle of a child of ours, in a bit that no descriptor has.
constexpr std::intptr_t kChild = std::intptr_t{1} << 32;

int DescriptorOf(const Handle& process) {
  return process.IsOpen() ? static_cast<int>(process.Value() & ~kChild) : -1;
}

int OpenDescriptor(std::uint32_t id) {
  return static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(id), 0));
}

// Takes an ended child off the host's list. False when it is still running.
bool Reap(int descriptor, int options) {
  siginfo_t info{};
  const auto id = static_cast<id_t>(descriptor);
  return waitid(P_PIDFD, id, &info, WEXITED | options) != 0 || info.si_pid != 0;
}

void ReapForever(int queue) {
  for (;;) {
    epoll_event event{};
    if (epoll_wait(queue, &event, 1, -1) == 1) {
      Reap(event.data.fd, 0);
      // Closing alone isn't enough: a child that is just being started has it open as well.
      epoll_ctl(queue, EPOLL_CTL_DEL, event.data.fd, nullptr);
      close(event.data.fd);
    }
  }
}

// Takes the descriptors of running children whose handles were closed. A thread reaps those that
// end: the disposition of SIGCHLD would be simpler, but it belongs to all libraries of the process.
// It is started with the first such child, runs until the process ends, and touches nothing but the
// descriptors of its queue.
int MakeReaperQueue() {
  const int queue = epoll_create1(EPOLL_CLOEXEC);
  if (queue < 0) {
    return -1;
  }
  std::thread reaper = posix::StartHelper(ReapForever, queue);
  if (!reaper.joinable()) {
    close(queue);
    return -1;
  }
  reaper.detach();
  return queue;
}

// Hands the descriptor to the thread. False when there is none.
bool LeaveToReaper(int descriptor) {
  static const int queue = MakeReaperQueue();
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = descriptor;
  return queue >= 0 && epoll_ctl(queue, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

// The time for poll until `deadline`, in its own unit and limits.
int TimeLeft(std::uint32_t milliseconds, Clock::time_point deadline) {
  if (milliseconds == kInfinite) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, INT_MAX));
}

// Waits until each of the descriptors but the last has been readable. That is the one of the
// request to stop.
std::uint32_t PollAll(std::span<pollfd> polls, std::uint32_t milliseconds) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  for (std::size_t running = polls.size() - 1;;) {
    const int limit = TimeLeft(milliseconds, deadline);
    const int ready = poll(polls.data(), polls.size(), limit);
    if (ready < 0 && errno != EINTR) {
      SetLastError(posix::CodeOf(errno));
      return kWaitFailed;
    }
    if (ready == 0 && limit == 0) {
      return kWaitTimeout;
    }
    for (pollfd& one : polls.first(polls.size() - 1)) {
      if (ready > 0 && one.fd >= 0 && one.revents != 0) {
        one.fd = -1;
        --running;
      }
    }
    if (running == 0) {
      return kSuccess;
    }
    if (ready > 0 && polls.back().revents != 0) {
      SetLastError(kCancelled);
      return kWaitFailed;
    }
  }
}

// The first process and the threads of the kernel can't be ended, although the host takes the
// signal.
bool IsProtected(std::uint32_t id) {
  std::string image;
  return id == 1 || posix::ReadImageLink(id, &image) == kGenFailure;
}

// The process of an open descriptor; 0 when it has ended, or can't be told.
std::uint32_t IdOf(int descriptor) {
  constexpr std::string_view kId = "Pid:\t";  // pidfd_open(2) refers to proc(5) for it
  char buffer[1024];
  const std::string name = "fdinfo/" + std::to_string(descriptor);
  std::string_view text = posix::ReadProcessFile(CurrentId(), name.c_str(), buffer);
  text.remove_prefix(std::min(text.find(kId), text.size()));
  text.remove_prefix(std::min(kId.size(), text.size()));
  std::uint32_t id = 0;
  const auto result = std::from_chars(text.begin(), text.end(), id);
  return result.ec == std::errc() ? id : 0;
}

// The file name of a process's image or, where that may not be looked at, what it goes by.
cvn::String NameOf(std::uint32_t id) {
  std::string image;
  if (posix::ReadImageLink(id, &image) == kSuccess) {
    return posix::ToWide(image.substr(image.rfind('/') + 1));
  }
  char buffer[64];
  const std::string_view name = posix::ReadProcessFile(id, "comm", buffer);
  return posix::ToWide(name.substr(0, name.find('\n')));
}

Code RehearseEnd(int descriptor) {
  const std::uint32_t id = IdOf(descriptor);
  const Code code =
      rehearsal::Answer(rehearsal::Action::EndProcess, cvn::Format(u"%s (%u)", NameOf(id), id));
  if (code == kSuccess) {
    rehearsal::SetEnded(id);
  }
  return code;
}

}  // namespace

void Handle::Close() {
  if (!IsOpen()) {
    return;
  }
  const int descriptor = DescriptorOf(*this);
  const bool isChild = (value_ & kChild) != 0;
  value_ = kNone;
  if (!isChild || Reap(descriptor, WNOHANG) || !LeaveToReaper(descriptor)) {
    close(descriptor);
  }
}

Code Open(std::uint32_t id, std::uint32_t access, Handle* process) {
  const int descriptor = OpenDescriptor(id);
  if (descriptor < 0) {
    return Fail(errno == ESRCH ? kInvalidParameter : posix::CodeOf(errno));
  }
  Handle opened(descriptor);
  const bool asksToEnd = (access & kTerminate) != 0;
  if (asksToEnd &&
      (IsProtected(id) ||
       (syscall(SYS_pidfd_send_signal, descriptor, 0, nullptr, 0) != 0 && errno == EPERM))) {
    return Fail(kAccessDenied);
  }
  *process = std::move(opened);
  return kSuccess;
}

std::uint32_t Wait(const Handle& process, std::uint32_t milliseconds) {
  return WaitForAll({&process, 1}, milliseconds);
}

std::uint32_t WaitForAll(std::span<const Handle> processes, std::uint32_t milliseconds) {
  if (processes.empty() || processes.size() > kMostWaitHandles) {
    SetLastError(kInvalidParameter);
    return kWaitFailed;
  }
  std::array<pollfd, kMostWaitHandles + 1> polls{};
  for (std::size_t i = 0; i < processes.size(); ++i) {
    polls[i] = {DescriptorOf(processes[i]), POLLIN, 0};
    if (polls[i].fd < 0) {
      SetLastError(kInvalidHandle);
      return kWaitFailed;
    }
  }
  polls[processes.size()] = {posix::StopDescriptor(), POLLIN, 0};
  return PollAll(std::span(polls).first(processes.size() + 1), milliseconds);
}

Code Terminate(const Handle& process, std::uint32_t /*exitCode*/) {
  if (rehearsal::IsOn()) {
    return posix::Report(RehearseEnd(DescriptorOf(process)));
  }
  if (syscall(SYS_pidfd_send_signal, DescriptorOf(process), SIGKILL, nullptr, 0) != 0) {
    return Fail(errno == ESRCH ? kAccessDenied : posix::CodeOf(errno));
  }
  return kSuccess;
}

}  // namespace platform::process

namespace platform::posix {

Code OpenChild(pid_t child, process::Handle* handle) {
  const int descriptor = process::OpenDescriptor(static_cast<std::uint32_t>(child));
  if (descriptor < 0) {
    return CodeOf(errno);
  }
  *handle = process::Handle(descriptor | process::kChild);
  return kSuccess;
}

Code OpenEnded(process::Handle* handle) {
  // Readable from the start, which is what the end of a process is waited for by.
  const int descriptor = eventfd(1, EFD_CLOEXEC);
  if (descriptor < 0) {
    return CodeOf(errno);
  }
  *handle = process::Handle(descriptor);
  return kSuccess;
}

}  // namespace platform::posix
