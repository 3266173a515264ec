#include "commands/core/text.h"
#include "engine/command_description.h"

namespace tessel {
namespace {

constexpr AttributeDescription kTarget = {u"var", AttributeForm::Variable, Presence::NonEmpty,
                                          u"The variable to set."};

constexpr AttributeDescription kChanged = {u"var", AttributeForm::Variable, Presence::NonEmpty,
                                           u"The variable to change."};

constexpr AttributeDescription kAssignAttributes[] = {
    kTarget,
    {u"value", AttributeForm::Expanded, Presence::Required, u"The text."},
};

constexpr AttributeDescription kAssignTokenAttributes[] = {
    kTarget,
    {u"value", AttributeForm::Expanded, Presence::Required, u"The text to match."},
    {u"regexp", AttributeForm::Pattern, Presence::Required,
     u"The pattern, which has to match the whole text."},
    {u"index", AttributeForm::Expanded, Presence::Required,
     u"The number of the group to take; `0` is the whole text."},
};

constexpr AttributeDescription kAddIntAttributes[] = {
    kChanged,
    {u"value", AttributeForm::Expanded, Presence::NonEmpty,
     u"The number to add; a negative one is taken away."},
};

constexpr AttributeDescription kAddStringAttributes[] = {
    kChanged,
    {u"value", AttributeForm::Expanded, Presence::NonEmpty, u"The text to append."},
};

constexpr AttributeDescription kFromIndex = {
    u"fromIndex", AttributeForm::Number, Presence::NonEmpty,
    u"Where the piece begins; the first character is at `0`."};

constexpr AttributeDescription kMaxCount = {u"maxCount", AttributeForm::Number, Presence::NonEmpty,
                                            u"The most characters that the piece may have."};

constexpr AttributeDescription kToAnyChar = {
    u"toAnyChar", AttributeForm::Text, Presence::NonEmpty,
    u"Stop characters: the piece ends in front of the first of them."};

constexpr AttributeDescription kStringDeleteAttributes[] = {kChanged, kFromIndex, kMaxCount,
                                                            kToAnyChar};

constexpr AttributeDescription kStringGetAttributes[] = {
    kTarget,
    {u"value", AttributeForm::Expanded, Presence::NonEmpty, u"The text to take the piece of."},
    kFromIndex,
    kMaxCount,
    kToAnyChar,
};

constexpr AttributeDescription kStringTrimAttributes[] = {
    kChanged,
    {u"chars", AttributeForm::Text, Presence::NonEmpty, u"The characters to remove."},
};

constexpr cvn::StringView kOperators[] = {u"==", u"<", u"<="};
constexpr cvn::StringView kTypes[] = {u"string", u"number"};

constexpr AttributeDescription kTestAttributes[] = {
    {u"left", AttributeForm::Expanded, Presence::Required, u"The left side."},
    {
        .name = u"operator",
        .form = AttributeForm::Choice,
        .presence = Presence::Required,
        .meaning = u"The comparison. In XML, `<` is written `&lt;`.",
        .choices = kOperators,
        .refusesOthers = true,
    },
    {u"right", AttributeForm::Expanded, Presence::Required, u"The right side."},
    {
        .name = u"type",
        .form = AttributeForm::Choice,
        .presence = Presence::Required,
        .meaning = u"What the sides are: texts, compared without regard to the case of A to Z, or "
                   u"whole numbers.",
        .choices = kTypes,
        .refusesOthers = true,
    },
};

}  // namespace

constinit const CommandDescription FunctionAssign::kDescription = {
    .purpose = u"Sets a variable.",
    .attributes = kAssignAttributes,
};

constinit const CommandDescription FunctionAssignToken::kDescription = {
    .purpose = u"Sets a variable to the part of a text that a group of a pattern matched.",
    .attributes = kAssignTokenAttributes,
    .notes = u"The variable is emptied when the pattern doesn't match, or has no such group.",
};

constinit const CommandDescription FunctionAddInt::kDescription = {
    .purpose = u"Adds a whole number to a variable.",
    .attributes = kAddIntAttributes,
    .notes =
        u"A side that is no number counts as 0, an undefined variable too. Numbers have 32 "
        u"bits, and a sum beyond that wraps around.",
};

constinit const CommandDescription FunctionAddString::kDescription = {
    .purpose = u"Appends a text to a variable.",
    .attributes = kAddStringAttributes,
};

constinit const CommandDescription FunctionStringDelete::kDescription = {
    .purpose = u"Removes a piece from a variable: the one that `stringGet` takes.",
    .attributes = kStringDeleteAttributes,
    .notes =
        u"A stop character right at `fromIndex` makes the piece empty. Beyond the text's end "
        u"nothing changes.",
};

constinit const CommandDescription FunctionStringGet::kDescription = {
    .purpose = u"Sets a variable to a piece of a text.",
    .attributes = kStringGetAttributes,
    .notes =
        u"A stop character right at `fromIndex` makes the piece empty, and so does a "
        u"`fromIndex` beyond the text's end.",
};

constinit const CommandDescription FunctionStringTrim::kDescription = {
    .purpose = u"Removes characters from both ends of a variable.",
    .attributes = kStringTrimAttributes,
    .notes = u"A variable that wasn't defined is empty afterwards.",
};

constinit const CommandDescription FunctionTest::kDescription = {
    .purpose = u"Compares two texts or two numbers.",
    .attributes = kTestAttributes,
    .notes =
        u"There is no greater, and no unequal: swap the sides, or use `onFalse`. A side that "
        u"is no number counts as 0.",
};

}  // namespace tessel
