// Commands over INI files.
#include "commands/common/families.h"
#include "engine/command_declaration.h"
#include "engine/variable_store.h"
#include "platform/profile.h"
#include "trace/trace.h"

namespace tessel {
namespace {

// With the terminator, so that 10,239 characters of a longer value are left.
constexpr std::size_t kValueCapacity = 10'240;

// A value's place in a file.
struct FunctionOnIni : FunctionRetError {
  cvn::String path;
  cvn::String section;
  cvn::String key;
};

template <Use kUse>
constexpr AttributeDescription kPath = Naming(
    Expanded<&FunctionOnIni::path>(u"path", Presence::NonEmpty,
                                   u"The file. A bare name means one in the Windows folder."),
    Subject::File, kUse);
constexpr AttributeDescription kSection = Expanded<&FunctionOnIni::section>(
    u"section", Presence::NonEmpty, u"The section, without its brackets.");
constexpr AttributeDescription kKey =
    Expanded<&FunctionOnIni::key>(u"key", Presence::NonEmpty, u"The key in the section.");

struct FunctionIniGetValue : FunctionOnIni {
  void Execute() override;

  cvn::String var;
  cvn::String fallback;
};

void FunctionIniGetValue::Execute() {
  const cvn::String file = ExpandVariables(path, variables);
  const cvn::String inSection = ExpandVariables(section, variables);
  const cvn::String atKey = ExpandVariables(key, variables);
  const cvn::String otherwise = ExpandVariables(fallback, variables);
  TraceLine(u"iniGetValue in '%s' at '%s\\%s'. variable: '%s' (default:%s)", file, inSection, atKey,
            var, otherwise);
  SetVariable(var, platform::profile::ReadString(inSection, atKey, otherwise, kValueCapacity, file),
              variables);
  TraceEnd(u"iniGetValue");
}

constexpr AttributeDescription kIniGetValueAttributes[] = {
    kPath<Use::Read>,
    kSection,
    kKey,
    Variable<&FunctionIniGetValue::var>(u"var", Presence::NonEmpty, u"Receives the value."),
    Expanded<&FunctionIniGetValue::fallback>(
        u"default", Presence::Optional,
        u"What the variable receives when the file, the section or the key is missing."),
};

constexpr CommandDescription kIniGetValue = {
    .purpose = u"Reads a value of an INI file.",
    .attributes = kIniGetValueAttributes,
    .notes =
        u"It never fails. Blanks around the value, and one pair of quotes, are not part of "
        u"it, and it is cut at 10,239 characters.",
};

// The value may be empty: neither a key nor a section can be removed.
struct FunctionIniSetValue : FunctionOnIni {
  void Execute() override;

  cvn::String value;
};

void FunctionIniSetValue::Execute() {
  const cvn::String file = ExpandVariables(path, variables);
  const cvn::String inSection = ExpandVariables(section, variables);
  const cvn::String atKey = ExpandVariables(key, variables);
  const cvn::String text = ExpandVariables(value, variables);
  // The value as written: what a variable holds doesn't get into the trace.
  TraceLine(u"iniSetValue in '%s' at '%s\\%s'. value: '%s'", file, inSection, atKey, value);
  ReportCode(platform::profile::WriteString(inSection, atKey, text, file));
  TraceEnd(u"iniSetValue");
}

constexpr AttributeDescription kIniSetValueAttributes[] = {
    kPath<Use::Change>,
    kSection,
    kKey,
    Expanded<&FunctionIniSetValue::value>(
        u"value", Presence::Required,
        u"The value. An empty one doesn't delete the key. The trace shows it as it is written "
        u"here."),
};

constexpr FailureDescription kIniSetValueFailures[] = {
    {u"3", u"the file's folder is missing"},
    {u"5", u"access is denied, or the file is read-only"},
    {u"", u"any other code of the system"},
};

constexpr CommandDescription kIniSetValue = {
    .purpose =
        u"Writes a value of an INI file. The file, the section and the key are added when "
        u"they are missing.",
    .attributes = kIniSetValueAttributes,
    .failures = kIniSetValueFailures,
    .notes = u"Neither a key nor a section can be removed.",
};

constexpr CommandRecord kCommands[] = {
    Command<FunctionIniGetValue>(u"iniGetValue", kIniGetValue),
    Command<FunctionIniSetValue>(u"iniSetValue", kIniSetValue),
};

}  // namespace

constinit const CommandFamily kIniFamily = {
    .title = u"INI files",
    .introduction =
        uR"md(
Case doesn't count, and of several sections or keys of one name the first does. The rest of the file stays as it is. A
file with the mark of UTF-16LE keeps that; any other is ANSI: a character that the code page lacks is written as the
nearest one, or `?`. On Linux it is the machine's own code page (`ACP` of `Control\Nls\CodePage` in its hive `SYSTEM`),
and windows-1252 where there is none. A file whose name stands below `IniFileMapping` in the registry, as that of
`win.ini` does, has its values in the registry instead, wherever it lies; on Linux in the machine's.
)md",
    .commands = kCommands,
};

}  // namespace tessel
