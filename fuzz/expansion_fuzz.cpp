// Variables, arrays and the expansion of references. Each line but the last defines a variable
// ("name=text"); the last is expanded.
#include "engine/variable_store.h"
#include "fuzz/input.h"
#include "support/utf.h"

namespace tessel::fuzz {
namespace {

void Define(std::string_view line, VariableStore* variables) {
  const std::size_t sign = line.find('=');
  if (sign == std::string_view::npos) {
    return;
  }
  const cvn::String name = cvn::Utf8ToWide(line.substr(0, sign));
  const cvn::String text = cvn::Utf8ToWide(line.substr(sign + 1));
  SetVariable(name, text, variables);
  const cvn::String* held = variables->Find(name);
  // An index that is expanded may have a random number in it.
  const bool isPlain = line.substr(0, sign).find('%') == std::string_view::npos;
  Require(held == nullptr || !isPlain || *held == text, "a variable holds what it was given");
}

}  // namespace
}  // namespace tessel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tessel::ObjectStore objects;
  tessel::VariableStore variables(&objects);
  tessel::fuzz::Input input(data, size);
  std::string_view line = input.Line();
  while (!input.IsEmpty()) {
    tessel::fuzz::Define(line, &variables);
    line = input.Line();
  }
  const cvn::String text = cvn::Utf8ToWide(line);
  const cvn::String expanded = tessel::ExpandVariables(text, &variables);
  tessel::fuzz::Require(text.AsView().find(u'%') != cvn::StringView::npos || expanded == text,
                        "a text without a percent sign expands to itself");
  return 0;
}
