// Commands over XML documents.
#include <string>

#include "commands/common/families.h"
#include "commands/documents/ccvn_tiny_xml.h"
#include "commands/documents/document_commands.h"
#include "commands/documents/xml_shield.h"
#include "engine/variable_store.h"
#include "platform/error.h"
#include "support/utf.h"
#include "trace/trace.h"

namespace tessel {
namespace {

// Where an expression starts: the root element of a document, or the element that a handle holds.
struct XmlContext {
  std::shared_ptr<CCVNTinyXml> document;
  TiXmlElement* element = nullptr;
  std::uint32_t code = platform::kInvalidHandle;  // 0 when there is an element
};

XmlContext ResolveHandle(const cvn::String& handle, const ObjectStore& objects) {
  XmlContext context;
  const ObjectRecord* record = objects.Find(handle);
  if (record == nullptr) {
    return context;
  }
  if (record->type == ObjectType::XmlDocument) {
    context.document = std::static_pointer_cast<CCVNTinyXml>(record->pointer);
    context.element = context.document->GetRootElement();
    context.code = context.element == nullptr ? platform::kNotFound : platform::kSuccess;
  } else if (record->type == ObjectType::XmlElement) {
    const auto* held = static_cast<const XmlElementHandle*>(record->pointer.get());
    context.document = held->Document();
    if (context.document != nullptr) {
      context.element = held->Element();
      context.code = platform::kSuccess;
    }
  }
  return context;
}

std::uint32_t LastErrorOr(std::uint32_t code) {
  const std::uint32_t last = platform::LastError();
  return last == platform::kSuccess ? code : last;
}

struct FunctionXmlOpen : FunctionOnFile {
  void Execute() override;
};

void FunctionXmlOpen::Execute() {
  const cvn::String file = ExpandVariables(path, variables);
  TraceLine(u"xmlOpen from '%s'.handle: %s", file, handle);
  auto document = std::make_shared<CCVNTinyXml>();
  if (document->Load(file)) {
    SetObject(handle, document, ObjectType::XmlDocument, objects);
  } else {
    ReportCode(LastErrorOr(platform::kFileNotFound));
  }
  TraceEnd(u"xmlOpen");
}

constexpr FailureDescription kOther = {u"", u"any other code of the system"};

constexpr FailureDescription kOpenFailures[] = {
    {u"2", u"the file is missing, or isn't well-formed XML"},
    {u"3", u"the file's folder is missing"},
    {u"5", u"access is denied"},
    kOther,
};

constexpr CommandDescription kXmlOpen = {
    .purpose = u"Opens an XML file.",
    .attributes = kOpenAttributes<kXmlDocumentKind>,
    .failures = kOpenFailures,
    .notes =
        u"The file is in UTF-8, or in UTF-16 with a byte-order mark, whatever its declaration "
        u"says. Bytes that aren't become U+FFFD, and such a document can be read but not saved.",
};

struct FunctionXmlSave : FunctionOnFile {
  void Execute() override;
};

void FunctionXmlSave::Execute() {
  const cvn::String file = ExpandVariables(path, variables);
  TraceLine(u"xmlSave in '%s'.handle: %s", file, handle);
  const ObjectRecord* record = objects->Find(handle);
  if (record == nullptr || record->type != ObjectType::XmlDocument) {
    ReportCode(platform::kInvalidHandle);
  } else if (!static_cast<CCVNTinyXml*>(record->pointer.get())->Save(file)) {
    ReportCode(LastErrorOr(platform::kWriteFault));
  }
  TraceEnd(u"xmlSave");
}

constexpr AttributeDescription kSaveAttributes[] = {
    HeldHandle<&FunctionOnFile::handle>(u"handle", kXmlDocumentKind,
                                        u"The document. An element can't be saved by itself."),
    kSavedFile,
};

constexpr FailureDescription kSaveFailures[] = {
    {u"3", u"the file's folder is missing"},
    {u"5", u"access is denied"},
    {u"6", u"there is no such document"},
    {u"13",
     u"the new file would not be well-formed, or would lack something of the old one, which stays"},
    {u"29", u"the file can't be written, and the system doesn't tell why"},
    {u"112", u"the disk is full"},
    kOther,
};

constexpr CommandDescription kXmlSave = {
    .purpose = u"Writes an XML document to a file. It stays open.",
    .attributes = kSaveAttributes,
    .failures = kSaveFailures,
    .notes =
        u"The file is in UTF-8 with a byte-order mark, and its lines end in CR LF. An encoding "
        u"in the declaration stays as it was.",
};

struct FunctionXmlClose : FunctionCloseDocument {
  void Execute() override {
    TraceLine(u"xmlClose for handle: %s", handle);
    CloseHandle();
  }
};

constexpr CommandDescription kXmlClose = {
    .purpose = u"Closes an XML document, without saving it.",
    .attributes = kCloseAttributes,
    .notes = kCloseNotes,
};

// A command on what an expression finds from the element of a handle.
struct FunctionOnXml : FunctionRetError {
  cvn::String handle;
  cvn::String xpath;
};

constexpr AttributeDescription kHandle = HeldHandle<&FunctionOnXml::handle>(
    u"handle", kXmlDocumentKind | kXmlElementKind, u"The document, or an element in one.");

cvn::StringView JudgeXPath(cvn::StringView value) {
  return KindOfXPath(cvn::WideToUtf8(value)) == XPathKind::Invalid ? u"isn't valid XPath"
                                                                   : cvn::StringView();
}

cvn::StringView JudgePath(cvn::StringView value) {
  switch (value.empty() ? XPathKind::Nodes : KindOfXPath(cvn::WideToUtf8(value))) {
    case XPathKind::Invalid:
      return u"isn't valid XPath";
    case XPathKind::Value:
      return u"is an expression that leads to no element";
    case XPathKind::Nodes:
      break;
  }
  return {};
}

cvn::StringView JudgeFragment(cvn::StringView value) {
  TiXmlDocument parsed;
  return CCVNTinyXml::ParseElement(value, &parsed) == nullptr ? u"isn't an element in XML"
                                                              : cvn::StringView();
}

// The place of what a command finds, and what that means to it.
constexpr AttributeDescription XPath(cvn::StringView meaning) {
  return Judged(Expanded<&FunctionOnXml::xpath>(u"xpath", Presence::NonEmpty, meaning), JudgePath);
}

constexpr FailureDescription kNoHandle = {
    u"6", u"there is no such handle, or its element or document is gone"};
constexpr FailureDescription kNoRoot = {u"1168", u"the document has no element left"};

struct FunctionXmlGetValue : FunctionOnXml {
  void Execute() override;

