// Commands over JSON documents.
#include <exception>
#include <functional>
#include <optional>
#include <utility>

#include "commands/common/families.h"
#include "commands/documents/document_commands.h"
#include "commands/documents/json_document.h"
#include "commands/documents/json_enumeration.h"
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

struct FunctionJsonOpen : FunctionOnFile {
  void Execute() override;
};

void FunctionJsonOpen::Execute() {
  const cvn::String file = ExpandVariables(path, variables);
  TraceLine(u"jsonOpen begin [handle = %s] [path = %s]", handle, file);
  auto document = std::make_shared<JsonDocument>();
  std::string text;
  const bool opened = platform::ReadTextFile(file, &text) == platform::kSuccess &&
                      ParseJson(text, JsonComments::Keep, &document->root);
  if (opened) {
    SetObject(handle, document, ObjectType::JsonDocument, objects);
  }
  const Code code = opened ? platform::kSuccess : platform::kFileNotFound;
  TraceLine(u"jsonOpen end   [handle = %s] [path = %s] [error = %d]", handle, file, code);
  ReportCode(code);
}

constexpr FailureDescription kOpenFailures[] = {
    {u"2", u"the file can't be read, or isn't JSON"},
};

constexpr CommandDescription kJsonOpen = {
    .purpose = u"Opens a JSON file.",
    .attributes = kOpenAttributes<kJsonDocumentKind>,
    .failures = kOpenFailures,
};

struct FunctionJsonSave : FunctionOnFile {
  void Execute() override;
};

void FunctionJsonSave::Execute() {
  const cvn::String file = ExpandVariables(path, variables);
  TraceLine(u"jsonSave begin [handle = %s] [path = %s]", handle, file);
  const Code code = Guarded([&] {
    JsonPlace place;
    const bool saved = ResolveHandle(handle, *objects, &place) &&
                       platform::SaveTextFile(file, PrintJson(*place.value)) == platform::kSuccess;
    return saved ? platform::kSuccess : kFunctionFailed;
  });
  ReportCode(code);
  TraceLine(u"jsonSave end   [handle = %s] [path = %s] [error = %d]", handle, file, code);
}

constexpr AttributeDescription kSaveAttributes[] = {
    HeldHandle<&FunctionOnFile::handle>(u"handle", kJsonDocumentKind | kJsonElementKind,
                                        u"The document, or a value in one."),
    kSavedFile,
};

constexpr FailureDescription kSaveFailures[] = {
    {u"1627", u"there is no such handle, or the file can't be written"},
};

constexpr CommandDescription kJsonSave = {
    .purpose = u"Writes a JSON document, or a part of one, to a file. It stays open.",
    .attributes = kSaveAttributes,
    .failures = kSaveFailures,
    .notes = u"The file is in UTF-8 with a byte-order mark, and its lines end in CR LF.",
};

struct FunctionJsonClose : FunctionCloseDocument {
  void Execute() override {
    TraceLine(u"jsonClose      [handle = %s]", handle);
    CloseHandle();
  }
};

constexpr CommandDescription kJsonClose = {
    .purpose = u"Closes a JSON document, without saving it.",
    .attributes = kCloseAttributes,
    .notes = kCloseNotes,
};

// A command on the value that a path leads to from the value of a handle.
struct FunctionOnJson : FunctionRetError {
  cvn::String handle;
  cvn::String path;
};

constexpr AttributeDescription kHandle = HeldHandle<&FunctionOnJson::handle>(
    u"handle", kJsonDocumentKind | kJsonElementKind, u"The document, or a value in one.");

cvn::StringView JudgePath(cvn::StringView value) {
  return IsJsonPath(cvn::WideToUtf8(value)) ? cvn::StringView()
                                            : u"isn't a path that leads anywhere";
}

cvn::StringView JudgeText(cvn::StringView value) {
  Json::Value parsed;
  return ParseJson(cvn::WideToUtf8(value), JsonComments::Drop, &parsed) ? cvn::StringView()
                                                                        : u"isn't JSON";
}

constexpr AttributeDescription kPlace = Judged(
    Expanded<&FunctionOnJson::path>(
        u"path", Presence::Required,
        u"The path to the value, such as `users/list[0]name`. Empty for the value of the handle."),
    JudgePath);

constexpr FailureDescription kNoHandle = {
    u"1168", u"there is no such handle, or its value or document is gone"};
constexpr FailureDescription kNoWay = {u"1627", u"`path` isn't valid, or can't be made"};

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

struct FunctionJsonGetValue : FunctionOnJson {
  void Execute() override;

  cvn::String var;
};

