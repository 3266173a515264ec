// What a run tells the product: how it ended, and why a patch was refused.
#pragma once

#include <json/value.h>

#include <cstdint>

#include "support/containers.h"
#include "support/string.h"
#include "telemetry/event_spool.h"
#include "trust/caller.h"

namespace tessel {

// Gathers the facts of a run, from its start on, and raises both reports. For the main thread only.
class RunReporter {
 public:
  RunReporter();

  void SetPatchId(cvn::StringView id) { patchId_ = id; }
  // Also traced.
  void SetScriptPath(cvn::StringView path);
  void SetUpdateServicePath(cvn::StringView path) { updateServicePath_ = path; }
  void SetInstallDir(cvn::StringView path) { installDir_ = path; }
  // What was asked for on the command line.
  void SetPatchParams(cvn::List<cvn::String> params) { patchParams_ = std::move(params); }
  // When the patch expires, in seconds since 1970; 0 when that isn't known.
  void SetExpires(std::int64_t seconds) { expires_ = seconds; }
  // Those that started the run, the closest first.
  void SetParentProcesses(cvn::List<ParentProcess> parents) {
    parentProcesses_ = std::move(parents);
  }

 private:
  friend class ToolRan;
  friend class CriticalIssueOccurred;

  Json::Value event_;
  cvn::String patchId_;
  cvn::String patchPath_;
  cvn::PathString updateServicePath_;
  cvn::PathString installDir_;
  EventSink sink_ = FileSpool{};
  cvn::List<cvn::String> patchParams_;
  cvn::List<ParentProcess> parentProcesses_;
  std::int64_t expires_ = 0;
};

// The report `m_tool_ran`: raised once, at the end of the run.
class ToolRan {
 public:
  explicit ToolRan(RunReporter* reporter) : reporter_(*reporter) {}

  // `detail`, when it isn't empty, stands in for the name of the reason. The status of the spool is
  // traced. Throws what SpoolEvent throws.
  void Process(std::int32_t reason, const cvn::List<cvn::String>& tags, cvn::StringView detail);

 private:
  void FillTessera();
  std::int32_t Raise() const;

  RunReporter& reporter_;
};

// The report `m_critical_issue_occurred`: raised before the other one, for a patch that was refused
// for a reason that somebody should look at.
class CriticalIssueOccurred {
 public:
  explicit CriticalIssueOccurred(const RunReporter& reporter) : reporter_(reporter) {}

  // The status of the spool is traced. Throws what SpoolEvent throws.
  void Process(std::int32_t reason) const;

 private:
  const RunReporter& reporter_;
};

}  // namespace tessel
