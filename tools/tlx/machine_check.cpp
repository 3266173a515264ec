#include "launcher/machine_check.h"

#include <json/value.h>

#include <optional>

#include "platform/catalogs.h"
#include "platform/machine.h"
#include "platform/streams.h"
#include "platform/volume_state.h"
#include "support/format.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/hive_state.h"
#include "tools/tlx/json_output.h"
#include "tools/tlx/machine_facts.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/messages.h"
#include "trust/product.h"

namespace tlx {
namespace {

namespace machine = platform::machine;

constexpr OptionSpec kOptions[] = {
    {u"--json", u"", false, u"Print one line of JSON"},
};

constexpr OperandSpec kOperands[] = {
    {u"DIR", true, u"The machine's folder"},
};

constexpr cvn::StringView kUnknown = u"unknown";

// All that an administrator wants to know before a run.
struct MachineState {
  cvn::String folder;
  cvn::StringView interrupted;                // what became of an interrupted commit
  std::optional<tessel::MachineFault> fault;  // why a run would be refused
  cvn::List<cvn::String> warnings;            // why one would be unwise
  cvn::String windows = kUnknown;
  cvn::String version = kUnknown;
  cvn::String build = kUnknown;
  machine::VolumeState volume;
  cvn::List<HiveState> hives;
  cvn::List<cvn::String> pendingMoves;
  cvn::String installFolder = kUnknown;

