// The commands that fuzzed scripts have: those that compute, those on documents, and those on the
// registry. None gets a path or a key that a script chose: files are a few of the scratch folder,
// keys lie below one of the scratch machine. No command is here that reaches further, deletes
// files, starts a process, or waits; a new command comes in only by a line of the table.
#include "fuzz/script_commands.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <span>
#include <string>

#include "commands/common/families.h"
#include "fuzz/input.h"
#include "support/format.h"
#include "support/utf.h"

namespace tessel::fuzz {
namespace {

// One of eight files, by a path that no variable can change.
cvn::String ScratchPath(const cvn::String& value) {
  const cvn::StringView text = value;
  return cvn::Format(u"C:\\Fuzz\\%u.txt", std::accumulate(text.begin(), text.end(), 0U) % 8);
}

// References are expanded behind the prefix, and nothing leads up from a key.
cvn::String ScratchKey(const cvn::String& value) {
  return cvn::Format(u"SOFTWARE\\Fuzz\\%s", value);
}

cvn::String LocalMachine(const cvn::String& /*value*/) { return u"HKEY_LOCAL_MACHINE"; }

cvn::String Nothing(const cvn::String& /*value*/) { return {}; }

// An attribute that a script doesn't choose freely.
struct Confinement {
  cvn::StringView attribute;
  cvn::String (*confine)(const cvn::String& value);
};

constexpr Confinement kScratchFile[] = {{u"path", ScratchPath}};
constexpr Confinement kScratchKey[] = {{u"key", ScratchKey}, {u"root", LocalMachine}};
// Neither stream, which would make it pause for the stream's reader.
constexpr Confinement kSilent[] = {{u"std", Nothing}};

struct FuzzedCommand {
  cvn::StringView name;
  std::span<const Confinement> confinements = {};
};

constexpr FuzzedCommand kCommands[] = {
    {u"exit"},
    {u"nothing"},
    {u"goto"},
    {u"onErrorGoTo"},
    {u"trace", kSilent},
    {u"assign"},
    {u"assignToken"},
    {u"addInt"},
    {u"addString"},
    {u"stringDelete"},
    {u"stringGet"},
    {u"stringTrim"},
    {u"test"},
    {u"xmlOpen", kScratchFile},
    {u"xmlClose"},
    {u"xmlSave", kScratchFile},
    {u"xmlAddChild"},
    {u"xmlRemoveChild"},
    {u"xmlSetValue"},
    {u"xmlSetCDataValue"},
    {u"xmlGetValue"},
    {u"xmlGetElement"},
    {u"jsonOpen", kScratchFile},
    {u"jsonClose"},
    {u"jsonSave", kScratchFile},
    {u"jsonAddChild"},
    {u"jsonRemoveChild"},
    {u"jsonSetStringValue"},
    {u"jsonSetIntValue"},
    {u"jsonSetBoolValue"},
    {u"jsonGetValue"},
    {u"jsonGetElement"},
    {u"iniGetValue", kScratchFile},
    {u"iniSetValue", kScratchFile},
    {u"regRead", kScratchKey},
    {u"regGetKeys", kScratchKey},
    {u"regGetValues", kScratchKey},
    {u"regWrite", kScratchKey},
    {u"regExistsKey", kScratchKey},
    {u"regCreateKey", kScratchKey},
    {u"regDeleteKey", kScratchKey},
    {u"regDeleteValue", kScratchKey},
};

const FuzzedCommand* FindFuzzed(cvn::StringView name) {
  const auto* found = std::ranges::find(kCommands, name, &FuzzedCommand::name);
  return found == std::end(kCommands) ? nullptr : found;
}

bool RegisterCommands() {
  static cvn::List<CommandRecord> commands;
  for (const std::span<const CommandRecord> family :
       {kFlowFamily.commands, kTextFamily.commands, kRegistryFamily.commands, kIniFamily.commands,
        kXmlFamily.commands, kJsonFamily.commands}) {
    std::ranges::copy_if(family, std::back_inserter(commands), [](const CommandRecord& command) {
      return FindFuzzed(command.name) != nullptr;
    });
  }
  static const CommandFamily family = {
      .title = u"Fuzzed", .introduction = {}, .commands = commands};
  Require(commands.size() == std::size(kCommands), "each command of the table is in a family");
  return RegisterFamily(family);
}

void ConfineElement(TiXmlElement* element) {
  const FuzzedCommand* command = FindFuzzed(cvn::Utf8ToWide(element->ValueStr()));
  if (command == nullptr) {
    return;
  }
  for (TiXmlAttribute* at = element->FirstAttribute(); at != nullptr; at = at->Next()) {
    const auto found = std::ranges::find(
        command->confinements, cvn::Utf8ToWide(at->NameTStr()).AsView(), &Confinement::attribute);
    if (found != command->confinements.end()) {
      at->SetValue(cvn::WideToUtf8(found->confine(cvn::Utf8ToWide(at->ValueStr()))));
    }
  }
}

[[maybe_unused]] const bool kRegistered = RegisterCommands();

}  // namespace

void ConfineScript(TiXmlNode* document) {
  TiXmlNode* node = document;
  while (node != nullptr) {
    if (TiXmlElement* element = node->ToElement()) {
      ConfineElement(element);
    }
    TiXmlNode* next = node->FirstChild();
    while (next == nullptr && node != nullptr) {
      next = node == document ? nullptr : node->NextSibling();
      node = node == document ? nullptr : node->Parent();
    }
    node = next;
  }
}

}  // namespace tessel::fuzz
