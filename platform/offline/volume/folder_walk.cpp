#include "platform/offline/volume/folder_walk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

#include "platform/linux/error_map.h"
#include "platform/linux/host_view.h"
#include "platform/offline/volume/path_draft.h"
#include "platform/offline/volume/short_names.h"

namespace platform::posix {
namespace {

constexpr std::size_t kMostLinks = 40;  // as many as Linux follows
// More than any way of that many links has that isn't made to waste time.
constexpr std::size_t kMostSteps = 100'000;

// What ntfs-3g shows for a file that Windows keeps in a form of its own (compressed by WOF,
// deduplicated, in the cloud), and that none of its plug-ins reads: a link to these words and a
// tag.
constexpr std::string_view kUnreadableForm = "unsupported reparse ";

}  // namespace

DirectoryIndex& NameIndex() {
  static DirectoryIndex index;
  return index;
}

FolderWalk::FolderWalk(std::shared_ptr<const Descriptor> root, std::string_view rootSpelling,
                       bool onMachine)
    : root_(std::move(root)), rootSpelling_(rootSpelling), onMachine_(onMachine) {}

Code FolderWalk::Go(std::string_view path, bool followsLast, HostPath* host) {
  Restart();
  Push(path);
  Code code = kSuccess;
  while (code == kSuccess && !pending_.empty()) {
    std::string name = std::move(pending_.back());
    pending_.pop_back();
    if (++steps_ > kMostSteps) {
      code = kCantResolveFilename;
    } else if (name == "..") {
      GoUp();
    } else {
      code = Enter(std::move(name), followsLast || !pending_.empty());
    }
  }
  Tell(host);
  if (code != kSuccess) {
    host->entry = {};
  } else if (host->isRoot && fstat(root_->Get(), &host->entry) != 0) {
    code = CodeOf(errno);
  }
  return code == kFileNotFound && !pending_.empty() ? kPathNotFound : code;
}

void FolderWalk::Restart() {
  folder_ = root_;
  parent_ = nullptr;
  below_.clear();
}

// Puts the names of `path` before those to come.
void FolderWalk::Push(std::string_view path) {
  const auto first = static_cast<std::ptrdiff_t>(pending_.size());
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view name = path.substr(0, end);
    if (!name.empty() && name != ".") {
      pending_.emplace_back(name);
    }
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  std::reverse(pending_.begin() + first, pending_.end());
}

void FolderWalk::GoUp() {
  const auto cut = [this] { below_.resize(below_.empty() ? 0 : below_.rfind('/')); };
  cut();
  for (; !pending_.empty() && pending_.back() == ".."; pending_.pop_back()) {
    cut();
  }
  const std::string way = std::move(below_);
  Restart();
  Push(way);
}

Code FolderWalk::Enter(std::string name, bool followsLinks) {
  Descriptor object;
  // Links on Z: are the host's own affair.
  const int follow = followsLinks && !onMachine_ ? 0 : O_NOFOLLOW;
  Code code = OpenEntry(&name, O_PATH | O_CLOEXEC | follow, &object);
  if (code == kSuccess && fstat(object.Get(), &entry_) != 0) {
    code = CodeOf(errno);
  }
  if (code == kSuccess && S_ISLNK(entry_.st_mode) && followsLinks) {
    return TakeLink(object.Get());
  }
  if (code == kSuccess && S_ISDIR(entry_.st_mode)) {
    parent_ = std::exchange(folder_, std::make_shared<Descriptor>(object.Release()));
    below_ += '/';
    below_ += name;
    return kSuccess;
  }
  leaf_ = std::move(name);
  return code == kSuccess && !pending_.empty() ? kPathNotFound : code;
}

// Opens the entry of this name, or of the one that is the same to Windows.
Code FolderWalk::OpenEntry(std::string* name, int flags, Descriptor* object) const {
  const bool mayBeAlias = MayLeadThroughAlias(folder_->Get(), *name);
  if (!mayBeAlias) {
    object->Reset(OpenOnHost(folder_->Get(), name->c_str(), flags));
    if (object->Get() >= 0 || errno != ENOENT) {
      return object->Get() >= 0 ? kSuccess : CodeOf(errno);
    }
  }
  std::string spelled;
  const Code code = NameIndex().Find(folder_->Get(), *name, &spelled);
  if (code == kSuccess) {
    *name = std::move(spelled);
  } else if (code != kAccessDenied || !mayBeAlias) {
    return code == kAccessDenied ? kFileNotFound : code;  // can't be listed: exact names only
  }
  object->Reset(OpenOnHost(folder_->Get(), name->c_str(), flags));
  return object->Get() >= 0 ? kSuccess : CodeOf(errno);
}

Code FolderWalk::TakeLink(int link) {
  char text[PATH_MAX];
  const ssize_t length = readlinkat(link, "", text, sizeof(text));
  if (length < 0) {
    return CodeOf(errno);
  }
  if (++links_ > kMostLinks || length == ssize_t{sizeof(text)}) {
    return kCantResolveFilename;
  }
  std::string_view target(text, static_cast<std::size_t>(length));
  if (target.starts_with(kUnreadableForm)) {
    return kCantAccessFile;
  }
  if (target.starts_with('/')) {
    Restart();
    if (IsWithin(target, rootSpelling_)) {
      target.remove_prefix(rootSpelling_.size());
    }
  }
  Push(target);
  return kSuccess;
}

void FolderWalk::Tell(HostPath* host) const {
  host->entry = entry_;
  host->spelling = std::string(rootSpelling_) + below_;
  host->isRoot = below_.empty() && leaf_.empty();
  if (leaf_.empty() && !host->isRoot) {
    host->folder = parent_;
    return;
  }
  host->folder = folder_;
  const auto append = [host](const std::string& name) { (host->spelling += '/') += name; };
  if (!leaf_.empty()) {
    append(leaf_);
  }
  std::for_each(pending_.rbegin(), pending_.rend(), append);
}

}  // namespace platform::posix
