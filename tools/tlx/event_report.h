// Events in the forms in which tlx prints them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <tuple>

#include "support/containers.h"
#include "support/string.h"
#include "tools/tlx/event_place.h"
#include "tools/tlx/spooled_event.h"

namespace tlx {

enum class EventForm {
  Table,
  Spooled,  // the lines of the files themselves
  Records,  // a line of JSON each, with the place that it is from
};

// What is kept of an event until it is printed.
struct EventRow {
  std::int64_t time = 0;
  std::size_t source = 0;  // the index of its place among all
  cvn::String file;
  cvn::List<cvn::String> cells;  // of the table
  std::string line;              // of JSON

  // By time; what has the same by place, then by file.
  bool operator<(const EventRow& other) const;
};

EventRow MakeEventRow(EventForm form, const EventPlace& place, std::size_t source,
                      cvn::StringView file, SpooledEvent event);

// A table that grows: a column is as wide as the widest cell so far.
class GrowingTable {
 public:
  explicit GrowingTable(cvn::List<cvn::String> titles);
  void Measure(const cvn::List<cvn::String>& cells);
  // False when standard output doesn't take it. The first call prints the titles too.
  bool Print(const cvn::List<cvn::String>& cells);

 private:
  bool PrintLine(const cvn::List<cvn::String>& cells) const;

  cvn::List<cvn::String> titles_;
  cvn::List<std::size_t> widths_;
  bool isBegun_ = false;
};

// A line of JSON to standard output. A terminal gets characters that nobody sees as "\u202E", which
// is the same to JSON. False when it doesn't take it.
bool PrintJsonLine(const std::string& line);

// How often each reason came, at each place and over all.
class EventTotals {
 public:
  void Add(std::size_t source, const SpooledEvent& event);
  bool IsEmpty() const { return totals_.empty(); }
  // `places` are those that the sources are the indexes of. False when standard output doesn't take
  // it.
  bool PrintTable(const cvn::List<const EventPlace*>& places) const;
  bool PrintRecords(const cvn::List<const EventPlace*>& places) const;

 private:
  struct Total {
    std::uint64_t count = 0;
    std::int64_t last = 0;
  };
  using Key = std::tuple<std::size_t, cvn::String, cvn::String>;  // place, report, reason

  std::map<Key, Total> WithOverall(std::size_t places) const;

  std::map<Key, Total> totals_;
};

}  // namespace tlx
