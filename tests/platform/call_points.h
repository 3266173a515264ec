// Ends a process, or lets a call of it fail, at one of the calls by which it changes files.
#pragma once

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>

namespace platform::test {

inline bool IsChange(const user_regs_struct& registers) {
  switch (registers.orig_rax) {
    case SYS_openat:
      return (registers.rdx & O_CREAT) != 0;
    case SYS_write:
    case SYS_pwrite64:
    case SYS_copy_file_range:
    case SYS_ftruncate:
    case SYS_fallocate:
    case SYS_fsync:
    case SYS_fdatasync:
    case SYS_mkdirat:
    case SYS_unlinkat:
    case SYS_symlinkat:
    case SYS_renameat:
    case SYS_renameat2:
    case SYS_fchmod:
    case SYS_fchmodat:
    case SYS_chmod:  // what fchmodat comes to for no link
    case SYS_utimensat:
    case SYS_fsetxattr:
    case SYS_fremovexattr:
      return true;
    default:
      return false;
  }
}

// The disk outlives the processes here, and bringing much to it takes long.
inline bool IsFlush(const user_regs_struct& registers) {
  return registers.orig_rax == SYS_fsync || registers.orig_rax == SYS_fdatasync;
}

enum class AtCall { Kill, Fail };
enum class Ended { Whole, AtCall, Failed };

// Runs `action` in a process of its own. Before the call of that number, counted from 0, it is
// killed; or the call fails with `error`, and it goes on. Nothing happens at a negative number.
// Failed when the action says so by another number than 0, or no process can be traced.
inline Ended RunTo(int number, AtCall what, int error, const std::function<int()>& action) {
  const pid_t child = fork();
  if (child == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
      _exit(99);
    }
    raise(SIGSTOP);
    _exit(action());
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFSTOPPED(status)) {
    return Ended::Failed;
  }
  ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD);
  bool isEntry = true;
  bool isMet = false;
  bool isLeftOut = false;
  long long result = 0;
  while (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 &&
         waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
    if (WSTOPSIG(status) != (SIGTRAP | 0x80)) {
      continue;
    }
    user_regs_struct registers{};
    ptrace(PTRACE_GETREGS, child, nullptr, &registers);
    const bool isNow = isEntry && !isMet && IsChange(registers) && number-- == 0;
    if (isNow && what == AtCall::Kill) {
      kill(child, SIGKILL);
      waitpid(child, &status, 0);
      return Ended::AtCall;
    }
    if (isEntry && (isNow || IsFlush(registers))) {
      registers.orig_rax = ~0ULL;  // no call at all
      ptrace(PTRACE_SETREGS, child, nullptr, &registers);
      isLeftOut = true;
      result = isNow ? -error : 0;
    } else if (!isEntry && isLeftOut) {
      registers.rax = static_cast<unsigned long long>(result);
      ptrace(PTRACE_SETREGS, child, nullptr, &registers);
      isLeftOut = false;
    }
    isMet = isMet || isNow;
    isEntry = !isEntry;
  }
  return !WIFEXITED(status) || WEXITSTATUS(status) != 0 ? Ended::Failed
         : isMet                                        ? Ended::AtCall
                                                        : Ended::Whole;
}

}  // namespace platform::test
