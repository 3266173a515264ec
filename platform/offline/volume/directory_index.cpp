#include "platform/offline/volume/directory_index.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <memory>
#include <tuple>

#include "platform/formats/names.h"
#include "platform/formats/short_name.h"
#include "platform/formats/upcase.h"
#include "platform/linux/directory_stream.h"
#include "platform/linux/error_map.h"
#include "platform/linux/same_file.h"
#include "platform/linux/volume_traits.h"
#include "platform/offline/volume/short_names.h"

namespace platform::posix {
namespace {

// Enough for the folders that a script works on by turns; each holds a watch of the kernel's.
constexpr std::size_t kMostDirectories = 64;
constexpr std::uint32_t kWatched = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ONLYDIR;

// Two changes within one tick of the file system's clock leave the same time. No tick is longer
// than this but FAT's, which is two seconds.
constexpr std::int64_t kLongestTick = 2'000'000'000;

std::int64_t Nanoseconds(const timespec& time) {
  return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

std::u16string FoldedName(std::string_view hostName) {
  std::u16string folded;
  AppendFolded(hostName, &folded);
  return folded;
}

bool FoldsTo(std::string_view hostName, cvn::StringView folded) {
  // Most names differ in their first character already.
  const auto first = static_cast<unsigned char>(hostName.empty() ? '\0' : hostName.front());
  const bool mayBe = !IsAscii(hostName.substr(0, 1)) || folded.starts_with(UpperCase(first));
  return mayBe && FoldedName(hostName) == folded;
}

}  // namespace

DirectoryIndex::~DirectoryIndex() {
  if (Events() >= 0) {
    close(Events());
  }
}

void DirectoryIndex::Renew() {
  const std::lock_guard lock(mutex_);
  if (Events() >= 0) {
    close(Events());
  }
  events_.reset();
  missedIn_.reset();
  directories_.clear();
  watches_.clear();
}

DirectoryIndex::Times DirectoryIndex::TimesOf(const struct stat& status) {
  return {Nanoseconds(status.st_mtim), Nanoseconds(status.st_ctim)};
}

DirectoryIndex::Names::value_type DirectoryIndex::KeyOf(std::string_view hostName) {
  return {std::hash<std::u16string>()(FoldedName(hostName)), std::string(hostName)};
}

Code DirectoryIndex::Find(int directory, std::string_view name, std::string* spelled) {
  const std::lock_guard lock(mutex_);
  missedIn_.reset();
  struct stat status {};
  if (fstat(directory, &status) != 0) {
    return CodeOf(errno);
  }
  Identity identity{status.st_dev, status.st_ino};
  if (!IsWorthKeeping(identity) && !(IsShortForm(FoldedName(name)) && HasShortNames(directory))) {
    return FindOnce(directory, identity, name, spelled);
  }
  const Code code = FindKnown(directory, status, name, spelled, &identity);
  if (code == kFileNotFound) {
    missedIn_ = identity;
  }
  return code;
}

bool DirectoryIndex::IsMissed(int directory, std::string_view name) {
  const std::lock_guard lock(mutex_);
  if (!missedIn_ || missedIn_ != NumbersOf(directory)) {
    return false;
  }
  struct stat status {};
  std::string spelled;
  Identity identity;
  return Look(directory, name, *missedIn_, &status) &&
         FindKnown(directory, status, name, &spelled, &identity) == kFileNotFound;
}

// Gives the status of a directory that has this identity. It has no mode, and no times, where these
// would tell nothing of the name.
bool DirectoryIndex::Look(int directory, std::string_view name, const Identity& identity,
                          struct stat* status) const {
  const auto known = directories_.find(identity);
  if (known == directories_.end() || !known->second.namesAreReported ||
      IsShortForm(FoldedName(name))) {
    return fstat(directory, status) == 0;
  }
  std::tie(status->st_dev, status->st_ino) = identity;
  return true;
}

bool DirectoryIndex::IsWorthKeeping(const Identity& identity) const {
  constexpr std::size_t kMostReadOnce = 1000;
  const auto read = readOnce_.find(identity);
  return (read != readOnce_.end() && read->second > kMostReadOnce) ||
         directories_.contains(identity);
}

// Reads through a directory for one name and keeps nothing.
Code DirectoryIndex::FindOnce(int folder, const Identity& identity, std::string_view name,
                              std::string* spelled) {
  constexpr std::size_t kOpening = 100;  // costs as much as so many names
  const DirectoryStream stream = OpenDirectory({folder, "."}, 0);
  if (stream == nullptr) {
    return errno == ENOENT ? kPathNotFound : CodeOf(errno);
  }
  const std::u16string folded = FoldedName(name);
  std::string found;
  std::size_t count = kOpening;
  const int error = ForEachEntry(stream, [&](const dirent& entry) {
    ++count;
    const std::string_view other = entry.d_name;
    // Of several, the first one is always the same.
    if (other == name || ((found.empty() || other < found) && FoldsTo(other, folded))) {
      found = other;
    }
    return other != name;
  });
  if (readOnce_.size() >= kMostDirectories) {
    readOnce_.clear();
  }
  readOnce_[identity] += count;
  if (error != 0) {
    return CodeOf(error);
  }
  *spelled = std::move(found);
  return spelled->empty() ? kFileNotFound : kSuccess;
}

Code DirectoryIndex::FindKnown(int directory, const struct stat& status, std::string_view name,
                               std::string* spelled, Identity* identity) {
  ReadEvents();
  *identity = {status.st_dev, status.st_ino};
  const auto known = directories_.find(*identity);
  const bool hasTimes = status.st_mode != 0;
  if (known == directories_.end() || (hasTimes && !IsCurrent(&known->second, TimesOf(status)))) {
    const Code code = Read(directory, identity);
    if (code != kSuccess) {
      return code;
    }
  }
  Directory& found = directories_[*identity];
  found.lastUse = ++uses_;
  const std::u16string folded = FoldedName(name);
  const std::size_t hash = std::hash<std::u16string>()(folded);
  bool isThere = false;
  for (auto [at, end] = found.names.equal_range(hash); at != end; ++at) {
    if (at->second == name) {
      *spelled = name;
      return kSuccess;
    }
    // Of several, the first one is always the same.
    if ((!isThere || at->second < *spelled) && FoldedName(at->second) == folded) {
      *spelled = at->second;
      isThere = true;
    }
  }
  // A file's own name comes before another's short one.
  isThere = isThere || (IsShortForm(folded) && HasShortNames(directory) &&
                        FindShort(directory, folded, &found, spelled));
  return isThere ? kSuccess : kFileNotFound;
}

bool DirectoryIndex::IsListed(const Directory& directory, const std::string& name) {
  const auto [begin, end] = directory.names.equal_range(KeyOf(name).first);
  return std::any_of(begin, end, [&name](const auto& held) { return held.second == name; });
}

void DirectoryIndex::ReadShortNames(int folder, Directory* directory) {
  if (!directory->shortNames) {
    directory->shortNames.emplace();
    directory->unread.clear();
    directory->cameSince = 0;
    for (const auto& [hash, name] : directory->names) {
      directory->unread.push_back(name);
    }
  }
  for (std::string& name : directory->unread) {
    if (const auto shortName = ShortNameOf({folder, name.c_str()})) {
      directory->shortNames->emplace(std::hash<std::u16string>()(*shortName), std::move(name));
    }
  }
  directory->unread.clear();
}

// Finds the name whose short name is `folded`.
bool DirectoryIndex::FindShort(int folder, cvn::StringView folded, Directory* directory,
                               std::string* spelled) {
  ReadShortNames(folder, directory);
  const std::size_t hash = std::hash<std::u16string>()(std::u16string(folded));
  for (;;) {
    // A volume that is damaged may have given one to several: the first is always the same.
    const auto [begin, end] = directory->shortNames->equal_range(hash);
    const auto first = std::min_element(
        begin, end, [](const auto& left, const auto& right) { return left.second < right.second; });
    if (first == end) {
      return false;
    }
    const std::string& name = first->second;
    if (IsListed(*directory, name) && ShortNameOf({folder, name.c_str()}) == folded) {
      *spelled = name;
      return true;
    }
    directory->shortNames->erase(first);  // it has gone, or has another one now
  }
}

void DirectoryIndex::Directory::Came(std::string_view name) {
  constexpr std::size_t kFewest = 1000;
  if (!shortNames) {
    return;
  }
  // Where names come and go, it is time to forget those that went.
  if (++cameSince > names.size() + kFewest) {
    shortNames.reset();
  } else {
    unread.emplace_back(name);
  }
}

void DirectoryIndex::Add(Names::value_type name, Names* names) {
  Remove(name, names);  // one that came while the names were read is reported, too
  names->insert(std::move(name));
}

void DirectoryIndex::Remove(const Names::value_type& name, Names* names) {
  const auto [begin, end] = names->equal_range(name.first);
  const auto found =
      std::find_if(begin, end, [&name](const auto& held) { return held.second == name.second; });
  if (found != end) {
    names->erase(found);
  }
}

void DirectoryIndex::ReadEvents() {
  if (Events() < 0) {
    return;
  }
  constexpr std::size_t kLargestEvent = sizeof(inotify_event) + NAME_MAX + 1;
  alignas(inotify_event) char buffer[16384];
  for (;;) {
    const ssize_t length = read(Events(), buffer, sizeof(buffer));
    if (length < 0 && errno == EINTR) {
      continue;
    }
    if (length <= 0) {
      return;
    }
    for (ssize_t at = 0; at < length;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      Follow(event->wd, event->mask, event->len == 0 ? "" : event->name);
      at += static_cast<ssize_t>(sizeof(*event) + event->len);
    }
    if (static_cast<std::size_t>(length) + kLargestEvent <= sizeof(buffer)) {
      return;  // another event would have fitted, so there is none
    }
  }
}

void DirectoryIndex::Follow(int watch, std::uint32_t event, std::string_view name) {
  if ((event & IN_Q_OVERFLOW) != 0) {
    while (!directories_.empty()) {
      Forget(directories_.begin());
    }
    return;
  }
  const auto watched = watches_.find(watch);
  if (watched == watches_.end()) {
    return;
  }
  const auto directory = directories_.find(watched->second);
  if ((event & IN_IGNORED) != 0) {
    Forget(directory);
    return;
  }
  directory->second.followed = true;
  if ((event & (IN_CREATE | IN_MOVED_TO)) != 0) {
    directory->second.Came(name);
    Add(KeyOf(name), &directory->second.names);
  } else if ((event & (IN_DELETE | IN_MOVED_FROM)) != 0) {
    Remove(KeyOf(name), &directory->second.names);
  }
}

bool DirectoryIndex::IsCurrent(Directory* directory, const Times& times) {
  if (directory->followed) {
    directory->times = times;  // other times are what the reported changes left
    directory->followed = false;
  }
  return directory->times == times && (directory->watch >= 0 || directory->settled);
}

Code DirectoryIndex::Read(int folder, Identity* identity) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const DirectoryStream stream = OpenDirectory({folder, "."}, 0);
  struct stat status {};
  if (stream == nullptr || fstat(dirfd(stream.get()), &status) != 0) {
    const int error = errno;
    return error == ENOENT ? kPathNotFound : CodeOf(error);
  }
  *identity = {status.st_dev, status.st_ino};
  Directory& directory = directories_[*identity];
  directory.times = TimesOf(status);
  directory.settled = directory.times.modified < Nanoseconds(now) - kLongestTick;
  directory.followed = false;
  directory.lastUse = ++uses_;
  Watch(dirfd(stream.get()), *identity, &directory);  // first, so that no change goes unseen

