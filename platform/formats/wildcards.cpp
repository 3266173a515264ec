#include "platform/formats/wildcards.h"

#include "platform/formats/names.h"

namespace platform::posix {

bool HasWildcards(cvn::StringView name) {
  return name.find_first_of(u"*?") != cvn::StringView::npos;
}

Pattern::Pattern(cvn::StringView text) {
  // The path's end is cut as every path's; only a dot there is not forgotten.
  const bool endsInDot = text.ends_with(u'.');
  text = text.substr(0, text.find_last_not_of(u". ") + 1);
  matchesAll_ = text == u"*.*" || (text == u"*" && !endsInDot);
  const std::u16string folded = Folded(text);
  for (std::size_t i = 0; i < folded.size(); ++i) {
    const char16_t unit = folded[i];
    const char16_t after = i + 1 < folded.size() ? folded[i + 1] : (endsInDot ? u'.' : u'\0');
    Kind kind = Kind::Unit;
    if (unit == u'?') {
      kind = Kind::OneOrEnd;
    } else if (unit == u'*') {
      kind = after == u'.' ? Kind::AnyToLastDot : Kind::Any;
    } else if (unit == u'.' && (after == u'?' || after == u'*')) {
      kind = Kind::DotOrEnd;
    }
    steps_.push_back({kind, unit});
  }
  const std::size_t wildcard = folded.find_last_of(u"*?");
  const bool dotIsWild = wildcard != 0 && steps_.back().kind == Kind::DotOrEnd;
  tail_ = dotIsWild ? u"" : folded.substr(wildcard + 1);
  isTailOnly_ = wildcard == 0 && folded[0] == u'*' && !tail_.empty();
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
