#include "engine/loop_lowering.h"

#include "support/format.h"
#include "support/utf.h"

namespace tessel {
namespace {

// Characters that one round of a `for` takes at most.
constexpr const char* kLongestPiece = "10000";

// Builds what takes the loop's place, element after element.
class Lowering {
 public:
  Lowering(TiXmlElement* parent, TiXmlElement* loop) : parent_(parent), loop_(loop) {}

  // The loop's attribute; empty when there is none.
  std::string Attribute(const char* name) const {
    const std::string* value = loop_->Attribute(std::string(name));
    return value == nullptr ? std::string() : *value;
  }

  // Adds a copy of `element`, and gives it.
  TiXmlElement* Add(const TiXmlElement& element) {
    return parent_->InsertBeforeChild(loop_, element)->ToElement();
  }
  TiXmlElement* Add(const char* name) { return Add(TiXmlElement(name)); }
  void AddLabel(const std::string& label) { Add("nothing")->SetAttribute("id", label); }
  void AddGoTo(const std::string& label) { Add("goto")->SetAttribute("target", label); }

  void AddBody() {
    const TiXmlElement* element = loop_->FirstChildElement();
    for (; element != nullptr; element = element->NextSiblingElement()) {
      Add(*element);
    }
  }

  void RemoveLoop() { parent_->RemoveChild(loop_); }

 private:
  TiXmlElement* parent_;
  TiXmlElement* loop_;
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

TiXmlElement* LowerFor(Lowering* lowering) {
  const std::string separators = lowering->Attribute("delim");
  const std::string variable = lowering->Attribute("var");
  const std::string text = lowering->Attribute("value");
  if (separators.empty() || variable.empty() || text.empty()) {
    return nullptr;
  }
  TiXmlElement* first = lowering->Add("assign");
  const std::string token = TokenOf(first);
  const std::string rest = "forvar" + token;
  const std::string begin = "forbegin" + token;
  const std::string end = "forend" + token;
  first->SetAttribute("var", rest);
  first->SetAttribute("value", text);
  for (const char* name : {"stringGet", "stringDelete"}) {
    const bool gets = name[6] == 'G';
    TiXmlElement* piece = lowering->Add(name);
    piece->SetAttribute("var", gets ? variable : rest);
    piece->SetAttribute("fromIndex", "0");
    piece->SetAttribute("maxCount", kLongestPiece);
    piece->SetAttribute("toAnyChar", separators);
    if (gets) {
      piece->SetAttribute("id", begin);
      piece->SetAttribute("value", Reference(rest));
    }
  }
  TiXmlElement* trim = lowering->Add("stringTrim");
  trim->SetAttribute("var", rest);
  trim->SetAttribute("chars", separators);
  TiXmlElement* test = lowering->Add("test");
  test->SetAttribute("left", Reference(variable));
  test->SetAttribute("operator", "==");
  test->SetAttribute("right", "");
  test->SetAttribute("type", "string");
  AddHandler(test, "onTrue", end);
  lowering->AddBody();
  lowering->AddGoTo(begin);
  lowering->AddLabel(end);
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

TiXmlElement* LowerXmlForEach(Lowering* lowering) {
  const std::string handle = lowering->Attribute("handle");
  const std::string step = lowering->Attribute("step");
  const std::string destHandle = lowering->Attribute("destHandle");
  if (handle.empty() || step.empty() || destHandle.empty()) {
    return nullptr;
  }
  TiXmlElement first("xmlGetElement");
  first.SetAttribute("handle", handle);
  first.SetAttribute("xpath", lowering->Attribute("xpath"));
  first.SetAttribute("destHandle", destHandle);
  TiXmlElement next("xmlGetElement");
  next.SetAttribute("handle", destHandle);
  next.SetAttribute("xpath", step);
  next.SetAttribute("destHandle", destHandle);
  return LowerFetchLoop(lowering, first, &next);
}

TiXmlElement* LowerJsonForEach(Lowering* lowering) {
  const std::string handle = lowering->Attribute("handle");
  const std::string destHandle = lowering->Attribute("destHandle");
  if (handle.empty() || destHandle.empty()) {
    return nullptr;
  }
  TiXmlElement first("jsonGetElement");
  first.SetAttribute("handle", handle);
  first.SetAttribute("path", lowering->Attribute("path"));
  first.SetAttribute("destHandle", destHandle);
  TiXmlElement next(first);
  first.SetAttribute("enumStep", "begin");
  next.SetAttribute("enumStep", "next");
  return LowerFetchLoop(lowering, first, &next);
}

TiXmlElement* Lower(LoopKind kind, Lowering* lowering) {
  switch (kind) {
    case LoopKind::For:
      return LowerFor(lowering);
    case LoopKind::XmlForEach:
      return LowerXmlForEach(lowering);
    case LoopKind::JsonForEach:
      return LowerJsonForEach(lowering);
    case LoopKind::None:
      break;
  }
  return nullptr;
}

}  // namespace

TiXmlElement* LowerLoop(LoopKind kind, TiXmlElement* parent, TiXmlElement* loop) {
  Lowering lowering(parent, loop);
  TiXmlElement* first = Lower(kind, &lowering);
  if (first != nullptr) {
    lowering.RemoveLoop();
  }
  return first;
}

}  // namespace tessel
