// Deleting files and folder trees.
#pragma once

#include "platform/error.h"
#include "platform/file_search.h"
#include "support/string.h"

namespace tessel {

// What to do when a file can't be deleted.
struct DeleteFallbacks {
  bool rename = false;       // rename it in its folder, which counts as deleted
  bool afterReboot = false;  // delete it at the next boot, under the name that it has by then
};

// Deletes a file that a search found, even a read-only one. Returns 0 or the code of the failure; a
// file that is only scheduled for deletion counts as a failure.
platform::Code DeleteFileWithFallback(cvn::StringView directory,
                                      const platform::files::SearchEntry& entry,
                                      const DeleteFallbacks& fallbacks);

// Deletes a folder with everything below it, and returns the code of the first failure, where it
// stops unless `ignoreErrors`. A folder stays when something below it failed, or when it is in use,
// which isn't a failure. Of a link to a folder, also at the top, only the link is deleted. A path
// that isn't a folder is left alone.
platform::Code DeleteTree(cvn::StringView directory, bool ignoreErrors,
                          const DeleteFallbacks& fallbacks);

// Clears READONLY if it is among `attributes`, those of the file or folder at `path`.
void ClearReadOnly(cvn::StringView path, platform::files::Attributes attributes);

}  // namespace tessel
