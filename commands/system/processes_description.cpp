#include "commands/system/processes.h"
#include "engine/command_description.h"

namespace tessel {
namespace {

constexpr FailureDescription kTimeout = {u"timeout", u"`waittime` ran out"};
constexpr FailureDescription kOther = {u"", u"any other code of the system"};

constexpr AttributeDescription kProcessName = {
    u"name", AttributeForm::Expanded, Presence::NonEmpty,
    u"An executable's name, for those of that name in any folder, or with a backslash in it the "
    u"whole path of one. Case doesn't count; two backslashes count as one, but at the beginning."};

constexpr AttributeDescription kProcessRunAttributes[] = {
    {u"path", AttributeForm::Expanded, Presence::NonEmpty, u"The program."},
    {u"wkdir", AttributeForm::Expanded, Presence::Optional,
     u"The folder that the program starts in. Empty for the run's own."},
    {u"args", AttributeForm::Expanded, Presence::Optional,
     u"The arguments, as a command line has them behind the program."},
    {u"waittime", AttributeForm::Number, Presence::Optional,
     u"How long to wait for the program's end, in milliseconds: `0` not at all, `-1` without a "
     u"limit.",
     u"0"},
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

constexpr AttributeDescription kProcessWaitAttributes[] = {
    kProcessName,
    {u"waittime", AttributeForm::Number, Presence::NonEmpty,
     u"How long to wait, in milliseconds; `-1` without a limit."},
};

constexpr FailureDescription kProcessWaitFailures[] = {
    kTimeout,
    {u"-1", u"the wait itself failed"},
};

constexpr AttributeDescription kProcessKillAttributes[] = {kProcessName};

constexpr FailureDescription kProcessKillFailures[] = {
    {u"5", u"a process may not be ended"},
    {u"", u"any other code of the system, for the first process that couldn't be ended"},
};

constexpr AttributeDescription kProcessImpersonateUserAttributes[] = {
    {u"domain", AttributeForm::Expanded, Presence::NonEmpty,
     u"The user's domain; `.` for the system's own users."},
    {u"username", AttributeForm::Expanded, Presence::NonEmpty, u"The user's name."},
    {u"password", AttributeForm::Expanded, Presence::NonEmpty,
     u"The password. It doesn't show in the trace."},
};

constexpr FailureDescription kProcessImpersonateUserFailures[] = {
    {u"50", u"the system isn't running, so nobody can be logged on"},
    {u"1326", u"there is no such user, or the password is wrong"},
    {u"1327", u"the account may not log on: it has no password, or not at this time"},
    {u"1385", u"the user may not log on at this system"},
    kOther,
};

constexpr FailureDescription kProcessRevertToSelfFailures[] = {
    kOther,
};

constexpr AttributeDescription kProcessEntrypointAttributes[] = {
    {u"path", AttributeForm::Expanded, Presence::NonEmpty, u"The library."},
    {u"entrypoint", AttributeForm::Expanded, Presence::NonEmpty,
     u"The name under which the library exports the function; here case counts."},
    {u"dllTextArgument", AttributeForm::Expanded, Presence::Optional,
     u"The text that the function gets, as its second argument."},
    {u"dllIntArgument", AttributeForm::Number, Presence::Optional,
     u"The number that the function gets, as its first argument.", u"0"},
};

constexpr FailureDescription kProcessEntrypointFailures[] = {
    {u"126", u"there is no such library, or one that it needs is missing"},
    {u"127", u"the library has no such function"},
    {u"193", u"the file is no library of this system"},
    {u"", u"any other code of the system, or what the function returned"},
};

}  // namespace

constinit const CommandDescription FunctionProcessStart::kDescription = {
    .purpose = u"Starts a program, without a window, and waits for its end if asked to.",
    .attributes = kProcessRunAttributes,
    .failures = kProcessRunFailures,
    .notes =
        u"What the program returns is never seen, and nothing of its output. Quotes are put "
        u"around `path`, none around `args`.",
};

constinit const CommandDescription FunctionProcessWait::kDescription = {
    .purpose = u"Waits until the processes of a name have all ended.",
    .attributes = kProcessWaitAttributes,
    .failures = kProcessWaitFailures,
    .notes =
        u"That there is none is a success. At most 64 are waited for at a time, and each such "
        u"batch gets the full `waittime`. Processes that may not be opened are passed over, "
        u"and where the processes can't be listed, there are none.",
};

constinit const CommandDescription FunctionProcessKill::kDescription = {
    .purpose = u"Ends all processes of a name.",
    .attributes = kProcessKillAttributes,
    .failures = kProcessKillFailures,
    .notes =
        u"That there is none is a success. Processes that may not be opened are passed over, "
        u"and where the processes can't be listed, there are none. A process that was ended "
        u"may still be there for a moment: `processWait` sees it off.",
};

constinit const CommandDescription FunctionProcessImpersonateUser::kDescription = {
    .purpose = u"Goes on as another user, until `processRevertToSelf` or the end of the run.",
    .attributes = kProcessImpersonateUserAttributes,
    .failures = kProcessImpersonateUserFailures,
    .notes = u"Programs that `processRun` starts are the run's own user's all the same.",
};

constinit const CommandDescription FunctionProcessRevertToSelf::kDescription = {
    .purpose = u"Goes on as the run's own user.",
    .attributes = {},
    .failures = kProcessRevertToSelfFailures,
    .notes = u"It succeeds, too, when the run went on as nobody else.",
};

constinit const CommandDescription FunctionProcessEntrypoint::kDescription = {
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

}  // namespace tessel