  cvn::String var;
};

void FunctionXmlGetValue::Execute() {
  const cvn::String expression = ExpandVariables(xpath, variables);
  TraceLine(u"xmlGetValue in '%s' at '%s'. variable: '%s'", handle, expression, var);
  const XmlContext context = ResolveHandle(handle, *objects);
  std::string text;
  if (context.code != platform::kSuccess) {
    ReportCode(context.code);
  } else if (!context.document->EvaluateText(context.element, cvn::WideToUtf8(expression), &text)) {
    ReportCode(platform::kPathNotFound);
  } else {
    SetVariable(var, cvn::Utf8ToWide(text), variables);
  }
  TraceEnd(u"xmlGetValue");
}

constexpr AttributeDescription kGetValueAttributes[] = {
    kHandle,
    Judged(XPath(u"Any expression of XPath 1.0: a path, or a function such as `count()`."),
           JudgeXPath),
    Variable<&FunctionXmlGetValue::var>(u"var", Presence::Required,
                                        u"Receives the result as text."),
};

constexpr FailureDescription kGetValueFailures[] = {
    {u"3", u"`xpath` isn't valid"},
    kNoHandle,
    kNoRoot,
};

constexpr CommandDescription kXmlGetValue = {
    .purpose = u"Sets a variable to what an expression gives.",
    .attributes = kGetValueAttributes,
    .failures = kGetValueFailures,
    .notes = u"A path that finds nothing is no failure, and empties the variable.",
};

struct FunctionXmlSetValue : FunctionOnXml {
  void Execute() override;