void FunctionJsonGetValue::Execute() {
  const cvn::String expanded = ExpandVariables(path, variables);
  TraceLine(u"jsonGetValue begin       [handle = %s] [path = %s] [variable = %s]", handle, expanded,
            var);
  const Code code = Guarded([&] {
    JsonPlace place;
    if (!ResolveHandle(handle, *objects, &place)) {
      return platform::kNotFound;
    }
    cvn::String text;
    if (!WalkJson(cvn::WideToUtf8(expanded), false, &place) || !TextOf(*place.value, &text)) {
      return kFunctionFailed;
    }
    SetVariable(var, text, variables);
    return platform::kSuccess;
  });
  TraceLine(u"jsonGetValue end         [handle = %s] [path = %s] [error = %d]", handle, expanded,
            code);
  ReportCode(code);
}

constexpr AttributeDescription kGetValueAttributes[] = {
    kHandle,
    kPlace,
    Variable<&FunctionJsonGetValue::var>(
        u"var", Presence::Required,
        u"Receives the value as text. After a failure it keeps what it had."),
};

constexpr FailureDescription kGetValueFailures[] = {
    kNoHandle,
    {u"1627", u"there is no value at `path`, or it is no text, boolean or whole number of 32 bits"},
};

constexpr CommandDescription kJsonGetValue = {
    .purpose = u"Sets a variable to a text, a whole number or a boolean of the document.",
    .attributes = kGetValueAttributes,
    .failures = kGetValueFailures,
    .notes = u"A null counts as missing.",
};

// The three setters differ in what they make of the text.
struct FunctionJsonSetValue : FunctionOnJson {
  // `begin` and `end` are the words of the trace.
  void Set(cvn::StringView begin, cvn::StringView end, Json::Value (*make)(const cvn::String&));

  cvn::String value;
};

void FunctionJsonSetValue::Set(cvn::StringView begin, cvn::StringView end,
                               Json::Value (*make)(const cvn::String&)) {
  const cvn::String text = ExpandVariables(value, variables);
  const cvn::String expanded = ExpandVariables(path, variables);
  TraceLine(u"%s [handle = %s] [path = %s] [value = %s]", begin, handle, expanded, text);
  const Code code = Guarded([&] { return WriteAt(handle, expanded, make(text), *objects); });
  TraceLine(u"%s [handle = %s] [path = %s] [error = %d]", end, handle, expanded, code);
  ReportCode(code);
}

constexpr FailureDescription kSetFailures[] = {kNoHandle, kNoWay};

constexpr cvn::StringView kSetNotes =
    u"What is missing on the way is made, and what stands in the way is replaced by an object: "
    u"`a/b` makes an object of a number `a`.";

struct FunctionJsonSetStringValue : FunctionJsonSetValue {
  void Execute() override {
    Set(u"jsonSetStringValue begin", u"jsonSetStringValue end  ",
        [](const cvn::String& text) { return Json::Value(cvn::WideToUtf8(text)); });
  }
};

constexpr AttributeDescription kSetStringValueAttributes[] = {
    kHandle,
    kPlace,
    Expanded<&FunctionJsonSetValue::value>(u"value", Presence::Required, u"The text."),
};

constexpr CommandDescription kJsonSetStringValue = {
    .purpose = u"Puts a text at a place, instead of what stands there.",
    .attributes = kSetStringValueAttributes,
    .failures = kSetFailures,
    .notes = kSetNotes,
};

struct FunctionJsonSetIntValue : FunctionJsonSetValue {
  void Execute() override {
    Set(u"jsonSetIntValue begin   ", u"jsonSetIntValue end     ",
        [](const cvn::String& text) { return Json::Value(cvn::ReadInt32(text)); });
  }
};

constexpr AttributeDescription kSetIntValueAttributes[] = {
    kHandle,
    kPlace,
    Expanded<&FunctionJsonSetValue::value>(
        u"value", Presence::Required,
        u"The whole number, of 32 bits. What is no number counts as 0."),
};

constexpr CommandDescription kJsonSetIntValue = {
    .purpose = u"Puts a whole number at a place, instead of what stands there.",
    .attributes = kSetIntValueAttributes,
    .failures = kSetFailures,
    .notes = kSetNotes,
};

struct FunctionJsonSetBoolValue : FunctionJsonSetValue {
  void Execute() override {
    // Readers of traces know booleans by the lines of integers.
    Set(u"jsonSetIntValue begin   ", u"jsonSetIntValue end     ",
        [](const cvn::String& text) { return Json::Value(text != u"false" && text != u"0"); });
  }
};

constexpr AttributeDescription kSetBoolValueAttributes[] = {
    kHandle,
    kPlace,
    Expanded<&FunctionJsonSetValue::value>(
        u"value", Presence::Required,
        u"`false` or `0` for false. Anything else is true, an empty text and `False` too."),
};

