#include "commands/system/processes.h"

#include <algorithm>
#include <array>
#include <string>

#include "engine/variable_store.h"
#include "platform/libraries.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "support/numbers.h"
#include "support/utf.h"
#include "trace/trace.h"

namespace tessel {
namespace {

namespace libraries = platform::libraries;
namespace process = platform::process;
using platform::Code;
using platform::kSuccess;

using ProcessIds = cvn::List<std::uint32_t>;

cvn::String CommandLineOf(cvn::StringView path, cvn::StringView args) {
  cvn::String commandLine;
  commandLine.Reserve(path.size() + args.size() + 3);
  commandLine.Append(u'"');
  commandLine.Append(path);
  commandLine.Append(u"\" ");
  commandLine.Append(args);
  return commandLine;
}

// Starts a program, and gives the code of that, or of the wait for its end.
std::uint32_t RunProgram(cvn::StringView commandLine, cvn::StringView directory,
                         std::int32_t waittime) {
  process::Handle started;
  const Code code = process::Start(commandLine, directory, &started);
  return code != kSuccess || waittime == 0
             ? code
             : process::Wait(started, static_cast<std::uint32_t>(waittime));
}

// Makes one backslash of each pair, but for a pair at the very beginning.
cvn::String WithSingleBackslashes(cvn::StringView name) {
  cvn::String single;
  single.Reserve(name.size());
  if (name.starts_with(u"\\\\")) {
    single.Append(u'\\');
  }
  while (!name.empty()) {
    single.Append(name.front());
    name.remove_prefix(name.starts_with(u"\\\\") ? 2 : 1);
  }
  return single;
}

bool HasMainModule(std::uint32_t id, cvn::StringView path) {
  cvn::String module;
  return process::MainModulePath(id, &module) == kSuccess && cvn::EqualNoCase(module, path);
}

// The processes of a name: of an executable in any folder or, with a backslash in it, of the one at
// that path. False when there is no list of processes to be had.
bool GatherIds(cvn::StringView name, ProcessIds* ids) {
  cvn::List<process::Entry> entries;
  process::ListStep failedStep;
  if (process::List(&entries, &failedStep) != kSuccess) {
    return false;
  }
  const bool isPath = name.find(u'\\') != cvn::StringView::npos;
  const cvn::StringView executable = isPath ? platform::paths::FindFileName(name) : name;
  for (const process::Entry& entry : entries) {
    if (cvn::EqualNoCase(entry.executable, executable) &&
        (!isPath || HasMainModule(entry.id, name))) {
      ids->push_back(entry.id);
    }
  }
  return true;
}

// Opens processes until there are as many as one wait takes. Gives how many ids it took.
std::size_t OpenBatch(std::span<const std::uint32_t> ids, cvn::List<process::Handle>* handles) {
  std::size_t taken = 0;
  for (; taken < ids.size() && handles->size() < process::kMostWaitHandles; ++taken) {
    process::Handle handle;
    const Code code = process::Open(ids[taken], process::kSynchronize, &handle);
    if (code == kSuccess) {
      handles->push_back(std::move(handle));
    } else {
      TraceLine(u"Cannot open process with pid %d. Error:%d", ids[taken], code);
    }
  }
  return taken;
}

std::uint32_t WaitForIds(std::span<const std::uint32_t> ids, std::int32_t waittime) {
  std::uint32_t status = kSuccess;
  while (!ids.empty() && status == kSuccess) {
    cvn::List<process::Handle> handles;
    ids = ids.subspan(OpenBatch(ids, &handles));
    if (!handles.empty()) {
      status = process::WaitForAll(handles, static_cast<std::uint32_t>(waittime));
    }
  }
  return status;
}

// Gives the code of the first process that was opened and couldn't be ended.
Code TerminateIds(std::span<const std::uint32_t> ids) {
  Code first = kSuccess;
  for (const std::uint32_t id : ids) {
    process::Handle handle;
    Code code = process::Open(id, process::kTerminate, &handle);
    if (code != kSuccess) {
      TraceLine(u"Cannot open process with pid %d for kill. Error:%d", id, code);
      continue;
    }
    code = process::Terminate(handle, 0);
    if (code != kSuccess) {
      TraceLine(u"Cannot terminate process %d. Error:%d", id, code);
      // As the trace line leaves it.
      first = first == kSuccess ? platform::LastError() : first;
    }
  }
  return first;
}

// Gives the entry point's result, or the code of what kept it from being called.
std::uint32_t CallEntryPoint(cvn::StringView path, cvn::StringView entrypoint, std::int32_t number,
                             const cvn::String& text) {
  using EntryPoint = std::int32_t (*)(std::int32_t, const char16_t*);
  libraries::Library library;
  const Code code = libraries::Load(path, libraries::kDefaultSearch, &library);
  if (code != kSuccess) {
    return code;
  }
  const libraries::Address address =
      libraries::FindSymbol(library, cvn::WideToUtf8(entrypoint).c_str());
  if (address == nullptr) {
    const Code missing = platform::LastError();
    TraceLine(u"ProcessEntrypoint function not found, err:%d", missing);
    return missing;
  }
  return static_cast<std::uint32_t>(reinterpret_cast<EntryPoint>(address)(number, text.CStr()));
}

}  // namespace

void FunctionWithTimeout::ReportStatus(std::uint32_t status) {
  ReportCode(status);
  if (status == process::kWaitTimeout) {
    error = u"timeout";
  }
}

bool FunctionProcessStart::Parse() {
  const bool hasPath = ReadNonEmpty(u"path", &path_);
  ReadAttribute(u"wkdir", &wkdir_);
  ReadAttribute(u"args", &args_);
  ReadNumber(u"waittime", &waittime_);
  return hasPath;
}

void FunctionProcessStart::Execute() {
  const cvn::String path = ExpandVariables(path_, variables);
  const cvn::String args = ExpandVariables(args_, variables);
  const cvn::String wkdir = ExpandVariables(wkdir_, variables);
  TraceLine(u"processRun function called for '%s' '%s', after wait for %d ms, working-dir as '%s'",
            path, args, waittime_, wkdir);
  ReportStatus(RunProgram(CommandLineOf(path, args), wkdir, waittime_));
  TraceEnd(u"processRun");
}

bool FunctionProcessWait::Parse() {
  cvn::String waittime;
  if (!ReadNonEmpty(u"name", &name_) || !ReadNonEmpty(u"waittime", &waittime)) {
    return false;
  }
  waittime_ = cvn::ReadInt32(waittime);
  return true;
}

void FunctionProcessWait::Execute() {
  const cvn::String wanted = WithSingleBackslashes(ExpandVariables(name_, variables));
  TraceLine(u"processWait function called for '%s', wait %d ms", wanted, waittime_);
  ProcessIds ids;
  if (GatherIds(wanted, &ids)) {
    ReportStatus(WaitForIds(ids, waittime_));
  }
  TraceEnd(u"processWait");
}

bool FunctionProcessKill::Parse() { return ReadNonEmpty(u"name", &name_); }

void FunctionProcessKill::Execute() {
  const cvn::String wanted = WithSingleBackslashes(ExpandVariables(name_, variables));
  TraceLine(u"processKill function called for '%s'", wanted);
  ProcessIds ids;
  if (GatherIds(wanted, &ids)) {
    ReportCode(TerminateIds(ids));
  }
  TraceEnd(u"processKill");
}

bool FunctionProcessImpersonateUser::Parse() {
  return ReadNonEmpty(u"domain", &domain_) && ReadNonEmpty(u"username", &username_) &&
         ReadNonEmpty(u"password", &password_);
}

void FunctionProcessImpersonateUser::Execute() {
  const cvn::WipeReleased wipe;
  const cvn::String domain = ExpandVariables(domain_, variables);
  const cvn::String username = ExpandVariables(username_, variables);
  cvn::String password = ExpandVariables(password_, variables);
  TraceLine(u"processImpersonateUser function called for '%s\\%s'", domain, username);
  ReportStatus(process::Impersonate(username, domain, password));
  password.Wipe();
  TraceEnd(u"processImpersonateUser");
}

void FunctionProcessRevertToSelf::Execute() {
  TraceLine(u"processRevertToSelf function called");
  ReportStatus(process::Revert());
  TraceEnd(u"processRevertToSelf");
}

bool FunctionProcessEntrypoint::Parse() {
  const bool isNamed = ReadNonEmpty(u"path", &path_) && ReadNonEmpty(u"entrypoint", &entrypoint_);
  ReadAttribute(u"dllTextArgument", &dllTextArgument_);
  ReadNumber(u"dllIntArgument", &dllIntArgument_);
  return isNamed;
}

void FunctionProcessEntrypoint::Execute() {
  const cvn::String path = ExpandVariables(path_, variables);
  const cvn::String entrypoint = ExpandVariables(entrypoint_, variables);
  const cvn::String text = ExpandVariables(dllTextArgument_, variables);
  TraceLine(u"ProcessEntrypoint function from dll %s. function:'%s', with arguments: '%s;%d'", path,
            entrypoint, text, dllIntArgument_);
  ReportCode(CallEntryPoint(path, entrypoint, dllIntArgument_, text));
  TraceEnd(u"ProcessEntrypoint");
}

}  // namespace tessel