  bool IsFit() const { return !fault && warnings.empty(); }
};

cvn::String DescribeHive(const HiveState& hive) {
  if (hive.code != platform::kSuccess) {
    return cvn::Format(u"can't be read: %s", DescribeCode(hive.code));
  }
  if (hive.damagedAt) {
    return cvn::Format(u"damaged at byte %llu", *hive.damagedAt);
  }
  const cvn::String format = cvn::Format(u"format %u.%u", hive.majorVersion, hive.minorVersion);
  return hive.isClean ? cvn::Format(u"%s, clean", format)
                      : cvn::Format(u"%s, not written to the end, changes in its logs: %u", format,
                                    hive.pendingEntries);
}

void LookAtHives(MachineState* state) {
  for (const cvn::String& path : HivesOfMachine()) {
    const HiveState& hive = state->hives.emplace_back(LookAtHive(path));
    if (!hive.IsUsable()) {
      state->warnings.push_back(cvn::Format(u"the hive %s is %s", Printable(path),
                                            hive.damagedAt ? u"damaged" : u"unreadable"));
    } else if (!hive.isClean && hive.pendingEntries == 0) {
      state->warnings.push_back(
          cvn::Format(u"the hive %s wasn't written to its end, and no log has the rest: changes to "
                      u"it will fail with 1009; start that Windows and shut it down by "
                      u"'shutdown /s'",
                      Printable(path)));
    }
  }
}

MachineState LookAt(cvn::StringView folder, const tessel::MachineOpening& opened) {
  MachineState state;
  state.folder = folder;
  state.interrupted = tessel::WordsOf(opened.found);
  state.fault = tessel::FindMachineFault(opened, state.folder);
  if (opened.code != platform::kSuccess) {
    return state;
  }
  // Where it fails, the fault tells.
  platform::IgnoreError(machine::LookAtVolume(&state.volume));
  LookAtHives(&state);
  state.windows = MachineText(kVersionKey, u"ProductName");
  state.version = VersionText();
  state.build = MachineText(kVersionKey, u"CurrentBuild");
  state.pendingMoves = PendingMoves();
  state.installFolder = MachineText(tessel::product::kUninstallKey, u"InstallLocation");
  if (!state.fault && !platform::catalogs::GetSupport()) {
    state.fault = tessel::UnknownVersionFault(state.folder);
  }
  if (state.installFolder == kUnknown) {
    state.warnings.push_back(u"the product isn't installed there");
  }
  return state;
}

Json::Value HiveJson(const HiveState& hive) {
  Json::Value value(Json::objectValue);
  value["path"] = JsonText(hive.path);
  value["code"] = Json::UInt(hive.code);
  value["format"] = JsonText(cvn::Format(u"%u.%u", hive.majorVersion, hive.minorVersion));
  value["isClean"] = hive.isClean;
  value["pendingEntries"] = hive.pendingEntries;
  if (hive.damagedAt) {
    value["damagedAt"] = Json::UInt64(*hive.damagedAt);
  }
  return value;
}

Json::Value MachineJson(const MachineState& state) {
  Json::Value document(Json::objectValue);
  document["version"] = 1;
  document["machine"] = JsonText(state.folder);
  document["isFit"] = state.IsFit();
  document["exitCode"] = state.fault ? state.fault->exitCode : 0;
  document["refusal"] = state.fault ? JsonText(state.fault->words) : Json::Value("");
  document["interrupted"] = JsonText(state.interrupted);
  document["warnings"] = JsonTexts(state.warnings);
  document["windows"]["name"] = JsonText(state.windows);
  document["windows"]["version"] = JsonText(state.version);
  document["windows"]["build"] = JsonText(state.build);
  document["volume"]["isHibernated"] = state.volume.isHibernated;
  document["volume"]["isReadOnly"] = state.volume.isReadOnly;
  document["volume"]["freeBytes"] = Json::UInt64(state.volume.freeBytes);
  document["hives"] = Json::Value(Json::arrayValue);
  for (const HiveState& hive : state.hives) {
    document["hives"].append(HiveJson(hive));
  }
  document["pendingMoves"] = JsonTexts(state.pendingMoves);
  document["installFolder"] = JsonText(state.installFolder);
  return document;
}

void PrintState(const MachineState& state) {
  const auto row = [](cvn::StringView title, cvn::StringView text) {
    platform::streams::WriteLine(platform::streams::Output::Out,
                                 cvn::Format(u"%-16s%s", title, text));
  };
  if (!state.interrupted.empty()) {
    row(u"Interrupted:", state.interrupted);
  }
  row(u"Windows:",
      cvn::Format(u"%s, version %s, build %s", state.windows, state.version, state.build));
  row(u"Hibernated:", state.volume.isHibernated ? u"yes" : u"no");
  row(u"Mounted:", state.volume.isReadOnly ? u"read-only" : u"for writing");
  row(u"Free:", cvn::Format(u"%llu MiB", state.volume.freeBytes >> 20));
  for (const HiveState& hive : state.hives) {
    row(u"Hive:", cvn::Format(u"%s: %s", Printable(hive.path), DescribeHive(hive)));
  }
  for (const cvn::String& move : state.pendingMoves) {
    row(u"After reboot:", move);
  }
  row(u"Install folder:", state.installFolder);
  for (const cvn::String& warning : state.warnings) {
    row(u"Unwise:", warning);
  }
  if (state.fault) {
    row(u"Refused:", cvn::Format(u"%s (%d)", state.fault->words, state.fault->exitCode));
  } else if (state.IsFit()) {
    row(u"Result:", u"nothing stands in the way of a run");
  }
}

int CheckMachine(const Options& options) {
  const cvn::StringView folder = options.Operand(0);
  const platform::Code opened = machine::Use(folder);
  if (opened == platform::kNotSupported) {
    return FailOnFile(folder, kNoMachinesHere);
  }
  machine::MachineLock lock;
  const MachineState state =
      LookAt(folder, opened == platform::kSuccess ? tessel::ShareOpenedMachine(&lock)
                                                  : tessel::MachineOpening(opened));
  if (options.Has(u"--json")) {
    PrintJson(MachineJson(state));
  } else {
    PrintState(state);
  }
  return state.IsFit() ? kExitDone : kExitBadInput;
}

}  // namespace

const CommandSpec kMachineCheckCommand = {
    u"machine check",
    u"Tell whether a machine is fit to be serviced",
    u"Tells which Windows a machine folder holds, whether it is hibernated or mounted read-only, "
    u"how much\n"
    u"room it has, the state of each hive, what its next boot would do to its files, and where "
    u"the\n"
    u"product is. The exit code is 0 only when a run would neither be refused nor be unwise; what "
    u"stands\n"
    u"in the way is told. An interrupted 'tlx apply' or 'tlx undo' is finished; else nothing is "
    u"changed.\n",
    kOptions,
    CheckMachine,
    kOperands,
};

}  // namespace tlx
