#include "platform/posix/wildcards.h"

#include <algorithm>

#include "platform/posix/names.h"

namespace platform::posix {

bool HasWildcards(cvn::StringView name) { return name.find_first_of(u"*?") != name.npos; }

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
  here_.resize(steps_.size() + 1);
  next_.resize(steps_.size() + 1);
}

// Marks the steps that can be reached from those in `here_` without taking anything of `rest`.
void Pattern::Skip(cvn::StringView rest) {
  for (std::size_t i = 0; i < steps_.size(); ++i) {
    const Kind kind = steps_[i].kind;
    const bool skips = kind == Kind::Any || kind == Kind::AnyToLastDot ||
                       (kind == Kind::OneOrEnd && (rest.empty() || rest.front() == u'.')) ||
                       (kind == Kind::DotOrEnd && rest.empty());
    here_[i + 1] |= static_cast<char>(here_[i] & static_cast<char>(skips));
  }
}

// True when `step` takes the first unit of `rest`; `*stays` tells that it may take more.
bool Pattern::Takes(const Step& step, cvn::StringView rest, bool* stays) {
  const char16_t unit = rest.front();
  *stays = false;
  switch (step.kind) {
    case Kind::Any:
      *stays = true;
      return true;
    case Kind::AnyToLastDot:
      *stays = unit != u'.' || rest.find(u'.', 1) != rest.npos;
      return true;
    case Kind::OneOrEnd:
      return unit != u'.';
    case Kind::DotOrEnd:
      return unit == u'.';
    case Kind::Unit:
      break;
  }
  return unit == step.unit;
}

bool Pattern::Matches(cvn::StringView folded) {
  if (matchesAll_) {
    return true;
  }
  std::fill(here_.begin(), here_.end(), char{0});
  here_[0] = 1;
  for (; !folded.empty(); folded.remove_prefix(1)) {
    Skip(folded);
    std::fill(next_.begin(), next_.end(), char{0});
    for (std::size_t i = 0; i < steps_.size(); ++i) {
      bool stays = false;
      if (here_[i] != 0 && Takes(steps_[i], folded, &stays)) {
        next_[stays ? i : i + 1] = 1;
      }
    }
    here_.swap(next_);
  }
  Skip(folded);
  return here_.back() != 0;
}

}  // namespace platform::posix
