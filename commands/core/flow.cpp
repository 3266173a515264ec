// Commands that steer a run or talk about it.
#include <optional>

#include "commands/common/families.h"
#include "engine/command_declaration.h"
#include "engine/script_engine.h"
#include "engine/variable_store.h"
#include "platform/clock.h"
#include "platform/streams.h"
#include "trace/trace.h"

namespace tessel {
namespace {

using platform::streams::Output;

struct FunctionExit : FunctionRetExit {
  void Execute() override { TraceLine(u"Exit function called with exitcode %d", exitCode); }
};

constexpr AttributeDescription kExitAttributes[] = {
    Number<&FunctionExit::exitCode>(u"code", Presence::Optional,
                                    u"The code that the script ends with.", u"0"),
};

constexpr CommandDescription kExit = {
    .purpose = u"Ends the script.",
    .attributes = kExitAttributes,
    .notes =
        u"The program's own exit code is that number made negative: `5` and `-5` both give "
        u"-5. A script that runs off its end gives -1.",
};

// The run loop jumps by itself, to the target that it has from the element.
struct FunctionGoTo : FunctionBase {
  void Execute() override {}
};

constexpr AttributeDescription kGoToAttributes[] = {
    {u"target", AttributeForm::Label, Presence::Required,
     u"The `id` of the command to go on with. Empty, it ends the script with -1."},
};

constexpr CommandDescription kGoTo = {
    .purpose = u"Jumps to a command, into or out of handlers too.",
    .attributes = kGoToAttributes,
    .notes =
        u"From a handler that was jumped into, the run goes on behind the handler's owner, as "
        u"if it had been entered.",
};

// Counts from this point of the run on, for failures that no handler takes.
struct FunctionOnErrorGoTo : FunctionBase {
  void Execute() override { OnErrorTarget() = target; }

  cvn::String target;
};

constexpr AttributeDescription kOnErrorGoToAttributes[] = {
    Label<&FunctionOnErrorGoTo::target>(
        u"target", Presence::Required,
        u"The `id` of the command to go on with after a failure. Empty, failures jump nowhere any "
        u"more."),
};

constexpr CommandDescription kOnErrorGoTo = {
    .purpose = u"From here on, lets failures that no handler takes jump to a command.",
    .attributes = kOnErrorGoToAttributes,
    .notes =
        u"It counts from the moment that it runs, until another one does. Conditions don't "
        u"fail, so they never jump.",
};

struct FunctionNothing : FunctionBase {
  void Execute() override { TraceLine(u"Executing 'nothing' function"); }
};

constexpr CommandDescription kNothing = {
    .purpose = u"Does nothing. It carries a label, or is a handler's only command.",
    .attributes = {},
};

struct FunctionSleep : FunctionBase {
  void Execute() override {
    TraceLine(u"Sleep function called: %d ms.", milliseconds);
    platform::clock::Sleep(static_cast<std::uint32_t>(milliseconds));
  }

  std::int32_t milliseconds;
};

constexpr AttributeDescription kSleepAttributes[] = {
    Number<&FunctionSleep::milliseconds>(u"milisec", Presence::Required,
                                         u"How long to wait, in milliseconds."),
};

constexpr CommandDescription kSleep = {
    .purpose = u"Waits.",
    .attributes = kSleepAttributes,
    .notes = u"A negative number waits for weeks, and `-1` for ever.",
};

struct FunctionTrace : FunctionBase {
  void Execute() override;

  cvn::String value;
  std::optional<Output> stream;
};

void FunctionTrace::Execute() {
  // A reader of the stream, such as a parent process, gets this long to take the text in.
  constexpr std::uint32_t kReaderPause = 50;
  const cvn::String text = ExpandVariables(value, variables);
  if (!stream) {
    TraceLine(u"Trace: %s", text);
    return;
  }
  platform::streams::WriteLine(*stream, text);
  platform::clock::Sleep(kReaderPause);
  TraceLine(u"Trace [%s]: %s", *stream == Output::Error ? u"stderr" : u"stdout", text);
}

constexpr Word<Output> kStreams[] = {{u"out", Output::Out}, {u"err", Output::Error}};

constexpr AttributeDescription kTraceAttributes[] = {
    Expanded<&FunctionTrace::value>(u"value", Presence::Optional, u"The text."),
    OptionalChoice<&FunctionTrace::stream, kStreams>(
        u"std",
        u"The standard stream that the text goes to as well: output or error. Any other word means "
        u"none."),
};

constexpr CommandDescription kTrace = {
    .purpose = u"Writes a text to the trace, and to a standard stream if asked.",
    .attributes = kTraceAttributes,
    .notes =
        u"After a text for a stream it pauses for 50 milliseconds, so that a reader gets it "
        u"in time.",
};

struct FunctionTraceSetFile : FunctionRetError {
  void Execute() override { TraceLine(u"TraceSetFile skipped."); }
};

constexpr CommandDescription kTraceSetFile = {
    .purpose = u"Retired: does nothing, and never fails.",
    .attributes = {},
    .notes = u"The attribute `log` of `script` names the trace's file.",
};

constexpr CommandRecord kCommands[] = {
    Command<FunctionExit>(u"exit", kExit),
    Command<FunctionGoTo>(u"goto", kGoTo),
    Command<FunctionOnErrorGoTo>(u"onErrorGoTo", kOnErrorGoTo),
    Command<FunctionNothing>(u"nothing", kNothing),
    Command<FunctionSleep>(u"sleep", kSleep),
    Command<FunctionTrace>(u"trace", kTrace),
    Command<FunctionTraceSetFile>(u"traceSetFile", kTraceSetFile),
};

}  // namespace

constinit const CommandFamily kFlowFamily = {
    .title = u"Flow and trace",
    .introduction =
        uR"md(
What steers a run, and what tells of it.
)md",
    .commands = kCommands,
    .keepsToRegistry = true,
};

}  // namespace tessel
