#include "platform/linux/own_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <tuple>
#include <utility>

#include "platform/linux/directory_stream.h"
#include "platform/linux/error_map.h"
#include "platform/linux/file_names.h"
#include "platform/linux/other_accounts.h"
#include "platform/private_folder.h"

namespace platform::posix {
namespace {

constexpr mode_t kOwnersMode = S_IRWXU;
// What begins the name of a folder on the host.
constexpr std::string_view kHostPrefix = "tessel-private-";
// What ends the name of one that is to be removed. With it, it is still found as one of these.
constexpr std::string_view kTaken = "-0";

Code OpenFolder(const std::string& path, Descriptor* folder) {
  folder->Reset(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  return folder->Get() < 0 ? CodeOf(errno) : kSuccess;
}

bool IsOursAlone(int descriptor) {
  struct stat entry {};
  return fstat(descriptor, &entry) == 0 && entry.st_uid == geteuid() && !CanOthersWrite(entry);
}

// Whether files in a new folder can be kept from others: a file system that has no permissions says
// yes to everything, so what came out is looked at, of the folder and of a file in it.
bool KeepsOthersOut(const Descriptor& folder, const std::string& path) {
  constexpr const char* kProbe = "probe";
  if (!IsOursAlone(folder.Get()) || CanOthersRedirect(path)) {
    return false;
  }
  const Descriptor probe(
      openat(folder.Get(), kProbe, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
  const bool isKept = probe.Get() >= 0 && IsOursAlone(probe.Get());
  return unlinkat(folder.Get(), kProbe, 0) == 0 && isKept;
}

// Tells other runs that this process uses the folder. One that was taken meanwhile, because it
// seemed to be abandoned, isn't at its path any more.
bool Claim(const Descriptor& folder, const std::string& path) {
  struct stat entry {};
  struct stat there {};
  // A file system without locks has nobody that takes the folder for abandoned.
  return (flock(folder.Get(), LOCK_SH | LOCK_NB) == 0 || errno != EWOULDBLOCK) &&
         fstat(folder.Get(), &entry) == 0 && lstat(path.c_str(), &there) == 0 &&
         entry.st_dev == there.st_dev && entry.st_ino == there.st_ino;
}

// True for a folder of this account that no process has claimed, and that nobody could put in the
// way of who walks through it. It gets another name while it is locked, so that a process that is
// just about to claim it notices.
bool TakeAbandoned(std::string* path) {
  Descriptor folder;
  const bool isAbandoned = OpenFolder(*path, &folder) == kSuccess && IsOursAlone(folder.Get()) &&
                           flock(folder.Get(), LOCK_EX | LOCK_NB) == 0 && !CanOthersRedirect(*path);
  const std::string taken = *path + std::string(kTaken);
  // In a view of a machine, which nobody else sees, folders can't be renamed.
  if (isAbandoned && !path->ends_with(kTaken) && rename(path->c_str(), taken.c_str()) == 0) {
    *path = taken;
  }
  return isAbandoned;
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

bool IsRunsName(std::string_view name) {
  const std::size_t dash = name.find('-');
  return dash != std::string_view::npos && dash > 0 && dash + 1 < name.size() &&
         name.find_first_not_of("0123456789-") == std::string_view::npos;
}

template <typename Filter>
void AppendAbandoned(const std::string& place, Filter isCandidate, cvn::List<std::string>* paths) {
  constexpr std::size_t kMost = 100;  // at a time; the next run goes on
  Descriptor folder;
  if (paths->size() >= kMost || OpenFolder(place, &folder) != kSuccess) {
    return;
  }
  std::ignore = ForEachEntry({folder.Get(), "."}, 0, [&](const dirent& entry) {
    std::string path = place + '/' + entry.d_name;
    if (isCandidate(std::string_view(entry.d_name)) && TakeAbandoned(&path)) {
      paths->push_back(std::move(path));
    }
    return paths->size() < kMost;
  });
}

// Makes one that keeps others out, and from which programs run.
bool MakeIn(const std::string& place, Descriptor* folder, std::string* path) {
  std::string made = place + '/' + std::string(kHostPrefix) + "XXXXXX";
  struct statvfs volume {};
  if (mkdtemp(made.data()) == nullptr) {
    return false;
  }
  if (OpenFolder(made, folder) == kSuccess && KeepsOthersOut(*folder, made) &&
      fstatvfs(folder->Get(), &volume) == 0 && (volume.f_flag & ST_NOEXEC) == 0 &&
      Claim(*folder, made)) {
    *path = std::move(made);
    return true;
  }
  rmdir(made.c_str());
  return false;
}

}  // namespace

Code MakeOwnFolder(const std::string& path, Descriptor* folder) {
  if (CanOthersRedirect(path)) {
    return files::kNotPrivate;
  }
  if (mkdir(path.c_str(), kOwnersMode) != 0) {
    return errno == EEXIST ? kAlreadyExists : CodeOf(errno);
  }
  if (OpenFolder(path, folder) == kSuccess && KeepsOthersOut(*folder, path) &&
      Claim(*folder, path)) {
    return kSuccess;
  }
  rmdir(path.c_str());
  return files::kNotPrivate;
}

Code MakeOwnFolderOnHost(Descriptor* folder, std::string* path, const std::string& outside) {
  constexpr int kAttempts = 8;
  for (const std::string& place : HostPlaces()) {
    std::string real;
    if (!outside.empty() && RealPath(place, &real) == 0 && IsWithin(real, outside)) {
      continue;
    }
    // Another process may take the first ones for abandoned before they are claimed.
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
      if (MakeIn(place, folder, path)) {
        return kSuccess;
      }
    }
  }
  return files::kNotPrivate;
}

cvn::List<std::string> FindAbandonedFolders(const std::string& place) {
  cvn::List<std::string> paths;
  if (!place.empty()) {
    AppendAbandoned(place, IsRunsName, &paths);
  }
  for (const std::string& hostPlace : HostPlaces()) {
    AppendAbandoned(
        hostPlace, [](std::string_view name) { return name.starts_with(kHostPrefix); }, &paths);
  }
  return paths;
}

}  // namespace platform::posix
