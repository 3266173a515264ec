#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <vector>

#include "platform/formats/command_line.h"
#include "platform/formats/names.h"
#include "platform/linux/error_map.h"
#include "platform/linux/process_handle.h"
#include "platform/offline/environment/environment.h"
#include "platform/offline/process/executable.h"
#include "platform/offline/volume/volume.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "platform/rehearsal.h"

namespace platform::process {
namespace {

// Characters of the longest command line of Windows, its closing zero included.
constexpr std::size_t kLongestCommandLine = 32767;

Code FindFile(cvn::StringView path, std::string* program) {
  posix::HostPath host;
  const Code code = posix::Resolve(path, &host);
  if (code != kSuccess) {
    return code;
  }
  return host.IsFolder() ? kAccessDenied : posix::PathForHost(host, program);
}

// The file at `path`, else the one with ".exe" added when the name has no dot.
Code FindProgramAt(cvn::StringView path, std::string* program) {
  const Code code = FindFile(path, program);
  if (code == kSuccess || paths::FindFileName(path).find(u'.') != cvn::StringView::npos) {
    return code;
  }
  cvn::PathString named(path);
  named.Append(u".exe");
  return FindFile(named, program) == kSuccess ? kSuccess : code;
}

// The folders in which Windows looks for a program that is given without one.
cvn::List<cvn::String> SearchOrder() {
  cvn::String own = paths::ModuleFileName();
  paths::RemoveFileSpec(&own);
  cvn::List<cvn::String> folders = {own, paths::CurrentDirectory(), paths::SystemDirectory(),
                                    u"C:\\Windows\\System", u"C:\\Windows"};
  for (cvn::String& folder : posix::SearchedFolders()) {
    folders.push_back(std::move(folder));
  }
  return folders;
}

Code FindProgram(cvn::StringView name, std::string* program) {
  if (name.find_first_of(u"\\/:") != cvn::StringView::npos) {
    return FindProgramAt(name, program);
  }
  if (name.empty()) {
    return kFileNotFound;
  }
  for (const cvn::String& folder : SearchOrder()) {
    cvn::String path(folder);
    paths::AddBackslash(&path);
    path.Append(name);
    if (FindProgramAt(path, program) == kSuccess) {
      return kSuccess;
    }
  }
  return kFileNotFound;
}

// Finds the program that the command line begins with, and cuts it off. Without quotes it may end
// at any blank, and the first that leads to a file counts.
Code TakeProgram(cvn::StringView* commandLine, std::string* program) {
  constexpr cvn::StringView kBlanks = u" \t";
  if (commandLine->starts_with(u'"')) {
    const Code code = FindProgram(commandLine->substr(1, commandLine->find(u'"', 1) - 1), program);
    commandLine->remove_prefix(posix::FirstArgumentLength(*commandLine));
    return code;
  }
  Code first = kSuccess;
  for (std::size_t end = 0; end != cvn::StringView::npos; ++end) {
    end = commandLine->find_first_of(kBlanks, end);
    const Code code = FindProgram(commandLine->substr(0, end), program);
    if (code == kSuccess) {
      commandLine->remove_prefix(std::min(end, commandLine->size()));
      return kSuccess;
    }
    first = first == kSuccess ? code : first;
    if (end == cvn::StringView::npos) {
      break;
    }
  }
  return first;
}

Code FindFolder(cvn::StringView directory, std::string* folder) {
  posix::HostPath host;
  const bool isFolder = posix::Resolve(directory, &host) == kSuccess && host.IsFolder() &&
                        posix::PathForHost(host, folder) == kSuccess;
  return isFolder && access(folder->c_str(), X_OK) == 0 ? kSuccess : kDirectory;
}

Code CodeOfStart(int error, const posix::Executable& program) {
  switch (error) {
    case ENOEXEC:
    case ELIBBAD:
      return kBadExeFormat;
    case EACCES:  // a Windows program has no need to be marked as one
      return program.IsWindowsProgram() ? kBadExeFormat : kAccessDenied;
    case E2BIG:
      return kFilenameExceedsRange;
    case EAGAIN:
      return kNotEnoughMemory;
    default:
      return posix::CodeOf(error);
  }
}

// A session of its own, no streams, no other descriptors but `kept` until it executes, and every
// signal as a new program has it.
class Surroundings {
 public:
  // `kept` closes by itself when the child executes, or is negative.
  Surroundings(const std::string& folder, int kept) {
    Keep(posix_spawn_file_actions_init(&actions_));
    Keep(posix_spawnattr_init(&attributes_));
    Keep(posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
    Keep(posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0));
    Keep(posix_spawn_file_actions_adddup2(&actions_, STDOUT_FILENO, STDERR_FILENO));
    for (int descriptor = STDERR_FILENO + 1; descriptor < kept; ++descriptor) {
      Keep(posix_spawn_file_actions_addclose(&actions_, descriptor));
    }
    Keep(posix_spawn_file_actions_addclosefrom_np(&actions_, std::max(kept, STDERR_FILENO) + 1));
    if (!folder.empty()) {
      Keep(posix_spawn_file_actions_addchdir_np(&actions_, folder.c_str()));
    }
    Keep(posix_spawnattr_setflags(
        &attributes_, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF));
    sigset_t signals;
    sigemptyset(&signals);
    Keep(posix_spawnattr_setsigmask(&attributes_, &signals));
    sigfillset(&signals);
    Keep(posix_spawnattr_setsigdefault(&attributes_, &signals));
  }
  Surroundings(const Surroundings&) = delete;
  Surroundings& operator=(const Surroundings&) = delete;
  ~Surroundings() {
    posix_spawnattr_destroy(&attributes_);
    posix_spawn_file_actions_destroy(&actions_);
  }

