// Who started the program, and whether an update patch may be run for them.
#pragma once

#include <cstdint>

#include "platform/error.h"
#include "support/containers.h"
#include "support/string.h"

namespace ProcessUtils {

class ProcessTool {
 public:
  // The process that started process `pid`, 0 being the current one; 0 when there is none.
  static std::uint32_t GetParentPid(std::uint32_t pid);
  // The image of a process. 0 or the platform's code.
  static platform::Code GetPathFromPid(std::uint32_t pid, cvn::String* path);
};

}  // namespace ProcessUtils

namespace tessel {

// Answers of CheckRightsForInstallPath.
inline constexpr std::int32_t kCallerAllowed = 0;
inline constexpr std::int32_t kUserNotSystem = 5;
inline constexpr std::int32_t kInvalidParent = 127;
inline constexpr std::int32_t kCannotGetParent = 1293;

// Whether this run may apply an update patch: only when it runs for the system's account, and was
// started by a program in a trusted location.
std::int32_t CheckRightsForInstallPath();

// The SID of the process's user as text; empty when it can't be found out.
cvn::String GetProcessUserSid(std::uint32_t pid);

struct ParentProcess {
  cvn::String name;       // of the image's file
  cvn::String publisher;  // company and signer, as "company::signer"
};

// The processes that led to this one, the closest first, up to the shell or the service manager,
// which don't belong to them.
cvn::List<ParentProcess> CollectParentProcesses();

// The company that a file's version information names, or "<n/a>".
void GetCompanyName(cvn::StringView path, cvn::String* text);

}  // namespace tessel
