#include <algorithm>
#include <optional>

#include "platform/clock.h"
#include "platform/stop_request.h"
#include "platform/streams.h"
#include "support/format.h"
#include "support/numbers.h"
#include "telemetry/reason_names.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/event_report.h"
#include "tools/tlx/event_source.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/moment.h"

namespace tlx {
namespace {

using platform::streams::Output;

constexpr OptionSpec kOptions[] = {
    {u"--since", u"TIME", false,
     u"Leave out what is older: 2026-11-23T21:26Z, 2026-11-23 (local time), or 2h, 3d, 1w ago"},
    {u"--reason", u"NAME", false, u"Leave out other reasons; a name, or a code without one", true},
    {u"--follow", u"", false, u"Go on with the events that come, until it is stopped"},
    {u"--totals", u"", false, u"Count the events by reason instead, over all and for each DIR"},
    {u"--json", u"", false, u"Print each event as a line of JSON, as it is spooled"},
    {u"--records", u"", false,
     u"Print each event as a line of JSON with where it is from, for log shippers"},
};

constexpr OperandSpec kOperands[] = {
    {u"DIR", false, u"A machine's folder, or a folder with events; without it, this machine", true},
};

std::int64_t Now() {
  return platform::clock::NowTicks() / (platform::clock::kTicksPerSecond / 1000);
}

// Codes without a name are their own decimal text.
bool IsCode(cvn::StringView text) {
  text.remove_prefix(text.starts_with(u'-') ? 1 : 0);
  return cvn::IsAllDigits(text) && text.size() <= 10;
}

cvn::String FaultOfReasons(const Options& options) {
  const cvn::List<cvn::String> names = tessel::ReasonNames();
  for (const cvn::String& reason : options.Values(u"--reason")) {
    if (IsCode(reason) || std::ranges::find(names, reason) != names.end()) {
      continue;
    }
    cvn::String fault =
        cvn::Format(u"option '--reason' takes a code or one of these, not '%s':", reason);
    for (const cvn::String& name : names) {
      fault.Append(cvn::Format(u"\n  %s", name));
    }
    return fault;
  }
  return {};
}

cvn::String FaultOf(const Options& options) {
  if (options.Has(u"--since") && !ReadMoment(options.Value(u"--since"), Now())) {
    return cvn::Format(
        u"option '--since' takes a time such as 2026-11-23, 2026-11-23T21:26 or "
        u"2026-11-23T21:26:02Z, or a duration such as 90m, 2h or 3d, not '%s'",
        options.Value(u"--since"));
  }
  if (options.Has(u"--json") && options.Has(u"--records")) {
    return u"'--json' and '--records' are two forms; give one of them";
  }
  if (options.Has(u"--totals") && options.Has(u"--follow")) {
    return u"'--totals' counts what is there; it can't be given with '--follow'";
  }
  return FaultOfReasons(options);
}

class EventListing {
 public:
  explicit EventListing(const Options& options);

  int Run() {
    if (isFollowing_) {
      platform::stop::Watch();
      return Follow();
    }
    ReadRound();
    const bool hasNone = hasTotals_ ? totals_.IsEmpty() : rows_.empty();
    const bool isPrinted = hasNone && form_ == EventForm::Table
                               ? platform::streams::WriteLine(Output::Out, u"There are no events.")
                           : hasTotals_ ? PrintTotals()
                                        : PrintRows(false);
    if (!isPrinted) {
      TellLostOutput();
    }
    return exitCode_;
  }

 private:
  int Follow();
  void ReadRound();
  void Take(std::size_t source, cvn::StringView file, SpooledEvent event);
  bool Matches(const SpooledEvent& event) const;
  bool PrintRows(bool awaitsRoom);
  bool PrintRow(const EventRow& row);
  bool PrintTotals() const;
  void TellLostOutput();

