#include "tools/tlx/registry_report.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "support/format.h"
#include "support/numbers.h"
#include "tools/tlx/machine_text.h"

namespace tlx {
namespace {

using platform::machine::KeyChange;
using platform::machine::KeyState;
using platform::machine::ValueChange;
using platform::machine::ValueState;

struct HiveName {
  cvn::StringView file;
  cvn::StringView key;
};

constexpr cvn::StringView kSystemHive = u"C:\\Windows\\System32\\config\\SYSTEM";
constexpr HiveName kHiveNames[] = {
    {kSystemHive, u"HKEY_LOCAL_MACHINE\\SYSTEM"},
    {u"C:\\Windows\\System32\\config\\SOFTWARE", u"HKEY_LOCAL_MACHINE\\SOFTWARE"},
    {u"C:\\Windows\\System32\\config\\SAM", u"HKEY_LOCAL_MACHINE\\SAM"},
    {u"C:\\Windows\\System32\\config\\SECURITY", u"HKEY_LOCAL_MACHINE\\SECURITY"},
    {u"C:\\Windows\\System32\\config\\DEFAULT", u"HKEY_USERS\\.DEFAULT"},
};

constexpr cvn::StringView kPendingMoves = u"PendingFileRenameOperations";

// The key by its hive; a user's, whose SID isn't known from it, by the hive's file.
cvn::String PathOf(const KeyChange& change) {
  const auto* known = std::ranges::find_if(
      kHiveNames, [&](const HiveName& name) { return cvn::EqualNoCase(name.file, change.hive); });
  cvn::String path(known == std::end(kHiveNames) ? change.hive.AsView() : known->key);
  if (!change.path.Empty()) {
    path.Append(u'\\');
    path.Append(change.path);
  }
  return path;
}

template <typename Change>
ChangeKind KindOf(const Change& change) {
  return !change.before ? ChangeKind::Added
                        : (!change.after ? ChangeKind::Removed : ChangeKind::Changed);
}

// Of a key in a control set, its path from there; nothing for another.
cvn::StringView InControlSet(const KeyChange& change) {
  constexpr cvn::StringView kControlSet = u"ControlSet";
  const cvn::StringView path = change.path;
  const std::size_t end = path.find(u'\\');
  const bool isIn = cvn::EqualNoCase(change.hive, kSystemHive) && end != cvn::StringView::npos &&
                    cvn::EqualNoCase(path.substr(0, kControlSet.size()), kControlSet);
  return isIn ? path.substr(end + 1) : cvn::StringView();
}

constexpr cvn::StringView kServices = u"Services\\";

// The service that a key is of, or lies in; empty for none.
cvn::StringView ServiceOf(const KeyChange& change) {
  const cvn::StringView path = InControlSet(change);
  if (!cvn::EqualNoCase(path.substr(0, kServices.size()), kServices)) {
    return {};
  }
  const cvn::StringView rest = path.substr(kServices.size());
  return rest.substr(0, rest.find(u'\\'));
}

cvn::List<cvn::String> Lines(const std::optional<ValueState>& state) {
  return state ? DescribeValue(state->type, state->data) : cvn::List<cvn::String>();
}

cvn::List<cvn::String> FormFacts(const KeyChange& change) {
  static const KeyState kNone;
  const KeyState& before = change.before ? *change.before : kNone;
  const KeyState& after = change.after ? *change.after : kNone;
  cvn::List<cvn::String> facts;
  if (before.className != after.className) {
    facts.push_back(cvn::Format(u"class: \"%s\" -> \"%s\"", Printable(before.className),
                                Printable(after.className)));
  }
  if (before.isLink != after.isLink) {
    facts.emplace_back(after.isLink ? u"a link" : u"no link any more");
  }
  if (change.before && change.after && before.security != after.security) {
    facts.push_back(cvn::Format(u"security descriptor: %u -> %u bytes", before.security.size(),
                                after.security.size()));
  }
  return facts;
}

// Adds the lines that the other list doesn't have, or not as often.
void AddOnlyIn(const cvn::List<cvn::String>& list, const cvn::List<cvn::String>& other,
               cvn::List<cvn::String>* lines) {
  cvn::Map<cvn::String, std::size_t> counts;
  for (const cvn::String& line : other) {
    ++counts[line];
  }
  for (const cvn::String& line : list) {
    std::size_t& count = counts[line];
    if (count == 0) {
      lines->push_back(line);
    } else {
      --count;
    }
  }
}

class RegistryReporter {
 public:
  explicit RegistryReporter(ChangeReport* report) : report_(*report) {}

  void Report(const KeyChange& change) {
    KeyNote note{KindOf(change), PathOf(change), FormFacts(change), {}};
    const bool hasPendingMoves =
        cvn::EqualNoCase(InControlSet(change), u"Control\\Session Manager");
    for (const ValueChange& value : change.values) {
      if (hasPendingMoves && cvn::EqualNoCase(value.name, kPendingMoves)) {
        ReportPendingMoves(value);
      } else {
        note.values.push_back({KindOf(value), value.name, Lines(value.before), Lines(value.after)});
      }
    }
    const bool isTold =
        note.kind != ChangeKind::Changed || !note.facts.empty() || !note.values.empty();
    if (const cvn::StringView service = ServiceOf(change); isTold && !service.empty()) {
      AddToService(service, change, std::move(note));
    } else if (isTold) {
      report_.keys.push_back(std::move(note));
    }
  }

 private:
  // A service is added or removed with its key; what lies below that follows it.
  void AddToService(cvn::StringView name, const KeyChange& change, KeyNote note) {
    cvn::List<ServiceNote>& services = report_.services;
    if (services.empty() || !cvn::EqualNoCase(services.back().name, name)) {
      const bool isServicesKey = InControlSet(change).size() == kServices.size() + name.size();
      services.push_back({isServicesKey ? note.kind : ChangeKind::Changed, cvn::String(name), {}});
    }
    services.back().keys.push_back(std::move(note));
  }

  void ReportPendingMoves(const ValueChange& value) {
    const auto linesOf = [](const std::optional<ValueState>& state) {
      return state ? DescribePendingMoves(state->data) : cvn::List<cvn::String>();
    };
    const cvn::List<cvn::String> before = linesOf(value.before);
    const cvn::List<cvn::String> after = linesOf(value.after);
    AddOnlyIn(before, after, &report_.notAtNextBoot);
    AddOnlyIn(after, before, &report_.atNextBoot);
  }

  ChangeReport& report_;
};

}  // namespace

void ReportKeys(const cvn::List<KeyChange>& changes, ChangeReport* report) {
  RegistryReporter reporter(report);
  for (const KeyChange& change : changes) {
    reporter.Report(change);
  }
}

}  // namespace tlx
