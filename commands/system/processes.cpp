// Commands that start, wait for and end programs, change who the run is, and call into a library.
#include <span>

#include "commands/common/families.h"
#include "engine/command_declaration.h"
#include "engine/variable_store.h"
#include "platform/libraries.h"
#include "platform/name_fold.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "platform/rehearsal.h"
#include "support/containers.h"
#include "support/format.h"
#include "support/utf.h"
#include "trace/trace.h"

namespace tessel {
namespace {

namespace libraries = platform::libraries;
namespace process = platform::process;
namespace rehearsal = platform::rehearsal;
using platform::Code;
using platform::kSuccess;
using platform::paths::FoldName;

using ProcessIds = cvn::List<std::uint32_t>;

constexpr FailureDescription kOther = {u"", u"any other code of the system"};

// A command whose failure may be that a time ran out.
struct FunctionWithTimeout : FunctionRetError {
  // As ReportCode, with a word for that failure.
  void ReportStatus(std::uint32_t status) {
    ReportCode(status);
    if (status == process::kWaitTimeout) {
      error = u"timeout";
    }
  }
};

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
  if (code != kSuccess || waittime == 0) {
    return code;
  }
  return process::Wait(started, static_cast<std::uint32_t>(waittime));
}

// Starts a program, and waits for its end for up to `waittime` milliseconds; not at all when that
// is 0, and without a limit when it is -1.
struct FunctionProcessStart : FunctionWithTimeout {
  void Execute() override;

  cvn::String path;
  cvn::String wkdir;
  cvn::String args;
  std::int32_t waittime;
};

void FunctionProcessStart::Execute() {
  const cvn::String program = ExpandVariables(path, variables);
  const cvn::String arguments = ExpandVariables(args, variables);
  const cvn::String folder = ExpandVariables(wkdir, variables);
  TraceLine(u"processRun function called for '%s' '%s', after wait for %d ms, working-dir as '%s'",
            program, arguments, waittime, folder);
  ReportStatus(RunProgram(CommandLineOf(program, arguments), folder, waittime));
  TraceEnd(u"processRun");
}

constexpr AttributeDescription kProcessRunAttributes[] = {
    Expanded<&FunctionProcessStart::path>(u"path", Presence::NonEmpty, u"The program."),
    Naming(Expanded<&FunctionProcessStart::wkdir>(
               u"wkdir", Presence::Optional,
               u"The folder that the program starts in. Empty for the run's own."),
           Subject::Folder, Use::Read),
    Naming(Following(Expanded<&FunctionProcessStart::args>(
                         u"args", Presence::Optional,
                         u"The arguments, as a command line has them behind the program."),
                     u"path", u" "),
           Subject::Program, Use::Run),
    Number<&FunctionProcessStart::waittime>(
        u"waittime", Presence::Optional,
        u"How long to wait for the program's end, in milliseconds: `0` not at all, `-1` without a "
        u"limit.",
        u"0"),
};

constexpr FailureDescription kProcessRunFailures[] = {
    {u"timeout", u"`waittime` ran out; the program runs on"},
    {u"2", u"there is no such program"},
    {u"3", u"there is no such program, as a folder of its path is missing"},
    {u"5", u"the program may not be run, or is a folder"},
    {u"193", u"the file is no program of this system"},
    {u"206", u"the command line has 32,767 characters or more"},
    {u"267", u"`wkdir` is no folder"},
    {u"740", u"the program has to be run as an administrator"},
    {u"-1", u"the wait itself failed"},
    kOther,
};

constexpr CommandDescription kProcessRun = {
    .purpose = u"Starts a program, without a window, and waits for its end if asked to.",
    .attributes = kProcessRunAttributes,
    .failures = kProcessRunFailures,
    .notes =
        u"What the program returns is never seen, and nothing of its output. Quotes are put "
        u"around `path`, none around `args`.",
};

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

// `path` is folded.
bool HasMainModule(std::uint32_t id, cvn::StringView path) {
  cvn::String module;
  return process::MainModulePath(id, &module) == kSuccess && FoldName(module) == path;
}

// The processes of a name: of an executable in any folder or, with a backslash in it, of the one at
// that path. False when there is no list of processes to be had.
bool GatherIds(cvn::StringView name, ProcessIds* ids) {
  cvn::List<process::Entry> entries;
  process::ListStep failedStep;
  if (process::List(&entries, &failedStep) != kSuccess) {
    return false;
  }
  const cvn::String folded = FoldName(name);
  const bool isPath = name.find(u'\\') != cvn::StringView::npos;
  const cvn::StringView executable =
      isPath ? platform::paths::FindFileName(folded) : folded.AsView();
  for (const process::Entry& entry : entries) {
    if (FoldName(entry.executable) == executable && (!isPath || HasMainModule(entry.id, folded))) {
      ids->push_back(entry.id);
    }
  }
  return true;
}

template <typename Class, Use kUse>
constexpr AttributeDescription kProcesses =
    Naming(Expanded<&Class::processes>(u"name", Presence::NonEmpty,
                                       u"An executable's name, for those of that name in any "
                                       u"folder, or with a backslash in it the "
                                       u"whole path of one. Case doesn't count; two backslashes "
                                       u"count as one, but at the beginning."),
           Subject::Process, kUse);

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

// Waits for all processes of a name, or of a path, to end. They are waited for in batches as large
// as the platform takes, and each batch gets the full time.
struct FunctionProcessWait : FunctionWithTimeout {
  void Execute() override;

