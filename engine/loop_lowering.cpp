#include "engine/loop_lowering.h"

#include <algorithm>
#include <bit>

#include "support/format.h"
#include "support/utf.h"

namespace tessel {
namespace {

// Characters that one round of a `for` takes at most.
constexpr const char* kLongestPiece = "10000";

// An element that a loop is rewritten to has no place in the text; the loop's goes with it, and
// with each copy of it, as the data that TinyXML has for its users.
static_assert(sizeof(ScriptPlace) == sizeof(void*), "a place takes the room of a pointer");

void SetPlace(TiXmlElement* element, ScriptPlace place) {
  element->SetUserData(std::bit_cast<void*>(place));
}

// Builds what takes the loop's place, element after element.
class Lowering {
 public:
  Lowering(TiXmlElement* parent, TiXmlElement* loop)
      : parent_(parent), loop_(loop), place_(PlaceOf(*loop)) {}

  // The loop's attribute; empty when there is none.
  std::string Attribute(const AttributeDescription& attribute) const {
    const std::string* value = loop_->Attribute(cvn::WideToUtf8(attribute.name));
    return value == nullptr ? std::string() : *value;
  }

  // Adds a copy of `element`, and gives it.
  TiXmlElement* AddCopy(const TiXmlElement& element) {
    return parent_->InsertBeforeChild(loop_, element)->ToElement();
  }
  // Adds an element that stands for a part of the loop.
  TiXmlElement* Add(const TiXmlElement& element) {
    TiXmlElement* added = AddCopy(element);
    SetPlace(added, place_);
    place_.isWithinLoop = 1;
    return added;
  }
  TiXmlElement* Add(const char* name) { return Add(TiXmlElement(name)); }
  void AddLabel(const std::string& label) { Add("nothing")->SetAttribute("id", label); }
  void AddGoTo(const std::string& label) { Add("goto")->SetAttribute("target", label); }

  void AddBody() {
    const TiXmlElement* element = loop_->FirstChildElement();
    for (; element != nullptr; element = element->NextSiblingElement()) {
      AddCopy(*element);
    }
  }

