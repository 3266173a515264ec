// XML documents: load, XPath, changes, save. The first three lines are an expression, one that is
// asked after the changes, and a new value; the rest is the document.
#include <memory>
#include <string>

#include "commands/documents/ccvn_tiny_xml.h"
#include "commands/documents/xml_printer.h"
#include "fuzz/input.h"
#include "fuzz/scratch_machine.h"

namespace tessel::fuzz {
namespace {

constexpr cvn::StringView kOpened = u"C:\\Fuzz\\opened.xml";
constexpr cvn::StringView kSaved = u"C:\\Fuzz\\saved.xml";

// One each of the changes that the commands make.
void Change(TiXmlElement* root, const std::string& xpath, const std::string& value,
            CCVNTinyXml* document) {
  document->SetValue(root, xpath, value);
  TiXmlElement* found = document->FindElement(root, xpath);
  if (found == nullptr) {
    return;
  }
  TiXmlElement added("added");
  added.SetAttribute("value", value);
  added.LinkEndChild(new TiXmlText(value));
  document->AddChild(found, added, nullptr, nullptr);
  const auto handle = document->HandleTo(found);
  if (found != root && found->Parent()->ToElement() != nullptr) {
    TiXmlElement* parent = found->Parent()->ToElement();
    document->AddChild(parent, added, found, nullptr);
    document->AddChild(parent, added, nullptr, found);
    document->Remove(found);
    Require(handle->Document() == nullptr, "a handle dies with its element");
  }
}

void OpenChangeAndSave(Input* input) {
  const std::string xpath(input->Line());
  const std::string question(input->Line());
  const std::string value(input->Line());
  WriteScratchFile("opened.xml", input->Rest());
  const auto document = std::make_shared<CCVNTinyXml>();
  TiXmlElement* root = document->Load(kOpened) ? document->GetRootElement() : nullptr;
  if (root == nullptr) {
    return;
  }
  std::string text;
  document->EvaluateText(root, xpath, &text);
  Change(root, xpath, value, document.get());
  document->EvaluateText(root, question, &text);
  if (document->Save(kSaved)) {
    Require(std::make_shared<CCVNTinyXml>()->Load(kSaved), "what was saved can be opened");
  }
}

}  // namespace
}  // namespace tessel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tessel::fuzz::Input input(data, size);
  tessel::fuzz::OpenChangeAndSave(&input);
  return 0;
}