  directory.names.clear();
  directory.shortNames.reset();
  const int error = ForEachEntry(stream, [&directory](const dirent& entry) {
    directory.names.insert(KeyOf(entry.d_name));
    return true;
  });
  if (error != 0) {
    Forget(directories_.find(*identity));
    return CodeOf(error);
  }
  ForgetOldest();
  return kSuccess;
}

void DirectoryIndex::Watch(int descriptor, const Identity& identity, Directory* directory) {
  // The descriptor's own link, because the path may lead to another directory by now.
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  if (!events_) {
    events_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  }
  watches_.erase(directory->watch);
  directory->watch = inotify_add_watch(*events_, link.c_str(), kWatched);
  directory->namesAreReported = directory->watch >= 0 && HasShortNames(descriptor);
  if (directory->watch >= 0) {
    watches_[directory->watch] = identity;
  }
}

void DirectoryIndex::Forget(std::map<Identity, Directory>::iterator directory) {
  if (directory->second.watch >= 0) {
    inotify_rm_watch(Events(), directory->second.watch);
    watches_.erase(directory->second.watch);
  }
  directories_.erase(directory);
}

void DirectoryIndex::ForgetOldest() {
  while (directories_.size() > kMostDirectories) {
    Forget(std::min_element(directories_.begin(), directories_.end(),
                            [](const auto& left, const auto& right) {
                              return left.second.lastUse < right.second.lastUse;
                            }));
  }
}

}  // namespace platform::posix
