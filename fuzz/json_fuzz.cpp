// JSON documents and the language of paths. The first line is a path, the second what is to be put
// there; the rest is the document.
#include <algorithm>
#include <exception>
#include <string>

#include "commands/documents/json_document.h"
#include "commands/documents/json_text.h"
#include "fuzz/input.h"

namespace tessel::fuzz {
namespace {

// As in the commands, what the library can't print is an error and not a crash.
bool Print(const Json::Value& value, std::string* text) {
  try {
    *text = PrintJson(value);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

// Prints of longer arrays would take most of the time.
constexpr Json::ArrayIndex kLongestPrinted = 50;

// Returns whether the document is worth printing.
bool ChangeAt(const std::string& path, const std::string& added,
              const std::shared_ptr<JsonDocument>& document) {
  Json::Value value;
  if (!ParseJson(added, JsonComments::Drop, &value)) {
    value = added;
  }
  JsonPlace place{document, &document->root, {}};
  const auto root = std::make_shared<JsonElementHandle>(document, &document->root, JsonRoute());
  std::shared_ptr<JsonElementHandle> held;
  if (WalkJson(path, false, &place)) {
    held = std::make_shared<JsonElementHandle>(document, place.value, place.route);
  }
  place = {document, &document->root, {}};
  const bool isMade = WalkJson(path, true, &place);
  const bool isShort =
      std::none_of(place.route.begin(), place.route.end(),
                   [](const JsonStep& step) { return step.index > kLongestPrinted; });
  if (!isMade) {
    return isShort;
  }
  document->Forget(place.route, false);
  *place.value = value;
  Require(root->Document() != nullptr, "nothing takes a document's root away");
  if (held != nullptr && held->Document() != nullptr) {
    std::string text;
    Print(*held->Value(), &text);
  }
  JsonPlace again{document, &document->root, {}};
  const bool found = WalkJson(path, false, &again);
  Require(value.isNull() || (found && again.value == place.value),
          "what was put at a path is found there");
  return isShort;
}

void OpenChangeAndSave(Input* input) {
  const std::string path(input->Line());
  const std::string added(input->Line());
  const auto document = std::make_shared<JsonDocument>();
  if (!ParseJson(std::string(input->Rest()), JsonComments::Keep, &document->root)) {
    return;
  }
  try {
    if (!ChangeAt(path, added, document)) {
      return;
    }
  } catch (const std::exception&) {
    return;
  }
  std::string text;
  Json::Value again;
  if (Print(document->root, &text)) {
    ParseJson(text, JsonComments::Keep, &again);
  }
}

}  // namespace
}  // namespace tessel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tessel::fuzz::Input input(data, size);
  tessel::fuzz::OpenChangeAndSave(&input);
  return 0;
}
