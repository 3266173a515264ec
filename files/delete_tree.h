// The deletion of files and of whole trees.
#pragma once

#include "platform/error.h"
#include "platform/file_search.h"
#include "support/string.h"

namespace tessel {

// What to do with a file that can't be deleted.
struct DeleteFallbacks {
  bool rename = false;       // give it another name, which counts as deleted
  bool afterReboot = false;  // schedule it, under the name that it has then
};

// Deletes a found file, a read-only one too. Gives 0 or the code of the failure; a file that is
// only scheduled for deletion has failed.
platform::Code DeleteFileWithFallback(cvn::StringView directory,
                                      const platform::files::SearchEntry& entry,
                                      const DeleteFallbacks& fallbacks);

// Deletes the tree at a folder, and gives the code of the first failure, at which it stops unless
// errors are ignored. A folder with a failure in it or below stays, and so does one that is in use,
// which is no failure. A link to a folder goes itself, what it leads to stays; so does one at the
// top. What is no folder stays as it is.
platform::Code DeleteTree(cvn::StringView directory, bool ignoreErrors,
                          const DeleteFallbacks& fallbacks);

// Takes READONLY off a file or folder that has these attributes.
void ClearReadOnly(cvn::StringView path, platform::files::Attributes attributes);

}  // namespace tessel
