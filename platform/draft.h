// Files under construction, which lie beside those whose place they are to take.
#pragma once

#include "platform/error.h"
#include "platform/files.h"
#include "support/string.h"

namespace platform::files {

// The path of a draft in the folder of `path`, under a name that none has:
// "tessel-<process>-<number>.tmp".
cvn::String DraftPathFor(cvn::StringView path);

// Removes the drafts in the folder of `path` whose processes have ended; once in a process for each
// folder. Nothing but files with such names is touched, and no link is followed.
void RemoveAbandonedDrafts(cvn::StringView path);

// Tells processes that don't see this one's number, in other containers, that the draft at `path`
// is none of those, as long as `claim` is open. On Windows they would remove it.
Code ClaimDraft(cvn::StringView path, File* claim);

}  // namespace platform::files
