#include "telemetry/run_reporter.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <string>
#include <utility>

#include "support/utf.h"
#include "telemetry/event_envelope.h"
#include "telemetry/reason_names.h"
#include "trace/trace.h"

namespace tessel {
namespace {

constexpr std::int32_t kNoReceiver = 87;  // ERROR_INVALID_PARAMETER
constexpr const char* kIssue = "Tessel.RunPatchFailed";

// The date of a moment, in the form 2026-11-12 and in UTC, so that the same patch has the same date
// on every machine. Empty for a moment beyond the range of the platform's calendar.
std::string DateOf(std::int64_t seconds) {
  constexpr std::int64_t kLastSecond = 32'535'215'999;  // of the year 3000, as the runtimes count
  if (seconds < 0 || seconds > kLastSecond) {
    return {};
  }
  const auto days = std::chrono::floor<std::chrono::days>(
      std::chrono::sys_seconds(std::chrono::seconds(seconds)));
  const std::chrono::year_month_day date(days);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02u", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
  return text.data();
}

Json::Value ToArray(const cvn::List<cvn::String>& texts) {
  Json::Value array(Json::arrayValue);
  for (const cvn::String& text : texts) {
    array.append(cvn::WideToUtf8(text));
  }
  return array;
}

}  // namespace

RunReporter::RunReporter() : event_(Json::objectValue) {
  event_["event_name"] = "m_tool_ran";
  event_["event_version"] = "1.0";
  event_["tool"] = "Tessel";
}

void RunReporter::SetScriptPath(cvn::StringView path) {
  TraceLine(u"set script path: %s", path);
  patchPath_ = path;
}

void ToolRan::FillTessera() {
  Json::Value& tessera = reporter_.event_["tessera"];
  tessera["patch_path"] = cvn::WideToUtf8(reporter_.patchPath_);
  tessera["patch_id"] = cvn::WideToUtf8(reporter_.patchId_);
  const std::string expires = reporter_.expires_ != 0 ? DateOf(reporter_.expires_) : std::string();
  if (!expires.empty()) {
    tessera["expires"] = expires;
  }
  if (!reporter_.updateServicePath_.Empty()) {
    tessera["update_service_path"] = cvn::WideToUtf8(reporter_.updateServicePath_.AsView());
  }
  if (!reporter_.installDir_.Empty()) {
    tessera["install_dir"] = cvn::WideToUtf8(reporter_.installDir_.AsView());
  }
  if (!reporter_.parentProcesses_.empty()) {
    Json::Value& parents = tessera["parent_process"];
    for (const ParentProcess& parent : reporter_.parentProcesses_) {
      parents["name"].append(cvn::WideToUtf8(parent.name));
      parents["publisher"].append(cvn::WideToUtf8(parent.publisher));
    }
  }
}

std::int32_t ToolRan::Raise() const {
  const auto* const* receiver = std::get_if<IEventReceiver*>(&reporter_.sink_);
  if (receiver != nullptr && *receiver == nullptr) {
    return kNoReceiver;
  }
  return SpoolEvent(reporter_.sink_, reporter_.event_);
}

void ToolRan::Process(std::int32_t reason, const cvn::List<cvn::String>& tags,
                      cvn::StringView detail) {
  Json::Value& event = reporter_.event_;
  event["exit_code"] = reason;
  event["exit_reason"] = detail.empty() ? ToolRanReasonName(reason) : cvn::WideToUtf8(detail);
  FillTessera();
  if (!tags.empty()) {
    event["options"] = ToArray(tags);
  }
  if (!reporter_.patchParams_.empty()) {
    event["tessera.patch_params"] = ToArray(reporter_.patchParams_);
  }
  TraceLine(u"tool_ran event data: [%s]", cvn::Utf8ToWide(PrintLine(event)));
  TraceLine(u"ToolRan::Process result = [%d]", Raise());
}

void CriticalIssueOccurred::Process(std::int32_t reason) const {
  const std::string error = CriticalReasonName(reason);
  TraceLine(
      u"critical_issue_occurred event data: [event_name: m_critical_issue_occurred, event_version: "
      u"1.0, issue : '%s', error_code : '%d', error : '%s']",
      cvn::Utf8ToWide(kIssue), reason, cvn::Utf8ToWide(error));
  std::int32_t status = 0;
  const auto* const* receiver = std::get_if<IEventReceiver*>(&reporter_.sink_);
  if (receiver == nullptr || *receiver != nullptr) {
    Json::Value event(Json::objectValue);
    event["event_name"] = "m_critical_issue_occurred";
    event["event_version"] = "1.0";
    event["issue"] = kIssue;
    event["error"] = error;
    event["error_code"] = reason;
    event["tessera.patch_id"] = cvn::WideToUtf8(reporter_.patchId_);
    event["tessera.patch_path"] = cvn::WideToUtf8(reporter_.patchPath_);
    status = SpoolEvent(reporter_.sink_, event);
  }
  TraceLine(u"CriticalIssueOccurred::Process result = [%d]", status);
}

}  // namespace tessel
