// Regular expressions that must match a whole text.
#pragma once

#include <cstdint>
#include <memory>

#include "support/string.h"

namespace tessel {

// A pattern in the ECMAScript grammar, over UTF-16 code units, carried out by PCRE2 with these
// choices:
//   PCRE2_ANCHORED, PCRE2_ENDANCHORED   the match covers the whole text
//   PCRE2_ALT_BSUX, PCRE2_ALLOW_EMPTY_CLASS, PCRE2_MATCH_UNSET_BACKREF, PCRE2_DOLLAR_ENDONLY
//                                       \u, \x, [] and references to unset groups as in ECMAScript
//   PCRE2_NEVER_UTF, PCRE2_NEVER_UCP    units, not code points; \d \w \s \b know ASCII only
//   PCRE2_NEWLINE_ANYCRLF               '.' takes neither CR nor LF (but U+2028 and U+2029, unlike
//   ECMAScript)
// What PCRE2 adds to the grammar is refused: (?...) other than (?: (?= (?!, (*...), possessive
// quantifiers, and escapes of letters that ECMAScript doesn't know. Where a group repeats, it keeps
// what it took in an earlier round even if it took nothing in the last, unlike ECMAScript.
//
// A match that would cost more than kMatchLimit steps, or more stack than a generous share, is
// given up.
class WholeTextPattern {
 public:
  enum class Outcome { NoMatch, Match, GivenUp };

  static constexpr std::uint32_t kMatchLimit = 10'000'000;

  WholeTextPattern();
  WholeTextPattern(WholeTextPattern&&) noexcept;
  ~WholeTextPattern();

  // False when the pattern isn't valid.
  bool Compile(cvn::StringView pattern);
  // What was compiled last; empty when nothing was.
  const cvn::String& Source() const { return source_; }

  // Whether `text` matches.
  Outcome Match(cvn::StringView text);

  // Matches `text`, and sets `*group` to the part that group `index` took (0 is the whole text;
  // empty for a group without part in the match). NoMatch when the pattern has no such group. The
  // view is into `text`.
  Outcome MatchGroup(cvn::StringView text, std::uint32_t index, cvn::StringView* group);

 private:
  struct Compiled;
  std::unique_ptr<Compiled> compiled_;
  cvn::String source_;
};

}  // namespace tessel