  EventForm form_;
  bool isFollowing_;
  bool hasTotals_;
  std::optional<std::int64_t> since_;
  std::span<const cvn::String> reasons_;
  cvn::List<EventSource> sources_;
  cvn::List<EventRow> rows_;
  EventTotals totals_;
  GrowingTable table_;
  int exitCode_ = kExitDone;
};

cvn::List<cvn::String> TitlesFor(bool hasOrigins) {
  cvn::List<cvn::String> titles = {u"TIME", u"EVENT", u"PATCH", u"REASON", u"CODE"};
  if (hasOrigins) {
    titles.emplace_back(u"FROM");
  }
  return titles;
}

EventListing::EventListing(const Options& options)
    : form_(options.Has(u"--json")      ? EventForm::Spooled
            : options.Has(u"--records") ? EventForm::Records
                                        : EventForm::Table),
      isFollowing_(options.Has(u"--follow")),
      hasTotals_(options.Has(u"--totals")),
      reasons_(options.Values(u"--reason")),
      table_(TitlesFor(options.Operands().size() > 1)) {
  if (options.Has(u"--since")) {
    since_ = ReadMoment(options.Value(u"--since"), Now());
  }
  for (const cvn::String& folder : options.Operands()) {
    sources_.emplace_back(folder, isFollowing_);
  }
  if (sources_.empty()) {
    sources_.emplace_back(cvn::StringView(), isFollowing_);
  }
}

bool EventListing::Matches(const SpooledEvent& event) const {
  return (!since_ || event.time >= *since_) &&
         (reasons_.empty() || std::ranges::find(reasons_, event.reason) != reasons_.end());
}

void EventListing::Take(std::size_t source, cvn::StringView file, SpooledEvent event) {
  if (!Matches(event)) {
    return;
  }
  if (hasTotals_) {
    totals_.Add(source, event);
    return;
  }
  const EventPlace& place = sources_[source].Place();
  rows_.push_back(MakeEventRow(form_, place, source, file, std::move(event)));
  if (form_ == EventForm::Table && sources_.size() > 1) {
    rows_.back().cells.push_back(Printable(place.Name()));
  }
}

void EventListing::ReadRound() {
  FoldersOfRound folders;
  for (std::size_t i = 0; i < sources_.size() && !platform::stop::IsAsked(); ++i) {
    const int read = sources_[i].Read(
        &folders,
        [this, i](cvn::StringView file, SpooledEvent event) { Take(i, file, std::move(event)); });
    exitCode_ = read == kExitDone ? exitCode_ : read;
  }
  std::ranges::sort(rows_, std::less<>());
}

bool EventListing::PrintRow(const EventRow& row) {
  return form_ == EventForm::Table ? table_.Print(row.cells) : PrintJsonLine(row.line);
}

// False when standard output doesn't take them all, or, where it awaits room, the program is asked
// to stop.
bool EventListing::PrintRows(bool awaitsRoom) {
  for (const EventRow& row : rows_) {
    table_.Measure(row.cells);
  }
  const bool isPrinted = std::ranges::all_of(rows_, [&](const EventRow& row) {
    return (!awaitsRoom || platform::streams::AwaitRoom(Output::Out)) && PrintRow(row);
  });
  rows_.clear();
  return isPrinted;
}

bool EventListing::PrintTotals() const {
  cvn::List<const EventPlace*> places;
  for (const EventSource& source : sources_) {
    places.push_back(&source.Place());
  }
  return form_ == EventForm::Table ? totals_.PrintTable(places) : totals_.PrintRecords(places);
}

// A reader that has enough isn't a failure, but a full disk is.
void EventListing::TellLostOutput() {
  if (platform::streams::AwaitRoom(Output::Out)) {
    exitCode_ = FailOnFile(u"standard output", u"cannot be written");
  }
}

int EventListing::Follow() {
  constexpr std::uint32_t kPause = 1000;  // milliseconds
  // Of the time that there is, at most a tenth goes into looking.
  constexpr std::uint32_t kShare = 10;
  for (;;) {
    const std::uint32_t start = platform::clock::TickCount();
    ReadRound();
    if (!PrintRows(true)) {
      TellLostOutput();
      return exitCode_;
    }
    if (!platform::streams::AwaitRoom(Output::Out)) {
      return exitCode_;
    }
    const std::uint32_t taken = platform::clock::TickCount() - start;
    platform::clock::Sleep(std::max(kPause, std::min(taken, 60'000U) * kShare));
  }
}

int ShowEvents(const Options& options) { return EventListing(options).Run(); }

}  // namespace

const CommandSpec kEventsCommand = {
    u"events",
    u"Show the events that runs left",
    u"Prints the events that wait in the spool folders of machines, the newest last: when, which "
    u"report, which\npatch, why and with what code; of several DIRs also from which one. Times are "
    u"those of the clocks of the\nmachines that wrote the events, shown in this computer's zone, "
    u"and in UTC in JSON. Files that are still\nbeing written are passed over; one that is no "
    u"event "
    u"is named on standard error, and makes the exit code 1,\nas does a DIR that can't be read. "
    u"With --follow, a DIR may come later, go, and come again.\n",
    kOptions,
    ShowEvents,
    kOperands,
    FaultOf,
};

}  // namespace tlx
