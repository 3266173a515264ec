// Commands that compute with variables and text.
#include <utility>

#include "commands/common/families.h"
#include "commands/common/pattern_attribute.h"
#include "engine/command_declaration.h"
#include "engine/variable_store.h"
#include "support/format.h"
#include "support/numbers.h"
#include "trace/trace.h"

namespace tessel {
namespace {

// The variable that a command sets, and the one that it changes.
template <typename Class>
constexpr AttributeDescription kTarget = Variable<&Class::var>(u"var", Presence::NonEmpty,
                                                               u"The variable to set.");
template <typename Class>
constexpr AttributeDescription kChanged = Variable<&Class::var>(u"var", Presence::NonEmpty,
                                                                u"The variable to change.");

struct FunctionAssign : FunctionBase {
  void Execute() override {
    cvn::String expanded = ExpandVariables(value, variables);
    TraceLine(u"Assign value '%s' to the variable %s", expanded, var);
    SetVariable(var, std::move(expanded), variables);
  }

  cvn::String var;
  cvn::String value;
};

constexpr AttributeDescription kAssignAttributes[] = {
    kTarget<FunctionAssign>,
    Expanded<&FunctionAssign::value>(u"value", Presence::Required, u"The text."),
};

constexpr CommandDescription kAssign = {
    .purpose = u"Sets a variable.",
    .attributes = kAssignAttributes,
};

struct FunctionAddInt : FunctionBase {
  void Execute() override;

  cvn::String var;
  cvn::String value;
};

void FunctionAddInt::Execute() {
  const cvn::String addend = ExpandVariables(value, variables);
  TraceLine(u"AddInt value '%s' to the variable %s", addend, var);
  cvn::String* variable = variables->FindOrAdd(var);
  if (variable != nullptr) {
    const auto sum = static_cast<std::uint32_t>(cvn::ReadInt32(*variable)) +
                     static_cast<std::uint32_t>(cvn::ReadInt32(addend));
    *variable = cvn::Format(u"%d", static_cast<std::int32_t>(sum));
  }
}

constexpr AttributeDescription kAddIntAttributes[] = {
    kChanged<FunctionAddInt>,
    Expanded<&FunctionAddInt::value>(u"value", Presence::NonEmpty,
                                     u"The number to add; a negative one is taken away."),
};

constexpr CommandDescription kAddInt = {
    .purpose = u"Adds a whole number to a variable.",
    .attributes = kAddIntAttributes,
    .notes =
        u"A side that is no number counts as 0, an undefined variable too. Numbers have 32 "
        u"bits, and a sum beyond that wraps around.",
};

struct FunctionAddString : FunctionBase {
  void Execute() override;

  cvn::String var;
  cvn::String value;
};

void FunctionAddString::Execute() {
  const cvn::String expanded = ExpandVariables(value, variables);
  TraceLine(u"AddString value '%s' to the variable %s", expanded, var);
  cvn::String* variable = variables->FindOrAdd(var);
  if (variable != nullptr) {
    variable->Append(expanded);
  }
}

constexpr AttributeDescription kAddStringAttributes[] = {
    kChanged<FunctionAddString>,
    Expanded<&FunctionAddString::value>(u"value", Presence::NonEmpty, u"The text to append."),
};

constexpr CommandDescription kAddString = {
    .purpose = u"Appends a text to a variable.",
    .attributes = kAddStringAttributes,
};

// What stringGet takes and stringDelete removes: a piece of a text, of up to maxCount characters
// from fromIndex on, that ends before the first character of toAnyChar. Both numbers count as
// unsigned.
struct FunctionWithPiece : FunctionBase {
  // The piece of `text`; empty when fromIndex lies beyond its end.
  cvn::StringView PieceOf(cvn::StringView text) const {
    const auto from = static_cast<std::uint32_t>(fromIndex);
    if (from >= text.size()) {
      return {};
    }
    const cvn::StringView piece = text.substr(from, static_cast<std::uint32_t>(maxCount));
    return piece.substr(0, piece.find_first_of(toAnyChar));
  }