constexpr cvn::StringView kSetBoolNotes =
    u"What is missing on the way is made, and what stands in the way is replaced by an object. In "
    u"the trace the command goes by `jsonSetIntValue`.";

constexpr CommandDescription kJsonSetBoolValue = {
    .purpose = u"Puts true or false at a place, instead of what stands there.",
    .attributes = kSetBoolValueAttributes,
    .failures = kSetFailures,
    .notes = kSetBoolNotes,
};

enum class Step { Begin, Next };

constexpr Word<Step> kSteps[] = {{u"begin", Step::Begin}, {u"next", Step::Next}};

// Gives a value a handle, or walks the elements of an array. There is one such walk in the process.
struct FunctionJsonGetElement : FunctionOnJson {
  void Execute() override;

  cvn::String destHandle;
  std::optional<Step> step;
};

void FunctionJsonGetElement::Execute() {
  const cvn::String expanded = ExpandVariables(path, variables);
  TraceLine(u"jsonGetElement begin     [handle = %s] [path = %s] [dest handle = %s]", handle,
            expanded, destHandle);
  const Code code = Guarded([&] {
    JsonPlace place;
    if (!ResolveHandle(handle, *objects, &place)) {
      return platform::kNotFound;
    }
    if (!step) {
      if (!WalkJson(cvn::WideToUtf8(expanded), false, &place)) {
        return kFunctionFailed;
      }
      SetElementHandle(destHandle, place, objects);
      return platform::kSuccess;
    }
    const Code begun = step == Step::Begin ? BeginEnumeration(cvn::WideToUtf8(expanded), &place)
                                           : platform::kSuccess;
    return begun == platform::kSuccess ? TakeNextElement(destHandle, objects) : begun;
  });
  TraceLine(u"jsonGetElement end       [handle = %s] [path = %s] [error = %d]", handle, expanded,
            code);
  ReportCode(code);
}

constexpr AttributeDescription kGetElementAttributes[] = {
    kHandle,
    Judged(Expanded<&FunctionOnJson::path>(
               u"path", Presence::NonEmpty,
               u"The path to the value, such as `users/list[0]name`; with `begin`, to the array."),
           JudgePath),
    kElementHandle<FunctionJsonGetElement, kJsonElementKind>,
    OptionalChoice<&FunctionJsonGetElement::step, kSteps>(
        u"enumStep",
        u"Walks an array: `begin` takes its first element, `next` the one that follows, and then "
        u"`path` doesn't count. Empty, or missing, it takes the value at `path`.",
        u"next"),
};

constexpr FailureDescription kGetElementFailures[] = {
    {u"1168",
     u"there is no such handle, or its value or document is gone; or with `begin`, there is no "
     u"value at `path`"},
    {u"1388", u"with `begin`, the value at `path` is no array"},
    {u"1413", u"there is no next element"},
    {u"1627", u"there is no value at `path`"},
};

constexpr CommandDescription kJsonGetElement = {
    .purpose = u"Keeps a value under a handle of its own, or walks the elements of an array.",
    .attributes = kGetElementAttributes,
    .failures = kGetElementFailures,
    .notes =
        u"There is one walk at a time: `begin` ends an earlier one. A null counts as missing. "
        u"Behind an index the next name follows without a separator.",
};

// Puts a JSON text's value at a place, in place of what stands there.
struct FunctionJsonAddChild : FunctionOnJson {
  void Execute() override;

  cvn::String data;
};

void FunctionJsonAddChild::Execute() {
  const cvn::String text = ExpandVariables(data, variables);
  const cvn::String expanded = ExpandVariables(path, variables);
  TraceLine(u"jsonAddChild begin       [handle = %s] [path = %s] [data = %s]", handle, expanded,
            text);
  const Code code = Guarded([&] {
    Json::Value value;
    return ParseJson(cvn::WideToUtf8(text), JsonComments::Drop, &value)
               ? WriteAt(handle, expanded, std::move(value), *objects)
               : kInvalidData;
  });
  TraceLine(u"jsonAddChild end         [handle = %s] [path = %s] [error = %d]", handle, expanded,
            code);
  ReportCode(code);
}

constexpr AttributeDescription kAddChildAttributes[] = {
    kHandle,
    kPlace,
    Judged(Expanded<&FunctionJsonAddChild::data>(u"data", Presence::NonEmpty,
                                                 u"The new value, as JSON."),
           JudgeText),
};

constexpr FailureDescription kAddChildFailures[] = {
    {u"13", u"`data` isn't JSON"},
    kNoHandle,
    kNoWay,
};

