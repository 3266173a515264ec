// The expansion of references; declared in variable_store.h, since names and references need each
// other.
#include <optional>
#include <unordered_map>

#include "engine/builtin_variables.h"
#include "engine/variable_store.h"
#include "platform/clock.h"
#include "platform/environment.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "platform/random.h"
#include "support/format.h"
#include "support/numbers.h"

namespace tessel {
namespace {

constexpr std::size_t kNone = cvn::StringView::npos;

// Finds for an opening percent sign the one that closes it: the next at which as many brackets have
// been opened as closed since.
class ReferenceScanner {
 public:
  explicit ReferenceScanner(cvn::StringView text) : text_(text) {}

  // `start` is the position behind the opening sign.
  std::size_t FindClosing(std::size_t start) {
    if (!closings_.empty()) {
      const auto found = closings_.find(start);
      return found == closings_.end() ? kNone : found->second;
    }
    int depth = 0;
    for (std::size_t at = start; at < text_.size(); ++at) {
      const char16_t c = text_[at];
      depth += c == u'[' ? 1 : (c == u']' ? -1 : 0);
      if (c == u'%' && depth == 0) {
        return at;
      }
    }
    // A text with many signs that nothing closes would be walked to its end for each of them.
    FindAllClosings();
    return kNone;
  }

 private:
  void FindAllClosings() {
    int depth = 0;
    std::unordered_map<int, std::size_t> nextAtDepth;
    for (std::size_t at = text_.size(); at-- > 0;) {
      const char16_t c = text_[at];
      depth += c == u'[' ? 1 : (c == u']' ? -1 : 0);
      if (c == u'%') {
        const auto next = nextAtDepth.find(depth);
        closings_[at + 1] = next == nextAtDepth.end() ? kNone : next->second;
        nextAtDepth[depth] = at;
      }
    }
  }

  cvn::StringView text_;
  std::unordered_map<std::size_t, std::size_t> closings_;  // by start, once one has failed
};

cvn::String DrawRandom() {
  const std::uint32_t sum =
      platform::SecureRandom32() + platform::clock::TickCount() + platform::process::CurrentId();
  return cvn::Format(u"%u", sum % 50000);
}

// Appends what the environment gives for "%name%". False when the platform can't expand it.
bool AppendFromEnvironment(cvn::StringView reference, cvn::String* out) {
  std::optional<cvn::String> value = platform::environment::Expand(reference);
  if (!value) {
    return false;
  }
  if (platform::paths::Exists(*value)) {
    cvn::String longName = platform::paths::LongName(*value);
    if (!longName.Empty()) {
      value = std::move(longName);
    }
  }
  out->Append(*value);
  return true;
}

// Appends what the name between two percent signs of a text stands for. False when that is nothing.
bool AppendReference(cvn::StringView name, VariableStore* variables, cvn::String* out) {
  if (const cvn::String* value = variables->Find(name)) {
    out->Append(*value);
    return true;
  }
  if (cvn::EqualNoCase(name, kRandomVariable)) {
    out->Append(DrawRandom());
    return true;
  }
  return AppendFromEnvironment({name.data() - 1, name.size() + 2}, out);
}

// Gives the text from `percent` on, its first percent sign, piece by piece: to `onText` what stays,
// to `onReference` the names in references. It tells whether the reference is dealt with.
template <typename OnText, typename OnReference>
void TakeApart(cvn::StringView text, std::size_t percent, OnText onText, OnReference onReference) {
  ReferenceScanner scanner(text);
  std::size_t at = 0;
  for (; percent != kNone; percent = cvn::FindUnit(text, u'%', at)) {
    onText(text.substr(at, percent - at));
    at = percent + 1;
    if (at < text.size() && text[at] == u'%') {
      onText(text.substr(at, 1));
      ++at;
      continue;
    }
    const std::size_t closing = scanner.FindClosing(at);
    if (closing == kNone) {
      onText(text.substr(percent, 1));
    } else if (onReference(text.substr(at, closing - at))) {
      at = closing + 1;
    } else {
      onText(text.substr(percent, closing - percent));
      at = closing;
    }
  }
  onText(text.substr(at));
}

// The value of a text that is one reference to a variable and nothing else; null for any other
// text.
const cvn::String* FindSingleReference(cvn::StringView text, VariableStore* variables) {
  if (text.size() < 3 || text.front() != u'%' || text.back() != u'%') {
    return nullptr;
  }
  const cvn::StringView name = text.substr(1, text.size() - 2);
  return name.find(u'%') == kNone && name.find_first_of(u"[]") == kNone ? variables->Find(name)
                                                                        : nullptr;
}

}  // namespace

cvn::String ExpandVariables(const cvn::String& text, VariableStore* variables) {
  const cvn::StringView view = text;
  const std::size_t percent = cvn::FindUnit(view, u'%');
  if (percent == kNone) {
    return text;
  }
  if (const cvn::String* value = FindSingleReference(view, variables)) {
    return *value;
  }
  cvn::String out;
  TakeApart(
      view, percent, [&out](cvn::StringView piece) { out.Append(piece); },
      [&](cvn::StringView name) { return AppendReference(name, variables, &out); });
  return out;
}

void VisitReferences(cvn::StringView text,
                     const std::function<bool(cvn::StringView name)>& stands) {
  TakeApart(
      text, cvn::FindUnit(text, u'%'), [](cvn::StringView /*piece*/) {}, stands);
}

}  // namespace tessel
