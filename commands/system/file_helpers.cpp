#include "commands/system/file_helpers.h"

#include <algorithm>
#include <utility>

#include "engine/variable_store.h"
#include "files/listing.h"
#include "files/path_text.h"
#include "platform/file_identity.h"
#include "platform/paths.h"
#include "support/containers.h"

namespace tessel {
namespace {

namespace files = platform::files;
namespace paths = platform::paths;

constexpr cvn::StringView kSeparators = u"\\/";

// Whether the entry has an attribute of `mask`. A file always has one other than DIRECTORY, so that
// files cost no look at their attributes.
bool HasAttributeOf(const files::SearchEntry& entry, files::Attributes mask) {
  if (mask == files::kDirectory) {
    return entry.IsDirectory();
  }
  const bool isKnown = !entry.IsDirectory() && mask == ~files::kDirectory;
  return isKnown || (entry.GetAttributes() & mask) != 0;
}

// Finds what matches `pattern` in a folder, and then what does in the folders below it, one after
// the other, with theirs. A search that fails finds nothing. Links are followed, but not round in a
// circle.
class Finder {
 public:
  Finder(cvn::StringView directory, cvn::StringView pattern, cvn::StringView delimiter,
         files::Attributes mask)
      : folder_(directory),
        top_(directory.size()),
        pattern_(pattern),
        delimiter_(delimiter),
        mask_(mask) {}

  // The paths of what matches, with the delimiter behind each.
  cvn::String Find(std::int32_t depth);

 private:
  struct Folder {
    cvn::String name;
    bool isLink;
  };
  struct Level {
    std::size_t length;          // of the folder's path
    cvn::List<Folder> children;  // the last one first; those that are left to be searched
  };

  void Search(bool isDeepest);
  void TakeMatch(const files::SearchEntry& entry);
  static void TakeChild(const files::SearchEntry& entry, Level* level);

  cvn::String folder_;
  const std::size_t top_;
  const cvn::StringView pattern_;
  const cvn::StringView delimiter_;
  const files::Attributes mask_;
  cvn::List<Level> levels_;
  cvn::String found_;
};

cvn::String Finder::Find(std::int32_t depth) {
  if (depth < 0) {
    return {};
  }
  const auto deepest = static_cast<std::size_t>(depth);
  Search(deepest == 0);
  while (!levels_.empty()) {
    Level& level = levels_.back();
    folder_.Truncate(level.length);
    if (level.children.empty()) {
      levels_.pop_back();
      continue;
    }
    const Folder child = std::move(level.children.back());
    level.children.pop_back();
    AppendName(&folder_, child.name);
    if (!child.isLink || !LeadsBack(folder_, top_)) {
      Search(levels_.size() == deepest);
    }
  }
  return std::move(found_);
}

void Finder::Search(bool isDeepest) {
  // One listing gives the matches and the folders below, where the pattern leaves nothing out.
  const bool isForAll = pattern_ == u"*" || pattern_ == u"*.*";
  Level level{folder_.Length(), {}};
  for (Listing list(JoinPath(folder_, pattern_)); list.HasEntry(); list.Advance()) {
    TakeMatch(list.Entry());
    if (isForAll && !isDeepest) {
      TakeChild(list.Entry(), &level);
    }
  }
  if (!isForAll && !isDeepest) {
    for (Listing list(JoinPath(folder_, u"*")); list.HasEntry(); list.Advance()) {
      TakeChild(list.Entry(), &level);
    }
  }
  std::reverse(level.children.begin(), level.children.end());
  levels_.push_back(std::move(level));
}

void Finder::TakeMatch(const files::SearchEntry& entry) {
  if (!HasAttributeOf(entry, mask_)) {
    return;
  }
  const std::size_t length = folder_.Length();
  AppendName(&folder_, entry.Name());
  found_.Append(folder_);
  found_.Append(delimiter_);
  folder_.Truncate(length);
}

void Finder::TakeChild(const files::SearchEntry& entry, Level* level) {
  if (entry.IsDirectory() && !entry.IsSelfOrParent()) {
    level->children.push_back({entry.Name(), entry.IsLink()});
  }
}

}  // namespace

bool LeadsBack(cvn::StringView path, std::size_t top) {
  const cvn::StringView link = path.substr(0, path.find_last_not_of(kSeparators) + 1);
  files::Identity target;
  if (files::GetIdentity(link, &target) != platform::kSuccess) {
    return true;
  }
  for (std::size_t end = std::min(top, link.size()); end != cvn::StringView::npos;
       end = link.find_first_of(kSeparators, end + 1)) {
    files::Identity folder;
    if (files::GetIdentity(link.substr(0, end), &folder) == platform::kSuccess &&
        folder == target) {
      return true;
    }
  }
  return false;
}

bool EnsureDirectory(cvn::StringView path) {
  cvn::List<std::size_t> missing;  // lengths of the paths: each parent's path begins its child's
  cvn::String place(path);
  while (!paths::Exists(place)) {
    missing.push_back(place.Length());
    paths::RemoveBackslash(&place);
    if (!paths::RemoveFileSpec(&place)) {
      break;
    }
  }
  platform::Code code = platform::kSuccess;
  for (; !missing.empty(); missing.pop_back()) {
    code = files::CreateDirectory(path.substr(0, missing.back()));
  }
  return code == platform::kSuccess || code == platform::kAlreadyExists;
}

void FunctionWithFind::Find(cvn::StringView directory, cvn::StringView wanted,
                            files::Attributes mask) {
  cvn::String text = Finder(directory, wanted, delim, mask).Find(depth);
  text.Truncate(text.AsView().find_last_not_of(delim) + 1);
  SetVariable(var, std::move(text), variables);
}

}  // namespace tessel
