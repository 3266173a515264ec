#include "commands/core/flow.h"
#include "engine/command_description.h"

namespace tessel {
namespace {

constexpr AttributeDescription kExitAttributes[] = {
    {u"code", AttributeForm::Number, Presence::Optional, u"The code that the script ends with.",
     u"0"},
};

constexpr AttributeDescription kGoToAttributes[] = {
    {u"target", AttributeForm::Label, Presence::Required,
     u"The `id` of the command to go on with. Empty, it ends the script with -1."},
};

constexpr AttributeDescription kOnErrorGoToAttributes[] = {
    {u"target", AttributeForm::Label, Presence::Required,
     u"The `id` of the command to go on with after a failure. Empty, failures jump nowhere any "
     u"more."},
};

constexpr AttributeDescription kSleepAttributes[] = {
    {u"milisec", AttributeForm::Number, Presence::Required, u"How long to wait, in milliseconds."},
};

constexpr cvn::StringView kStreams[] = {u"out", u"err"};

constexpr AttributeDescription kTraceAttributes[] = {
    {u"value", AttributeForm::Expanded, Presence::Optional, u"The text."},
    {
        .name = u"std",
        .form = AttributeForm::Choice,
        .presence = Presence::Optional,
        .meaning = u"The standard stream that the text goes to as well: output or error. Any other "
                   u"word means none.",
        .choices = kStreams,
    },
};

}  // namespace

constinit const CommandDescription FunctionExit::kDescription = {
    .purpose = u"Ends the script.",
    .attributes = kExitAttributes,
    .notes =
        u"The program's own exit code is that number made negative: `5` and `-5` both give "
        u"-5. A script that runs off its end gives -1.",
};

constinit const CommandDescription FunctionNothing::kDescription = {
    .purpose = u"Does nothing. It carries a label, or is a handler's only command.",
    .attributes = {},
};

constinit const CommandDescription FunctionGoTo::kDescription = {
    .purpose = u"Jumps to a command, into or out of handlers too.",
    .attributes = kGoToAttributes,
    .notes =
        u"From a handler that was jumped into, the run goes on behind the handler's owner, as "
        u"if it had been entered.",
};

constinit const CommandDescription FunctionOnErrorGoTo::kDescription = {
    .purpose = u"From here on, lets failures that no handler takes jump to a command.",
    .attributes = kOnErrorGoToAttributes,
    .notes =
        u"It counts from the moment that it runs, until another one does. Conditions don't "
        u"fail, so they never jump.",
};

constinit const CommandDescription FunctionSleep::kDescription = {
    .purpose = u"Waits.",
    .attributes = kSleepAttributes,
    .notes = u"A negative number waits for weeks, and `-1` for ever.",
};

constinit const CommandDescription FunctionTrace::kDescription = {
    .purpose = u"Writes a text to the trace, and to a standard stream if asked.",
    .attributes = kTraceAttributes,
    .notes =
        u"After a text for a stream it pauses for 50 milliseconds, so that a reader gets it "
        u"in time.",
};

constinit const CommandDescription FunctionTraceSetFile::kDescription = {
    .purpose = u"Retired: does nothing, and never fails.",
    .attributes = {},
    .notes = u"The attribute `log` of `script` names the trace's file.",
};

}  // namespace tessel
