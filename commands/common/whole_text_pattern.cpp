#include "commands/common/whole_text_pattern.h"

#define PCRE2_CODE_UNIT_WIDTH 16
#include <pcre2.h>

namespace tessel {
namespace {

template <typename T, void (*Free)(T*)>
struct Deleter {
  void operator()(T* object) const { Free(object); }
};
template <typename T, void (*Free)(T*)>
using Owner = std::unique_ptr<T, Deleter<T, Free>>;

using Code = Owner<pcre2_code, pcre2_code_free>;
using MatchData = Owner<pcre2_match_data, pcre2_match_data_free>;
using MatchContext = Owner<pcre2_match_context, pcre2_match_context_free>;
using CompileContext = Owner<pcre2_compile_context, pcre2_compile_context_free>;
using JitStack = Owner<pcre2_jit_stack, pcre2_jit_stack_free>;

constexpr std::uint32_t kOptions = PCRE2_ANCHORED | PCRE2_ENDANCHORED | PCRE2_ALT_BSUX |
                                   PCRE2_ALLOW_EMPTY_CLASS | PCRE2_MATCH_UNSET_BACKREF |
                                   PCRE2_DOLLAR_ENDONLY | PCRE2_NEVER_UTF | PCRE2_NEVER_UCP;

constexpr std::size_t kFirstJitStack = std::size_t{32} * 1024;
constexpr std::size_t kLargestJitStack = std::size_t{32} * 1024 * 1024;
constexpr std::uint32_t kHeapLimitInKibibytes = 256 * 1024;

PCRE2_SPTR16 Units(cvn::StringView text) { return reinterpret_cast<PCRE2_SPTR16>(text.data()); }

// The letters and digits that a backslash gives a meaning to, or may precede, in ECMAScript.
bool IsKnownEscape(char16_t c) {
  const bool alphanumeric =
      (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9');
  return !alphanumeric ||
         cvn::StringView(u"0123456789bBcdDfnrsStuvwWx").find(c) != cvn::StringView::npos;
}

bool IsQuantifierEnd(char16_t c) { return c == u'*' || c == u'+' || c == u'?' || c == u'}'; }

// Refuses what PCRE2 would understand and ECMAScript does not have.
bool HasOnlyEcmaScript(cvn::StringView pattern) {
  bool inClass = false;
  for (std::size_t at = 0; at < pattern.size(); ++at) {
    const char16_t c = pattern[at];
    const char16_t following = at + 1 < pattern.size() ? pattern[at + 1] : u'\0';
    if (c == u'\\') {
      if (at + 1 == pattern.size() || !IsKnownEscape(following)) {
        return false;
      }
      ++at;
    } else if (inClass) {
      inClass = c != u']';
    } else if (c == u'[') {
      inClass = true;
    } else if ((c == u'(' && following == u'*') || (IsQuantifierEnd(c) && following == u'+')) {
      return false;
    } else if (c == u'(' && following == u'?') {
      const cvn::StringView kind = pattern.substr(at + 2, 1);
      if (kind != u":" && kind != u"=" && kind != u"!") {
        return false;
      }
      at += 2;
    }
  }
  return true;
}

// One stack serves all patterns, since only one match runs at a time.
pcre2_jit_stack* SharedJitStack() {
  static const JitStack stack(pcre2_jit_stack_create(kFirstJitStack, kLargestJitStack, nullptr));
  return stack.get();
}

}  // namespace

struct WholeTextPattern::Compiled {
  Code code;
  MatchData data;
  MatchContext context;
  std::uint32_t groups = 0;  // the whole match included
};

WholeTextPattern::WholeTextPattern() = default;
WholeTextPattern::WholeTextPattern(WholeTextPattern&&) noexcept = default;
WholeTextPattern::~WholeTextPattern() = default;

bool WholeTextPattern::Compile(cvn::StringView pattern) {
  if (!HasOnlyEcmaScript(pattern)) {
    return false;
  }
  const CompileContext compileContext(pcre2_compile_context_create(nullptr));
  auto compiled = std::make_unique<Compiled>();
  if (compileContext == nullptr ||
      pcre2_set_newline(compileContext.get(), PCRE2_NEWLINE_ANYCRLF) != 0) {
    return false;
  }
  int problem = 0;
  PCRE2_SIZE offset = 0;
  compiled->code.reset(pcre2_compile(Units(pattern), pattern.size(), kOptions, &problem, &offset,
                                     compileContext.get()));
  if (compiled->code == nullptr) {
    return false;
  }
  compiled->data.reset(pcre2_match_data_create_from_pattern(compiled->code.get(), nullptr));
  compiled->context.reset(pcre2_match_context_create(nullptr));
  if (compiled->data == nullptr || compiled->context == nullptr) {
    return false;
  }
  pcre2_set_match_limit(compiled->context.get(), kMatchLimit);
  pcre2_set_heap_limit(compiled->context.get(), kHeapLimitInKibibytes);
  // Where there is no compiler for the machine's code, the interpreter of the library serves as
  // well.
  if (pcre2_jit_compile(compiled->code.get(), PCRE2_JIT_COMPLETE) == 0) {
    pcre2_jit_stack_assign(compiled->context.get(), nullptr, SharedJitStack());
  }
  compiled->groups = pcre2_get_ovector_count(compiled->data.get());
  compiled_ = std::move(compiled);
  source_ = pattern;
  return true;
}

WholeTextPattern::Outcome WholeTextPattern::Match(cvn::StringView text) {
  if (compiled_ == nullptr) {
    return Outcome::NoMatch;
  }
  const int matched = pcre2_match(compiled_->code.get(), Units(text), text.size(), 0, 0,
                                  compiled_->data.get(), compiled_->context.get());
  if (matched == PCRE2_ERROR_NOMATCH) {
    return Outcome::NoMatch;
  }
  return matched < 0 ? Outcome::GivenUp : Outcome::Match;
}

WholeTextPattern::Outcome WholeTextPattern::MatchGroup(cvn::StringView text, std::uint32_t index,
                                                       cvn::StringView* group) {
  const Outcome outcome = Match(text);
  if (outcome != Outcome::Match) {
    return outcome;
  }
  if (index >= compiled_->groups) {
    return Outcome::NoMatch;
  }
  const PCRE2_SIZE* bounds = pcre2_get_ovector_pointer(compiled_->data.get());
  const PCRE2_SIZE start = bounds[2 * std::size_t{index}];
  const PCRE2_SIZE end = bounds[2 * std::size_t{index} + 1];
  *group = start == PCRE2_UNSET ? cvn::StringView() : text.substr(start, end - start);
  return Outcome::Match;
}

}  // namespace tessel