constexpr CommandDescription kJsonAddChild = {
    .purpose = u"Puts a value at a place, instead of what stands there.",
    .attributes = kAddChildAttributes,
    .failures = kAddChildFailures,
    .notes = kSetNotes,
};

struct FunctionJsonRemoveChild : FunctionOnJson {
  void Execute() override;
};

void FunctionJsonRemoveChild::Execute() {
  const cvn::String expanded = ExpandVariables(path, variables);
  TraceLine(u"jsonRemoveChild begin    [handle = %s] [path = %s]", handle, expanded);
  const Code code = Guarded([&] {
    JsonPlace place;
    if (!ResolveHandle(handle, *objects, &place)) {
      return platform::kNotFound;
    }
    RemoveJson(cvn::WideToUtf8(expanded), &place);
    return platform::kSuccess;
  });
  TraceLine(u"jsonRemoveChild end      [handle = %s] [path = %s] [error = %d]", handle, expanded,
            code);
  ReportCode(code);
}

cvn::StringView JudgeRemoval(cvn::StringView value) {
  const std::size_t slash = value.rfind(u'/');
  if (slash == cvn::StringView::npos) {
    return u"looks for a member in the member of the same name; with '/' in front, for the member";
  }
  const std::size_t bracket = value.find(u'[', slash);
  if (bracket != cvn::StringView::npos && bracket > slash + 1) {
    return u"removes no element of an array; the index follows a '/'";
  }
  return JudgePath(value.substr(0, slash));
}

constexpr AttributeDescription kRemoveChildAttributes[] = {
    kHandle,
    Judged(Expanded<&FunctionOnJson::path>(
               u"path", Presence::NonEmpty,
               u"The path to the member, or to the element of an array: `/name`, `users/name`, "
               u"`list/2`."),
           JudgeRemoval),
};

constexpr FailureDescription kRemoveChildFailures[] = {kNoHandle};

constexpr CommandDescription kJsonRemoveChild = {
    .purpose = u"Removes a member of an object, or an element of an array.",
    .attributes = kRemoveChildAttributes,
    .failures = kRemoveChildFailures,
    .notes =
        u"What is missing is no failure, and a text or a number has no members to remove. A member "
        u"of the handle's own value needs the slash: `name` means the member `name` of the member "
        u"`name`. An element goes by `list/2` or `list/[2]`; `list[2]` doesn't remove it.",
};

constexpr CommandRecord kCommands[] = {
    Command<FunctionJsonOpen>(u"jsonOpen", kJsonOpen),
    Command<FunctionJsonSave>(u"jsonSave", kJsonSave),
    Command<FunctionJsonClose>(u"jsonClose", kJsonClose),
    Command<FunctionJsonGetValue>(u"jsonGetValue", kJsonGetValue),
    Command<FunctionJsonSetStringValue>(u"jsonSetStringValue", kJsonSetStringValue),
    Command<FunctionJsonSetIntValue>(u"jsonSetIntValue", kJsonSetIntValue),
    Command<FunctionJsonSetBoolValue>(u"jsonSetBoolValue", kJsonSetBoolValue),
    Command<FunctionJsonGetElement>(u"jsonGetElement", kJsonGetElement),
    Command<FunctionJsonAddChild>(u"jsonAddChild", kJsonAddChild),
    Command<FunctionJsonRemoveChild>(u"jsonRemoveChild", kJsonRemoveChild),
};

}  // namespace

constinit const CommandFamily kJsonFamily = {
    .title = u"JSON documents",
    .introduction =
        uR"md(
Handles are as for XML documents. Nothing is saved without `jsonSave`.

A path has names between `/` or `\`, and indices in brackets, behind which the next name follows without a separator:
`list[0]name`, and `list[0][1]`. A name can't hold one of these characters. Where a command makes what is missing, the
elements of an array below a new one become nulls.

What a save changes:

- The layout, and the order of an object's members, which are sorted by name. Of two with one name the last one stays.
- Numbers that aren't whole, or don't fit 64 bits. They keep 17 digits: `1.50` becomes `1.5`, `0.1` becomes
  `0.10000000000000001`, `1e3` becomes `1000.0`.
- Texts. Characters beyond ASCII become `\u` with their code, and `\/` becomes `/`.
- Comments. They move along with the value in front of them on its line, or else with the one behind them; those that are
  alone in `{}`, or belong to a member that goes, are lost, and one alone in `[]` makes `jsonOpen` fail.
- What isn't read. A text behind the document's value, and all behind a zero or a Ctrl+Z, is lost.
- The encoding, to UTF-8 with a byte-order mark and CR LF. Bytes that aren't UTF-8 become U+FFFD.
)md",
    .commands = kCommands,
    .sample = u"settings.json",
};

}  // namespace tessel
