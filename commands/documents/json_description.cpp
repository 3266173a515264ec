#include "commands/documents/document_descriptions.h"
#include "commands/documents/json.h"

namespace tessel {
namespace {

constexpr AttributeDescription kHandle = {u"handle", AttributeForm::Handle, Presence::NonEmpty,
                                          u"The document, or a value in one."};

constexpr AttributeDescription kSaveAttributes[] = {
    kHandle,
    {u"path", AttributeForm::Expanded, Presence::NonEmpty, u"The file to write."},
};

constexpr AttributeDescription kPlace = {
    u"path", AttributeForm::Expanded, Presence::Required,
    u"The path to the value, such as `users/list[0]name`. Empty for the value of the handle."};

constexpr AttributeDescription kAddChildAttributes[] = {
    kHandle,
    kPlace,
    {u"data", AttributeForm::Expanded, Presence::NonEmpty, u"The new value, as JSON."},
};

constexpr AttributeDescription kRemoveChildAttributes[] = {
    kHandle,
    {u"path", AttributeForm::Expanded, Presence::NonEmpty,
     u"The path to the member, or to the element of an array: `/name`, `users/name`, `list/2`."},
};

constexpr AttributeDescription kSetStringValueAttributes[] = {
    kHandle,
    kPlace,
    {u"value", AttributeForm::Expanded, Presence::Required, u"The text."},
};

constexpr AttributeDescription kSetIntValueAttributes[] = {
    kHandle,
    kPlace,
    {u"value", AttributeForm::Expanded, Presence::Required,
     u"The whole number, of 32 bits. What is no number counts as 0."},
};

constexpr AttributeDescription kSetBoolValueAttributes[] = {
    kHandle,
    kPlace,
    {u"value", AttributeForm::Expanded, Presence::Required,
     u"`false` or `0` for false. Anything else is true, an empty text and `False` too."},
};

constexpr AttributeDescription kGetValueAttributes[] = {
    kHandle,
    kPlace,
    {u"var", AttributeForm::Variable, Presence::Required,
     u"Receives the value as text. After a failure it keeps what it had."},
};

constexpr cvn::StringView kSteps[] = {u"begin", u"next"};

constexpr AttributeDescription kGetElementAttributes[] = {
    kHandle,
    {u"path", AttributeForm::Expanded, Presence::NonEmpty,
     u"The path to the value, such as `users/list[0]name`; with `begin`, to the array."},
    kElementHandle,
    {
        .name = u"enumStep",
        .form = AttributeForm::Choice,
        .presence = Presence::Optional,
        .meaning = u"Walks an array: `begin` takes its first element, `next` the one that follows, "
                   u"and then `path` doesn't count. Empty, or missing, it takes the value at "
                   u"`path`.",
        .choices = kSteps,
        .othersCountAs = u"next",
    },
};

constexpr FailureDescription kNoHandle = {
    u"1168", u"there is no such handle, or its value or document is gone"};
constexpr FailureDescription kNoWay = {u"1627", u"`path` isn't valid, or can't be made"};

constexpr FailureDescription kOpenFailures[] = {
    {u"2", u"the file can't be read, or isn't JSON"},
};

constexpr FailureDescription kSaveFailures[] = {
    {u"1627", u"there is no such handle, or the file can't be written"},
};

constexpr FailureDescription kAddChildFailures[] = {
    {u"13", u"`data` isn't JSON"},
    kNoHandle,
    kNoWay,
};

constexpr FailureDescription kRemoveChildFailures[] = {kNoHandle};

constexpr FailureDescription kSetFailures[] = {kNoHandle, kNoWay};

constexpr FailureDescription kGetValueFailures[] = {
    kNoHandle,
    {u"1627", u"there is no value at `path`, or it is no text, boolean or whole number of 32 bits"},
};

constexpr FailureDescription kGetElementFailures[] = {
    {u"1168",
     u"there is no such handle, or its value or document is gone; or with `begin`, there is no "
     u"value at `path`"},
    {u"1388", u"with `begin`, the value at `path` is no array"},
    {u"1413", u"there is no next element"},
    {u"1627", u"there is no value at `path`"},
};

constexpr cvn::StringView kSetNotes =
    u"What is missing on the way is made, and what stands in the way is replaced by an object: "
    u"`a/b` makes an object of a number `a`.";

constexpr cvn::StringView kSetBoolNotes =
    u"What is missing on the way is made, and what stands in the way is replaced by an object. In "
    u"the trace the command goes by `jsonSetIntValue`.";

}  // namespace

constinit const CommandDescription FunctionJsonOpen::kDescription = {
    .purpose = u"Opens a JSON file.",
    .attributes = kOpenAttributes,
    .failures = kOpenFailures,
};

constinit const CommandDescription FunctionJsonClose::kDescription = {
    .purpose = u"Closes a JSON document, without saving it.",
    .attributes = kCloseAttributes,
    .notes = kCloseNotes,
};

constinit const CommandDescription FunctionJsonSave::kDescription = {
    .purpose = u"Writes a JSON document, or a part of one, to a file. It stays open.",
    .attributes = kSaveAttributes,
    .failures = kSaveFailures,
    .notes = u"The file is in UTF-8 with a byte-order mark, and its lines end in CR LF.",
};

constinit const CommandDescription FunctionJsonAddChild::kDescription = {
    .purpose = u"Puts a value at a place, instead of what stands there.",
    .attributes = kAddChildAttributes,
    .failures = kAddChildFailures,
    .notes = kSetNotes,
};

constinit const CommandDescription FunctionJsonRemoveChild::kDescription = {
    .purpose = u"Removes a member of an object, or an element of an array.",
    .attributes = kRemoveChildAttributes,
    .failures = kRemoveChildFailures,
    .notes =
        u"What is missing is no failure, and a text or a number has no members to remove. A member "
        u"of the handle's own value needs the slash: `name` means the member `name` of the member "
        u"`name`. An element goes by `list/2` or `list/[2]`; `list[2]` doesn't remove it.",
};

constinit const CommandDescription FunctionJsonSetStringValue::kDescription = {
    .purpose = u"Puts a text at a place, instead of what stands there.",
    .attributes = kSetStringValueAttributes,
    .failures = kSetFailures,
    .notes = kSetNotes,
};

constinit const CommandDescription FunctionJsonSetIntValue::kDescription = {
    .purpose = u"Puts a whole number at a place, instead of what stands there.",
    .attributes = kSetIntValueAttributes,
    .failures = kSetFailures,
    .notes = kSetNotes,
};

constinit const CommandDescription FunctionJsonSetBoolValue::kDescription = {
    .purpose = u"Puts true or false at a place, instead of what stands there.",
    .attributes = kSetBoolValueAttributes,
    .failures = kSetFailures,
    .notes = kSetBoolNotes,
};

constinit const CommandDescription FunctionJsonGetValue::kDescription = {
    .purpose = u"Sets a variable to a text, a whole number or a boolean of the document.",
    .attributes = kGetValueAttributes,
    .failures = kGetValueFailures,
    .notes = u"A null counts as missing.",
};

constinit const CommandDescription FunctionJsonGetElement::kDescription = {
    .purpose = u"Keeps a value under a handle of its own, or walks the elements of an array.",
    .attributes = kGetElementAttributes,
    .failures = kGetElementFailures,
    .notes =
        u"There is one walk at a time: `begin` ends an earlier one. A null counts as missing. "
        u"Behind an index the next name follows without a separator.",
};

}  // namespace tessel
