// The families of commands, registered before the program's entry runs, in the order of the
// language's reference.
#include "commands/common/families.h"
#include "commands/documents/ini.h"
#include "commands/documents/json.h"
#include "commands/documents/xml.h"
#include "engine/command_declaration.h"

namespace tessel {
namespace {

constexpr CommandRecord kIniCommands[] = {
    Command<FunctionIniGetValue>(u"iniGetValue", FunctionIniGetValue::kDescription),
    Command<FunctionIniSetValue>(u"iniSetValue", FunctionIniSetValue::kDescription),
};

constexpr CommandFamily kIniFamily = {
    .title = u"INI files",
    .introduction =
        uR"md(
Case doesn't count, and of several sections or keys of one name the first does. The rest of the file stays as it is. A
file with the mark of UTF-16LE keeps that; any other is ANSI: a character that the code page lacks is written as the
nearest one, or `?`. On Linux the code page is always windows-1252.
)md",
    .commands = kIniCommands,
};

constexpr CommandRecord kXmlCommands[] = {
    Command<FunctionXmlOpen>(u"xmlOpen", FunctionXmlOpen::kDescription),
    Command<FunctionXmlSave>(u"xmlSave", FunctionXmlSave::kDescription),
    Command<FunctionXmlClose>(u"xmlClose", FunctionXmlClose::kDescription),
    Command<FunctionXmlGetValue>(u"xmlGetValue", FunctionXmlGetValue::kDescription),
    Command<FunctionXmlSetValue>(u"xmlSetValue", FunctionXmlSetValue::kDescription),
    Command<FunctionXmlSetCDataValue>(u"xmlSetCDataValue", FunctionXmlSetCDataValue::kDescription),
    Command<FunctionXmlGetElement>(u"xmlGetElement", FunctionXmlGetElement::kDescription),
    Command<FunctionXmlAddChild>(u"xmlAddChild", FunctionXmlAddChild::kDescription),
    Command<FunctionXmlRemoveChild>(u"xmlRemoveChild", FunctionXmlRemoveChild::kDescription),
};

constexpr CommandFamily kXmlFamily = {
    .title = u"XML documents",
    .introduction =
        uR"md(
A document is opened under a handle, a name that is used as written; handles and arrays must not share names. Nothing is
saved without `xmlSave`. A handle whose document or element is gone answers as an unknown one.

XPath is version 1.0, seen from the root element, or from the element of the handle: `server/@port`, and not
`settings/server/@port`. `string-length`, `substring` and `translate` work on the bytes of UTF-8, so they count a letter
beyond ASCII more than once.
)md",
    .commands = kXmlCommands,
    .sample = u"settings.xml",
};

constexpr CommandRecord kJsonCommands[] = {
    Command<FunctionJsonOpen>(u"jsonOpen", FunctionJsonOpen::kDescription),
    Command<FunctionJsonSave>(u"jsonSave", FunctionJsonSave::kDescription),
    Command<FunctionJsonClose>(u"jsonClose", FunctionJsonClose::kDescription),
    Command<FunctionJsonGetValue>(u"jsonGetValue", FunctionJsonGetValue::kDescription),
    Command<FunctionJsonSetStringValue>(u"jsonSetStringValue",
                                        FunctionJsonSetStringValue::kDescription),
    Command<FunctionJsonSetIntValue>(u"jsonSetIntValue", FunctionJsonSetIntValue::kDescription),
    Command<FunctionJsonSetBoolValue>(u"jsonSetBoolValue", FunctionJsonSetBoolValue::kDescription),
    Command<FunctionJsonGetElement>(u"jsonGetElement", FunctionJsonGetElement::kDescription),
    Command<FunctionJsonAddChild>(u"jsonAddChild", FunctionJsonAddChild::kDescription),
    Command<FunctionJsonRemoveChild>(u"jsonRemoveChild", FunctionJsonRemoveChild::kDescription),
};

constexpr CommandFamily kJsonFamily = {
    .title = u"JSON documents",
    .introduction =
        uR"md(
Handles are as for XML documents. Nothing is saved without `jsonSave`.

A path has names between `/` or `\`, and indices in brackets, behind which the next name follows without a separator:
`list[0]name`, and `list[0][1]`. A name can't hold one of these characters. Where a command makes what is missing, the
elements of an array below a new one become nulls.
)md",
    .commands = kJsonCommands,
    .sample = u"settings.json",
};

bool RegisterFamilies() {
  RegisterFamily(kFlowFamily);
  RegisterFamily(kTextFamily);
  RegisterFamily(kFilesFamily);
  RegisterFamily(kFoldersFamily);
  RegisterFamily(kRegistryFamily);
  RegisterFamily(kServicesFamily);
  RegisterFamily(kProgramsFamily);
  RegisterFamily(kProductFamily);
  RegisterFamily(kIniFamily);
  RegisterFamily(kXmlFamily);
  RegisterFamily(kJsonFamily);
  return true;
}

[[maybe_unused]] const bool kRegistered = RegisterFamilies();

}  // namespace
}  // namespace tessel
