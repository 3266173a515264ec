#include "commands/core/text.h"

#include "engine/variable_store.h"
#include "support/format.h"
#include "support/numbers.h"
#include "trace/trace.h"

namespace tessel {
namespace {

int Sign(int number) { return (number > 0) - (number < 0); }

}  // namespace

bool FunctionAssign::Parse() {
  return ReadNonEmpty(u"var", &var_) && ReadAttribute(u"value", &value_);
}

void FunctionAssign::Execute() {
  cvn::String value = ExpandVariables(value_, variables);
  TraceLine(u"Assign value '%s' to the variable %s", value, var_);
  SetVariable(var_, std::move(value), variables);
}

bool FunctionAssignToken::Parse() {
  return ReadNonEmpty(u"var", &var_) && ReadAttribute(u"value", &value_) &&
         ReadAttribute(u"regexp", &regexp_) && pattern_.Compile(regexp_) &&
         ReadAttribute(u"index", &index_);
}

void FunctionAssignToken::Execute() {
  const cvn::String value = ExpandVariables(value_, variables);
  const std::int32_t index = cvn::ReadInt32(ExpandVariables(index_, variables));
  TraceLine(u"assignToken value '%s', index %d, regexp %s to the variable %s", value, index,
            regexp_, var_);
  const std::optional<cvn::StringView> token =
      pattern_.MatchGroup(value, static_cast<std::uint32_t>(index));
  SetVariable(var_, token.value_or(cvn::StringView()), variables);
  if (token) {
    TraceLine(u"found token %s", *token);
  } else {
    TraceLine(u"token not found");
  }
}

bool FunctionWithAddend::Parse() {
  return ReadNonEmpty(u"var", &var_) && ReadNonEmpty(u"value", &value_);
}

void FunctionAddInt::Execute() {
  const cvn::String value = ExpandVariables(value_, variables);
  TraceLine(u"AddInt value '%s' to the variable %s", value, var_);
  cvn::String* variable = variables->FindOrAdd(var_);
  if (variable != nullptr) {
    const auto sum = static_cast<std::uint32_t>(cvn::ReadInt32(*variable)) +
                     static_cast<std::uint32_t>(cvn::ReadInt32(value));
    *variable = cvn::Format(u"%d", static_cast<std::int32_t>(sum));
  }
}

void FunctionAddString::Execute() {
  const cvn::String value = ExpandVariables(value_, variables);
  TraceLine(u"AddString value '%s' to the variable %s", value, var_);
  cvn::String* variable = variables->FindOrAdd(var_);
  if (variable != nullptr) {
    variable->Append(value);
  }
}

bool FunctionWithPiece::ReadPiece() {
  cvn::String from;
  cvn::String count;
  if (!ReadNonEmpty(u"fromIndex", &from) || !ReadNonEmpty(u"maxCount", &count)) {
    return false;
  }
  fromIndex_ = cvn::ReadInt32(from);
  maxCount_ = cvn::ReadInt32(count);
  return ReadNonEmpty(u"toAnyChar", &toAnyChar_);
}

cvn::StringView FunctionWithPiece::PieceOf(cvn::StringView text) const {
  const auto from = static_cast<std::uint32_t>(fromIndex_);
  if (from >= text.size()) {
    return {};
  }
  const cvn::StringView piece = text.substr(from, static_cast<std::uint32_t>(maxCount_));
  return piece.substr(0, piece.find_first_of(toAnyChar_));
}

bool FunctionStringDelete::Parse() { return ReadNonEmpty(u"var", &var_) && ReadPiece(); }

void FunctionStringDelete::Execute() {
  TraceLine(u"StringDelete variable %s, from %d, maxCount %d or to %s", var_, fromIndex_, maxCount_,
            toAnyChar_);
  cvn::String* variable = variables->Find(var_);
  if (variable != nullptr) {
    variable->Erase(static_cast<std::uint32_t>(fromIndex_), PieceOf(*variable).size());
  }
}

bool FunctionStringGet::Parse() {
  return ReadNonEmpty(u"var", &var_) && ReadPiece() && ReadNonEmpty(u"value", &value_);
}

void FunctionStringGet::Execute() {
  TraceLine(u"StringGet variable %s, from %d, maxCount %d or to %s", var_, fromIndex_, maxCount_,
            toAnyChar_);
  const cvn::String value = ExpandVariables(value_, variables);
  SetVariable(var_, PieceOf(value), variables);
}

bool FunctionStringTrim::Parse() {
  return ReadNonEmpty(u"var", &var_) && ReadNonEmpty(u"chars", &chars_);
}

void FunctionStringTrim::Execute() {
  TraceLine(u"StringTrim variable %s, with %s", var_, chars_);
  cvn::String* variable = variables->FindOrAdd(var_);
  if (variable == nullptr) {
    return;
  }
  const cvn::StringView text = *variable;
  const std::size_t end = text.find_last_not_of(chars_) + 1;  // 0 when nothing else is there
  const std::size_t start = text.substr(0, end).find_first_not_of(chars_);
  variable->Truncate(end);
  variable->Erase(0, start);
}

bool FunctionTest::Parse() {
  cvn::String comparison;
  cvn::String type;
  if (!ReadAttribute(u"operator", &comparison) || !ReadAttribute(u"type", &type)) {
    return false;
  }
  if (comparison == u"<=") {
    operator_ = Operator::LessOrEqual;
  } else if (comparison == u"==") {
    operator_ = Operator::Equal;
  } else if (comparison == u"<") {
    operator_ = Operator::Less;
  } else {
    return false;
  }
  if (type != u"string" && type != u"number") {
    return false;
  }
  type_ = type == u"number" ? Type::Number : Type::String;
  return ReadAttribute(u"left", &left_) && ReadAttribute(u"right", &right_);
}

void FunctionTest::Execute() {
  const cvn::String left = ExpandVariables(left_, variables);
  const cvn::String right = ExpandVariables(right_, variables);
  TraceLine(u"test function called ('%s' %d '%s'). type: %d", left, static_cast<int>(operator_),
            right, static_cast<int>(type_));
  int order = 0;
  if (type_ == Type::String) {
    order = Sign(cvn::CompareNoCase(left, right));
  } else {
    const std::int32_t leftNumber = cvn::ReadInt32(left);
    const std::int32_t rightNumber = cvn::ReadInt32(right);
    order = (leftNumber > rightNumber) - (leftNumber < rightNumber);
  }
  switch (operator_) {
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

}  // namespace tessel
