#include "tools/tlx/flow_label.h"

#include "engine/script_command.h"
#include "support/numbers.h"
#include "support/utf.h"
#include "tools/tlx/html_text.h"

namespace tlx {
namespace {

// Of a command's attributes the first of these tells most about it.
constexpr const char* kTelling[] = {"target", "path", "src", "file",   "dir",   "xpath",
                                    "key",    "name", "var", "handle", "value", "milisec"};

bool IsExit(const FlowCommand& command) {
  return command.record != nullptr && command.record->kind == tessel::FunctionKind::ExitResult;
}

}  // namespace

std::string TellingOf(const FlowCommand& command) {
  const TiXmlElement& element = *command.element;
  if (IsExit(command)) {
    return std::to_string(cvn::ReadInt32(cvn::Utf8ToWide(AttributeOf(element, "code"))));
  }
  if (element.ValueStr() == "test") {
    std::string text(AttributeOf(element, "left"));
    text.append(" ").append(AttributeOf(element, "operator")).append(" ");
    return text.append(AttributeOf(element, "right"));
  }
  for (const char* name : kTelling) {
    const std::string_view value = AttributeOf(element, name);
    if (!value.empty()) {
      return std::string(value);
    }
  }
  return {};
}

std::string NameOf(const FlowList& list) {
  std::string name = list.element->ValueStr();
  if (name == tessel::kOnErrorSpec) {
    name.append(" ").append(AttributeOf(*list.element, "err"));
  }
  return name;
}

std::string Shortened(std::string_view utf8, std::size_t bytes) {
  const CutText cut = CutUtf8(utf8, bytes);
  return std::string(cut.shown) + (cut.leftOut == 0 ? "" : "...");
}

}  // namespace tlx
