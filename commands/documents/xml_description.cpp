#include "commands/documents/document_descriptions.h"
#include "commands/documents/xml.h"

namespace tessel {
namespace {

constexpr AttributeDescription kHandle = {u"handle", AttributeForm::Handle, Presence::NonEmpty,
                                          u"The document, or an element in one."};

constexpr AttributeDescription kSaveAttributes[] = {
    {u"handle", AttributeForm::Handle, Presence::NonEmpty,
     u"The document. An element can't be saved by itself."},
    {u"path", AttributeForm::Expanded, Presence::NonEmpty, u"The file to write."},
};

constexpr AttributeDescription kAddChildAttributes[] = {
    kHandle,
    {u"xpath", AttributeForm::Expanded, Presence::NonEmpty, u"The element to add it to."},
    {u"data", AttributeForm::Expanded, Presence::NonEmpty,
     u"The new element, as XML. Only the first element of the text counts."},
    {u"cdata", AttributeForm::Expanded, Presence::Optional,
     u"A text for a CDATA section at the new element's end. Empty for none."},
    {u"insert_before", AttributeForm::Expanded, Presence::Optional,
     u"The path of the child to put it in front of, seen from the same place as `xpath`. Empty for "
     u"none."},
    {u"insert_after", AttributeForm::Expanded, Presence::Optional,
     u"The path of the child to put it behind, seen from the same place as `xpath`. Empty for "
     u"none; `insert_before` goes first."},
};

constexpr AttributeDescription kRemoveChildAttributes[] = {
    kHandle,
    {u"xpath", AttributeForm::Expanded, Presence::NonEmpty, u"The element to remove."},
};

constexpr AttributeDescription kSetValueAttributes[] = {
    kHandle,
    {u"xpath", AttributeForm::Expanded, Presence::NonEmpty,
     u"The element or the attribute to set. When nothing is left of it after the references are "
     u"replaced, the element of the handle."},
    {u"value", AttributeForm::Expanded, Presence::Required, u"The text."},
};

constexpr AttributeDescription kGetValueAttributes[] = {
    kHandle,
    {u"xpath", AttributeForm::Expanded, Presence::NonEmpty,
     u"Any expression of XPath 1.0: a path, or a function such as `count()`."},
    {u"var", AttributeForm::Variable, Presence::Required, u"Receives the result as text."},
};

constexpr AttributeDescription kGetElementAttributes[] = {
    kHandle,
    {u"xpath", AttributeForm::Expanded, Presence::NonEmpty,
     u"The path to the element. When nothing is left of it after the references are replaced, the "
     u"element of the handle."},
    kElementHandle,
};

constexpr FailureDescription kNoHandle = {
    u"6", u"there is no such handle, or its element or document is gone"};
constexpr FailureDescription kNoRoot = {u"1168", u"the document has no element left"};
constexpr FailureDescription kOther = {u"", u"any other code of the system"};

constexpr FailureDescription kOpenFailures[] = {
    {u"2", u"the file is missing, or isn't well-formed XML"},
    {u"3", u"the file's folder is missing"},
    {u"5", u"access is denied"},
    kOther,
};

constexpr FailureDescription kSaveFailures[] = {
    {u"3", u"the file's folder is missing"},
    {u"5", u"access is denied"},
    {u"6", u"there is no such document"},
    {u"29", u"the file can't be written, and the system doesn't tell why"},
    {u"112", u"the disk is full"},
    kOther,
};

constexpr FailureDescription kAddChildFailures[] = {
    {u"3", u"there is no element at `xpath`, or it isn't valid"},
    kNoHandle,
    {u"13", u"`data` isn't an element in XML, or would lie too deep in the document"},
    kNoRoot,
};

constexpr FailureDescription kRemoveChildFailures[] = {
    kNoHandle,
    {u"1168", u"there is no element at `xpath`, or it isn't valid"},
};

constexpr FailureDescription kSetValueFailures[] = {
    kNoHandle,
    {u"1168", u"there is nothing to set at `xpath`, or it isn't valid"},
};

constexpr FailureDescription kSetCDataValueFailures[] = {
    {u"Invalid handle value", u"there is no such handle, or its element or document is gone"},
    {u"Could not convert to XML handle type", u"the document has no element left"},
    {u"Invalid handle type", u"the handle is one of a JSON document, or an array"},
    {u"Could not set value", u"there is nothing to set at `xpath`, or it isn't valid"},
};

constexpr FailureDescription kGetValueFailures[] = {
    {u"3", u"`xpath` isn't valid"},
    kNoHandle,
    kNoRoot,
};

constexpr FailureDescription kGetElementFailures[] = {
    {u"3", u"there is no element at `xpath`, or it isn't valid"},
    kNoHandle,
    kNoRoot,
};

constexpr cvn::StringView kSetNotes =
    u"All that an element holds is replaced by the text. An attribute is made when it is missing "
    u"and its element is there, and `xpath` ends in its name: `server/@port`. An element is never "
    u"made.";

}  // namespace

constinit const CommandDescription FunctionXmlOpen::kDescription = {
    .purpose = u"Opens an XML file.",
    .attributes = kOpenAttributes,
    .failures = kOpenFailures,
    .notes =
        u"The file is in UTF-8, or in UTF-16 with a byte-order mark, whatever its declaration "
        u"says.",
};

constinit const CommandDescription FunctionXmlClose::kDescription = {
    .purpose = u"Closes an XML document, without saving it.",
    .attributes = kCloseAttributes,
    .notes = kCloseNotes,
};

constinit const CommandDescription FunctionXmlSave::kDescription = {
    .purpose = u"Writes an XML document to a file. It stays open.",
    .attributes = kSaveAttributes,
    .failures = kSaveFailures,
    .notes =
        u"The file is in UTF-8 with a byte-order mark, and its lines end in CR LF. An encoding "
        u"in the declaration stays as it was.",
};

constinit const CommandDescription FunctionXmlAddChild::kDescription = {
    .purpose = u"Adds an element to another one, as its last child unless said otherwise.",
    .attributes = kAddChildAttributes,
    .failures = kAddChildFailures,
    .notes =
        u"When `insert_before` or `insert_after` finds an element that is no child of the one "
        u"at `xpath`, the command succeeds and adds nothing. When it finds none, the new "
        u"element becomes the last child.",
};

constinit const CommandDescription FunctionXmlRemoveChild::kDescription = {
    .purpose = u"Removes an element with all that it holds.",
    .attributes = kRemoveChildAttributes,
    .failures = kRemoveChildFailures,
    .notes = u"Attributes, texts and comments can't be removed.",
};

constinit const CommandDescription FunctionXmlSetValue::kDescription = {
    .purpose = u"Sets the text of an element, or an attribute.",
    .attributes = kSetValueAttributes,
    .failures = kSetValueFailures,
    .notes = kSetNotes,
};

constinit const CommandDescription FunctionXmlSetCDataValue::kDescription = {
    .purpose = u"Sets what `xmlSetValue` sets, and the same way: it makes no CDATA section.",
    .attributes = kSetValueAttributes,
    .failures = kSetCDataValueFailures,
    .notes =
        u"Its failures are words, and unlike any other command it forgets an earlier failure. "
        u"In the trace it begins as `xmlSetValue`.",
};

constinit const CommandDescription FunctionXmlGetValue::kDescription = {
    .purpose = u"Sets a variable to what an expression gives.",
    .attributes = kGetValueAttributes,
    .failures = kGetValueFailures,
    .notes = u"A path that finds nothing is no failure, and empties the variable.",
};

constinit const CommandDescription FunctionXmlGetElement::kDescription = {
    .purpose = u"Keeps an element under a handle of its own.",
    .attributes = kGetElementAttributes,
    .failures = kGetElementFailures,
    .notes = u"In the trace it ends as `xmlGetValue`.",
};

}  // namespace tessel
