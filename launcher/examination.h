// What there is to know of a patch that is judged and not run.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/machine.h"
#include "support/string.h"
#include "trust/catalog_check.h"

namespace tessel {

// By what the gates judge a patch: by its catalog, by who started the program, or not at all.
enum class GateWay { External, Install, Unchecked };

// Whoever hands one to the gates has the patch judged alone: nothing is made, changed, removed,
// held, reported or written to standard error, and who started the program isn't asked.
struct Examination {
  // Of the machine, for messages.
  cvn::String machineFolder = platform::machine::DefaultFolder();
  std::optional<GateWay> way;       // once the gates have come so far
  cvn::String trustedFolder;        // in which the patch lies; empty for none
  cvn::String words;                // of a refusal, as a run has them on standard error
  std::int32_t criticalReason = 0;  // of the issue that would be raised; 0 for none
  std::optional<CatalogJudgement> catalog;
};

}  // namespace tessel
