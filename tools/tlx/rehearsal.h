// A run in a view of the machine: how it went, told to the caller in another process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/error.h"
#include "platform/machine_changes.h"
#include "platform/machine_view.h"
#include "support/containers.h"
#include "support/string.h"
#include "tools/tlx/flow_road.h"

namespace tlx {

struct CommandVisits {
  std::size_t line;
  std::size_t column;
  cvn::String name;
  std::uint64_t count;  // how often the run entered it
};

// What the run would do beyond the machine, and what it was told instead.
struct WouldDo {
  cvn::String what;     // "start the program C:\x.exe /q"
  cvn::String command;  // that would do it
  std::size_t line;
  platform::Code answer;
};

// A command that failed, with the error text that handlers saw.
struct FailurePoint {
  cvn::String command;
  std::size_t line;
  cvn::String error;
  bool isHandled = false;  // by a handler of its own, or an onErrorGoTo
};

struct Rehearsal {
  cvn::String patch;          // its path as it was given
  cvn::String machineFolder;  // as the host names it
  platform::machine::ViewKind kind = platform::machine::ViewKind::Overlay;
  std::int32_t exitCode = 0;
  std::string reason;  // of that end, in the report on the run
  // How the run ended when it wasn't by itself; the exit code means nothing then.
  platform::machine::ViewEnd end = platform::machine::ViewEnd::Ended;
  std::optional<FailurePoint> failure;  // the last one
  cvn::List<FailurePoint> failures;     // of each command the first, in the order of the run
  cvn::List<WouldDo> would;             // in the order of the run
  cvn::List<CommandVisits> visits;      // of all commands of the script, in its order
  // How often one command followed another, by their places in `visits`.
  cvn::Map<FlowStep, std::uint64_t> steps;
  std::int64_t startedAt = 0;      // in seconds since 1970 UTC
  std::uint32_t milliseconds = 0;  // that the run took
  bool isRecordWhole = true;       // false where `would` was too much to be kept
  std::string script;              // its text in UTF-8; empty when the run never had it
  std::string trace;               // in UTF-8, without a byte-order mark
  cvn::List<std::string> events;   // that would be sent: JSON, one each
  // Those of a rehearsal are without the run's own trace and events. The code is that of what kept
  // them from being told.
  platform::machine::ChangeSet changes;
  platform::Code changesCode;

  bool IsCutShort() const { return end != platform::machine::ViewEnd::Ended; }
};

// What to run, and in which world.
struct RunRequest {
  cvn::String patch;                  // its full path
  std::optional<std::string> script;  // the text of a script that runs as it is
  cvn::List<cvn::String> variables;   // names and values by turns
  // Whether what reaches beyond the machine is answered and not done. `answers` holds codes by the
  // names of commands; the others succeed.
  bool isRehearsal = true;
  cvn::Map<cvn::String, platform::Code> answers;
  platform::machine::ViewLimits limits;
  // Whether what the run writes to standard output goes to standard error, since the caller's own
  // output is for programs.
  bool sparesOutput = false;
};

// Runs what `request` names in the view, once for each view, and tells of it. The code of what kept
// the run from its start.
platform::Code RunInView(const RunRequest& request, platform::machine::View* view,
                         Rehearsal* rehearsal);

// The code that a number, or a word that scripts see in place of one, stands for; nothing for
// others.
std::optional<platform::Code> AnswerCode(cvn::StringView error);
// Whether a command of this name can reach beyond the machine.
bool ReachesBeyond(cvn::StringView command);

}  // namespace tlx
