#include "commands/documents/ini.h"
#include "engine/command_description.h"

namespace tessel {
namespace {

constexpr AttributeDescription kPath = {u"path", AttributeForm::Expanded, Presence::NonEmpty,
                                        u"The file. A bare name means one in the Windows folder."};

constexpr AttributeDescription kSection = {u"section", AttributeForm::Expanded, Presence::NonEmpty,
                                           u"The section, without its brackets."};

constexpr AttributeDescription kKey = {u"key", AttributeForm::Expanded, Presence::NonEmpty,
                                       u"The key in the section."};

constexpr AttributeDescription kIniGetValueAttributes[] = {
    kPath,
    kSection,
    kKey,
    {u"var", AttributeForm::Variable, Presence::NonEmpty, u"Receives the value."},
    {u"default", AttributeForm::Expanded, Presence::Optional,
     u"What the variable receives when the file, the section or the key is missing."},
};

constexpr AttributeDescription kIniSetValueAttributes[] = {
    kPath,
    kSection,
    kKey,
    {u"value", AttributeForm::Expanded, Presence::Required,
     u"The value. An empty one doesn't delete the key. The trace shows it as it is written here."},
};

constexpr FailureDescription kIniSetValueFailures[] = {
    {u"3", u"the file's folder is missing"},
    {u"5", u"access is denied, or the file is read-only"},
    {u"", u"any other code of the system"},
};

}  // namespace

constinit const CommandDescription FunctionIniGetValue::kDescription = {
    .purpose = u"Reads a value of an INI file.",
    .attributes = kIniGetValueAttributes,
    .notes =
        u"It never fails. Blanks around the value, and one pair of quotes, are not part of "
        u"it, and it is cut at 10,239 characters.",
};

constinit const CommandDescription FunctionIniSetValue::kDescription = {
    .purpose =
        u"Writes a value of an INI file. The file, the section and the key are added when "
        u"they are missing.",
    .attributes = kIniSetValueAttributes,
    .failures = kIniSetValueFailures,
    .notes = u"Neither a key nor a section can be removed.",
};

}  // namespace tessel
