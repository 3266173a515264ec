// Threads that help the one that runs the patch.
#pragma once

#include <sched.h>

#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

namespace platform::posix {

// Whether this process may use more than one processor.
inline bool HasOtherProcessor() {
  cpu_set_t allowed;
  return sched_getaffinity(0, sizeof(allowed), &allowed) == 0 && CPU_COUNT(&allowed) > 1;
}

// Starts a thread that takes no signals: those are for the thread that runs the patch. One that
// can't be started isn't joinable.
template <typename Function, typename... Arguments>
std::thread StartHelper(Function&& function, Arguments&&... arguments) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread thread;
  try {
    thread = std::thread(std::forward<Function>(function), std::forward<Arguments>(arguments)...);
  } catch (const std::system_error&) {
    // Nobody helps.
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread;
}

}  // namespace platform::posix
