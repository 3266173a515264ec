// The names that reports give to the reasons of ends and refusals.
#pragma once

#include <cstdint>
#include <string>

namespace tessel {

// The reason of `m_critical_issue_occurred`. A number without a name gives its decimal text. One
// number can have another name in the other report.
std::string CriticalReasonName(std::int32_t reason);

// The reason of `m_tool_ran`; likewise.
std::string ToolRanReasonName(std::int32_t reason);

}  // namespace tessel
