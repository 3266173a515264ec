#include "tools/tlx/event_report.h"

#include <algorithm>
#include <utility>

#include "platform/streams.h"
#include "support/format.h"
#include "support/utf.h"
#include "telemetry/event_envelope.h"
#include "tools/tlx/json_output.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/moment.h"
#include "tools/tlx/unseen.h"

namespace tlx {
namespace {

using platform::streams::Output;

const char* OriginOf(const EventPlace& place) { return place.IsMachine() ? "machine" : "spool"; }

// The text of a value, without the line feed at its end.
std::string LineOf(const Json::Value& value) {
  std::string line = tessel::PrintLine(value);
  line.resize(std::min(line.find('\n'), line.size()));
  return line;
}

std::string RecordOf(const EventPlace& place, cvn::StringView file, const SpooledEvent& event) {
  Json::Value record(Json::objectValue);
  record[OriginOf(place)] = JsonText(place.Name());
  record["id"] = JsonText(file);
  const cvn::String time = IsoText(event.time);
  if (!time.Empty()) {
    record["time"] = JsonText(time);
  }
  record["name"] = JsonText(event.name);
  record["patch"] = JsonText(event.patchId);
  record["reason"] = JsonText(event.reason);
  record["code"] = static_cast<Json::Int64>(event.code);
  record["event"] = event.fields;
  return LineOf(record);
}

// With escapes for what nobody sees. That stands in strings only, but for blanks.
cvn::String Escaped(cvn::StringView line) {
  cvn::String escaped;
  while (!line.empty()) {
    const cvn::StringView rest = line;
    const bool isUnseen = IsUnseen(TakeCharacter(&line));
    const cvn::StringView units = rest.substr(0, rest.size() - line.size());
    if (!isUnseen) {
      escaped.Append(units);
      continue;
    }
    for (const char16_t unit : units) {
      escaped.Append(cvn::Format(u"\\u%04X", static_cast<std::uint16_t>(unit)));
    }
  }
  return escaped;
}

}  // namespace

bool EventRow::operator<(const EventRow& other) const {
  return std::tuple(time, source, file.AsView()) <
         std::tuple(other.time, other.source, other.file.AsView());
}

EventRow MakeEventRow(EventForm form, const EventPlace& place, std::size_t source,
                      cvn::StringView file, SpooledEvent event) {
  EventRow row{event.time, source, file, {}, {}};
  switch (form) {
    case EventForm::Table:
      row.cells = {LocalText(event.time), Printable(event.name), Printable(event.patchId),
                   Printable(event.reason), cvn::Format(u"%lld", event.code)};
      break;
    case EventForm::Spooled:
      row.line = std::move(event.line);
      break;
    case EventForm::Records:
      row.line = RecordOf(place, file, event);
      break;
  }
  return row;
}

GrowingTable::GrowingTable(cvn::List<cvn::String> titles) : titles_(std::move(titles)) {
  widths_.resize(titles_.size());
  Measure(titles_);
}

void GrowingTable::Measure(const cvn::List<cvn::String>& cells) {
  for (std::size_t i = 0; i < cells.size(); ++i) {
    widths_[i] = std::max(widths_[i], cells[i].Length());
  }
}

bool GrowingTable::PrintLine(const cvn::List<cvn::String>& cells) const {
  std::u16string line;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    line += cells[i].AsView();
    if (i + 1 < cells.size()) {
      line.append(widths_[i] + 2 - cells[i].Length(), u' ');
    }
  }
  return platform::streams::WriteLine(Output::Out, line);
}

bool GrowingTable::Print(const cvn::List<cvn::String>& cells) {
  Measure(cells);
  const bool isTitled = std::exchange(isBegun_, true) || PrintLine(titles_);
  return isTitled && PrintLine(cells);
}

bool PrintJsonLine(const std::string& line) {
  const cvn::String text = cvn::Utf8ToWide(line);
  return platform::streams::WriteLine(
      Output::Out, platform::streams::IsTerminal(Output::Out) ? Escaped(text) : text);
}

void EventTotals::Add(std::size_t source, const SpooledEvent& event) {
  Total& total = totals_[{source, event.name, event.reason}];
  total.last = total.count == 0 ? event.time : std::max(total.last, event.time);
  ++total.count;
}

// Those over all have the place behind the last one.
std::map<EventTotals::Key, EventTotals::Total> EventTotals::WithOverall(std::size_t places) const {
  std::map<Key, Total> all = totals_;
  for (const auto& [key, total] : totals_) {
    Total& sum = all[{places, std::get<1>(key), std::get<2>(key)}];
    sum.last = sum.count == 0 ? total.last : std::max(sum.last, total.last);
    sum.count += total.count;
  }
  return all;
}

bool EventTotals::PrintTable(const cvn::List<const EventPlace*>& places) const {
  const bool hasOrigins = places.size() > 1;
  cvn::List<cvn::String> titles = {u"COUNT", u"EVENT", u"REASON", u"LAST"};
  if (hasOrigins) {
    titles.emplace_back(u"FROM");
  }
  cvn::List<cvn::List<cvn::String>> rows;
  GrowingTable table(std::move(titles));
  for (const auto& [key, total] : hasOrigins ? WithOverall(places.size()) : totals_) {
    const auto& [source, name, reason] = key;
    rows.push_back({cvn::Format(u"%llu", total.count), Printable(name), Printable(reason),
                    LocalText(total.last)});
    if (hasOrigins) {
      rows.back().push_back(source == places.size() ? cvn::String(u"(all)")
                                                    : Printable(places[source]->Name()));
    }
    table.Measure(rows.back());
  }
  return std::ranges::all_of(rows, [&](const auto& row) { return table.Print(row); });
}

bool EventTotals::PrintRecords(const cvn::List<const EventPlace*>& places) const {
  const std::map<Key, Total> all = WithOverall(places.size());
  return std::ranges::all_of(all, [&](const auto& each) {
    const auto& [key, total] = each;
    const auto& [source, name, reason] = key;
    Json::Value record(Json::objectValue);
    if (source < places.size()) {
      record[OriginOf(*places[source])] = JsonText(places[source]->Name());
    }
    record["name"] = JsonText(name);
    record["reason"] = JsonText(reason);
    record["count"] = static_cast<Json::UInt64>(total.count);
    const cvn::String last = IsoText(total.last);
    if (!last.Empty()) {
      record["last"] = JsonText(last);
    }
    return PrintJsonLine(LineOf(record));
  });
}

}  // namespace tlx
