#include "platform/formats/command_line.h"

#include <algorithm>

#include "platform/formats/names.h"

namespace platform::posix {
namespace {

constexpr cvn::StringView kBlanks = u" \t";

bool IsBlank(char16_t c) { return kBlanks.find(c) != cvn::StringView::npos; }

// Takes one argument off the front of `*text`, which does not begin with a blank.
std::u16string TakeArgument(cvn::StringView* text) {
  std::u16string argument;
  bool isQuoted = false;
  while (!text->empty() && (isQuoted || !IsBlank(text->front()))) {
    const std::size_t backslashes = std::min(text->find_first_not_of(u'\\'), text->size());
    text->remove_prefix(backslashes);
    if (!text->starts_with(u'"')) {
      argument.append(backslashes, u'\\');
      const std::size_t plain = backslashes == 0 ? 1 : 0;
      argument.append(text->substr(0, plain));
      text->remove_prefix(plain);
      continue;
    }
    text->remove_prefix(1);
    argument.append(backslashes / 2, u'\\');
    const bool isDouble = backslashes % 2 == 0 && isQuoted && text->starts_with(u'"');
    if (isDouble) {
      text->remove_prefix(1);
    }
    if (isDouble || backslashes % 2 != 0) {
      argument.push_back(u'"');
    } else {
      isQuoted = !isQuoted;
    }
  }
  return argument;
}

}  // namespace

std::size_t FirstArgumentLength(cvn::StringView commandLine) {
  bool isQuoted = false;
  std::size_t at = 0;
  for (; at < commandLine.size() && (isQuoted || !IsBlank(commandLine[at])); ++at) {
    isQuoted ^= commandLine[at] == u'"';
  }
  return at;
}

void AppendArguments(cvn::StringView text, std::vector<std::string>* arguments) {
  for (;;) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    if (text.empty()) {
      return;
    }
    AppendHostText(TakeArgument(&text), &arguments->emplace_back());
  }
}

}  // namespace platform::posix
