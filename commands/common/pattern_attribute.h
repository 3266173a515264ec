// Attributes whose member is a pattern.
#pragma once

#include "commands/common/whole_text_pattern.h"
#include "engine/command_declaration.h"

namespace tessel {

namespace internal {

// An empty optional one is no pattern.
template <auto kMember>
bool LoadPattern(const AttributeDescription& attribute, cvn::StringView value,
                 FunctionBase* command) {
  const bool isNone = value.empty() && attribute.presence == Presence::Optional;
  return isNone || MemberOf(command, kMember).Compile(value);
}

}  // namespace internal

// A regular expression; a malformed one refuses the script.
template <auto kMember>
constexpr AttributeDescription Pattern(cvn::StringView name, Presence presence,
                                       cvn::StringView meaning) {
  return {.name = name,
          .form = AttributeForm::Pattern,
          .presence = presence,
          .meaning = meaning,
          .load = &internal::LoadPattern<kMember>};
}

}  // namespace tessel