  cvn::String value;
};

void FunctionXmlSetValue::Execute() {
  const cvn::String text = ExpandVariables(value, variables);
  const cvn::String expression = ExpandVariables(xpath, variables);
  TraceLine(u"xmlSetValue in '%s' at '%s'. value: '%s'", handle, expression, text);
  const XmlContext context = ResolveHandle(handle, *objects);
  if (context.code != platform::kSuccess) {
    ReportCode(context.code);
  } else if (!context.document->SetValue(context.element, cvn::WideToUtf8(expression),
                                         cvn::WideToUtf8(text))) {
    ReportCode(platform::kNotFound);
  }
  TraceEnd(u"xmlSetValue");
}

constexpr AttributeDescription kSetValueAttributes[] = {
    kHandle,
    XPath(
        u"The element or the attribute to set. When nothing is left of it after the references are "
        u"replaced, the element of the handle."),
    Expanded<&FunctionXmlSetValue::value>(u"value", Presence::Required, u"The text."),
};

constexpr FailureDescription kSetValueFailures[] = {
    kNoHandle,
    {u"1168", u"there is nothing to set at `xpath`, or it isn't valid"},
};

constexpr cvn::StringView kSetNotes =
    u"All that an element holds is replaced by the text. An attribute is made when it is missing "
    u"and its element is there, and `xpath` ends in its name: `server/@port`. An element is never "
    u"made.";

constexpr CommandDescription kXmlSetValue = {
    .purpose = u"Sets the text of an element, or an attribute.",
    .attributes = kSetValueAttributes,
    .failures = kSetValueFailures,
    .notes = kSetNotes,
};

// Despite its name it sets plain text too. It says in words what went wrong, and forgets an earlier
// failure.
struct FunctionXmlSetCDataValue : FunctionXmlSetValue {
  void Execute() override;
  void Fail(cvn::StringView words);
};

void FunctionXmlSetCDataValue::Execute() {
  hasError = false;
  error = cvn::String();
  const cvn::String text = ExpandVariables(value, variables);
  const cvn::String expression = ExpandVariables(xpath, variables);
  TraceLine(u"xmlSetValue in '%s' at '%s'. value: '%s'", handle, expression, text);
  const ObjectRecord* record = objects->Find(handle);
  const XmlContext context = ResolveHandle(handle, *objects);
  if (record != nullptr && record->type != ObjectType::XmlDocument &&
      record->type != ObjectType::XmlElement) {
    Fail(u"Invalid handle type");
  } else if (context.code == platform::kNotFound) {
    Fail(u"Could not convert to XML handle type");
  } else if (context.code != platform::kSuccess) {
    Fail(u"Invalid handle value");
  } else if (!context.document->SetValue(context.element, cvn::WideToUtf8(expression),
                                         cvn::WideToUtf8(text))) {
    Fail(u"Could not set value");
  }
  TraceEnd(u"xmlSetCDataValue");
}

void FunctionXmlSetCDataValue::Fail(cvn::StringView words) {
  error = words;
  hasError = true;
}

constexpr FailureDescription kSetCDataValueFailures[] = {
    {u"Invalid handle value", u"there is no such handle, or its element or document is gone"},
    {u"Could not convert to XML handle type", u"the document has no element left"},
    {u"Invalid handle type", u"the handle is one of a JSON document, or an array"},
    {u"Could not set value", u"there is nothing to set at `xpath`, or it isn't valid"},
};

constexpr CommandDescription kXmlSetCDataValue = {
    .purpose = u"Sets what `xmlSetValue` sets, and the same way: it makes no CDATA section.",
    .attributes = kSetValueAttributes,
    .failures = kSetCDataValueFailures,
    .notes =
        u"Its failures are words, and unlike any other command it forgets an earlier failure. "
        u"In the trace it begins as `xmlSetValue`.",
};

struct FunctionXmlGetElement : FunctionOnXml {
  void Execute() override;

