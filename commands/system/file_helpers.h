// What the file and the directory commands share.
#pragma once

#include <cstdint>

#include "engine/function_base.h"
#include "platform/file_search.h"
#include "support/containers.h"
#include "support/string.h"

namespace tessel {

// A folder's path and a name in it, with one separator between them; an empty name gives the
// folder's path as it is.
cvn::String JoinPath(cvn::StringView directory, cvn::StringView name);
// The same in place.
void AppendName(cvn::String* path, cvn::StringView name);

// What a search finds, in its order.
class Listing {
 public:
  explicit Listing(cvn::StringView path) : code_(search_.First(path, &entry_)) {}

  // Why the search found nothing, at first; later, why it is at its end.
  platform::Code Status() const { return code_; }
  bool HasEntry() const { return code_ == platform::kSuccess; }
  const platform::files::SearchEntry& Entry() const { return entry_; }
  void Advance() { code_ = search_.Next(&entry_); }

 private:
  platform::files::Search search_;
  platform::files::SearchEntry entry_;
  platform::Code code_;
};

// Whether the link at `path` leads to a folder that a walk is in already: one that `path` itself
// goes through, from the top of the walk, whose path has the length `top`, to the link. A link that
// leads nowhere counts as one that leads back.
bool LeadsBack(cvn::StringView path, std::size_t top);

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

// Makes a folder with its missing parents. True when something is at `path` afterwards.
bool EnsureDirectory(cvn::StringView path);

// A command that lists what is in a folder, and in the folders below it down to `depth`, in a
// variable.
class FunctionWithFind : public FunctionRetError {
 public:
  bool Parse() override;

 protected:
  // Finds the entries that have an attribute of `mask`.
  void Find(cvn::StringView directory, cvn::StringView pattern, platform::files::Attributes mask);

  cvn::String dir_;
  cvn::String pattern_;
  cvn::String var_;
  cvn::String delim_;
  std::int32_t depth_ = 0;
};

// A command that deletes files.
class FunctionWithDelete : public FunctionRetError {
 public:
  bool Parse() override;

 protected:
  DeleteFallbacks Fallbacks() const { return {renameIfFails_, afterRebootIfFails_}; }

  cvn::String path_;
  bool ignoreErrors_ = false;
  bool afterRebootIfFails_ = false;
  bool renameIfFails_ = false;
};

}  // namespace tessel
