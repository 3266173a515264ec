// Processes: the running one, the others of the system, and whose account they run for.
//
// On Linux these are the host's processes. Their ids are the host's, an image path is given in the
// machine's form (C:\... inside the machine, Z:\... elsewhere), and uid 0 is "S-1-5-18".
#pragma once

#include <cstdint>
#include <span>
#include <utility>

#include "platform/error.h"
#include "support/containers.h"
#include "support/string.h"

namespace platform::process {

// Access rights of an open process.
inline constexpr std::uint32_t kTerminate = 0x0001;
inline constexpr std::uint32_t kSynchronize = 0x100000;

// Time limit of a wait that never runs out.
inline constexpr std::uint32_t kInfinite = 0xFFFFFFFF;
// Results of a wait besides 0: the time ran out, and the wait itself failed.
inline constexpr std::uint32_t kWaitTimeout = 258;
inline constexpr std::uint32_t kWaitFailed = 0xFFFFFFFF;
// How many handles one wait takes at most.
inline constexpr std::size_t kMostWaitHandles = 64;

// An open process. Move-only; closes at the end of its life.
class Handle {
 public:
  Handle() = default;
  explicit Handle(std::intptr_t value) : value_(value) {}
  Handle(Handle&& other) noexcept : value_(std::exchange(other.value_, kNone)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(value_, other.value_);
    return *this;
  }
  ~Handle() { Close(); }

  bool IsOpen() const { return value_ != kNone; }
  void Close();
  std::intptr_t Value() const { return value_; }

 private:
  static constexpr std::intptr_t kNone = -1;
  std::intptr_t value_ = kNone;
};

// An entry of the process list, as PROCESSENTRY32W.
struct Entry {
  std::uint32_t id = 0;
  std::uint32_t parentId = 0;
  // The image's file name. On Linux, where that may not be looked at, the first 15 bytes of the
  // name that the process goes by.
  cvn::String executable;
};

std::uint32_t CurrentId();

// Enables privileges of the process's token by name ("SeDebugPrivilege"), in order, each by a call
// of its own. One that the token does not hold stays absent; so do all of them on Linux, where the
// account alone decides. Never fails.
void EnablePrivileges(std::span<const cvn::StringView> names);

// As CreateProcessW without an application name, without a window, without inherited handles and
// with this process's environment: starts the program that the command line begins with. An empty
// directory is the current one. The registry is flushed first, so that the program sees it; where
// that fails, nothing is started. 2 or 3 when there is no such program, 5 when it may not be run or
// is a folder, 193 when it is none, 206 for a command line of 32,767 characters or more, 267 when
// the directory is none.
//
// On Linux this starts a program of the host. Its path is resolved as any other, and looked for as
// Windows looks for programs: with the name as it is, then with ".exe" added to a name without a
// dot; a name without a folder in the program's folder, the current one, those of the system, and
// PATH. The rest of the command line is split as the runtime of a Windows program splits it, and
// passed in UTF-8; the first argument is the host's path. The child has a session of its own, so
// that it lives on when this process ends, its three streams lead nowhere, and it leaves no zombie
// whether or not anybody waits. Its environment is the host's, with what environment::Set set over
// it, but PATH has the program's folder and those of the host's system, and TESSEL_MACHINE names
// this process's machine. A Windows program gives 193, unless the host knows how to run it, and so
// does what lies on the machine, whatever path leads there, and a script whose interpreter does:
// see TrustFolder, and TESSEL_RUN_VOLUME_PROGRAMS in docs/running-patches.md. One that can't be
// read gives 5.
Code Start(cvn::StringView commandLine, cvn::StringView directory, Handle* process);

// Names the folder whose programs and libraries may run though they lie on drive C:, in place of
// the one named before: every file in it was verified, and no other account can write there. The
// folder itself is meant, and not what its name leads to later. With an empty name, after a
// failure, and before the first call there is none. On Windows nothing is to be done, and it
// succeeds.
Code TrustFolder(cvn::StringView folder);

// As OpenProcess: 87 when there is no such process, 5 without permission. On Linux any process may
// be waited for, and the first process and the threads of the kernel can't be ended.
Code Open(std::uint32_t id, std::uint32_t access, Handle* process);

// As WaitForSingleObject and WaitForMultipleObjects over all: 0 when each process has ended,
// kWaitTimeout, or kWaitFailed with the last error set, which is kCancelled when the program was
// asked to stop (stop_request.h). At most kMostWaitHandles at once.
std::uint32_t Wait(const Handle& process, std::uint32_t milliseconds);
std::uint32_t WaitForAll(std::span<const Handle> processes, std::uint32_t milliseconds);

// As TerminateProcess; leaves the code as the last error too. On Linux the process is killed, and
// its parent sees that instead of `exitCode`.
Code Terminate(const Handle& process, std::uint32_t exitCode);

// The processes of the system in the order of a toolhelp snapshot, on Linux by their ids. The two
// steps of taking it fail apart: CreateToolhelp32Snapshot and Process32FirstW. No processes at all
// is success with an empty list.
enum class ListStep { Snapshot, First };
Code List(cvn::List<Entry>* entries, ListStep* failedStep);

// The full path of a process's first module, as Module32FirstW gives it. A process that is gone, or
// that can't be looked into, gives its code.
Code MainModulePath(std::uint32_t id, cvn::String* path);

// As QueryFullProcessImageNameW after OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION), which fail
// apart.
enum class ImageStep { Open, Query };
Code ImagePath(std::uint32_t id, cvn::String* path, ImageStep* failedStep);

// The SID of a process's user as text, empty when it can't be found out. On Linux "S-1-5-18" for
// uid 0, and "S-1-22-1-<uid>" for another, the form in which Samba names host users.
cvn::String UserSid(std::uint32_t id);

// As LogonUserW (interactive, default provider) and then ImpersonateLoggedOnUser: the thread runs
// as that user from now on. The token is kept until Revert; one that was kept before is lost, as
// the caller asked for. On Linux 50: a system that isn't running has no logons.
Code Impersonate(cvn::StringView user, cvn::StringView domain, cvn::StringView password);

// As RevertToSelf; closes the kept token even when that fails. Success without an impersonation.
Code Revert();

}  // namespace platform::process
