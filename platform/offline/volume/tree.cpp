#include "platform/offline/volume/volume.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/descriptor.h"
#include "platform/linux/directory_stream.h"
#include "platform/linux/error_map.h"
#include "platform/linux/same_file.h"
#include "platform/offline/volume/copy.h"

namespace platform::posix {
namespace {

// A folder that is held open, and the way to it from where it began.
class FolderCursor {
 public:
  Code Begin(FileAt folder) { return Enter(folder.folder, folder.name); }
  Code Down(const std::string& name) { return Enter(at_.Get(), name.c_str()); }

  // Back to the folder that the last Down left; 2 when this one was moved out of it.
  Code Up() {
    Descriptor parent(openat(at_.Get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status {};
    if (parent.Get() < 0 || fstat(parent.Get(), &status) != 0) {
      return CodeOf(errno);
    }
    way_.pop_back();
    if (!IsSameFile(status, way_.back())) {
      return kFileNotFound;
    }
    at_ = std::move(parent);
    return kSuccess;
  }

  int Get() const { return at_.Get(); }
  // As it was when it was entered.
  const struct stat& Status() const { return way_.back(); }

 private:
  Code Enter(int folder, const char* name) {
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    Descriptor entered(openat(folder, name, kFlags));
    struct stat status {};
    if (entered.Get() < 0 || fstat(entered.Get(), &status) != 0) {
      return CodeOf(errno);
    }
    way_.push_back(status);
    at_ = std::move(entered);
    return kSuccess;
  }

  Descriptor at_;
  std::vector<struct stat> way_;
};

// What is done in a tree, step by step. Enter is called before a folder is read, and Leave when all
// in it is done, from within the folder; `name` is empty for the first one.
class TreeVisitor {
 public:
  virtual ~TreeVisitor() = default;
  virtual Code Enter(const std::string& name) = 0;
  virtual Code File(const char* name, const struct stat& status) = 0;
  virtual Code Leave(const std::string& name) = 0;
  const FolderCursor& Source() const { return source_; }
  std::uint64_t Bytes() const { return bytes_; }

  Code Visit(FileAt folder, const TreeProgress& progress) {
    progress_ = progress;
    Code code = source_.Begin(folder);
    code = code == kSuccess ? EnterLevel({}) : code;
    while (code == kSuccess && !levels_.empty()) {
      Level& level = levels_.back();
      if (level.folders.empty()) {
        code = LeaveLevel();
        continue;
      }
      const std::string name = std::move(level.folders.back());
      level.folders.pop_back();
      code = Prepare(name);
      code = code == kSuccess ? source_.Down(name) : code;
      code = code == kSuccess ? EnterLevel(name) : code;
    }
    return code;
  }

 protected:
  // Before a folder is opened.
  virtual Code Prepare(const std::string& /*name*/) { return kSuccess; }

 private:
  struct Level {
    std::string name;
    std::vector<std::string> folders;  // still to be entered
  };

  Code EnterLevel(const std::string& name) {
    Code code = Enter(name);
    levels_.push_back({name, {}});
    return code == kSuccess ? Read(&levels_.back()) : code;
  }

  Code LeaveLevel() {
    const std::string name = std::move(levels_.back().name);
    levels_.pop_back();
    Code code = Leave(name);
    if (code == kSuccess && !levels_.empty()) {
      code = source_.Up();
      code = code == kSuccess ? Left(name) : code;
    }
    return code;
  }

  // After Leave, from the folder above.
  virtual Code Left(const std::string& /*name*/) { return kSuccess; }

  Code Read(Level* level) {
    Code code = kSuccess;
    const int error = ForEachEntry({source_.Get(), "."}, 0, [&](const dirent& entry) {
      code = Visit(entry.d_name, level);
      return code == kSuccess;
    });
    return code == kSuccess ? CodeOf(error, kReadFault) : code;
  }

  Code Visit(const char* name, Level* level) {
    if (progress_) {
      progress_(bytes_);
    }
    struct stat status {};
    if (fstatat(source_.Get(), name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      return CodeOf(errno);
    }
    bytes_ += S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
    if (!S_ISDIR(status.st_mode)) {
      return File(name, status);
    }
    level->folders.emplace_back(name);
    return kSuccess;
  }

  FolderCursor source_;
  std::vector<Level> levels_;
  TreeProgress progress_;
  std::uint64_t bytes_ = 0;
};

class TreeCopier : public TreeVisitor {
 public:
  TreeCopier(int to, CopyWay way) : to_(to), way_(way) {}

  Code Enter(const std::string& name) override {
    return name.empty() ? target_.Begin({to_, "."}) : target_.Down(name);
  }

  Code File(const char* name, const struct stat& status) override {
    if (S_ISLNK(status.st_mode)) {
      return Link(name, status);
    }
    return S_ISREG(status.st_mode) ? Regular(name, status) : kSuccess;
  }

  Code Leave(const std::string& name) override {
    const struct stat& status = Source().Status();
    const Code code = CopyMetadata(Source().Get(), status, target_.Get());
    const timespec times[] = {status.st_atim, status.st_mtim};
    if (code != kSuccess || futimens(target_.Get(), times) != 0) {
      return code == kSuccess ? CodeOf(errno) : code;
    }
    return name.empty() ? kSuccess : target_.Up();
  }

 protected:
  Code Prepare(const std::string& name) override {
    return mkdirat(target_.Get(), name.c_str(), S_IRWXU) == 0 ? kSuccess : CodeOf(errno);
  }

 private:
  Code Link(const char* name, const struct stat& status) const {
    char target[PATH_MAX];
    const ssize_t length = readlinkat(Source().Get(), name, target, sizeof(target) - 1);
    if (length < 0) {
      return CodeOf(errno, kReadFault);
    }
    target[length] = '\0';
    const timespec times[] = {status.st_atim, status.st_mtim};
    if (symlinkat(target, target_.Get(), name) != 0 ||
        utimensat(target_.Get(), name, times, AT_SYMLINK_NOFOLLOW) != 0) {
      return CodeOf(errno);
    }
    // The owner of a link means nothing to scripts.
    static_cast<void>(
        fchownat(target_.Get(), name, status.st_uid, status.st_gid, AT_SYMLINK_NOFOLLOW));
    return kSuccess;
  }

  Code Regular(const char* name, const struct stat& listed) const {
    constexpr int kRead = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    constexpr int kMake = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const Descriptor from(openat(Source().Get(), name, kRead));
    struct stat status {};
    if (from.Get() < 0 || fstat(from.Get(), &status) != 0) {
      return CodeOf(errno);
    }
    if (!IsSameFile(status, listed) || !S_ISREG(status.st_mode)) {
      return kFileNotFound;
    }
    const Descriptor to(openat(target_.Get(), name, kMake, S_IRUSR | S_IWUSR));
    if (to.Get() < 0) {
      return CodeOf(errno);
    }
    Code code = Fill(from.Get(), status, to.Get());
    code = code == kSuccess ? CopyMetadata(from.Get(), status, to.Get()) : code;
    const timespec times[] = {status.st_atim, status.st_mtim};
    return code == kSuccess && futimens(to.Get(), times) != 0 ? CodeOf(errno) : code;
  }

  Code Fill(int from, const struct stat& status, int to) const {
    if (way_ == CopyWay::Content || status.st_size == 0) {
      return CopyContent(from, status, to);
    }
    if (ioctl(to, FICLONE, from) == 0) {
      return kSuccess;
    }
    const bool cannot = errno == EOPNOTSUPP || errno == ENOTTY || errno == EINVAL;
    return cannot ? Code(kNotSupported) : CodeOf(errno);
  }

  const int to_;
  const CopyWay way_;
  FolderCursor target_;
};

class TreeRemover : public TreeVisitor {
 public:
  Code Enter(const std::string& /*name*/) override { return Open(Source().Get(), "."); }
  Code File(const char* name, const struct stat& /*status*/) override {
    return unlinkat(Source().Get(), name, 0) == 0 ? kSuccess : CodeOf(errno);
  }
  Code Leave(const std::string& /*name*/) override { return kSuccess; }

  // A folder that its owner may not read, write or search becomes one that he may; a link that has
  // taken its place leads nowhere.
  static Code Open(int folder, const char* name) {
    struct stat status {};
    if (fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      return CodeOf(errno);
    }
    const bool isOpen = !S_ISDIR(status.st_mode) || (status.st_mode & S_IRWXU) == S_IRWXU;
    return isOpen || fchmodat(folder, name, S_IRWXU, AT_SYMLINK_NOFOLLOW) == 0 ? kSuccess
                                                                               : CodeOf(errno);
  }

 protected:
  Code Prepare(const std::string& name) override { return Open(Source().Get(), name.c_str()); }
  Code Left(const std::string& name) override {
    return unlinkat(Source().Get(), name.c_str(), AT_REMOVEDIR) == 0 ? kSuccess : CodeOf(errno);
  }
};

class TreeMeasurer : public TreeVisitor {
 public:
  Code Enter(const std::string& /*name*/) override { return kSuccess; }
  Code File(const char* /*name*/, const struct stat& /*status*/) override { return kSuccess; }
  Code Leave(const std::string& /*name*/) override { return kSuccess; }
};

}  // namespace

Code CopyTree(int from, int to, CopyWay way, const TreeProgress& progress) {
  return TreeCopier(to, way).Visit({from, "."}, progress);
}

Code RemoveTree(FileAt folder) {
  Code code = TreeRemover::Open(folder.folder, folder.name);
  code = code == kSuccess ? TreeRemover().Visit(folder, {}) : code;
  return code == kSuccess && unlinkat(folder.folder, folder.name, AT_REMOVEDIR) != 0 ? CodeOf(errno)
                                                                                     : code;
}

Code MeasureTree(int folder, std::uint64_t* bytes) {
  TreeMeasurer measurer;
  const Code code = measurer.Visit({folder, "."}, {});
  *bytes = measurer.Bytes();
  return code;
}

}  // namespace platform::posix