  // 0, or the errno of the first part that couldn't be had. A child without it would keep this
  // process's streams or descriptors.
  int Error() const { return error_; }
  const posix_spawn_file_actions_t* Actions() const { return &actions_; }
  const posix_spawnattr_t* Attributes() const { return &attributes_; }

 private:
  void Keep(int error) { error_ = error_ == 0 ? error : error_; }

  // Zeros can be destroyed, too, when their initialization failed.
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
  int error_ = 0;
};

// Where the parent of this process left SIGCHLD ignored, children would vanish before they can be
// opened.
void KeepEndedChildren() {
  struct sigaction action {};
  if (sigaction(SIGCHLD, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
    signal(SIGCHLD, SIG_DFL);
  }
}

Code Spawn(const posix::Executable& program, std::vector<std::string>* arguments,
           const std::string& folder, Handle* process) {
  KeepEndedChildren();
  std::vector<char*> pointers;
  pointers.reserve(arguments->size() + 1);
  for (std::string& argument : *arguments) {
    pointers.push_back(argument.data());
  }
  pointers.push_back(nullptr);
  const Surroundings surroundings(folder, program.Descriptor());
  if (surroundings.Error() != 0) {
    return posix::CodeOf(surroundings.Error());
  }
  pid_t child = 0;
  const int error =
      posix_spawn(&child, program.Path().c_str(), surroundings.Actions(), surroundings.Attributes(),
                  pointers.data(), posix::ChildEnvironment());
  if (error != 0) {
    return CodeOfStart(error, program);
  }
  const Code code = posix::OpenChild(child, process);
  if (code != kSuccess) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  return code;
}

Code RehearseStart(cvn::StringView commandLine, Handle* process) {
  const Code code = rehearsal::Answer(rehearsal::Action::StartProgram, commandLine);
  return code == kSuccess ? posix::OpenEnded(process) : code;
}

Code TryStart(cvn::StringView commandLine, cvn::StringView directory, Handle* process) {
  const cvn::StringView whole = commandLine;
  std::vector<std::string> arguments(1);
  std::string folder;
  posix::Executable program;
  Code code = TakeProgram(&commandLine, &arguments.front());
  if (code == kSuccess && !directory.empty()) {
    code = FindFolder(directory, &folder);
  }
  if (code == kSuccess && !rehearsal::IsOn()) {
    code = program.Open(&arguments);
  }
  if (code == kSuccess) {
    code = registry::Flush();
  }
  if (code != kSuccess) {
    return code;
  }
  if (rehearsal::IsOn()) {
    return RehearseStart(whole, process);
  }
  posix::AppendArguments(commandLine, &arguments);
  return Spawn(program, &arguments, folder, process);
}

}  // namespace

Code Start(cvn::StringView commandLine, cvn::StringView directory, Handle* process) {
  commandLine = posix::UpToZero(commandLine);
  const Code code = commandLine.size() >= kLongestCommandLine
                        ? kFilenameExceedsRange
                        : TryStart(commandLine, posix::UpToZero(directory), process);
  return posix::Report(code);
}

}  // namespace platform::process
