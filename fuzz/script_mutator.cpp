// Mutations that keep the script well-formed; most changes of bytes only break its XML.
#include <tinyxml.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "engine/command_registry.h"
#include "engine/loop_lowering.h"
#include "support/utf.h"
#include "support/xml_nesting.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t most);

namespace tessel::fuzz {
namespace {

using Random = std::minstd_rand;

template <std::size_t Count>
const char* OneOf(const char* const (&texts)[Count], Random* random) {
  return texts[(*random)() % Count];
}

constexpr const char* kEmptyPatch =
    "<patch version='1.0'><header><property name='patchType' value='update'/></header>"
    "<script/></patch>";

constexpr const char* kHandlers[] = {"onerror", "onsuccess", "onTrue", "onFalse", "onerrorspec"};

constexpr const char* kNames[] = {"a", "b", "c", "a[1]", "a[%b%]", "a[b[c]]"};
constexpr const char* kHandles[] = {"x", "y", "j", "k"};
constexpr const char* kExpressions[] = {
    "/r",         "/r/i",          "i[2]", "//k", "@n", "/r/i[1]/@n", ".", "following-sibling::i",
    "count(//*)", "i[@n='%a%']/k", ".."};
constexpr const char* kJsonPaths[] = {"a",     "a[1]/b", "a[1]\\c[0]", "d/e",
                                      "/a[4]", "x/y",    "%a%",        "a[0]"};
constexpr const char* kFiles[] = {"a", "b", "c", "d", "e", "f", "g", "h"};
constexpr const char* kTexts[] = {"",
                                  "1",
                                  "-7",
                                  "99999999999",
                                  "%a%",
                                  "%b%,%c%",
                                  "%%",
                                  "%random%",
                                  "one;two;;three",
                                  "<k n='1'>t</k>",
                                  "{\"b\": [1]}",
                                  "%a[%b%]%"};
constexpr const char* kPatterns[] = {"(.*)=(.*)", "[0-9]+", "(a|b)*c?", "(?=x)x(\\w+)\\1"};
constexpr const char* kKeys[] = {"Kept", "One", "One\\Two", "%a%"};
constexpr const char* kTypes[] = {"REG_SZ",     "REG_DWORD", "REG_QWORD", "REG_MULTI_SZ",
                                  "REG_BINARY", "string",    "number"};
constexpr const char* kOperators[] = {"==", "<", "<="};
constexpr const char* kSteps[] = {"begin", "next"};

// A plausible value for an attribute.
const char* ValueFor(const std::string& command, const std::string& attribute, Random* random) {
  const bool isJson = command.starts_with("json");
  if (attribute == "handle" || attribute == "destHandle") {
    return OneOf(kHandles, random);
  }
  if (attribute == "path" && isJson && command != "jsonOpen" && command != "jsonSave") {
    return OneOf(kJsonPaths, random);
  }
  if (attribute == "xpath" || attribute == "step" || attribute.starts_with("insert_")) {
    return OneOf(kExpressions, random);
  }
  if (attribute == "var" || attribute == "id" || attribute == "target") {
    return OneOf(kNames, random);
  }
  if (attribute == "key" && command.starts_with("reg")) {
    return OneOf(kKeys, random);
  }
  if (attribute == "type") {
    return OneOf(kTypes, random);
  }
  if (attribute == "operator") {
    return OneOf(kOperators, random);
  }
  if (attribute == "regexp") {
    return OneOf(kPatterns, random);
  }
  if (attribute == "enumStep") {
    return OneOf(kSteps, random);
  }
  return attribute == "path" ? OneOf(kFiles, random) : OneOf(kTexts, random);
}

// A command or a loop.
struct Declared {
  std::string name;
  std::span<const AttributeDescription> attributes;
};

const std::vector<Declared>& AllDeclared() {
  static const std::vector<Declared> declared = [] {
    std::vector<Declared> all;
    for (const auto& [name, record] : AllCommands()) {
      all.push_back({cvn::WideToUtf8(name), record.description->attributes});
    }
    for (const LoopRecord& loop : AllLoops()) {
      all.push_back({cvn::WideToUtf8(loop.name), loop.description.attributes});
    }
    return all;
  }();
  return declared;
}

// With the attributes that it needs, some of the others, and now and then a label.
TiXmlElement NewCommand(Random* random) {
  const Declared& declared = AllDeclared()[(*random)() % AllDeclared().size()];
  TiXmlElement command(declared.name);
  for (const AttributeDescription& attribute : declared.attributes) {
    if (attribute.presence != Presence::Optional || (*random)() % 2 == 0) {
      const std::string name = cvn::WideToUtf8(attribute.name);
      command.SetAttribute(name, ValueFor(declared.name, name, random));
    }
  }
  if ((*random)() % 16 == 0) {
    command.SetAttribute("id", ValueFor(declared.name, "id", random));
  }
  return command;
}

void Gather(TiXmlElement* element, std::vector<TiXmlElement*>* all) {
  for (; element != nullptr; element = element->NextSiblingElement()) {
    all->push_back(element);
    Gather(element->FirstChildElement(), all);
  }
}

void MutateValue(TiXmlElement* element, Random* random) {
  std::vector<TiXmlAttribute*> attributes;
  for (TiXmlAttribute* at = element->FirstAttribute(); at != nullptr; at = at->Next()) {
    attributes.push_back(at);
  }
  if (attributes.empty()) {
    return;
  }
  TiXmlAttribute* chosen = attributes[(*random)() % attributes.size()];
  if ((*random)() % 2 == 0) {
    chosen->SetValue(ValueFor(element->ValueStr(), chosen->Name(), random));
    return;
  }
  std::uint8_t bytes[128] = {};
  const std::size_t size = std::min(chosen->ValueStr().size(), sizeof(bytes) / 2);
  std::memcpy(bytes, chosen->Value(), size);
  const std::size_t mutated = LLVMFuzzerMutate(bytes, size, sizeof(bytes));
  chosen->SetValue(std::string(reinterpret_cast<const char*>(bytes), mutated));
}

// Inserts a command after or into an existing one, or into a new handler.
void AddCommand(TiXmlElement* at, bool isCommand, Random* random) {
  const TiXmlElement command = NewCommand(random);
  const unsigned place = (*random)() % 4;
  if (!isCommand || place == 0) {
    at->InsertEndChild(command);
  } else if (place == 1) {
    TiXmlElement handler(OneOf(kHandlers, random));
    handler.SetAttribute("err", OneOf(kTexts, random));
    handler.InsertEndChild(command);
    at->InsertEndChild(handler);
  } else {
    at->Parent()->InsertAfterChild(at, command);
  }
}

void MutateScript(TiXmlElement* script, Random* random) {
  std::vector<TiXmlElement*> all = {script};
  Gather(script->FirstChildElement(), &all);
  TiXmlElement* at = all[(*random)() % all.size()];
  const bool isCommand = at != script;
  switch ((*random)() % 6) {
    case 0:
      if (isCommand) {
        at->Parent()->RemoveChild(at);
      }
      break;
    case 1:
      if (isCommand) {
        const TiXmlElement copy(*at);
        all[(*random)() % all.size()]->InsertEndChild(copy);
      }
      break;
    case 2:
    case 3:
      AddCommand(at, isCommand, random);
      break;
    default:
      MutateValue(at, random);
  }
}

bool Parse(const std::string& text, TiXmlDocument* document) {
  if (!cvn::IsXmlNestingAllowed(text)) {
    return false;
  }
  document->Parse(text.c_str(), nullptr, TIXML_ENCODING_UTF8);
  const TiXmlElement* root = document->RootElement();
  return !document->Error() && root != nullptr && root->FirstChildElement("script") != nullptr;
}

}  // namespace
}  // namespace tessel::fuzz

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t most, unsigned seed) {
  using namespace tessel::fuzz;
  Random random(seed);
  if (random() % 8 == 0) {
    return LLVMFuzzerMutate(data, size, most);
  }
  TiXmlDocument document;
  if (!Parse(std::string(reinterpret_cast<const char*>(data), size), &document)) {
    document.Clear();
    document.ClearError();
    Parse(kEmptyPatch, &document);
  }
  for (unsigned left = random() % 4 + 1; left > 0; --left) {
    MutateScript(document.RootElement()->FirstChildElement("script"), &random);
  }
  TiXmlPrinter printer;
  printer.SetStreamPrinting();
  document.Accept(&printer);
  if (printer.Size() > most) {
    return LLVMFuzzerMutate(data, size, most);
  }
  std::memcpy(data, printer.CStr(), printer.Size());
  return printer.Size();
}