 private:
  TiXmlElement* parent_;
  TiXmlElement* loop_;
  ScriptPlace place_;  // of the element to come
};

// A token that no other loop of the document has: an address within it.
std::string TokenOf(const TiXmlElement* element) {
  return cvn::WideToUtf8(cvn::Format(u"%p", static_cast<const void*>(element)));
}

std::string Reference(const std::string& variable) { return "%" + variable + "%"; }

// Gives `command` a handler with one command in it: a goto, or, without a target, one that does
// nothing.
void AddHandler(TiXmlElement* command, const char* handlerName, const std::string& target) {
  TiXmlElement handler(handlerName);
  TiXmlElement inner(target.empty() ? "nothing" : "goto");
  if (!target.empty()) {
    inner.SetAttribute("target", target);
  }
  handler.InsertEndChild(inner);
  command->InsertEndChild(handler);
}

constexpr AttributeDescription kVar = {
    u"var", AttributeForm::Variable, Presence::NonEmpty,
    u"Receives one piece each round. It is empty when the loop has ended."};
constexpr AttributeDescription kValue = {
    u"value", AttributeForm::Expanded, Presence::NonEmpty,
    u"The text to take apart. Its references are replaced once, before the first round."};
constexpr AttributeDescription kDelim = {
    u"delim", AttributeForm::Text, Presence::NonEmpty,
    u"The characters that separate pieces, each of them by itself."};
constexpr AttributeDescription kForAttributes[] = {kVar, kValue, kDelim};

constexpr CommandDescription kFor = {
    .purpose = u"Runs its body for each piece of a text.",
    .attributes = kForAttributes,
    .notes =
        u"Separators that follow each other count as one, and those at the end don't count; a "
        u"text that begins with one ends the loop before its first round. A piece longer than "
        u"10,000 characters is taken in parts of that length. A label on the loop's own element is "
        u"lost, so put one on a command in front of it.",
};

TiXmlElement* LowerFor(TiXmlElement* parent, TiXmlElement* loop) {
  Lowering lowering(parent, loop);
  const std::string separators = lowering.Attribute(kDelim);
  const std::string variable = lowering.Attribute(kVar);
  const std::string text = lowering.Attribute(kValue);
  if (separators.empty() || variable.empty() || text.empty()) {
    return nullptr;
  }
  TiXmlElement* first = lowering.Add("assign");
  const std::string token = TokenOf(first);
  const std::string rest = "forvar" + token;
  const std::string begin = "forbegin" + token;
  const std::string end = "forend" + token;
  first->SetAttribute("var", rest);
  first->SetAttribute("value", text);
  for (const char* name : {"stringGet", "stringDelete"}) {
    const bool gets = name[6] == 'G';
    TiXmlElement* piece = lowering.Add(name);
    piece->SetAttribute("var", gets ? variable : rest);
    piece->SetAttribute("fromIndex", "0");
    piece->SetAttribute("maxCount", kLongestPiece);
    piece->SetAttribute("toAnyChar", separators);
    if (gets) {
      piece->SetAttribute("id", begin);
      piece->SetAttribute("value", Reference(rest));
    }
  }
  TiXmlElement* trim = lowering.Add("stringTrim");
  trim->SetAttribute("var", rest);
  trim->SetAttribute("chars", separators);
  TiXmlElement* test = lowering.Add("test");
  test->SetAttribute("left", Reference(variable));
  test->SetAttribute("operator", "==");
  test->SetAttribute("right", "");
  test->SetAttribute("type", "string");
  AddHandler(test, "onTrue", end);
  lowering.AddBody();
  lowering.AddGoTo(begin);
  lowering.AddLabel(end);
  return first;
}

// A loop that fetches an element before each round: a first fetch whose failure leaves the loop,
// and one at the end of a round whose failure is consumed and whose success begins the next.
TiXmlElement* LowerFetchLoop(Lowering* lowering, const TiXmlElement& firstFetch,
                             TiXmlElement* nextFetch) {
  TiXmlElement* first = lowering->Add(firstFetch);
  const std::string token = TokenOf(first);
  const std::string begin = "forbegin" + token;
  const std::string end = "forend" + token;
  AddHandler(first, "onerror", end);
  lowering->AddLabel(begin);
  lowering->AddBody();
  AddHandler(nextFetch, "onerror", "");
  AddHandler(nextFetch, "onsuccess", begin);
  lowering->Add(*nextFetch);
  lowering->AddLabel(end);
  return first;
}

constexpr AttributeDescription kDestHandle = {
    u"destHandle", AttributeForm::Handle, Presence::NonEmpty,
    u"Holds the element of the round. Not the document's own name: the document would be closed."};

constexpr AttributeDescription kXmlHandle = {
    u"handle", AttributeForm::Handle, Presence::NonEmpty,
    u"The document, or the element, that the walk starts from."};
constexpr AttributeDescription kXPath = {
    u"xpath", AttributeForm::Expanded, Presence::NonEmpty,
    u"The path to the first element, from the root element or from that of the handle."};
constexpr AttributeDescription kStep = {
    u"step", AttributeForm::Expanded, Presence::NonEmpty,
    u"The path from each element to the next, such as `following-sibling::server`."};
constexpr AttributeDescription kXmlForEachAttributes[] = {kXmlHandle, kXPath, kStep, kDestHandle};

constexpr CommandDescription kXmlForEach = {
    .purpose =
        u"Runs its body for an XML element and for each one that a path leads to from there.",
    .attributes = kXmlForEachAttributes,
    .notes =
        u"It ends when there is no next element, and `error` is `3` then. Within another loop it "
        u"runs in full only the first time; each later time its body runs once at most. A label on "
        u"the loop's own element is lost. In the trace its steps go by `xmlGetElement`.",
};

TiXmlElement* LowerXmlForEach(TiXmlElement* parent, TiXmlElement* loop) {
  Lowering lowering(parent, loop);
  const std::string handle = lowering.Attribute(kXmlHandle);
  const std::string step = lowering.Attribute(kStep);
  const std::string destHandle = lowering.Attribute(kDestHandle);
  if (handle.empty() || step.empty() || destHandle.empty()) {
    return nullptr;
  }
  TiXmlElement first("xmlGetElement");
  first.SetAttribute("handle", handle);
  first.SetAttribute("xpath", lowering.Attribute(kXPath));
  first.SetAttribute("destHandle", destHandle);
  TiXmlElement next("xmlGetElement");
  next.SetAttribute("handle", destHandle);
  next.SetAttribute("xpath", step);
  next.SetAttribute("destHandle", destHandle);
  return LowerFetchLoop(&lowering, first, &next);
}

constexpr AttributeDescription kJsonHandle = {u"handle", AttributeForm::Handle, Presence::NonEmpty,
                                              u"The document, or a value in one."};
constexpr AttributeDescription kPath = {u"path", AttributeForm::Expanded, Presence::NonEmpty,
                                        u"The path to the array, from the value of the handle."};
constexpr AttributeDescription kJsonForEachAttributes[] = {kJsonHandle, kPath, kDestHandle};

constexpr CommandDescription kJsonForEach = {
    .purpose = u"Runs its body for each element of a JSON array.",
    .attributes = kJsonForEachAttributes,
    .notes =
        u"It ends when there is no next element, and `error` is `1413` then. What is no array "
        u"gives no round. There is one such walk at a time, so a `jsonForEach` can't stand in "
        u"another "
        u"one. Within another loop it runs in full only the first time; each later time its body "
        u"runs once at most. A label on the loop's own element is lost. In the trace its steps go "
        u"by `jsonGetElement`.",
};

TiXmlElement* LowerJsonForEach(TiXmlElement* parent, TiXmlElement* loop) {
  Lowering lowering(parent, loop);
  const std::string handle = lowering.Attribute(kJsonHandle);
  const std::string destHandle = lowering.Attribute(kDestHandle);
  if (handle.empty() || destHandle.empty()) {
    return nullptr;
  }
  TiXmlElement first("jsonGetElement");
  first.SetAttribute("handle", handle);
  first.SetAttribute("path", lowering.Attribute(kPath));
  first.SetAttribute("destHandle", destHandle);
  TiXmlElement next(first);
  first.SetAttribute("enumStep", "begin");
  next.SetAttribute("enumStep", "next");
  return LowerFetchLoop(&lowering, first, &next);
}

constexpr LoopRecord kLoops[] = {
    {u"for", LoopKind::For, kFor, LowerFor},
    {u"xmlForEach", LoopKind::XmlForEach, kXmlForEach, LowerXmlForEach},
    {u"jsonForEach", LoopKind::JsonForEach, kJsonForEach, LowerJsonForEach},
};

const LoopRecord* FindLoop(LoopKind kind) {
  const auto* found = std::ranges::find(kLoops, kind, &LoopRecord::kind);
  return found == std::end(kLoops) ? nullptr : found;
}

}  // namespace

std::span<const LoopRecord> AllLoops() { return kLoops; }

LoopKind LoopKindOf(const std::string& elementName) {
  const auto* found = std::ranges::find_if(
      kLoops, [&](const LoopRecord& loop) { return std::ranges::equal(elementName, loop.name); });
  return found == std::end(kLoops) ? LoopKind::None : found->kind;
}

const CommandDescription* DescriptionOf(LoopKind kind) {
  const LoopRecord* loop = FindLoop(kind);
  return loop == nullptr ? nullptr : &loop->description;
}

ScriptPlace PlaceOf(const TiXmlElement& element) {
  // An element of the text has a row, if places were kept, and no data.
  if (element.GetUserData() != nullptr) {
    return std::bit_cast<ScriptPlace>(element.GetUserData());
  }
  return {static_cast<std::uint32_t>(element.Row()),
          static_cast<std::uint32_t>(element.Column()) & 0x7FFFFFFF};
}

TiXmlElement* LowerLoop(LoopKind kind, TiXmlElement* parent, TiXmlElement* loop) {
  const LoopRecord* record = FindLoop(kind);
  TiXmlElement* first = record == nullptr ? nullptr : record->lower(parent, loop);
  if (first != nullptr) {
    parent->RemoveChild(loop);
  }
  return first;
}

}  // namespace tessel