  cvn::String processes;
  std::int32_t waittime;
};

void FunctionProcessWait::Execute() {
  const cvn::String wanted = WithSingleBackslashes(ExpandVariables(processes, variables));
  TraceLine(u"processWait function called for '%s', wait %d ms", wanted, waittime);
  ProcessIds ids;
  if (GatherIds(wanted, &ids)) {
    ReportStatus(WaitForIds(ids, waittime));
  }
  TraceEnd(u"processWait");
}

constexpr AttributeDescription kProcessWaitAttributes[] = {
    kProcesses<FunctionProcessWait, Use::Read>,
    Number<&FunctionProcessWait::waittime>(
        u"waittime", Presence::NonEmpty,
        u"How long to wait, in milliseconds; `-1` without a limit."),
};

constexpr FailureDescription kProcessWaitFailures[] = {
    {u"timeout", u"`waittime` ran out"},
    {u"-1", u"the wait itself failed"},
};

constexpr CommandDescription kProcessWait = {
    .purpose = u"Waits until the processes of a name have all ended.",
    .attributes = kProcessWaitAttributes,
    .failures = kProcessWaitFailures,
    .notes =
        u"That there is none is a success. At most 64 are waited for at a time, and each such "
        u"batch gets the full `waittime`. Processes that may not be opened are passed over, "
        u"and where the processes can't be listed, there are none.",
};

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

// Ends all processes of a name, or of a path.
struct FunctionProcessKill : FunctionRetError {
  void Execute() override;

  cvn::String processes;
};

void FunctionProcessKill::Execute() {
  const cvn::String wanted = WithSingleBackslashes(ExpandVariables(processes, variables));
  TraceLine(u"processKill function called for '%s'", wanted);
  ProcessIds ids;
  if (GatherIds(wanted, &ids)) {
    ReportCode(TerminateIds(ids));
  }
  TraceEnd(u"processKill");
}

constexpr AttributeDescription kProcessKillAttributes[] = {
    kProcesses<FunctionProcessKill, Use::Stop>};

constexpr FailureDescription kProcessKillFailures[] = {
    {u"5", u"a process may not be ended"},
    {u"", u"any other code of the system, for the first process that couldn't be ended"},
};

constexpr CommandDescription kProcessKill = {
    .purpose = u"Ends all processes of a name.",
    .attributes = kProcessKillAttributes,
    .failures = kProcessKillFailures,
    .notes =
        u"That there is none is a success. Processes that may not be opened are passed over, "
        u"and where the processes can't be listed, there are none. A process that was ended "
        u"may still be there for a moment: `processWait` sees it off.",
};

struct FunctionProcessImpersonateUser : FunctionWithTimeout {
  void Execute() override;

