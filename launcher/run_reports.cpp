#include "launcher/run_reports.h"

#include <exception>

#include "support/utf.h"
#include "trace/trace.h"

namespace tessel {
namespace {

template <typename Report>
void Raise(Report report) {
  try {
    report();
  } catch (const std::exception& failure) {
    TraceLine(u"Error writing the event: %s", cvn::Utf8ToWide(failure.what()));
  }
}

}  // namespace

void ReportRun(RunFacts* facts, const RunEnd& end) {
  Raise([&] { ToolRan(&facts->reporter).Process(end.exitCode, facts->tags, end.detail); });
}

void ReportCriticalIssue(const RunFacts& facts, std::int32_t reason) {
  Raise([&] { CriticalIssueOccurred(facts.reporter).Process(reason); });
}

}  // namespace tessel
