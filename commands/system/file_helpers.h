// What the file and the directory commands share.
#pragma once

#include <cstdint>

#include "engine/function_base.h"
#include "files/delete_tree.h"
#include "platform/file_search.h"
#include "support/containers.h"
#include "support/string.h"

namespace tessel {

// Whether the link at `path` leads to a folder that a walk is in already: one that `path` itself
// goes through, from the top of the walk, whose path has the length `top`, to the link. A link that
// leads nowhere counts as one that leads back.
bool LeadsBack(cvn::StringView path, std::size_t top);

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
