// The names that reports give to the reasons of ends and refusals.
#pragma once

#include <cstdint>
#include <string>

#include "support/containers.h"
#include "support/string.h"

namespace tessel {

// The reason of `m_critical_issue_occurred`. A number without a name gives its decimal text. One
// number can have another name in the other report.
std::string CriticalReasonName(std::int32_t reason);

// The reason of `m_tool_ran`; likewise.
std::string ToolRanReasonName(std::int32_t reason);

// Reasons of `m_tool_ran` that stand in for the name of its number.
inline constexpr cvn::StringView kPatchCancelled = u"PatchCancelled";
inline constexpr cvn::StringView kPatchExpired = u"PatchExpired";
inline constexpr cvn::StringView kRegistryWriteFault = u"RegistryWriteFault";

// All the names that either report can have, in alphabetical order; numbers come beside them.
cvn::List<cvn::String> ReasonNames();

}  // namespace tessel
