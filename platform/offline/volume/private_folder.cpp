#include "platform/private_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "platform/formats/names.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/error_map.h"
#include "platform/linux/open_below.h"
#include "platform/linux/other_accounts.h"
#include "platform/offline/volume/attributes.h"
#include "platform/offline/volume/copy.h"
#include "platform/offline/volume/path_draft.h"
#include "platform/offline/volume/stand_in.h"
#include "platform/offline/volume/volume.h"

namespace platform::files {
namespace {

using posix::CodeOf;
using posix::Descriptor;

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr mode_t kOwnersMode = S_IRWXU;
// What begins the name of a folder on the host.
constexpr std::string_view kHostPrefix = "tessel-private-";

std::u16string Folded(const std::string& path) {
  std::u16string folded;
  posix::AppendFolded(path, &folded);
  return folded;
}

Code OpenFolder(int at, const std::string& path, Descriptor* folder) {
  folder->Reset(openat(at, path.c_str(), kFolderFlags));
  return folder->Get() < 0 ? CodeOf(errno) : kSuccess;
}

bool IsOursAlone(int descriptor) {
  struct stat entry {};
  return fstat(descriptor, &entry) == 0 && entry.st_uid == geteuid() &&
         !posix::CanOthersWrite(entry);
}

// Whether files in a new folder can be kept from others: a file system that has no permissions says
// yes to everything, so what came out is looked at, of the folder and of a file in it.
bool KeepsOthersOut(const Descriptor& folder, const std::string& path) {
  constexpr const char* kProbe = "probe";
  if (!IsOursAlone(folder.Get()) || posix::CanOthersRedirect(path)) {
    return false;
  }
  const Descriptor probe(
      openat(folder.Get(), kProbe, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
  const bool isKept = probe.Get() >= 0 && IsOursAlone(probe.Get());
  return unlinkat(folder.Get(), kProbe, 0) == 0 && isKept;
}

// Tells other runs that this process uses the folder. One that was removed meanwhile, because it
// seemed to be abandoned, is none.
bool Claim(const Descriptor& folder) {
  struct stat entry {};
  // A file system without locks has nobody that takes the folder for abandoned.
  return (flock(folder.Get(), LOCK_SH | LOCK_NB) == 0 || errno != EWOULDBLOCK) &&
         fstat(folder.Get(), &entry) == 0 && entry.st_nlink > 0;
}

// True for a folder of this account that no process has claimed, and that nobody could put in the
// way of who walks through it.
bool IsAbandoned(const std::string& path) {
  Descriptor folder;
  return OpenFolder(AT_FDCWD, path, &folder) == kSuccess && IsOursAlone(folder.Get()) &&
         flock(folder.Get(), LOCK_EX | LOCK_NB) == 0 && !posix::CanOthersRedirect(path);
}

// The folders of the host that may hold private ones, best first.
cvn::List<std::string> HostPlaces() {
  cvn::List<std::string> places;
  const char* chosen = getenv("TMPDIR");
  if (chosen != nullptr && chosen[0] == '/') {
    places.emplace_back(chosen);
  }
  places.emplace_back("/var/tmp");
  places.emplace_back("/tmp");
  return places;
}

// Makes a folder in the first such place that can be kept from others, and from which programs run.
Code MakeOnHost(Descriptor* folder, std::string* path) {
  for (const std::string& place : HostPlaces()) {
    std::string made = place + '/' + std::string(kHostPrefix) + "XXXXXX";
    struct statvfs volume {};
    if (mkdtemp(made.data()) == nullptr) {
      continue;
    }
    if (OpenFolder(AT_FDCWD, made, folder) == kSuccess && KeepsOthersOut(*folder, made) &&
        fstatvfs(folder->Get(), &volume) == 0 && (volume.f_flag & ST_NOEXEC) == 0 &&
        Claim(*folder)) {
      *path = std::move(made);
      return kSuccess;
    }
    rmdir(made.c_str());
  }
  return kNotPrivate;
}

bool IsRunsName(std::string_view name) {
  const std::size_t dash = name.find('-');
  return dash != std::string_view::npos && dash > 0 && dash + 1 < name.size() &&
         name.find_first_not_of("0123456789-") == std::string_view::npos;
}

template <typename Filter>
void AppendAbandoned(const std::string& place, Filter isCandidate, cvn::List<cvn::String>* paths) {
  constexpr std::size_t kMost = 100;  // at a time; the next run goes on
  Descriptor folder;
  DIR* listing =
      OpenFolder(AT_FDCWD, place, &folder) == kSuccess ? fdopendir(folder.Get()) : nullptr;
  if (listing == nullptr) {
    return;
  }
  folder.Release();
  while (const dirent* entry = paths->size() < kMost ? readdir(listing) : nullptr) {
    const std::string path = place + '/' + entry->d_name;
    if (isCandidate(std::string_view(entry->d_name)) && IsAbandoned(path)) {
      paths->push_back(posix::ToMachinePath(path));
    }
  }
  closedir(listing);
}

// Gives the copy what it has besides content. Its permissions are for its owner alone.
Code TakeOver(int from, const struct stat& entry, int to) {
  Attributes attributes = 0;
  Code code = posix::ReadAttributes(from, entry, &attributes);
  if (code == kSuccess && (attributes & ~(kArchive | kNormal)) != 0) {
    struct stat made {};
    code = fstat(to, &made) == 0 ? posix::StoreAttributes("/proc/self/fd/" + std::to_string(to),
                                                          made, attributes | kArchive)
                                 : CodeOf(errno);
    // Where there is no place for attributes, the content still counts.
    code = code == kNotSupported ? kSuccess : code;
  }
  const timespec times[] = {{0, UTIME_OMIT}, entry.st_mtim};
  return code == kSuccess && futimens(to, times) != 0 ? CodeOf(errno) : code;
}

}  // namespace

struct PrivateFolder::State {
  // A file's place in the folder: of the folders on the way, and of the name in them.
  struct Place {
    std::string folders;
    std::string name;
  };

  Code Locate(cvn::StringView name, Place* place) const;
  Code MakeFolders(const std::string& below, std::string* spelled);

  Descriptor folder;
  cvn::String path;                               // as scripts know it
  std::map<std::u16string, std::string> folders;  // those made in it, by their folded paths
  std::set<std::u16string> files;                 // folded
};

bool PrivateFolder::IsRequired() { return true; }

Code PrivateFolder::MakePlace(cvn::StringView place) {
  posix::HostPath host;
  const Code code = posix::Resolve(place, &host);
  if (code != kSuccess && code != kFileNotFound) {
    return posix::Fail(code);
  }
  if (code == kFileNotFound && mkdir(host.path.c_str(), kOwnersMode) != 0 && errno != EEXIST) {
    return posix::Fail(CodeOf(errno));
  }
  const Descriptor found(open(host.path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat entry {};
  if (found.Get() < 0 || fstat(found.Get(), &entry) != 0) {
    return posix::Fail(CodeOf(errno));
  }
  if (!S_ISDIR(entry.st_mode)) {
    return posix::Fail(S_ISLNK(entry.st_mode) ? kIsLink : platform::kDirectory);
  }
  if (entry.st_uid != geteuid() && entry.st_uid != 0) {
    return posix::Fail(kForeignPlace);
  }
  const Descriptor folder(posix::OpenFound(found.Get(), O_RDONLY | O_DIRECTORY));
  if (folder.Get() >= 0 && entry.st_uid == geteuid()) {
    fchmod(folder.Get(), kOwnersMode);  // what came of it is looked at by Make
  }
  return kSuccess;
}

cvn::List<cvn::String> PrivateFolder::FindAbandoned(cvn::StringView place) {
  cvn::List<cvn::String> paths;
  posix::HostPath host;
  if (posix::Resolve(place, &host) == kSuccess) {
    AppendAbandoned(host.path, IsRunsName, &paths);
  }
  for (const std::string& hostPlace : HostPlaces()) {
    AppendAbandoned(
        hostPlace, [](std::string_view name) { return name.starts_with(kHostPrefix); }, &paths);
  }
  return paths;
}

PrivateFolder::PrivateFolder() = default;
PrivateFolder::PrivateFolder(PrivateFolder&&) noexcept = default;
PrivateFolder& PrivateFolder::operator=(PrivateFolder&&) noexcept = default;
PrivateFolder::~PrivateFolder() = default;

Code PrivateFolder::Make(cvn::StringView place, cvn::StringView name) {
  state_.reset();
  auto state = std::make_unique<State>();
  state->path = place;
  state->path.Append(u'\\');
  state->path.Append(name);
  posix::HostPath host;
  const Code code = posix::Resolve(state->path, &host);
  if (code != kFileNotFound) {
    return posix::Fail(code == kSuccess ? kAlreadyExists : code);
  }
  if (mkdir(host.path.c_str(), kOwnersMode) != 0) {
    return posix::Fail(errno == EEXIST ? kAlreadyExists : CodeOf(errno));
  }
  if (OpenFolder(AT_FDCWD, host.path, &state->folder) != kSuccess ||
      !KeepsOthersOut(state->folder, host.path) || !Claim(state->folder)) {
    rmdir(host.path.c_str());
    std::string hostPath;
    const Code made = MakeOnHost(&state->folder, &hostPath);
    if (made != kSuccess) {
      return posix::Fail(made);
    }
    posix::SetStandIn(host.path, std::move(hostPath));
  }
  state_ = std::move(state);
  return kSuccess;
}

Code PrivateFolder::State::Locate(cvn::StringView name, Place* place) const {
  posix::PathDraft top;
  posix::PathDraft draft;
  cvn::String whole = path;
  Code code = posix::DraftPath(whole, &top);
  whole.Append(u'\\');
  whole.Append(name);
  code = code == kSuccess ? posix::DraftPath(whole, &draft) : code;
  if (code != kSuccess) {
    return code;
  }
  if (!posix::IsWithin(draft.path, top.path) || draft.path.size() == top.path.size()) {
    return kInvalidName;
  }
  const std::string below = draft.path.substr(top.path.size() + 1);
  const std::size_t slash = below.rfind('/');
  *place = slash == std::string::npos ? Place{"", below}
                                      : Place{below.substr(0, slash), below.substr(slash + 1)};
  return kSuccess;
}

// Finds, or makes, the folders of `below`. `*spelled` is that path, with its slash, in the case in
// which they were made.
Code PrivateFolder::State::MakeFolders(const std::string& below, std::string* spelled) {
  for (std::size_t begin = 0; begin < below.size();) {
    const std::size_t end = std::min(below.find('/', begin), below.size());
    const auto [known, isNew] = folders.try_emplace(Folded(below.substr(0, end)));
    if (isNew) {
      known->second = *spelled + below.substr(begin, end - begin) + '/';
      if (mkdirat(folder.Get(), known->second.c_str(), kOwnersMode) != 0) {
        folders.erase(known);
        return CodeOf(errno);
      }
    }
    *spelled = known->second;
    begin = end + 1;
  }
  return kSuccess;
}

Code PrivateFolder::MakeFoldersFor(cvn::StringView name) {
  State::Place place;
  std::string spelled;
  Code code = state_ == nullptr ? kInvalidHandle : state_->Locate(name, &place);
  if (code == kSuccess) {
    code = state_->MakeFolders(place.folders, &spelled);
  }
  return posix::Report(code);
}

Code PrivateFolder::Copy(const File& from, cvn::StringView name, File* copy) {
  const int source = static_cast<int>(from.Handle());
  State::Place place;
  std::string path;
  struct stat entry {};
  Code code = state_ == nullptr ? kInvalidHandle : state_->Locate(name, &place);
  if (code == kSuccess) {
    code = state_->MakeFolders(place.folders, &path);
  }
  path += place.name;
  if (code == kSuccess && !state_->files.insert(Folded(path)).second) {
    code = kFileExists;
  }
  if (code == kSuccess && fstat(source, &entry) != 0) {
    code = CodeOf(errno);
  }
  if (code != kSuccess) {
    return posix::Fail(code);
  }
  const int made =
      openat(state_->folder.Get(), path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
             S_IRUSR | S_IWUSR | (entry.st_mode & S_IXUSR));
  if (made < 0) {
    return posix::Fail(CodeOf(errno));
  }
  *copy = File(made);
  code = posix::CopyContent(source, entry, made);
  if (code == kSuccess) {
    code = TakeOver(source, entry, made);
  }
  if (code != kSuccess) {
    copy->Close();
    unlinkat(state_->folder.Get(), path.c_str(), 0);
  }
  return posix::Report(code);
}

}  // namespace platform::files
