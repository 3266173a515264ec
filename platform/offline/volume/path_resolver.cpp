#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <optional>
#include <utility>

#include "platform/formats/names.h"
#include "platform/formats/windows_path.h"
#include "platform/linux/error_map.h"
#include "platform/linux/host_view.h"
#include "platform/linux/same_file.h"
#include "platform/offline/volume/folder_walk.h"
#include "platform/offline/volume/path_draft.h"
#include "platform/offline/volume/share_locks.h"
#include "platform/offline/volume/short_names.h"
#include "platform/offline/volume/stand_in.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {
namespace {

const std::shared_ptr<const Descriptor>& HostRoot() {
  static const std::shared_ptr<const Descriptor> root =
      std::make_shared<Descriptor>(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  return root;
}

// 0, or the value of errno: then it is what it was.
int ReopenHostRoot() {
  const Descriptor fresh(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  // In the place of the one that all hold.
  return fresh.Get() < 0 || dup3(fresh.Get(), HostRoot()->Get(), O_CLOEXEC) < 0 ? errno : 0;
}

const std::shared_ptr<const Descriptor>& RootFolder(bool onMachine) {
  return onMachine ? Machine::Get().Folder() : HostRoot();
}

// Opens a folder of a drive, spelled as it is, below the drive's root. -1 for whatever reason: the
// kernel may not know the call, or may not be able to tell while folders are being moved.
int OpenFolder(int root, const std::string& below, bool onMachine) {
  constexpr int kFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;
  if (!onMachine) {
    return OpenOnHost(root, below.c_str(), kFlags);
  }
  open_how how{};
  how.flags = kFlags;
  how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
  return static_cast<int>(syscall(SYS_openat2, root, below.c_str(), &how, sizeof(how)));
}

// Respells the last name as its folder has it.
Code Respell(HostPath* host) {
  std::string spelled;
  const Code code = NameIndex().Find(host->folder->Get(), host->At().name, &spelled);
  if (code != kSuccess) {
    return code == kAccessDenied ? kFileNotFound : code;  // can't be listed: exact names only
  }
  host->spelling.replace(host->spelling.rfind('/') + 1, std::string::npos, spelled);
  const FileAt file = host->At();
  const int found = fstatat(file.folder, file.name, &host->entry, AT_SYMLINK_NOFOLLOW);
  return found == 0 ? kSuccess : CodeOf(errno);
}

// Finds the entry that `host->spelling` names, of which the first `root` bytes are the drive's.
// Only where a folder on the way is spelled in another case, may have been given by its short name,
// or is missing, each of them is looked at.
Code FindEntry(std::size_t root, HostPath* host) {
  const std::shared_ptr<const Descriptor>& drive = RootFolder(host->onMachine);
  const std::size_t last = host->spelling.rfind('/');
  if (host->spelling.size() == root || last == root) {
    host->folder = drive;
  } else {
    const std::string below = host->spelling.substr(root + 1, last - root - 1);
    host->folder = std::make_shared<Descriptor>(OpenFolder(drive->Get(), below, host->onMachine));
  }
  if (host->folder->Get() < 0 ||
      MayLeadThroughAlias(host->folder->Get(), std::string_view(host->spelling).substr(root))) {
    const std::string path = host->spelling;
    return FolderWalk(drive, std::string_view(path).substr(0, root), host->onMachine)
        .Go(std::string_view(path).substr(root), false, host);
  }
  const FileAt file = host->At();
  // In a folder that is being filled most names are new, and the index knows so without the disk.
  if (!host->isRoot && NameIndex().IsMissed(file.folder, file.name)) {
    return kFileNotFound;
  }
  if (fstatat(file.folder, file.name, &host->entry, AT_SYMLINK_NOFOLLOW) == 0) {
    return kSuccess;
  }
  host->entry = {};
  return errno == ENOENT && !host->isRoot ? Respell(host) : CodeOf(errno);
}

// Tells a device in `host`, when the folder that it was looked for in is there.
Code FindDevice(PathDraft draft, cvn::StringView name, HostPath* host) {
  if (draft.onMachine) {
    HostPath folder;
    folder.onMachine = true;
    folder.isRoot = draft.path.size() == draft.root;
    folder.spelling = std::move(draft.path);
    if (FindEntry(draft.root, &folder) != kSuccess || !folder.IsFolder()) {
      return kPathNotFound;
    }
  }
  AppendHostText(name, &host->name);
  host->spelling = "/" + host->name;
  host->device = draft.device;
  host->entry.st_mode = S_IFCHR | S_IRUSR | S_IWUSR;
  return kSuccess;
}

// Whether a path of the host is that of a file which this process has opened (held_file.h), and no
// standard stream.
bool IsHeldFile(std::string_view path) {
  constexpr std::string_view kOwn = "/proc/self/fd/";
  const std::string_view number = path.substr(std::min(kOwn.size(), path.size()));
  return path.starts_with(kOwn) && number != "0" && number != "1" && number != "2";
}

int OpenHeld(int folder, const char* name, int flags, mode_t permissions) {
  return openat(folder, name, flags, permissions);
}

}  // namespace

FileAt HostPath::At() const {
  return {folder == nullptr ? -1 : folder->Get(),
          isRoot ? "." : spelling.c_str() + spelling.rfind('/') + 1};
}

int HostPath::Open(int flags, mode_t permissions) const {
  if (device != Device::None) {
    errno = ENOENT;
    return device == Device::Null
               ? open("/dev/null", (flags & ~(O_CREAT | O_EXCL | O_TRUNC)) | O_CLOEXEC)
               : -1;
  }
  const FileAt file = At();
  const auto openFile = !onMachine && IsHeldFile(spelling) ? OpenHeld : OpenOnHost;
  int descriptor = -1;
  do {
    descriptor = openFile(file.folder, file.name, flags | O_CLOEXEC | (onMachine ? O_NOFOLLOW : 0),
                          permissions);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
}

Code HostPath::Target(struct stat* status) const {
  *status = entry;
  if (!S_ISLNK(entry.st_mode)) {
    return kSuccess;
  }
  if (!onMachine) {
    return fstatat(At().folder, At().name, status, 0) == 0 ? kSuccess : CodeOf(errno);
  }
  HostPath target = *this;
  const Code code = FollowLink(&target);
  *status = target.entry;
  return code;
}

Code HostPath::DeviceFault(Code forNull) const {
  if (device == Device::None) {
    return kSuccess;
  }
  return device == Device::Null ? forNull : kFileNotFound;
}

bool HostPath::IsFolder() const {
  struct stat target {};
  return Target(&target) == kSuccess && S_ISDIR(target.st_mode);
}

Code Resolve(cvn::StringView path, HostPath* host) {
  *host = HostPath();
  path = UpToZero(path);
  // GetFullPathNameW cuts blanks at the end, and has no path when nothing is left.
  if (path.find_first_not_of(u' ') == cvn::StringView::npos) {
    return kPathNotFound;
  }
  PathDraft draft;
  const Code drafted = DraftPath(path, &draft);
  if (drafted != kSuccess) {
    return drafted;
  }
  if (draft.device != Device::None) {
    return FindDevice(std::move(draft), DeviceNameIn(path), host);
  }
  host->endsInSeparator = IsSeparator(path.back());
  host->onMachine = draft.onMachine;
  host->isRoot = draft.path.size() == draft.root;
  host->name = draft.path.substr(draft.path.rfind('/') + 1);
  host->spelling = std::move(draft.path);
  if (host->spelling.size() >= PATH_MAX) {
    return kFilenameExceedsRange;
  }
  const Code code = FindEntry(draft.root, host);
  if (host->spelling.empty()) {
    host->spelling = "/";
  }
  if (code != kSuccess) {
    return code;
  }
  return host->endsInSeparator && !host->IsFolder() ? kInvalidName : kSuccess;
}

Code ResolveSpelling(HostPath* host) {
  const std::size_t root = host->onMachine ? Machine::Get().Root().size() : 0;
  host->isRoot = host->spelling.size() == root || host->spelling == "/";
  return FindEntry(root, host);
}

HostPath PlaceOnHost(std::string hostPath) {
  HostPath host;
  host.spelling = std::move(hostPath);
  IgnoreError(ResolveSpelling(&host));
  return host;
}

Code FollowLink(HostPath* host) {
  if (!S_ISLNK(host->entry.st_mode)) {
    return kSuccess;
  }
  const std::string link = std::move(host->spelling);
  if (!host->onMachine) {
    const int error = RealPath(link, &host->spelling);
    return error == 0 ? ResolveSpelling(host) : CodeOf(error);
  }
  const std::string& root = Machine::Get().Root();
  return FolderWalk(Machine::Get().Folder(), root, true)
      .Go(std::string_view(link).substr(root.size()), true, host);
}

Code FollowToOpen(HostPath* host) { return host->onMachine ? FollowLink(host) : kSuccess; }

Code FinalHostPath(const HostPath& host, std::string* path) {
  HostPath target = host;
  Code code = host.DeviceFault(kAccessDenied);
  if (code == kSuccess) {
    code = FollowToOpen(&target);
  }
  const Descriptor object(code == kSuccess ? target.Open(O_PATH) : -1);
  struct stat opened {};
  if (code == kSuccess && (object.Get() < 0 || fstat(object.Get(), &opened) != 0)) {
    code = CodeOf(errno);
  }
  if (code == kSuccess) {
    code = CodeOf(PathOfOpen(object.Get(), path));
  }
  if (code != kSuccess) {
    return code;
  }
  if (!host.onMachine && MayLeadThroughAlias(object.Get(), *path)) {
    *path = PlaceOnHost(*path).spelling;  // the host followed a link to it
  }
  struct stat named {};
  const bool isThere =
      lstat(path->c_str(), &named) == 0 && !S_ISLNK(opened.st_mode) && IsSameFile(opened, named);
  return isThere ? kSuccess : kFileNotFound;
}

Code PathForHost(const HostPath& host, std::string* path) {
  if (host.onMachine || host.device != Device::None) {
    return FinalHostPath(host, path);
  }
  *path = host.spelling;
  return kSuccess;
}

cvn::String ToMachinePath(std::string_view hostPath) {
  const std::optional<std::string> back = BackFromStandIn(hostPath);
  hostPath = back ? std::string_view(*back) : hostPath;
  const Machine& machine = Machine::Get();
  const bool onMachine = machine.State() == kSuccess && IsWithin(hostPath, machine.Root());
  if (onMachine) {
    hostPath.remove_prefix(machine.Root().size());
  }
  std::string text(onMachine ? "C:" : "Z:");
  text += hostPath.empty() ? "/" : hostPath;
  std::replace(text.begin(), text.end(), '/', '\\');
  return ToWide(text);
}

int ForgetHost() {
  Machine::Forget();
  NameIndex().Renew();
  ForgetLocks();
  const int error = ReopenHostRoot();
  const int root = HostRoot()->Get();
  unsigned first = STDERR_FILENO + 1;
  if (root >= static_cast<int>(first)) {
    close_range(first, static_cast<unsigned>(root) - 1, 0);
    first = static_cast<unsigned>(root) + 1;
  }
  close_range(first, ~0U, 0);
  return error;
}

}  // namespace platform::posix
