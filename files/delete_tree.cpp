#include "files/delete_tree.h"

#include "files/listing.h"
#include "files/path_text.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "support/containers.h"
#include "support/format.h"

namespace tessel {
namespace {

namespace files = platform::files;
namespace paths = platform::paths;

// Attributes are read only after a deletion has failed: most succeed, and the reading would double
// the cost of a tree.
platform::Code DeleteAlsoReadOnly(cvn::StringView path, const files::SearchEntry& entry) {
  platform::Code code = files::Delete(path, entry);
  if (code != platform::kSuccess && code != platform::kFileNotFound) {
    const files::Attributes attributes = entry.GetAttributes();
    if ((attributes & files::kReadOnly) != 0) {
      // The deletion tells whether this was of use.
      platform::IgnoreError(files::SetAttributes(path, attributes & ~files::kReadOnly));
      code = files::Delete(path);
    }
  }
  return code == platform::kFileNotFound ? platform::kSuccess : code;
}

// Renames a file to a name that is free in its folder.
platform::Code MoveAside(cvn::StringView directory, cvn::StringView name, cvn::String* path) {
  cvn::String candidate;
  do {
    platform::clock::Sleep(1);  // so that the tick count moves
    candidate = JoinPath(
        directory, cvn::Format(u"deleted_%d_%s",
                               static_cast<std::int32_t>(platform::clock::TickCount()), name));
  } while (paths::Exists(candidate));
  const platform::Code code = files::Move(*path, candidate, files::kMoveWriteThrough);
  if (code == platform::kSuccess) {
    *path = std::move(candidate);
  }
  return code;
}

// A folder that is in use stays, which isn't a failure, so no code is returned.
void RemoveFolder(cvn::StringView path) {
  if (files::RemoveDirectory(path) == platform::kAccessDenied) {
    files::Attributes attributes = 0;
    if (files::GetAttributes(path, &attributes) == platform::kSuccess) {
      ClearReadOnly(path, attributes);
    }
    platform::IgnoreError(files::RemoveDirectory(path));
  }
}

bool IsFolder(cvn::StringView path) { return paths::Exists(path) && paths::IsDirectory(path); }

// Whatever separators follow the name: a search for them would go through the link.
bool IsLink(cvn::StringView path) {
  const Listing found(path.substr(0, path.find_last_not_of(u"\\/") + 1));
  return found.HasEntry() && found.Entry().IsLink();
}

// Keeps its own list of levels: recursion would let a deep tree overflow the stack.
platform::Code DeleteFoundTree(cvn::StringView directory, bool ignoreErrors,
                               const DeleteFallbacks& fallbacks) {
  struct Level {
    std::size_t length;  // of the folder's path
    Listing content;
    bool isAllWell = true;
  };
  platform::Code first = platform::kSuccess;
  cvn::String folder(directory);
  cvn::List<Level> levels;
  levels.push_back({folder.Length(), Listing(JoinPath(folder, u"*.*"))});
  while (!levels.empty() && (first == platform::kSuccess || ignoreErrors)) {
    Level& level = levels.back();
    folder.Truncate(level.length);
    if (!level.content.HasEntry()) {
      const bool isAllWell = level.isAllWell;
      levels.pop_back();
      if (isAllWell) {
        RemoveFolder(folder);
      } else if (!levels.empty()) {
        levels.back().isAllWell = false;
      }
      continue;
    }
    const files::SearchEntry entry = level.content.Entry();
    level.content.Advance();
    if (!entry.IsDirectory()) {
      const platform::Code code = DeleteFileWithFallback(folder, entry, fallbacks);
      level.isAllWell = level.isAllWell && code == platform::kSuccess;
      first = first == platform::kSuccess ? code : first;
    } else if (!entry.IsSelfOrParent()) {
      AppendName(&folder, entry.Name());
      if (entry.IsLink()) {
        RemoveFolder(folder);
      } else {
        levels.push_back({folder.Length(), Listing(JoinPath(folder, u"*.*"))});
      }
    }
  }
  return first;
}

}  // namespace

void ClearReadOnly(cvn::StringView path, files::Attributes attributes) {
  if ((attributes & files::kReadOnly) != 0) {
    // What is done to the path next fails with the better code.
    platform::IgnoreError(files::SetAttributes(path, attributes & ~files::kReadOnly));
  }
}

platform::Code DeleteFileWithFallback(cvn::StringView directory, const files::SearchEntry& entry,
                                      const DeleteFallbacks& fallbacks) {
  cvn::String path = JoinPath(directory, entry.Name());
  platform::Code code = DeleteAlsoReadOnly(path, entry);
  if (code == platform::kSuccess) {
    return code;
  }
  if (fallbacks.rename) {
    if (MoveAside(directory, entry.Name(), &path) != platform::kSuccess) {
      return code;
    }
    code = platform::kSuccess;
  }
  if (fallbacks.afterReboot) {
    const platform::Code scheduled = files::DeleteAtReboot(path);
    if (scheduled != platform::kSuccess && !fallbacks.rename) {
      code = scheduled;
    }
  }
  return code;
}

platform::Code DeleteTree(cvn::StringView directory, bool ignoreErrors,
                          const DeleteFallbacks& fallbacks) {
  if (!IsFolder(directory)) {
    return platform::kSuccess;
  }
  if (IsLink(directory)) {
    RemoveFolder(directory);
    return platform::kSuccess;
  }
  return DeleteFoundTree(directory, ignoreErrors, fallbacks);
}

}  // namespace tessel
