// What a family of commands is written with: attributes that name the member they fill, and a row
// for each command.
//
//   struct FunctionSleep : FunctionBase {
//     void Execute() override;
//     std::int32_t milliseconds;
//   };
//   constexpr AttributeDescription kSleepAttributes[] = {
//       Number<&FunctionSleep::milliseconds>(u"milisec", Presence::Required, u"How long to wait."),
//   };
//   constexpr CommandDescription kSleep = {.purpose = u"Waits.", .attributes = kSleepAttributes};
//   constexpr CommandRecord kCommands[] = {Command<FunctionSleep>(u"sleep", kSleep)};
//
// All of it is made by the compiler. A member may be one that the command inherits, and attributes
// that several commands have alike can be a variable template over the command.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "engine/command_description.h"
#include "engine/command_registry.h"
#include "engine/function_base.h"
#include "support/numbers.h"
#include "support/string.h"

namespace tessel {

// A word of a choice, and the value that it loads.
template <typename Value>
struct Word {
  cvn::StringView text;
  Value value;
};

namespace internal {

template <typename Class, typename Value>
Value& MemberOf(FunctionBase* command, Value Class::*member) {
  return static_cast<Class*>(command)->*member;
}

template <auto kMember>
bool LoadText(const AttributeDescription& /*attribute*/, cvn::StringView value,
              FunctionBase* command) {
  MemberOf(command, kMember) = value;
  return true;
}

template <auto kMember>
constexpr AttributeDescription OfText(AttributeForm form, cvn::StringView name, Presence presence,
                                      cvn::StringView meaning) {
  return {.name = name,
          .form = form,
          .presence = presence,
          .meaning = meaning,
          .load = &LoadText<kMember>};
}

template <auto kMember>
bool LoadNumber(const AttributeDescription& /*attribute*/, cvn::StringView value,
                FunctionBase* command) {
  MemberOf(command, kMember) = cvn::ReadInt32(value);
  return true;
}

template <auto kMember>
bool LoadFlag(const AttributeDescription& /*attribute*/, cvn::StringView value,
              FunctionBase* command) {
  MemberOf(command, kMember) = IsFlagOn(value);
  return true;
}

template <auto kMember, const auto& kWords>
bool LoadChoice(const AttributeDescription& attribute, cvn::StringView value,
                FunctionBase* command) {
  const auto find = [](cvn::StringView text) {
    return std::ranges::find_if(kWords, [&](const auto& word) { return word.text == text; });
  };
  const auto* found = find(value);
  if (found == std::end(kWords) && value != attribute.fallback) {
    found = find(attribute.othersCountAs);
  }
  if (found == std::end(kWords)) {
    MemberOf(command, kMember) = {};
    return !attribute.refusesOthers;
  }
  MemberOf(command, kMember) = found->value;
  return true;
}

template <const auto& kWords>
inline constexpr auto kWordTexts = [] {
  std::array<cvn::StringView, std::size(kWords)> texts;
  std::ranges::transform(kWords, texts.begin(), [](const auto& word) { return word.text; });
  return texts;
}();

template <typename Class>
std::unique_ptr<FunctionBase> Make() {
  return std::make_unique<Class>();
}

template <typename Class>
constexpr FunctionKind KindOf() {
  if constexpr (std::is_base_of_v<FunctionRetError, Class>) {
    return FunctionKind::ErrorResult;
  } else if constexpr (std::is_base_of_v<FunctionRetBool, Class>) {
    return FunctionKind::BoolResult;
  } else if constexpr (std::is_base_of_v<FunctionRetExit, Class>) {
    return FunctionKind::ExitResult;
  } else {
    return FunctionKind::Plain;
  }
}

}  // namespace internal

// Attributes whose member is a text: see AttributeForm for what the forms mean.
template <auto kMember>
constexpr AttributeDescription Text(cvn::StringView name, Presence presence,
                                    cvn::StringView meaning) {
  return internal::OfText<kMember>(AttributeForm::Text, name, presence, meaning);
}

template <auto kMember>
constexpr AttributeDescription Expanded(cvn::StringView name, Presence presence,
                                        cvn::StringView meaning) {
  return internal::OfText<kMember>(AttributeForm::Expanded, name, presence, meaning);
}

template <auto kMember>
constexpr AttributeDescription Label(cvn::StringView name, Presence presence,
                                     cvn::StringView meaning) {
  return internal::OfText<kMember>(AttributeForm::Label, name, presence, meaning);
}

template <auto kMember>
constexpr AttributeDescription Variable(cvn::StringView name, Presence presence,
                                        cvn::StringView meaning) {
  return internal::OfText<kMember>(AttributeForm::Variable, name, presence, meaning);
}

template <auto kMember>
constexpr AttributeDescription Handle(cvn::StringView name, Presence presence,
                                      cvn::StringView meaning) {
  return internal::OfText<kMember>(AttributeForm::Handle, name, presence, meaning);
}

// A handle that has to hold something, and one that the command gives something to.
template <auto kMember>
constexpr AttributeDescription HeldHandle(cvn::StringView name, HandleKinds kinds,
                                          cvn::StringView meaning) {
  AttributeDescription attribute = Handle<kMember>(name, Presence::NonEmpty, meaning);
  attribute.neededKinds = kinds;
  return attribute;
}

template <auto kMember>
constexpr AttributeDescription GivenHandle(cvn::StringView name, HandleKinds kinds,
                                           cvn::StringView meaning) {
  AttributeDescription attribute = Handle<kMember>(name, Presence::NonEmpty, meaning);
  attribute.givenKinds = kinds;
  return attribute;
}

// The attribute, whose literal values the checker of scripts shows to `judge`.
constexpr AttributeDescription Judged(AttributeDescription attribute, LiteralJudge judge) {
  attribute.judge = judge;
  return attribute;
}

// The attribute, whose value names what the command does `use` to.
constexpr AttributeDescription Naming(AttributeDescription attribute, Subject subject, Use use) {
  attribute.subject = subject;
  attribute.use = use;
  return attribute;
}

// The attribute, whose value goes on that of the attribute `front` of the same command.
constexpr AttributeDescription Following(AttributeDescription attribute, cvn::StringView front,
                                         cvn::StringView joint = u"\\") {
  attribute.front = front;
  attribute.joint = joint;
  return attribute;
}

// The flag, which has the command's work wait until the system starts again.
constexpr AttributeDescription Deferring(AttributeDescription flag) {
  flag.defers = true;
  return flag;
}

// A decimal number of 32 bits: junk counts as 0, a number out of range saturates.
template <auto kMember>
constexpr AttributeDescription Number(cvn::StringView name, Presence presence,
                                      cvn::StringView meaning, cvn::StringView fallback = {}) {
  return {.name = name,
          .form = AttributeForm::Number,
          .presence = presence,
          .meaning = meaning,
          .fallback = fallback,
          .load = &internal::LoadNumber<kMember>};
}

// True for the exact texts "true" and "1".
template <auto kMember>
constexpr AttributeDescription Flag(cvn::StringView name, cvn::StringView meaning,
                                    cvn::StringView fallback) {
  return {.name = name,
          .form = AttributeForm::Flag,
          .presence = Presence::Optional,
          .meaning = meaning,
          .fallback = fallback,
          .load = &internal::LoadFlag<kMember>};
}

// One of the words of `kWords`, an array of Word; any other refuses the script.
template <auto kMember, const auto& kWords>
constexpr AttributeDescription Choice(cvn::StringView name, cvn::StringView meaning) {
  return {.name = name,
          .form = AttributeForm::Choice,
          .presence = Presence::Required,
          .meaning = meaning,
          .choices = internal::kWordTexts<kWords>,
          .refusesOthers = true,
          .load = &internal::LoadChoice<kMember, kWords>};
}

// One of those words or none, for a member that is a std::optional. Any other word counts as
// `othersCountAs`, and as none when that is empty; a missing or an empty one as none.
template <auto kMember, const auto& kWords>
constexpr AttributeDescription OptionalChoice(cvn::StringView name, cvn::StringView meaning,
                                              cvn::StringView othersCountAs = {}) {
  AttributeDescription attribute = Choice<kMember, kWords>(name, meaning);
  attribute.presence = Presence::Optional;
  attribute.refusesOthers = false;
  attribute.othersCountAs = othersCountAs;
  return attribute;
}

// The row of a command. Its kind follows from its base, so that the two can't disagree.
template <typename Class>
constexpr CommandRecord Command(cvn::StringView name, const CommandDescription& description) {
  return {name, &internal::Make<Class>, internal::KindOf<Class>(), &description, nullptr};
}

}  // namespace tessel
