// Patterns of names, as searches of Windows take them.
#pragma once

#include <string>
#include <vector>

#include "support/string.h"

namespace platform::posix {

// '*' and '?'.
bool HasWildcards(cvn::StringView name);

// '<', '>' and '"'.
bool HasDosWildcards(cvn::StringView name);

// A pattern matches without regard to case, by the rules that Windows has kept since names had
// eight characters and an extension of three: "*.*" matches every name; '?' also matches nothing
// at a name's end or before a dot; a dot before a wildcard also matches nothing at a name's end;
// '*' before a dot takes all up to the name's last dot, and a dot that ends the pattern asks for
// names that have none. FindFirstFileW writes these meanings as '>', '"' and '<' before it hands
// the pattern on, and takes those characters from its caller too; FsRtlIsNameInExpression documents
// them as DOS_QM, DOS_DOT and DOS_STAR.
class Pattern {
 public:
  // `withDos` tells whether '<', '>' and '"' are wildcards, which on the host they are not.
  Pattern(cvn::StringView text, bool withDos);

  bool MatchesAll() const { return matchesAll_; }
  // `folded` is a name as Folded() gives it.
  bool Matches(cvn::StringView folded);

 private:
  enum class Kind : unsigned char { Unit, Any, AnyToLastDot, OneOrEnd, DotOrEnd };
  struct Step {
    Kind kind;
    char16_t unit;
  };

  static Kind KindOf(char16_t unit, char16_t after, bool withDos);
  bool Skips(std::size_t step, cvn::StringView rest) const;
  bool Takes(std::size_t step, cvn::StringView rest, bool* stays) const;
  void Advance(cvn::StringView rest);

  std::vector<Step> steps_;
  std::u16string tail_;  // the units after the last wildcard
  bool matchesAll_ = false;
  bool isTailOnly_ = false;  // a '*' and the tail: a name that ends in the tail matches
  // Which steps may come next, in rising order: before a unit of the name, and after it.
  std::vector<std::size_t> here_;
  std::vector<std::size_t> next_;
};

}  // namespace platform::posix
