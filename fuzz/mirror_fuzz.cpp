// The copy of a document that answers expressions: after any change it answers as a new copy does.
// The first line is the expression; the second holds the changes, four characters each; the rest is
// the document.
#include <tinyxml.h>

#include <string>
#include <vector>

#include "commands/documents/xml_mirror.h"
#include "fuzz/input.h"
#include "support/utf.h"
#include "support/xml_nesting.h"

namespace tessel::fuzz {
namespace {

void Gather(TiXmlElement* element, std::vector<TiXmlElement*>* all) {
  for (; element != nullptr; element = element->NextSiblingElement()) {
    all->push_back(element);
    Gather(element->FirstChildElement(), all);
  }
}

void AddBeside(TiXmlElement* at, unsigned place, const TiXmlElement& added, XPathMirror* mirror) {
  TiXmlElement* parent = at->Parent()->ToElement();
  TiXmlNode* node = nullptr;
  if (place % 3 == 0 || parent == nullptr) {
    node = at->InsertEndChild(added);
  } else {
    node =
        place % 3 == 1 ? parent->InsertBeforeChild(at, added) : parent->InsertAfterChild(at, added);
  }
  mirror->Added(node->ToElement());
}

void ChangeOne(Input* changes, TiXmlDocument* document, XPathMirror* mirror) {
  std::vector<TiXmlElement*> all;
  Gather(document->FirstChildElement(), &all);
  const std::uint8_t kind = changes->Byte();
  TiXmlElement* at = all[changes->Byte() % all.size()];
  const std::uint8_t other = changes->Byte();
  const std::string text = std::string(changes->Byte() % 4, static_cast<char>('a' + other % 26));
  switch (kind % 4) {
    case 0:
      at->Clear();
      at->LinkEndChild(new TiXmlText(text));
      mirror->TextSet(*at, text);
      break;
    case 1: {
      const std::string name = "n" + text;
      at->SetAttribute(name, text);
      mirror->AttributeSet(*at, name, text);
      break;
    }
    case 2: {
      // A copy, since the library would clone the node that it is changing.
      const TiXmlElement added(*all[other % all.size()]);
      AddBeside(at, kind / 4, added, mirror);
      break;
    }
    default:
      if (at->Parent()->ToElement() != nullptr) {
        mirror->Removing(*at);
        at->Parent()->RemoveChild(at);
      }
  }
}

void Compare(Input* input) {
  const std::string xpath(input->Line());
  const std::string_view steps = input->Line();
  std::string text(input->Rest());
  cvn::RepairUtf8(&text);
  if (text.find('\0') != std::string::npos || !cvn::IsXmlNestingAllowed(text)) {
    return;
  }
  TiXmlDocument document;
  document.Parse(text.c_str(), nullptr, TIXML_ENCODING_UTF8);
  TiXmlElement* root = document.RootElement();
  if (document.Error() || root == nullptr) {
    return;
  }
  XPathMirror mirror(&document);
  mirror.FindFirst(root, "/");
  Input changes(reinterpret_cast<const std::uint8_t*>(steps.data()),
                std::min<std::size_t>(steps.size(), 64));
  while (!changes.IsEmpty()) {
    ChangeOne(&changes, &document, &mirror);
  }
  std::string answer;
  const XPathMatch match = mirror.FindFirst(root, xpath);
  const bool isText = mirror.EvaluateText(root, xpath, &answer);
  // Last, since it uses the same marks on the document's elements.
  XPathMirror fresh(&document);
  std::string freshAnswer;
  const XPathMatch freshMatch = fresh.FindFirst(root, xpath);
  const bool isFreshText = fresh.EvaluateText(root, xpath, &freshAnswer);
  Require(match.kind == freshMatch.kind && match.element == freshMatch.element &&
              match.attribute == freshMatch.attribute,
          "a changed mirror finds what a fresh one finds");
  Require(isText == isFreshText && answer == freshAnswer,
          "a changed mirror gives the text that a fresh one gives");
}

}  // namespace
}  // namespace tessel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tessel::fuzz::Input input(data, size);
  tessel::fuzz::Compare(&input);
  return 0;
}
