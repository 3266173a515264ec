// The commands that fuzzed scripts have: those that compute, those on documents, and those on the
// registry. Their own classes, but none gets a path or a key that a script chose: files are a few
// of the scratch folder, keys lie below one of the scratch machine. No command is here that reaches
// further, deletes files, starts a process, or waits.
#include <numeric>

#include "commands/core/flow.h"
#include "commands/core/text.h"
#include "commands/documents/ini.h"
#include "commands/documents/json.h"
#include "commands/documents/xml.h"
#include "commands/system/registry.h"
#include "engine/command_registry.h"
#include "support/format.h"

namespace tessel {
namespace {

// Replaces the attributes that could lead out of the scratch folder, whatever they are: a command
// sees them only after this.
AttributeMap Confined(const AttributeMap& attributes, cvn::StringView confinedName,
                      cvn::String (*confine)(const cvn::String& value)) {
  AttributeMap confined;
  for (const auto& [name, value] : attributes) {
    confined.Add(name, name == confinedName ? confine(value) : value);
  }
  return confined;
}

// One of eight files, and a path that no variable changes.
cvn::String ScratchPath(const cvn::String& value) {
  const cvn::StringView text = value;
  return cvn::Format(u"C:\\Fuzz\\%u.txt", std::accumulate(text.begin(), text.end(), 0U) % 8);
}

// References are expanded behind the prefix, and nothing leads up from a key.
cvn::String ScratchKey(const cvn::String& value) {
  return cvn::Format(u"SOFTWARE\\Fuzz\\%s", value);
}

cvn::String LocalMachine(const cvn::String& /*value*/) { return u"HKEY_LOCAL_MACHINE"; }

template <typename Command>
class OnScratchFile : public Command {
 public:
  bool Parse() override {
    this->attributes = Confined(this->attributes, u"path", ScratchPath);
    return Command::Parse();
  }
};

template <typename Command>
class OnScratchKey : public Command {
 public:
  bool Parse() override {
    this->attributes = Confined(this->attributes, u"key", ScratchKey);
    this->attributes = Confined(this->attributes, u"root", LocalMachine);
    return Command::Parse();
  }
};

// With neither stream, which would make it pause for the stream's reader.
class SilentTrace : public FunctionTrace {
 public:
  bool Parse() override {
    attributes = Confined(attributes, u"std", [](const cvn::String&) { return cvn::String(); });
    return FunctionTrace::Parse();
  }
};

void RegisterCoreCommands() {
  RegisterCommand<FunctionExit>(u"exit");
  RegisterCommand<FunctionNothing>(u"nothing");
  RegisterCommand<FunctionGoTo>(u"goto");
  RegisterCommand<FunctionOnErrorGoTo>(u"onErrorGoTo");
  RegisterCommand<SilentTrace>(u"trace");
  RegisterCommand<FunctionAssign>(u"assign");
  RegisterCommand<FunctionAssignToken>(u"assignToken");
  RegisterCommand<FunctionAddInt>(u"addInt");
  RegisterCommand<FunctionAddString>(u"addString");
  RegisterCommand<FunctionStringDelete>(u"stringDelete");
  RegisterCommand<FunctionStringGet>(u"stringGet");
  RegisterCommand<FunctionStringTrim>(u"stringTrim");
  RegisterCommand<FunctionTest>(u"test");
}

void RegisterDocumentCommands() {
  RegisterCommand<OnScratchFile<FunctionXmlOpen>>(u"xmlOpen");
  RegisterCommand<FunctionXmlClose>(u"xmlClose");
  RegisterCommand<OnScratchFile<FunctionXmlSave>>(u"xmlSave");
  RegisterCommand<FunctionXmlAddChild>(u"xmlAddChild");
  RegisterCommand<FunctionXmlRemoveChild>(u"xmlRemoveChild");
  RegisterCommand<FunctionXmlSetValue>(u"xmlSetValue");
  RegisterCommand<FunctionXmlSetCDataValue>(u"xmlSetCDataValue");
  RegisterCommand<FunctionXmlGetValue>(u"xmlGetValue");
  RegisterCommand<FunctionXmlGetElement>(u"xmlGetElement");
  RegisterCommand<OnScratchFile<FunctionJsonOpen>>(u"jsonOpen");
  RegisterCommand<FunctionJsonClose>(u"jsonClose");
  RegisterCommand<OnScratchFile<FunctionJsonSave>>(u"jsonSave");
  RegisterCommand<FunctionJsonAddChild>(u"jsonAddChild");
  RegisterCommand<FunctionJsonRemoveChild>(u"jsonRemoveChild");
  RegisterCommand<FunctionJsonSetStringValue>(u"jsonSetStringValue");
  RegisterCommand<FunctionJsonSetIntValue>(u"jsonSetIntValue");
  RegisterCommand<FunctionJsonSetBoolValue>(u"jsonSetBoolValue");
  RegisterCommand<FunctionJsonGetValue>(u"jsonGetValue");
  RegisterCommand<FunctionJsonGetElement>(u"jsonGetElement");
  RegisterCommand<OnScratchFile<FunctionIniGetValue>>(u"iniGetValue");
  RegisterCommand<OnScratchFile<FunctionIniSetValue>>(u"iniSetValue");
}

void RegisterRegistryCommands() {
  RegisterCommand<OnScratchKey<FunctionRegRead>>(u"regRead");
  RegisterCommand<OnScratchKey<FunctionRegGetKeys>>(u"regGetKeys");
  RegisterCommand<OnScratchKey<FunctionRegGetValues>>(u"regGetValues");
  RegisterCommand<OnScratchKey<FunctionRegWrite>>(u"regWrite");
  RegisterCommand<OnScratchKey<FunctionRegExistsKey>>(u"regExistsKey");
  RegisterCommand<OnScratchKey<FunctionRegCreateKey>>(u"regCreateKey");
  RegisterCommand<OnScratchKey<FunctionRegDeleteKey>>(u"regDeleteKey");
  RegisterCommand<OnScratchKey<FunctionRegDeleteValue>>(u"regDeleteValue");
}

[[maybe_unused]] const bool kRegistered = [] {
  RegisterCoreCommands();
  RegisterDocumentCommands();
  RegisterRegistryCommands();
  return true;
}();

}  // namespace
}  // namespace tessel
