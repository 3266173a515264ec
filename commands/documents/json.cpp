#include "commands/documents/json.h"

#include <exception>
#include <functional>

#include "commands/documents/json_document.h"
#include "commands/documents/json_text.h"
#include "engine/variable_store.h"
#include "platform/error.h"
#include "platform/text_file.h"
#include "support/format.h"
#include "support/numbers.h"
#include "support/utf.h"
#include "trace/trace.h"

namespace tessel {
namespace {

using platform::Code;

constexpr Code kInvalidData = 13;
constexpr Code kInvalidMember = 1388;
constexpr Code kInvalidIndex = 1413;
constexpr Code kFunctionFailed = 1627;

// The value that a handle holds. False when it holds none.
bool ResolveHandle(const cvn::String& handle, const ObjectStore& objects, JsonPlace* place) {
  const ObjectRecord* record = objects.Find(handle);
  if (record == nullptr) {
    return false;
  }
  if (record->type == ObjectType::JsonDocument) {
    place->document = std::static_pointer_cast<JsonDocument>(record->pointer);
    place->value = &place->document->root;
  } else if (record->type == ObjectType::JsonElement) {
    const auto* held = static_cast<const JsonElementHandle*>(record->pointer.get());
    place->document = held->Document();
    place->value = held->Value();
    place->route = held->Route();
  }
  return place->document != nullptr;
}

void SetElementHandle(const cvn::String& name, const JsonPlace& place, ObjectStore* objects) {
  SetObject(name, std::make_shared<JsonElementHandle>(place.document, place.value, place.route),
            ObjectType::JsonElement, objects);
}

// Puts `value` at `path` below what the handle holds.
Code WriteAt(const cvn::String& handle, const cvn::String& path, Json::Value value,
             const ObjectStore& objects) {
  JsonPlace place;
  if (!ResolveHandle(handle, objects, &place)) {
    return platform::kNotFound;
  }
  if (!WalkJson(cvn::WideToUtf8(path), true, &place)) {
    return kFunctionFailed;
  }
  place.document->Forget(place.route, false);
  *place.value = std::move(value);
  return platform::kSuccess;
}

// Runs a command's body. The library reports what it can't do by exceptions, none of which may
// pass.
Code Guarded(const std::function<Code()>& body) {
  try {
    return body();
  } catch (const std::exception&) {
    return kFunctionFailed;
  }
}

}  // namespace

void FunctionJsonOpen::Execute() {
  const cvn::String path = ExpandVariables(path_, variables);
  TraceLine(u"jsonOpen begin [handle = %s] [path = %s]", handle_, path);
  auto document = std::make_shared<JsonDocument>();
  std::string text;
  const bool opened = platform::ReadTextFile(path, &text) == platform::kSuccess &&
                      ParseJson(text, JsonComments::Keep, &document->root);
  if (opened) {
    SetObject(handle_, document, ObjectType::JsonDocument, objects);
  }
  const Code code = opened ? platform::kSuccess : platform::kFileNotFound;
  TraceLine(u"jsonOpen end   [handle = %s] [path = %s] [error = %d]", handle_, path, code);
  ReportCode(code);
}

void FunctionJsonClose::Execute() {
  TraceLine(u"jsonClose      [handle = %s]", handle_);
  CloseHandle();
}

void FunctionJsonSave::Execute() {
  const cvn::String path = ExpandVariables(path_, variables);
  TraceLine(u"jsonSave begin [handle = %s] [path = %s]", handle_, path);
  const Code code = Guarded([&] {
    JsonPlace place;
    const bool saved = ResolveHandle(handle_, *objects, &place) &&
                       platform::SaveTextFile(path, PrintJson(*place.value)) == platform::kSuccess;
    return saved ? platform::kSuccess : kFunctionFailed;
  });
  ReportCode(code);
  TraceLine(u"jsonSave end   [handle = %s] [path = %s] [error = %d]", handle_, path, code);
}

bool FunctionJsonAddChild::Parse() {
  return ReadAttribute(u"path", &path_) && ReadNonEmpty(u"handle", &handle_) &&
         ReadNonEmpty(u"data", &data_);
}

void FunctionJsonAddChild::Execute() {
  const cvn::String data = ExpandVariables(data_, variables);
  const cvn::String path = ExpandVariables(path_, variables);
  TraceLine(u"jsonAddChild begin       [handle = %s] [path = %s] [data = %s]", handle_, path, data);
  const Code code = Guarded([&] {
    Json::Value value;
    return ParseJson(cvn::WideToUtf8(data), JsonComments::Drop, &value)
               ? WriteAt(handle_, path, std::move(value), *objects)
               : kInvalidData;
  });
  TraceLine(u"jsonAddChild end         [handle = %s] [path = %s] [error = %d]", handle_, path,
            code);
  ReportCode(code);
}

namespace {

// Removes an element and closes the gap.
void RemoveElement(JsonPlace* place, std::string_view leaf) {
  leaf.remove_prefix(std::min(leaf.find_first_not_of("[%"), leaf.size()));
  leaf = leaf.substr(0, leaf.find_last_not_of(']') + 1);
  const std::int32_t removed = cvn::ReadInt32(cvn::Utf8ToWide(leaf));
  if (removed < 0 || !place->value->isValidIndex(static_cast<Json::ArrayIndex>(removed))) {
    return;
  }
  place->document->Forget(place->route, false);
  Json::Value rest(Json::arrayValue);
  for (Json::ArrayIndex index = 0; index < place->value->size(); ++index) {
    if (index != static_cast<Json::ArrayIndex>(removed)) {
      rest.append(std::move((*place->value)[index]));
    }
  }
  *place->value = std::move(rest);
}

// What is neither array nor object holds nothing to remove, and the library would fail on it.
void RemoveAt(std::string_view path, JsonPlace* place) {
  const std::size_t slash = path.rfind('/');
  // Without a slash the whole path is both: what holds the leaf, and the leaf.
  const std::string_view parent = slash == std::string_view::npos ? path : path.substr(0, slash);
  const std::string_view leaf = slash == std::string_view::npos ? path : path.substr(slash + 1);
  if (leaf.empty() || !WalkJson(parent, false, place)) {
    return;
  }
  if (place->value->isArray()) {
    RemoveElement(place, leaf);
  } else if (place->value->isObject()) {
    JsonRoute route = place->route;
    route.push_back({std::string(leaf), 0});
    place->document->Forget(route, true);
    place->value->removeMember(std::string(leaf));
  }
}

}  // namespace

void FunctionJsonRemoveChild::Execute() {
  const cvn::String path = ExpandVariables(path_, variables);
  TraceLine(u"jsonRemoveChild begin    [handle = %s] [path = %s]", handle_, path);
  const Code code = Guarded([&] {
    JsonPlace place;
    if (!ResolveHandle(handle_, *objects, &place)) {
      return platform::kNotFound;
    }
    RemoveAt(cvn::WideToUtf8(path), &place);
    return platform::kSuccess;
  });
  TraceLine(u"jsonRemoveChild end      [handle = %s] [path = %s] [error = %d]", handle_, path,
            code);
  ReportCode(code);
}

bool FunctionJsonSetValue::Parse() {
  return ReadAttribute(u"path", &path_) && ReadNonEmpty(u"handle", &handle_) &&
         ReadAttribute(u"value", &value_);
}

void FunctionJsonSetStringValue::Execute() {
  const cvn::String value = ExpandVariables(value_, variables);
  const cvn::String path = ExpandVariables(path_, variables);
  TraceLine(u"jsonSetStringValue begin [handle = %s] [path = %s] [value = %s]", handle_, path,
            value);
  const Code code =
      Guarded([&] { return WriteAt(handle_, path, cvn::WideToUtf8(value), *objects); });
  TraceLine(u"jsonSetStringValue end   [handle = %s] [path = %s] [error = %d]", handle_, path,
            code);
  ReportCode(code);
}

void FunctionJsonSetIntValue::Execute() {
  const cvn::String value = ExpandVariables(value_, variables);
  const cvn::String path = ExpandVariables(path_, variables);
  TraceLine(u"jsonSetIntValue begin    [handle = %s] [path = %s] [value = %s]", handle_, path,
            value);
  const Code code =
      Guarded([&] { return WriteAt(handle_, path, cvn::ReadInt32(value), *objects); });
  TraceLine(u"jsonSetIntValue end      [handle = %s] [path = %s] [error = %d]", handle_, path,
            code);
  ReportCode(code);
}

void FunctionJsonSetBoolValue::Execute() {
  const cvn::String value = ExpandVariables(value_, variables);
  const cvn::String path = ExpandVariables(path_, variables);
  // Readers of traces know booleans by the lines of integers.
  TraceLine(u"jsonSetIntValue begin    [handle = %s] [path = %s] [value = %s]", handle_, path,
            value);
  const bool isTrue = value != u"false" && value != u"0";
  const Code code = Guarded([&] { return WriteAt(handle_, path, isTrue, *objects); });
  TraceLine(u"jsonSetIntValue end      [handle = %s] [path = %s] [error = %d]", handle_, path,
            code);
  ReportCode(code);
}

bool FunctionJsonGetValue::Parse() {
  return ReadAttribute(u"path", &path_) && ReadNonEmpty(u"handle", &handle_) &&
         ReadAttribute(u"var", &var_);
}

namespace {

// The text that a variable gets of a value. False for a value that has none.
bool TextOf(const Json::Value& value, cvn::String* text) {
  if (value.isString()) {
    *text = cvn::Utf8ToWide(value.asString());
  } else if (value.isInt()) {
    *text = cvn::Format(u"%d", value.asInt());
  } else if (value.isBool()) {
    *text = value.asBool() ? u"true" : u"false";
  } else {
    return false;
  }
  return true;
}

// The array that is being walked, and the element that comes next.
struct Enumeration {
  std::shared_ptr<JsonElementHandle> array;
  Json::ArrayIndex next = 0;
};

Enumeration& CurrentEnumeration() {
  static Enumeration enumeration;
  return enumeration;
}

Code BeginEnumeration(const std::string& path, JsonPlace* place) {
  if (!WalkJson(path, false, place)) {
    return platform::kNotFound;
  }
  if (!place->value->isArray()) {
    return kInvalidMember;
  }
  CurrentEnumeration() = {
      std::make_shared<JsonElementHandle>(place->document, place->value, place->route), 0};
  return platform::kSuccess;
}

Code TakeNextElement(const cvn::String& destHandle, ObjectStore* objects) {
  Enumeration& enumeration = CurrentEnumeration();
  if (enumeration.array == nullptr) {
    return kInvalidIndex;
  }
  JsonPlace place{enumeration.array->Document(), enumeration.array->Value(),
                  enumeration.array->Route()};
  if (place.document == nullptr) {
    return platform::kNotFound;
  }
  if (!place.value->isArray() || !place.value->isValidIndex(enumeration.next)) {
    return kInvalidIndex;
  }
  place.value = &(*place.value)[enumeration.next];
  place.route.push_back({std::string(), enumeration.next});
  SetElementHandle(destHandle, place, objects);
  ++enumeration.next;
  return platform::kSuccess;
}

}  // namespace

void FunctionJsonGetValue::Execute() {
  const cvn::String path = ExpandVariables(path_, variables);
  TraceLine(u"jsonGetValue begin       [handle = %s] [path = %s] [variable = %s]", handle_, path,
            var_);
  const Code code = Guarded([&] {
    JsonPlace place;
    if (!ResolveHandle(handle_, *objects, &place)) {
      return platform::kNotFound;
    }
    cvn::String text;
    if (!WalkJson(cvn::WideToUtf8(path), false, &place) || !TextOf(*place.value, &text)) {
      return kFunctionFailed;
    }
    SetVariable(var_, text, variables);
    return platform::kSuccess;
  });
  TraceLine(u"jsonGetValue end         [handle = %s] [path = %s] [error = %d]", handle_, path,
            code);
  ReportCode(code);
}

bool FunctionJsonGetElement::Parse() {
  ReadAttribute(u"enumStep", &enumStep_);
  return ReadNonEmpty(u"path", &path_) && ReadNonEmpty(u"handle", &handle_) &&
         ReadNonEmpty(u"destHandle", &destHandle_);
}

void FunctionJsonGetElement::Execute() {
  const cvn::String path = ExpandVariables(path_, variables);
  TraceLine(u"jsonGetElement begin     [handle = %s] [path = %s] [dest handle = %s]", handle_, path,
            destHandle_);
  const Code code = Guarded([&] {
    JsonPlace place;
    if (!ResolveHandle(handle_, *objects, &place)) {
      return platform::kNotFound;
    }
    if (enumStep_.Empty()) {
      if (!WalkJson(cvn::WideToUtf8(path), false, &place)) {
        return kFunctionFailed;
      }
      SetElementHandle(destHandle_, place, objects);
      return platform::kSuccess;
    }
    const Code begun = enumStep_ == u"begin" ? BeginEnumeration(cvn::WideToUtf8(path), &place)
                                             : platform::kSuccess;
    return begun == platform::kSuccess ? TakeNextElement(destHandle_, objects) : begun;
  });
  TraceLine(u"jsonGetElement end       [handle = %s] [path = %s] [error = %d]", handle_, path,
            code);
  ReportCode(code);
}

}  // namespace tessel
