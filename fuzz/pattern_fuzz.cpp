// Patterns of scripts: the first line is the pattern, the rest the text.
#include "commands/common/whole_text_pattern.h"
#include "fuzz/input.h"
#include "support/utf.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tessel::fuzz::Input input(data, size);
  const cvn::String source = cvn::Utf8ToWide(input.Line());
  const cvn::String text = cvn::Utf8ToWide(input.Rest());
  tessel::WholeTextPattern pattern;
  if (!pattern.Compile(source)) {
    return 0;
  }
  using Outcome = tessel::WholeTextPattern::Outcome;
  cvn::StringView part;
  const Outcome whole = pattern.MatchGroup(text, 0, &part);
  tessel::fuzz::Require(whole != Outcome::Match || part == text.AsView(),
                        "a match covers the whole text");
  for (const std::uint32_t group : {1U, 2U, 0xFFFFFFFFU}) {
    const Outcome outcome = pattern.MatchGroup(text, group, &part);
    tessel::fuzz::Require(outcome == whole || outcome == Outcome::NoMatch,
                          "only what matches has groups");
  }
  return 0;
}