  cvn::String domain;
  cvn::String username;
  cvn::String password;
};

void FunctionProcessImpersonateUser::Execute() {
  const cvn::WipeReleased wipe;
  const cvn::String authority = ExpandVariables(domain, variables);
  const cvn::String user = ExpandVariables(username, variables);
  cvn::String secret = ExpandVariables(password, variables);
  TraceLine(u"processImpersonateUser function called for '%s\\%s'", authority, user);
  ReportStatus(process::Impersonate(user, authority, secret));
  secret.Wipe();
  TraceEnd(u"processImpersonateUser");
}

constexpr AttributeDescription kProcessImpersonateUserAttributes[] = {
    Expanded<&FunctionProcessImpersonateUser::domain>(
        u"domain", Presence::NonEmpty, u"The user's domain; `.` for the system's own users."),
    Naming(Following(Expanded<&FunctionProcessImpersonateUser::username>(
                         u"username", Presence::NonEmpty, u"The user's name."),
                     u"domain"),
           Subject::User, Use::Become),
    Expanded<&FunctionProcessImpersonateUser::password>(
        u"password", Presence::NonEmpty, u"The password. It doesn't show in the trace."),
};

constexpr FailureDescription kProcessImpersonateUserFailures[] = {
    {u"50", u"the system isn't running, so nobody can be logged on"},
    {u"1326", u"there is no such user, or the password is wrong"},
    {u"1327", u"the account may not log on: it has no password, or not at this time"},
    {u"1385", u"the user may not log on at this system"},
    kOther,
};

constexpr CommandDescription kProcessImpersonateUser = {
    .purpose = u"Goes on as another user, until `processRevertToSelf` or the end of the run.",
    .attributes = kProcessImpersonateUserAttributes,
    .failures = kProcessImpersonateUserFailures,
    .notes = u"Programs that `processRun` starts are the run's own user's all the same.",
};

struct FunctionProcessRevertToSelf : FunctionWithTimeout {
  void Execute() override {
    TraceLine(u"processRevertToSelf function called");
    ReportStatus(process::Revert());
    TraceEnd(u"processRevertToSelf");
  }
};

constexpr FailureDescription kProcessRevertToSelfFailures[] = {kOther};

constexpr CommandDescription kProcessRevertToSelf = {
    .purpose = u"Goes on as the run's own user.",
    .attributes = {},
    .failures = kProcessRevertToSelfFailures,
    .notes = u"It succeeds, too, when the run went on as nobody else.",
    .fixedSubject = {Subject::User, Use::Become, u"the run's own user"},
};

// Gives the entry point's result, or the code of what kept it from being called.
std::uint32_t CallEntryPoint(cvn::StringView path, cvn::StringView entrypoint, std::int32_t number,
                             const cvn::String& text) {
  using EntryPoint = std::int32_t (*)(std::int32_t, const char16_t*);
  if (rehearsal::IsOn()) {
    return rehearsal::Answer(rehearsal::Action::CallLibrary,
                             cvn::Format(u"%s, %s", path, entrypoint));
  }
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

// Calls a function of a library: std::int32_t (*)(std::int32_t, const char16_t*) in the platform's
// default calling convention, with 0 for success. The text is zero-ended and never null.
struct FunctionProcessEntrypoint : FunctionRetError {
  void Execute() override;

  cvn::String path;
  cvn::String entrypoint;
  cvn::String dllTextArgument;
  std::int32_t dllIntArgument;
};

void FunctionProcessEntrypoint::Execute() {
  const cvn::String library = ExpandVariables(path, variables);
  const cvn::String function = ExpandVariables(entrypoint, variables);
  const cvn::String text = ExpandVariables(dllTextArgument, variables);
  TraceLine(u"ProcessEntrypoint function from dll %s. function:'%s', with arguments: '%s;%d'",
            library, function, text, dllIntArgument);
  ReportCode(CallEntryPoint(library, function, dllIntArgument, text));
  TraceEnd(u"ProcessEntrypoint");
}

constexpr AttributeDescription kProcessEntrypointAttributes[] = {
    Expanded<&FunctionProcessEntrypoint::path>(u"path", Presence::NonEmpty, u"The library."),
    Naming(
        Following(Expanded<&FunctionProcessEntrypoint::entrypoint>(
                      u"entrypoint", Presence::NonEmpty,
                      u"The name under which the library exports the function; here case counts."),
                  u"path", u"!"),
        Subject::Library, Use::Run),
    Expanded<&FunctionProcessEntrypoint::dllTextArgument>(
        u"dllTextArgument", Presence::Optional,
        u"The text that the function gets, as its second argument."),
    Number<&FunctionProcessEntrypoint::dllIntArgument>(
        u"dllIntArgument", Presence::Optional,
        u"The number that the function gets, as its first argument.", u"0"),
};

constexpr FailureDescription kProcessEntrypointFailures[] = {
    {u"126", u"there is no such library, or one that it needs is missing"},
    {u"127", u"the library has no such function"},
    {u"193", u"the file is no library of this system"},
    {u"", u"any other code of the system, or what the function returned"},
};

constexpr CommandDescription kProcessEntrypoint = {
    .purpose =
        u"Calls a function of a library: it gets a number and a text, and what it returns "
        u"is the error, 0 for none.",
    .attributes = kProcessEntrypointAttributes,
    .failures = kProcessEntrypointFailures,
    .notes =
        u"The function has the form `int32_t f(int32_t number, const char16_t* text)`, in the "
        u"system's default calling convention. The text is zero-ended and never null. Nothing "
        u"limits the time that it takes, or what it does to the run. In the trace the command "
        u"goes by `ProcessEntrypoint`.",
};

constexpr CommandRecord kCommands[] = {
    Command<FunctionProcessStart>(u"processRun", kProcessRun),
    Command<FunctionProcessWait>(u"processWait", kProcessWait),
    Command<FunctionProcessKill>(u"processKill", kProcessKill),
    Command<FunctionProcessImpersonateUser>(u"processImpersonateUser", kProcessImpersonateUser),
    Command<FunctionProcessRevertToSelf>(u"processRevertToSelf", kProcessRevertToSelf),
    Command<FunctionProcessEntrypoint>(u"processEntrypoint", kProcessEntrypoint),
};

}  // namespace

constinit const CommandFamily kProgramsFamily = {
    .title = u"Programs",
    .introduction =
        uR"md(
On Linux the processes are those of the host, and nothing of the machine's Windows runs. `processRun` starts programs of
the host, and gives `193` for a Windows program unless the host can run one; a patch that has to succeed there too
handles `193`. `193` is also what everything on `C:` gives, for `processEntrypoint` as well, except the files of the patch
in `%scriptdir%`: the volume that is being serviced may be infected. A file needs its permissions to be executed and
read (`5`). `args` is split as Windows programs split it, and
passed on as it is: a program of the host doesn't know paths like `C:\x`, so set `wkdir` and use relative ones. It has
the host's environment, in `TESSEL_MACHINE` the folder that is `C:`, and in `PATH` Tessel's own folder, `/usr/sbin`,
`/usr/bin`, `/sbin` and `/bin`; the caller's `PATH` is in `CVN_AMS_OLD_PATH`, as on Windows. A bare name in `path` is
looked for as on Windows too, so not in the host's folders. A killed program ends by a signal, and so has no exit code.
A script's process goes by the name of its interpreter. `processImpersonateUser` fails with `50`.
)md",
    .commands = kCommands,
};

}  // namespace tessel