  cvn::String destHandle;
};

void FunctionXmlGetElement::Execute() {
  const cvn::String expression = ExpandVariables(xpath, variables);
  TraceLine(u"xmlGetElement in '%s' at '%s'. destHandle: '%s'", handle, expression, destHandle);
  const XmlContext context = ResolveHandle(handle, *objects);
  if (context.code != platform::kSuccess) {
    ReportCode(context.code);
  } else {
    TiXmlElement* element = expression.Empty() ? context.element
                                               : context.document->FindElement(
                                                     context.element, cvn::WideToUtf8(expression));
    if (element == nullptr) {
      ReportCode(platform::kPathNotFound);
    } else {
      SetObject(destHandle, context.document->HandleTo(element), ObjectType::XmlElement, objects);
    }
  }
  TraceEnd(u"xmlGetValue");
}

constexpr AttributeDescription kGetElementAttributes[] = {
    kHandle,
    XPath(u"The path to the element. When nothing is left of it after the references are replaced, "
          u"the element of the handle."),
    kElementHandle<FunctionXmlGetElement, kXmlElementKind>,
};

constexpr FailureDescription kGetElementFailures[] = {
    {u"3", u"there is no element at `xpath`, or it isn't valid"},
    kNoHandle,
    kNoRoot,
};

constexpr CommandDescription kXmlGetElement = {
    .purpose = u"Keeps an element under a handle of its own.",
    .attributes = kGetElementAttributes,
    .failures = kGetElementFailures,
    .notes = u"In the trace it ends as `xmlGetValue`.",
};

struct FunctionXmlAddChild : FunctionOnXml {
  void Execute() override;
  std::uint32_t AddChild(const cvn::String& xml, const std::string& expression,
                         const std::string& before, const std::string& after,
                         const std::string& section);