  cvn::String var;
  std::int32_t fromIndex;
  std::int32_t maxCount;
  cvn::String toAnyChar;
};

constexpr AttributeDescription kFromIndex = Number<&FunctionWithPiece::fromIndex>(
    u"fromIndex", Presence::NonEmpty, u"Where the piece begins; the first character is at `0`.");
constexpr AttributeDescription kMaxCount = Number<&FunctionWithPiece::maxCount>(
    u"maxCount", Presence::NonEmpty, u"The most characters that the piece may have.");
constexpr AttributeDescription kToAnyChar =
    Text<&FunctionWithPiece::toAnyChar>(u"toAnyChar", Presence::NonEmpty,
                                        u"Stop characters: the piece ends in front of the first of "
                                        u"them.");

struct FunctionStringGet : FunctionWithPiece {
  void Execute() override {
    TraceLine(u"StringGet variable %s, from %d, maxCount %d or to %s", var, fromIndex, maxCount,
              toAnyChar);
    const cvn::String text = ExpandVariables(value, variables);
    SetVariable(var, PieceOf(text), variables);
  }

  cvn::String value;
};

constexpr AttributeDescription kStringGetAttributes[] = {
    kTarget<FunctionStringGet>,
    Expanded<&FunctionStringGet::value>(u"value", Presence::NonEmpty,
                                        u"The text to take the piece of."),
    kFromIndex,
    kMaxCount,
    kToAnyChar,
};

constexpr CommandDescription kStringGet = {
    .purpose = u"Sets a variable to a piece of a text.",
    .attributes = kStringGetAttributes,
    .notes =
        u"A stop character right at `fromIndex` makes the piece empty, and so does a "
        u"`fromIndex` beyond the text's end.",
};

struct FunctionStringDelete : FunctionWithPiece {
  void Execute() override {
    TraceLine(u"StringDelete variable %s, from %d, maxCount %d or to %s", var, fromIndex, maxCount,
              toAnyChar);
    cvn::String* variable = variables->Find(var);
    if (variable != nullptr) {
      variable->Erase(static_cast<std::uint32_t>(fromIndex), PieceOf(*variable).size());
    }
  }
};

constexpr AttributeDescription kStringDeleteAttributes[] = {
    kChanged<FunctionStringDelete>,
    kFromIndex,
    kMaxCount,
    kToAnyChar,
};

constexpr CommandDescription kStringDelete = {
    .purpose = u"Removes a piece from a variable: the one that `stringGet` takes.",
    .attributes = kStringDeleteAttributes,
    .notes =
        u"A stop character right at `fromIndex` makes the piece empty. Beyond the text's end "
        u"nothing changes.",
};

struct FunctionStringTrim : FunctionBase {
  void Execute() override;

  cvn::String var;
  cvn::String chars;
};

void FunctionStringTrim::Execute() {
  TraceLine(u"StringTrim variable %s, with %s", var, chars);
  cvn::String* variable = variables->FindOrAdd(var);
  if (variable == nullptr) {
    return;
  }
  const cvn::StringView text = *variable;
  const std::size_t end = text.find_last_not_of(chars) + 1;  // 0 when nothing else is there
  const std::size_t start = text.substr(0, end).find_first_not_of(chars);
  variable->Truncate(end);
  variable->Erase(0, start);
}

constexpr AttributeDescription kStringTrimAttributes[] = {
    kChanged<FunctionStringTrim>,
    Text<&FunctionStringTrim::chars>(u"chars", Presence::NonEmpty, u"The characters to remove."),
};

constexpr CommandDescription kStringTrim = {
    .purpose = u"Removes characters from both ends of a variable.",
    .attributes = kStringTrimAttributes,
    .notes = u"A variable that wasn't defined is empty afterwards.",
};

struct FunctionAssignToken : FunctionBase {
  void Execute() override;

  cvn::String var;
  cvn::String value;
  WholeTextPattern pattern;
  cvn::String index;
};

void FunctionAssignToken::Execute() {
  const cvn::String text = ExpandVariables(value, variables);
  const std::int32_t group = cvn::ReadInt32(ExpandVariables(index, variables));
  TraceLine(u"assignToken value '%s', index %d, regexp %s to the variable %s", text, group,
            pattern.Source(), var);
  cvn::StringView token;
  const WholeTextPattern::Outcome outcome =
      pattern.MatchGroup(text, static_cast<std::uint32_t>(group), &token);
  SetVariable(var, token, variables);
  switch (outcome) {
    case WholeTextPattern::Outcome::Match:
      TraceLine(u"found token %s", token);
      break;
    case WholeTextPattern::Outcome::NoMatch:
      TraceLine(u"token not found");
      break;
    case WholeTextPattern::Outcome::GivenUp:
      TraceLine(u"The match was given up: the pattern takes too many steps for this text.");
  }
}

constexpr AttributeDescription kAssignTokenAttributes[] = {
    kTarget<FunctionAssignToken>,
    Expanded<&FunctionAssignToken::value>(u"value", Presence::Required, u"The text to match."),
    Pattern<&FunctionAssignToken::pattern>(u"regexp", Presence::Required,
                                           u"The pattern, which has to match the whole text."),
    Expanded<&FunctionAssignToken::index>(
        u"index", Presence::Required, u"The number of the group to take; `0` is the whole text."),
};

constexpr CommandDescription kAssignToken = {
    .purpose = u"Sets a variable to the part of a text that a group of a pattern matched.",
    .attributes = kAssignTokenAttributes,
    .notes =
        u"The variable is emptied when the pattern doesn't match, or has no such group, or when "
        u"the "
        u"match takes too many steps and is given up, which the trace says.",
};

// The condition of the language.
struct FunctionTest : FunctionRetBool {
  // The trace shows the numbers of both.
  enum class Operator { LessOrEqual = 0, Equal = 1, Less = 2 };
  enum class Type { String = 0, Number = 1 };

