// Which name of a directory is meant by one that is spelled in another case.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "platform/error.h"

namespace platform::posix {

// Keeps the names of the directories that were asked for last, by their folded form. A directory is
// read once and then followed: the kernel reports each name that comes or goes, from any process,
// so that work on a directory of any size costs no more than the work itself. Where it reports
// nothing (no watch to be had, a change made by another host), the directory's times tell that the
// names must be read anew.
class DirectoryIndex {
 public:
  DirectoryIndex();
  ~DirectoryIndex();
  DirectoryIndex(const DirectoryIndex&) = delete;
  DirectoryIndex& operator=(const DirectoryIndex&) = delete;

  // Finds the name in `directory` that folds to the same as `name`. 2 when there is none, 3 when
  // there is no such directory.
  Code Find(const std::string& directory, std::string_view name, std::string* spelled);

  // Whether it is known without a look at the disk that no name in `directory` folds to the same
  // as `name`. So it is where names are missed one after the other, as in a folder that is filled.
  bool IsMissed(std::string_view directory, std::string_view name);

 private:
  // The names by the hash of what they fold to.
  using Names = std::unordered_multimap<std::size_t, std::string>;
  using Identity = std::pair<dev_t, ino_t>;

  struct Times {
    std::int64_t modified = 0;  // nanoseconds since 1970
    std::int64_t changed = 0;
    bool operator==(const Times&) const = default;
  };

  struct Directory {
    Names names;
    Times times;
    int watch = -1;
    bool followed = false;  // names have come or gone since `times` were taken
    bool settled = false;   // the next change is sure to give other times
    std::uint64_t lastUse = 0;
  };

  static Times TimesOf(const struct stat& status);
  static Names::value_type KeyOf(std::string_view hostName);
  static void Add(Names::value_type name, Names* names);
  static void Remove(const Names::value_type& name, Names* names);

  Code FindKnown(const std::string& directory, std::string_view name, std::string* spelled);
  void ReadEvents();
  void Follow(int watch, std::uint32_t event, std::string_view name);
  static bool IsCurrent(Directory* directory, const Times& times);
  Code Read(const std::string& path, Identity* identity);
  void Watch(int descriptor, const Identity& identity, Directory* directory);
  void Forget(std::map<Identity, Directory>::iterator directory);
  void ForgetOldest();

  std::mutex mutex_;
  int events_;  // of inotify; -1 when there is none to be had
  std::uint64_t uses_ = 0;
  std::string missedIn_;  // where Find found nothing at last; empty when it has found something
  std::map<Identity, Directory> directories_;
  std::map<int, Identity> watches_;
};

}  // namespace platform::posix
