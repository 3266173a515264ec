#include "platform/formats/wildcards.h"

#include <algorithm>

#include "platform/formats/names.h"

namespace platform::posix {
namespace {

constexpr cvn::StringView kWildcards = u"*?";
constexpr cvn::StringView kDosWildcards = u"<>\"";

}  // namespace

bool HasWildcards(cvn::StringView name) {
  return name.find_first_of(kWildcards) != cvn::StringView::npos;
}

bool HasDosWildcards(cvn::StringView name) {
  return name.find_first_of(kDosWildcards) != cvn::StringView::npos;
}

Pattern::Kind Pattern::KindOf(char16_t unit, char16_t after, bool withDos) {
  switch (unit) {
    case u'?':
      return Kind::OneOrEnd;
    case u'*':
      return after == u'.' ? Kind::AnyToLastDot : Kind::Any;
    case u'.':
      return kWildcards.find(after) != cvn::StringView::npos ? Kind::DotOrEnd : Kind::Unit;
    case u'<':
      return withDos ? Kind::AnyToLastDot : Kind::Unit;
    case u'>':
      return withDos ? Kind::OneOrEnd : Kind::Unit;
    case u'"':
      return withDos ? Kind::DotOrEnd : Kind::Unit;
    default:
      return Kind::Unit;
  }
}

Pattern::Pattern(cvn::StringView text, bool withDos) {
  // The path's end is cut as every path's; only a dot there is not forgotten.
  const bool endsInDot = text.ends_with(u'.');
  text = text.substr(0, text.find_last_not_of(u". ") + 1);
  matchesAll_ = text == u"*.*" || (text == u"*" && !endsInDot);
  const std::u16string folded = Folded(text);
  for (std::size_t i = 0; i < folded.size(); ++i) {
    const char16_t after = i + 1 < folded.size() ? folded[i + 1] : (endsInDot ? u'.' : u'\0');
    steps_.push_back({KindOf(folded[i], after, withDos), folded[i]});
  }
  const auto last = std::find_if(steps_.rbegin(), steps_.rend(),
                                 [](const Step& step) { return step.kind != Kind::Unit; });
  const auto tail = static_cast<std::size_t>(steps_.rend() - last);
  tail_ = folded.substr(tail);
  isTailOnly_ = tail == 1 && folded[0] == u'*' && !tail_.empty();
}

// True when the step may take nothing of `rest`.
bool Pattern::Skips(std::size_t step, cvn::StringView rest) const {
  switch (steps_[step].kind) {
    case Kind::Any:
    case Kind::AnyToLastDot:
      return true;
    case Kind::OneOrEnd:
      return rest.empty() || rest.front() == u'.';
    case Kind::DotOrEnd:
      return rest.empty();
    case Kind::Unit:
      break;
  }
  return false;
}

// True when the step takes the first unit of `rest`; `*stays` tells that it may take more.
bool Pattern::Takes(std::size_t step, cvn::StringView rest, bool* stays) const {
  const char16_t unit = rest.front();
  *stays = false;
  switch (steps_[step].kind) {
    case Kind::Any:
      *stays = true;
      return true;
    case Kind::AnyToLastDot:
      *stays = unit != u'.' || rest.find(u'.', 1) != cvn::StringView::npos;
      return true;
    case Kind::OneOrEnd:
      // The last one does take a dot, if only that of the name ".": so it is on Windows.
      return unit != u'.' || step + 1 == steps_.size();
    case Kind::DotOrEnd:
      return unit == u'.';
    case Kind::Unit:
      break;
  }
  return unit == steps_[step].unit;
}

// Adds to `here_` what can be reached from it without taking anything of `rest`, and finds in
// `next_` what the first unit of `rest`, if any, leads to.
void Pattern::Advance(cvn::StringView rest) {
  next_.clear();
  for (std::size_t i = 0; i < here_.size() && here_[i] < steps_.size(); ++i) {
    const std::size_t step = here_[i];
    const bool isNextKnown = i + 1 < here_.size() && here_[i + 1] == step + 1;
    if (!isNextKnown && Skips(step, rest)) {
      here_.insert(here_.begin() + static_cast<std::ptrdiff_t>(i + 1), step + 1);
    }
    bool stays = false;
    if (!rest.empty() && Takes(step, rest, &stays)) {
      const std::size_t reached = stays ? step : step + 1;
      if (next_.empty() || next_.back() != reached) {
        next_.push_back(reached);
      }
    }
  }
}

bool Pattern::Matches(cvn::StringView folded) {
  if (matchesAll_ || !folded.ends_with(tail_)) {
    return matchesAll_;
  }
  if (isTailOnly_) {
    return true;
  }
  here_.assign(1, 0);
  for (; !folded.empty(); folded.remove_prefix(1)) {
    Advance(folded);
    here_.swap(next_);
  }
  Advance(folded);
  return !here_.empty() && here_.back() == steps_.size();
}

}  // namespace platform::posix
