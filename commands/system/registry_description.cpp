#include "commands/system/registry.h"
#include "engine/command_description.h"

namespace tessel {
namespace {

constexpr cvn::StringView kRootWords[] = {u"HKEY_LOCAL_MACHINE", u"HKEY_CURRENT_USER",
                                          u"HKEY_CLASSES_ROOT", u"HKEY_USERS",
                                          u"HKEY_CURRENT_CONFIG"};

constexpr cvn::StringView kTypeWords[] = {u"REG_SZ",    u"REG_EXPAND_SZ", u"REG_MULTI_SZ",
                                          u"REG_DWORD", u"REG_QWORD",     u"REG_BINARY"};

constexpr AttributeDescription kRoot = {
    .name = u"root",
    .form = AttributeForm::Choice,
    .presence = Presence::Required,
    .meaning = u"The tree that the key belongs to.",
    .choices = kRootWords,
    .refusesOthers = true,
};

constexpr AttributeDescription kType = {
    .name = u"type",
    .form = AttributeForm::Choice,
    .presence = Presence::Required,
    .meaning = u"What the value becomes.",
    .choices = kTypeWords,
    .refusesOthers = true,
};

constexpr AttributeDescription kKey = {u"key", AttributeForm::Expanded, Presence::Required,
                                       u"The key's path from `root` on."};

constexpr AttributeDescription kNewKey = {
    u"key", AttributeForm::Expanded, Presence::Required,
    u"The key's path from `root` on. What is missing on the way is made too."};

constexpr AttributeDescription kVolatile = {
    u"volatile", AttributeForm::Flag, Presence::Optional,
    u"Whether a key that is made lasts only until the system stops.", u"false"};

constexpr AttributeDescription kValue = {u"value", AttributeForm::Expanded, Presence::Required,
                                         u"The value's name. Empty for the key's default value."};

constexpr AttributeDescription kTextVariable = {u"var", AttributeForm::Variable, Presence::NonEmpty,
                                                u"Receives the value as text."};

constexpr AttributeDescription kNamesVariable = {
    u"var", AttributeForm::Variable, Presence::NonEmpty,
    u"Receives the names; an empty text when there are none. After a failure it keeps what it "
    u"had."};

constexpr AttributeDescription kDelimiter = {u"delim", AttributeForm::Text, Presence::Required,
                                             u"Stands behind each name, the last one too."};

constexpr AttributeDescription kData = {
    u"data", AttributeForm::Expanded, Presence::Required,
    u"The text that the value is made of, as `type` says. It shows in the trace."};

constexpr AttributeDescription kRegReadAttributes[] = {kTextVariable, kRoot, kKey, kValue};
constexpr AttributeDescription kRegGetNamesAttributes[] = {kNamesVariable, kRoot, kKey, kDelimiter};
constexpr AttributeDescription kRegWriteAttributes[] = {kRoot, kKey, kValue, kData, kType};
constexpr AttributeDescription kKeyAttributes[] = {kRoot, kKey};
constexpr AttributeDescription kRegCreateKeyAttributes[] = {kRoot, kNewKey, kVolatile};
constexpr AttributeDescription kRegDeleteValueAttributes[] = {kRoot, kKey, kValue};

constexpr FailureDescription kDenied = {u"5", u"access is denied"};
constexpr FailureDescription kOther = {u"", u"any other code of the system"};

constexpr FailureDescription kRegReadFailures[] = {
    {u"2", u"there is no such key or value"},
    kDenied,
    {u"1630", u"the value is of a type that has no text, or of `REG_BINARY`"},
    kOther,
};

constexpr FailureDescription kRegGetNamesFailures[] = {
    {u"2", u"there is no such key"},
    kDenied,
    {u"234", u"a name is longer than 255 characters, for values 256"},
    kOther,
};

constexpr FailureDescription kRegWriteFailures[] = {
    {u"2", u"there is no such key; make it with `regCreateKey`"},
    kDenied,
    {u"111", u"`data` of a `REG_BINARY` isn't hexadecimal"},
    kOther,
};

constexpr FailureDescription kRegCreateKeyFailures[] = {
    kDenied,
    {u"161", u"`key` begins with a backslash"},
    {u"1021", u"the key lies below a volatile one, and so has to be volatile too"},
    kOther,
};

constexpr FailureDescription kRegDeleteKeyFailures[] = {
    {u"2", u"there is no such key"},
    kDenied,
    kOther,
};

constexpr FailureDescription kRegDeleteValueFailures[] = {
    {u"2", u"there is no such key or value"},
    kDenied,
    kOther,
};

}  // namespace

constinit const CommandDescription FunctionRegRead::kDescription = {
    .purpose = u"Reads a value as text.",
    .attributes = kRegReadAttributes,
    .failures = kRegReadFailures,
    .notes =
        u"A `REG_BINARY` value fails with `1630`, and yet the variable receives its digits: "
        u"go on in an `onerrorspec` for `1630`. After any other failure the variable keeps "
        u"what it had. In the trace the command goes by `RegRead`.",
};

constinit const CommandDescription FunctionRegGetKeys::kDescription = {
    .purpose = u"Lists the names of the keys right below a key.",
    .attributes = kRegGetNamesAttributes,
    .failures = kRegGetNamesFailures,
};

constinit const CommandDescription FunctionRegGetValues::kDescription = {
    .purpose = u"Lists the names of a key's values.",
    .attributes = kRegGetNamesAttributes,
    .failures = kRegGetNamesFailures,
    .notes =
        u"The default value's name is empty: where it is set, `delim` stands behind nothing. "
        u"When it comes first, a `for` over the list ends before its first round.",
};

constinit const CommandDescription FunctionRegWrite::kDescription = {
    .purpose = u"Writes a value of a key that is there.",
    .attributes = kRegWriteAttributes,
    .failures = kRegWriteFailures,
    .notes =
        u"Numbers are decimal and signed: `0x10` is 0, and one out of range becomes the "
        u"nearest that fits. In the trace the command goes by `RegWrite`.",
};

constinit const CommandDescription FunctionRegExistsKey::kDescription = {
    .purpose = u"Tells whether there is a key.",
    .attributes = kKeyAttributes,
    .notes = u"A key that can't be read counts as missing.",
};

constinit const CommandDescription FunctionRegCreateKey::kDescription = {
    .purpose = u"Makes a key. One that is there already stays as it is, and is a success.",
    .attributes = kRegCreateKeyAttributes,
    .failures = kRegCreateKeyFailures,
};

constinit const CommandDescription FunctionRegDeleteKey::kDescription = {
    .purpose = u"Deletes a key with all below it.",
    .attributes = kKeyAttributes,
    .failures = kRegDeleteKeyFailures,
    .notes =
        u"The deepest keys go first, and the first one that resists ends the command: what is "
        u"gone by then stays gone.",
};

constinit const CommandDescription FunctionRegDeleteValue::kDescription = {
    .purpose = u"Deletes a value of a key.",
    .attributes = kRegDeleteValueAttributes,
    .failures = kRegDeleteValueFailures,
};

}  // namespace tessel
