#include "tools/tlx/own_files.h"

#include <algorithm>

#include "support/numbers.h"

namespace tlx {
namespace {

using platform::machine::EntryKind;
using platform::machine::FileChange;

constexpr cvn::StringView kTraceFolder = u"C:\\ProgramData\\Tessera";
constexpr cvn::StringView kEventsFolder = u"\\matrix\\events";
constexpr cvn::StringView kProductFolder = u"\\matrix";
constexpr cvn::StringView kCopiesFolder = u"\\customPatches";

bool EndsIn(cvn::StringView path, cvn::StringView ending) {
  return path.size() > ending.size() &&
         cvn::EqualNoCase(path.substr(path.size() - ending.size()), ending);
}

// "ts-1700000000-123.txt"
bool IsTraceName(cvn::StringView name) {
  constexpr cvn::StringView kStart = u"ts-";
  constexpr cvn::StringView kEnd = u".txt";
  if (!name.starts_with(kStart) || !name.ends_with(kEnd)) {
    return false;
  }
  const cvn::StringView numbers =
      name.substr(kStart.size(), name.size() - kStart.size() - kEnd.size());
  const std::size_t dash = std::min(numbers.find(u'-'), numbers.size());
  return cvn::IsAllDigits(numbers.substr(0, dash)) &&
         cvn::IsAllDigits(numbers.substr(std::min(dash + 1, numbers.size())));
}

}  // namespace

// A UUID.
bool IsEventName(cvn::StringView name) {
  constexpr cvn::StringView kForm = u"00000000-0000-0000-0000-000000000000";
  return std::ranges::equal(name, kForm, [](char16_t unit, char16_t form) {
    const bool isDigit = (unit >= u'0' && unit <= u'9') || (unit >= u'a' && unit <= u'f');
    return form == u'-' ? unit == form : isDigit;
  });
}

bool IsOwn(std::span<const FileChange> changes, std::size_t at) {
  const FileChange& change = changes[at];
  if (change.before || !change.after) {
    return false;
  }
  const cvn::StringView path = change.path;
  if (change.after->kind == EntryKind::Folder) {
    // One with anything before the events in it is somebody else's.
    return cvn::EqualNoCase(path, kTraceFolder) || EndsIn(path, kEventsFolder) ||
           EndsIn(path, kCopiesFolder) ||
           (EndsIn(path, kProductFolder) && at + 1 < changes.size() &&
            EndsIn(changes[at + 1].path, kEventsFolder) && IsOwn(changes, at + 1));
  }
  const std::size_t separator = std::min(path.rfind(u'\\'), path.size() - 1);
  const cvn::StringView folder = path.substr(0, separator);
  const cvn::StringView name = path.substr(separator + 1);
  return change.after->kind == EntryKind::File &&
         ((cvn::EqualNoCase(folder, kTraceFolder) && IsTraceName(name)) ||
          (EndsIn(folder, kEventsFolder) && IsEventName(name)));
}

}  // namespace tlx
