#include <string>
#include <string_view>

#include "changes/kept_set.h"
#include "platform/streams.h"
#include "support/format.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/json_output.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/machine_turn.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/set_operand.h"
#include "tools/tlx/view_options.h"

namespace tlx {
namespace {

namespace machine = platform::machine;
using platform::Code;
using platform::kSuccess;

constexpr OptionSpec kOptions[] = {
    kMachineOption,
    {u"--dry-run", u"", false, u"Tell whether the set could be taken back, and change nothing"},
    {u"--json", u"", false, u"Print one line of JSON, as docs/undo.schema.json describes it"},
};

constexpr OperandSpec kOperands[] = {
    {u"SET", true, u"The folder that 'tlx apply --undo' has made"},
};

constexpr std::string_view kWasDone = "wasDone";

// What became of it, in the words of the JSON.
struct Outcome {
  int exitCode = kExitBadInput;
  std::string_view result = "refused";
  cvn::List<machine::Conflict> conflicts;
};

// Whether the machine is as it was before the run.
bool IsAsBefore(const tessel::KeptSet& set) {
  cvn::List<machine::Conflict> conflicts;
  return machine::FindConflicts(set.Changes(), &conflicts) == kSuccess && conflicts.empty();
}

void NoteUndone(const Options& options, tessel::KeptSet* set) {
  if (set->PutState(tessel::SetState::Undone) != kSuccess) {
    WarnOfFile(options.Operand(0), u"that it was taken back couldn't be noted there");
  }
}

Outcome Compare(const Options& options, const tessel::KeptSet& set) {
  Outcome outcome;
  const Code code = machine::FindConflicts(machine::Reversed(set.Changes()), &outcome.conflicts);
  if (code != kSuccess) {
    FailOnFile(MachineName(options), DescribeCode(code));
  } else if (outcome.conflicts.empty()) {
    outcome = {kExitDone, "possible", {}};
  }
  return outcome;
}

Outcome TakeBack(const Options& options, tessel::KeptSet* set) {
  CommitOutcome commit;
  Outcome outcome;
  outcome.exitCode = CommitChanges(MachineName(options), machine::Reversed(set->Changes()),
                                   machine::ReversedBytes(*set).get(), &commit);
  outcome.conflicts = commit.conflicts;
  if (commit.isBegun) {
    NoteUndone(options, set);
    outcome.result = outcome.exitCode == kExitDone ? "done" : "begun";
  }
  return outcome;
}

// A set may not say what became of it: its state is noted behind the commit, and an apply, or an
// undo, may have been killed between the two.
Outcome Explain(const Options& options, const Outcome& outcome, tessel::KeptSet* set) {
  if (!IsAsBefore(*set)) {
    return {TellConflicts(MachineName(options), outcome.conflicts), "conflicts", outcome.conflicts};
  }
  if (set->Record().state == tessel::SetState::Rehearsed) {
    return {FailOnFile(options.Operand(0),
                       u"there is nothing to take back: it was never committed, and the machine is "
                       u"as it was before"),
            "neverCommitted",
            {}};
  }
  if (!options.Has(u"--dry-run")) {
    NoteUndone(options, set);
  }
  WarnOfFile(options.Operand(0), u"it was taken back by an undo that was interrupted");
  return {kExitDone, kWasDone, {}};
}

Outcome Judge(const Options& options, tessel::KeptSet* set) {
  if (set->Record().state == tessel::SetState::Undone) {
    return {FailOnFile(options.Operand(0), u"it was taken back already"), kWasDone, {}};
  }
  machine::MachineLock lock;
  if (const int exitCode = HaveMachineAlone(options, &lock); exitCode != kExitDone) {
    return {exitCode, "refused", {}};
  }
  const Outcome outcome =
      options.Has(u"--dry-run") ? Compare(options, *set) : TakeBack(options, set);
  return outcome.conflicts.empty() ? outcome : Explain(options, outcome, set);
}

Json::Value OutcomeJson(const Options& options, const Outcome& outcome) {
  Json::Value document(Json::objectValue);
  document["version"] = 1;
  document["set"] = JsonText(options.Operand(0));
  document["machine"] = JsonText(MachineName(options));
  document["result"] = std::string(outcome.result);
  Json::Value& conflicts = document["conflicts"] = Json::Value(Json::arrayValue);
  for (const machine::Conflict& conflict : outcome.conflicts) {
    Json::Value value(Json::objectValue);
    value["place"] = JsonText(conflict.place);
    value["problem"] = JsonText(conflict.problem);
    conflicts.append(value);
  }
  return document;
}

int Undo(const Options& options) {
  tessel::KeptSet set;
  if (const int exitCode = ReadSet(options.Operand(0), &set); exitCode != kExitDone) {
    return exitCode;
  }
  const Outcome outcome = Judge(options, &set);
  if (options.Has(u"--json")) {
    PrintJson(OutcomeJson(options, outcome));
  } else if (outcome.exitCode == kExitDone && outcome.result != kWasDone) {
    platform::streams::WriteLine(
        platform::streams::Output::Out,
        cvn::Format(options.Has(u"--dry-run") ? u"Could be taken back: %s" : u"Taken back: %s",
                    CountsOf(set.Changes())));
  }
  return outcome.exitCode;
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
