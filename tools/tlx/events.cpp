#include <algorithm>
#include <array>

#include "platform/clock.h"
#include "platform/machine.h"
#include "platform/paths.h"
#include "platform/streams.h"
#include "support/format.h"
#include "support/utf.h"
#include "telemetry/event_spool.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/spooled_event.h"

namespace tlx {
namespace {

using platform::streams::Output;

constexpr OptionSpec kOptions[] = {
    {u"--json", u"", false, u"Print each event as a line of JSON, as it is spooled"},
};

constexpr OperandSpec kOperands[] = {
    {u"DIR", false, u"A machine's folder, or a folder with events; without it, this machine"},
};

constexpr cvn::StringView kThisMachine = u"this machine";

using Row = std::array<cvn::String, 5>;

cvn::String TimeText(std::int64_t milliseconds) {
  const platform::clock::LocalTime time = platform::clock::ToLocalTime(milliseconds / 1000);
  return cvn::Format(u"%04d-%02d-%02d %02d:%02d:%02d", time.year, time.month, time.day, time.hour,
                     time.minute, time.second);
}

void PrintTable(const cvn::List<SpooledEvent>& events) {
  cvn::List<Row> rows = {{u"TIME", u"EVENT", u"PATCH", u"REASON", u"CODE"}};
  for (const SpooledEvent& event : events) {
    rows.push_back({TimeText(event.time), Printable(event.name), Printable(event.patchId),
                    Printable(event.reason), cvn::Format(u"%lld", event.code)});
  }
  std::array<std::size_t, 5> widths{};
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], row[i].Length());
    }
  }
  for (const Row& row : rows) {
    cvn::String line;
    for (std::size_t i = 0; i + 1 < row.size(); ++i) {
      line.Append(row[i]);
      for (std::size_t blanks = widths[i] + 2 - row[i].Length(); blanks > 0; --blanks) {
        line.Append(u' ');
      }
    }
    line.Append(row.back());
    platform::streams::WriteLine(Output::Out, line);
  }
}

void PrintLines(const cvn::List<SpooledEvent>& events) {
  for (const SpooledEvent& event : events) {
    platform::streams::WriteLine(Output::Out, cvn::Utf8ToWide(event.line));
  }
}

// Where the events lie.
struct Spool {
  cvn::String folder;
  bool isMachines = false;  // its own: it is made with the first event
};

// Makes the place this process's machine, if it is one. The code of a place that can't be looked
// at.
platform::Code EnterMachine(cvn::StringView place, bool* isMachine) {
  const platform::Code code = platform::machine::Use(place);
  *isMachine = code == platform::kSuccess;
  const bool isOther =
      code == platform::kNotSupported || code == platform::machine::kUnrecognizedVolume;
  return isOther ? platform::kSuccess : code;
}

// What messages call this process's machine.
cvn::String NameOfMachine(cvn::StringView place) {
  const cvn::String folder =
      place.empty() ? platform::machine::DefaultFolder() : cvn::String(place);
  return folder.Empty() ? cvn::String(kThisMachine) : folder;
}

// Finds the folder of the events; the exit code of a failure that it told.
int FindSpool(cvn::StringView place, Spool* spool) {
  spool->isMachines = place.empty();
  platform::Code code =
      place.empty() ? platform::machine::UseDefault() : EnterMachine(place, &spool->isMachines);
  if (code == platform::kSuccess && spool->isMachines) {
    code = platform::machine::CheckRegistry();
  }
  if (code != platform::kSuccess) {
    return FailToRead(NameOfMachine(place), code);
  }
  spool->folder = spool->isMachines ? tessel::GetEventsFolder() : platform::paths::OfCaller(place);
  return spool->folder.Empty()
             ? FailOnFile(NameOfMachine(place),
                          u"the product isn't installed there, and so has no events")
             : kExitDone;
}

int ShowEvents(const Options& options) {
  Spool spool;
  int exitCode = FindSpool(options.Operand(0), &spool);
  if (exitCode != kExitDone) {
    return exitCode;
  }
  cvn::List<SpooledEvent> events;
  cvn::List<BrokenEvent> broken;
  const platform::Code code = ReadSpool(spool.folder, &events, &broken);
  if (code != platform::kSuccess && !(spool.isMachines && code == platform::kPathNotFound)) {
    return FailToRead(spool.folder, code);
  }
  if (options.Has(u"--json")) {
    PrintLines(events);
  } else if (events.empty()) {
    platform::streams::WriteLine(Output::Out, u"There are no events.");
  } else {
    PrintTable(events);
  }
  for (const BrokenEvent& one : broken) {
    exitCode = FailOnFile(one.path, one.problem);
  }
  return exitCode;
}

}  // namespace

const CommandSpec kEventsCommand = {
    u"events",
    u"Show the events that runs left",
    u"Prints the events that wait in a machine's spool folder, the newest last: when, which "
    u"report, "
    u"which patch,\nwhy and with what code. Files that are still being written are passed over; "
    u"one "
    u"that is no event is named\non standard error, and makes the exit code 1.\n",
    kOptions,
    ShowEvents,
    kOperands,
};

}  // namespace tlx
