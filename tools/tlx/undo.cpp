#include "changes/kept_set.h"
#include "platform/streams.h"
#include "support/format.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/machine_turn.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/set_operand.h"
#include "tools/tlx/view_options.h"

namespace tlx {
namespace {

namespace machine = platform::machine;

constexpr OptionSpec kOptions[] = {kMachineOption};

constexpr OperandSpec kOperands[] = {
    {u"SET", true, u"The folder that 'tlx apply --undo' has made"},
};

int Undo(const Options& options) {
  tessel::KeptSet set;
  int exitCode = ReadSet(options.Operand(0), &set);
  if (exitCode != kExitDone) {
    return exitCode;
  }
  if (set.Record().state == tessel::SetState::Undone) {
    return FailOnFile(options.Operand(0), u"it was taken back already");
  }
  machine::MachineLock lock;
  exitCode = HaveMachineAlone(options, &lock);
  if (exitCode != kExitDone) {
    return exitCode;
  }
  bool isBegun = false;
  exitCode = CommitChanges(MachineName(options), machine::Reversed(set.Changes()),
                           machine::ReversedBytes(set).get(), &isBegun);
  if (isBegun && set.PutState(tessel::SetState::Undone) != platform::kSuccess) {
    WarnOfFile(options.Operand(0), u"that it was taken back couldn't be noted there");
  }
  if (exitCode == kExitDone) {
    platform::streams::WriteLine(platform::streams::Output::Out,
                                 cvn::Format(u"Taken back: %s", CountsOf(set.Changes())));
  }
  return exitCode;
}

}  // namespace

const CommandSpec kUndoCommand = {
    u"undo",
    u"Take back what 'tlx apply --undo' has committed",
    u"Gives the machine back as it was before: files with attributes, permissions, times and hard "
    u"links, and the\n"
    u"keys of the registry. Where it isn't as the set left it each conflict is named, and nothing "
    u"changes. If it is\n"
    u"interrupted, the next run, 'tlx apply', 'tlx undo' or 'tlx machine check' ends it. Not on "
    u"Windows.\n",
    kOptions,
    Undo,
    kOperands,
};

}  // namespace tlx