  cvn::String data;
  cvn::String cdata;
  cvn::String insertBefore;
  cvn::String insertAfter;
};

void FunctionXmlAddChild::Execute() {
  const cvn::String text = ExpandVariables(data, variables);
  const cvn::String expression = ExpandVariables(xpath, variables);
  const std::string before = cvn::WideToUtf8(ExpandVariables(insertBefore, variables));
  const std::string after = cvn::WideToUtf8(ExpandVariables(insertAfter, variables));
  const std::string section = cvn::WideToUtf8(ExpandVariables(cdata, variables));
  TraceLine(u"xmlAddChild in '%s' at '%s'. xml: '%s'", handle, expression, text);
  ReportCode(AddChild(text, cvn::WideToUtf8(expression), before, after, section));
  TraceEnd(u"xmlAddChild");
}

std::uint32_t FunctionXmlAddChild::AddChild(const cvn::String& xml, const std::string& expression,
                                            const std::string& before, const std::string& after,
                                            const std::string& section) {
  TiXmlDocument parsed;
  TiXmlElement* added = CCVNTinyXml::ParseElement(xml, &parsed);
  if (added == nullptr) {
    return kInvalidData;
  }
  const XmlContext context = ResolveHandle(handle, *objects);
  if (context.code != platform::kSuccess) {
    return context.code;
  }
  TiXmlElement* target = context.document->FindElement(context.element, expression);
  TiXmlElement* beforeElement = context.document->FindElement(context.element, before);
  TiXmlElement* afterElement = context.document->FindElement(context.element, after);
  if (target == nullptr) {
    return platform::kPathNotFound;
  }
  if (!CCVNTinyXml::FitsBelow(*target, *added)) {
    return kInvalidData;
  }
  if (!section.empty()) {
    auto* text = new TiXmlText(SplitIntoSections(section));
    text->SetCDATA(true);
    added->LinkEndChild(text);
  }
  context.document->AddChild(target, *added, beforeElement, afterElement);
  return platform::kSuccess;
}

constexpr AttributeDescription kAddChildAttributes[] = {
    kHandle,
    XPath(u"The element to add it to."),
    Judged(Expanded<&FunctionXmlAddChild::data>(
               u"data", Presence::NonEmpty,
               u"The new element, as XML. Only the first element of the text counts."),
           JudgeFragment),
    Expanded<&FunctionXmlAddChild::cdata>(
        u"cdata", Presence::Optional,
        u"A text for a CDATA section at the new element's end. Empty for none."),
    Judged(Expanded<&FunctionXmlAddChild::insertBefore>(
               u"insert_before", Presence::Optional,
               u"The path of the child to put it in front of, seen from the same place as `xpath`. "
               u"Empty for none."),
           JudgePath),
    Judged(
        Expanded<&FunctionXmlAddChild::insertAfter>(
            u"insert_after", Presence::Optional,
            u"The path of the child to put it behind, seen from the same place as `xpath`. Empty "
            u"for none; `insert_before` goes first."),
        JudgePath),
};

constexpr FailureDescription kAddChildFailures[] = {
    {u"3", u"there is no element at `xpath`, or it isn't valid"},
    kNoHandle,
    {u"13", u"`data` isn't an element in XML, or would lie too deep in the document"},
    kNoRoot,
};

constexpr CommandDescription kXmlAddChild = {
    .purpose = u"Adds an element to another one, as its last child unless said otherwise.",
    .attributes = kAddChildAttributes,
    .failures = kAddChildFailures,
    .notes =
        u"When `insert_before` or `insert_after` finds an element that is no child of the one "
        u"at `xpath`, the command succeeds and adds nothing. When it finds none, the new "
        u"element becomes the last child.",
};

struct FunctionXmlRemoveChild : FunctionOnXml {
  void Execute() override;
};

void FunctionXmlRemoveChild::Execute() {
  const cvn::String expression = ExpandVariables(xpath, variables);
  TraceLine(u"xmlRemoveChild in '%s' at '%s'", handle, expression);
  const XmlContext context = ResolveHandle(handle, *objects);
  if (context.code == platform::kSuccess) {
    TiXmlElement* element =
        context.document->FindElement(context.element, cvn::WideToUtf8(expression));
    if (element == nullptr || element->Parent() == nullptr) {
      ReportCode(platform::kNotFound);
    } else {
      context.document->Remove(element);
    }
  } else {
    ReportCode(context.code);
  }
  TraceEnd(u"xmlRemoveChild");
}

constexpr AttributeDescription kRemoveChildAttributes[] = {
    kHandle,
    XPath(u"The element to remove."),
};

constexpr FailureDescription kRemoveChildFailures[] = {
    kNoHandle,
    {u"1168", u"there is no element at `xpath`, or it isn't valid"},
};

constexpr CommandDescription kXmlRemoveChild = {
    .purpose = u"Removes an element with all that it holds.",
    .attributes = kRemoveChildAttributes,
    .failures = kRemoveChildFailures,
    .notes = u"Attributes, texts and comments can't be removed.",
};

constexpr CommandRecord kCommands[] = {
    Command<FunctionXmlOpen>(u"xmlOpen", kXmlOpen),
    Command<FunctionXmlSave>(u"xmlSave", kXmlSave),
    Command<FunctionXmlClose>(u"xmlClose", kXmlClose),
    Command<FunctionXmlGetValue>(u"xmlGetValue", kXmlGetValue),
    Command<FunctionXmlSetValue>(u"xmlSetValue", kXmlSetValue),
    Command<FunctionXmlSetCDataValue>(u"xmlSetCDataValue", kXmlSetCDataValue),
    Command<FunctionXmlGetElement>(u"xmlGetElement", kXmlGetElement),
    Command<FunctionXmlAddChild>(u"xmlAddChild", kXmlAddChild),
    Command<FunctionXmlRemoveChild>(u"xmlRemoveChild", kXmlRemoveChild),
};

}  // namespace

constinit const CommandFamily kXmlFamily = {
    .title = u"XML documents",
    .introduction =
        uR"md(
A document is opened under a handle, a name that is used as written; handles and arrays must not share names. Nothing is
saved without `xmlSave`. A handle whose document or element is gone answers as an unknown one.

XPath is version 1.0, seen from the root element, or from the element of the handle: `server/@port`, and not
`settings/server/@port`. `string-length`, `substring` and `translate` count characters: a letter beyond ASCII is one, and
so is one that UTF-16 writes as a pair.

A document type, instructions, comments and references to entities that the document type declares, or may, stay as they
are; an expression sees `&name;`. Something that has no place in XML, such as a text behind the last element, a `&` that
begins no reference or the name of an unknown entity, makes `xmlOpen` fail instead, and so does an element with more than
1,000 attributes. What a save changes:

- The layout. Elements, comments and instructions have lines of their own, indented by four blanks a level; only a single
  text stands between its tags. An empty element becomes `<name />`, a value in `'` is put in `"` where it can be.
- Blanks in texts, `xml:space` or not. Those at both ends go, also beside an element: `<b>c</b> d` becomes `<b>c</b>d`.
  Others in a row become one blank. In CDATA sections, and as references (`&#10;`), they stay.
- References. A character's becomes the character, and `"`, `'`, `>` become references. A line end or a tab in a value
  becomes `&#x0A;` or `&#x09;`. What looks like a hexadecimal reference in a text is one when it is saved: `&amp;#x41;`
  comes out as `&#x41;`.
- The encoding, to UTF-8 with a byte-order mark and CR LF. The declaration still names the old one, which some readers
  then refuse or take for true: let the script save only files whose declaration says UTF-8, or nothing.
)md",
    .commands = kCommands,
    .sample = u"settings.xml",
};

}  // namespace tessel
