#include "tools/tlx/spelling.h"

#include <algorithm>

#include "support/containers.h"
#include "support/format.h"
#include "support/numbers.h"

namespace tlx {
namespace {

constexpr std::size_t kMostSlips = 2;

// Characters to insert, remove, replace or swap with their neighbour, until `left` is `right`.
std::size_t EditDistance(cvn::StringView left, cvn::StringView right) {
  cvn::List<std::size_t> before(right.size() + 1);
  cvn::List<std::size_t> above(right.size() + 1);
  cvn::List<std::size_t> row(right.size() + 1);
  for (std::size_t at = 0; at <= right.size(); ++at) {
    above[at] = at;
  }
  for (std::size_t l = 1; l <= left.size(); ++l) {
    row[0] = l;
    for (std::size_t r = 1; r <= right.size(); ++r) {
      const std::size_t change = left[l - 1] == right[r - 1] ? 0 : 1;
      row[r] = std::min({above[r] + 1, row[r - 1] + 1, above[r - 1] + change});
      if (l > 1 && r > 1 && left[l - 1] == right[r - 2] && left[l - 2] == right[r - 1]) {
        row[r] = std::min(row[r], before[r - 2] + 1);
      }
    }
    before.swap(above);
    above.swap(row);
  }
  return above[right.size()];
}

// Short names differ in few characters without being meant for each other.
std::size_t AllowedSlips(cvn::StringView name) { return std::min(kMostSlips, name.size() / 3); }

cvn::StringView Nearest(cvn::StringView name, std::span<const cvn::StringView> names) {
  cvn::StringView nearest;
  std::size_t least = kMostSlips + 1;
  for (const cvn::StringView known : names) {
    if (cvn::EqualNoCase(known, name)) {
      return known;
    }
    const std::size_t difference =
        std::max(known.size(), name.size()) - std::min(known.size(), name.size());
    if (difference >= least) {
      continue;
    }
    const std::size_t distance = EditDistance(name, known);
    if (distance < least && distance <= AllowedSlips(known)) {
      least = distance;
      nearest = known;
    }
  }
  return nearest;
}

}  // namespace

cvn::String DidYouMean(cvn::StringView name, std::span<const cvn::StringView> names) {
  const cvn::StringView nearest = Nearest(name, names);
  return nearest.empty() ? cvn::String() : cvn::Format(u"; did you mean '%s'?", nearest);
}

cvn::String QuotedList(std::span<const cvn::StringView> words) {
  cvn::String text;
  for (const cvn::StringView word : words) {
    text.Append(cvn::Format(text.Empty() ? u"'%s'" : u", '%s'", word));
  }
  return text;
}

}  // namespace tlx