  void Execute() override;
  // Negative, 0 or positive.
  int Compare(cvn::StringView leftSide, cvn::StringView rightSide) const;

  cvn::String left;
  Operator comparison;
  cvn::String right;
  Type type;
};

void FunctionTest::Execute() {
  const cvn::String leftSide = ExpandVariables(left, variables);
  const cvn::String rightSide = ExpandVariables(right, variables);
  TraceLine(u"test function called ('%s' %d '%s'). type: %d", leftSide,
            static_cast<int>(comparison), rightSide, static_cast<int>(type));
  const int order = Compare(leftSide, rightSide);
  switch (comparison) {
    case Operator::LessOrEqual:
      result = order <= 0;
      break;
    case Operator::Equal:
      result = order == 0;
      break;
    case Operator::Less:
      result = order < 0;
      break;
  }
  TraceEnd(u"test");
}

int FunctionTest::Compare(cvn::StringView leftSide, cvn::StringView rightSide) const {
  if (type == Type::String) {
    return cvn::CompareNoCase(leftSide, rightSide);
  }
  const std::int32_t leftNumber = cvn::ReadInt32(leftSide);
  const std::int32_t rightNumber = cvn::ReadInt32(rightSide);
  return (leftNumber > rightNumber) - (leftNumber < rightNumber);
}

constexpr Word<FunctionTest::Operator> kOperators[] = {
    {u"==", FunctionTest::Operator::Equal},
    {u"<", FunctionTest::Operator::Less},
    {u"<=", FunctionTest::Operator::LessOrEqual},
};

constexpr Word<FunctionTest::Type> kTypes[] = {
    {u"string", FunctionTest::Type::String},
    {u"number", FunctionTest::Type::Number},
};

constexpr AttributeDescription kTestAttributes[] = {
    Expanded<&FunctionTest::left>(u"left", Presence::Required, u"The left side."),
    Choice<&FunctionTest::comparison, kOperators>(
        u"operator", u"The comparison. In XML, `<` is written `&lt;`."),
    Expanded<&FunctionTest::right>(u"right", Presence::Required, u"The right side."),
    Choice<&FunctionTest::type, kTypes>(
        u"type",
        u"What the sides are: texts, compared without regard to the case of A to Z, or whole "
        u"numbers."),
};

constexpr CommandDescription kTest = {
    .purpose = u"Compares two texts or two numbers.",
    .attributes = kTestAttributes,
    .notes =
        u"There is no greater, and no unequal: swap the sides, or use `onFalse`. A side that "
        u"is no number counts as 0.",
};

constexpr CommandRecord kCommands[] = {
    Command<FunctionAssign>(u"assign", kAssign),
    Command<FunctionAddInt>(u"addInt", kAddInt),
    Command<FunctionAddString>(u"addString", kAddString),
    Command<FunctionStringGet>(u"stringGet", kStringGet),
    Command<FunctionStringDelete>(u"stringDelete", kStringDelete),
    Command<FunctionStringTrim>(u"stringTrim", kStringTrim),
    Command<FunctionAssignToken>(u"assignToken", kAssignToken),
    Command<FunctionTest>(u"test", kTest),
};

}  // namespace

constinit const CommandFamily kTextFamily = {
    .title = u"Variables and text",
    .introduction =
        uR"md(
All but `test` can't fail: text that is no number counts as 0, and a variable that isn't there as empty.
)md",
    .commands = kCommands,
    .keepsToRegistry = true,
};

}  // namespace tessel
