// Which name of a directory is meant by one that is spelled in another case, or is a short name.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "support/string.h"

namespace platform::posix {

// Keeps the names of the directories that were asked for last, by their folded form. A directory is
// read once and then followed: the kernel reports each name that comes or goes, from any process,
// so that work on a directory of any size costs no more than the work itself. Where it reports
// nothing (no watch to be had, a change made by another host), the directory's times tell that the
// names must be read anew. On ntfs-3g, whose volume no other host changes, the times tell of short
// names only: for others they aren't asked for, which would be a message to the driver.
//
// The first look-ups in a small directory only read through it: most runs ask a directory a few
// times, and the kernel takes milliseconds to let go of what it reports on.
class DirectoryIndex {
 public:
  DirectoryIndex() = default;
  ~DirectoryIndex();
  DirectoryIndex(const DirectoryIndex&) = delete;
  DirectoryIndex& operator=(const DirectoryIndex&) = delete;

  // Finds in `directory`, which is a descriptor of any kind, the name that is `name`, else one that
  // folds to the same, else that of the file with this short name. 2 when there is none, 3 when the
  // directory was removed.
  Code Find(int directory, std::string_view name, std::string* spelled);

  // Whether it is known without reading the directory that Find would find nothing. So it is where
  // names are missed one after the other, as in a folder that is filled.
  bool IsMissed(int directory, std::string_view name);

  // Forgets all, and shares the kernel's reports no longer with the process that this one was
  // forked from.
  void Renew();

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
    // The names by the hash of their short names; nothing until one was asked for. Of those that
    // came since, theirs are read when the next one is asked for. What went may still be in it.
    std::optional<Names> shortNames;
    std::vector<std::string> unread;
    std::size_t cameSince = 0;
    Times times;
    int watch = -1;
    bool namesAreReported = false;  // all, but for short ones
    bool followed = false;          // names have come or gone since `times` were taken
    bool settled = false;           // the next change is sure to give other times
    std::uint64_t lastUse = 0;

    void Came(std::string_view name);
  };

  static Times TimesOf(const struct stat& status);
  static Names::value_type KeyOf(std::string_view hostName);
  static void Add(Names::value_type name, Names* names);
  static void Remove(const Names::value_type& name, Names* names);

  static bool IsListed(const Directory& directory, const std::string& name);
  static void ReadShortNames(int folder, Directory* directory);
  static bool FindShort(int folder, cvn::StringView folded, Directory* directory,
                        std::string* spelled);
  bool IsWorthKeeping(const Identity& identity) const;
  bool Look(int directory, std::string_view name, const Identity& identity,
            struct stat* status) const;
  Code FindOnce(int folder, const Identity& identity, std::string_view name, std::string* spelled);
  Code FindKnown(int directory, const struct stat& status, std::string_view name,
                 std::string* spelled, Identity* identity);
  int Events() const { return events_.value_or(-1); }
  void ReadEvents();
  void Follow(int watch, std::uint32_t event, std::string_view name);
  static bool IsCurrent(Directory* directory, const Times& times);
  Code Read(int folder, Identity* identity);
  void Watch(int descriptor, const Identity& identity, Directory* directory);
  void Forget(std::map<Identity, Directory>::iterator directory);
  void ForgetOldest();

  std::mutex mutex_;
  std::optional<int>
      events_;  // of inotify, from the first watch on; -1 when there is none to be had
  std::uint64_t uses_ = 0;
  std::map<Identity, std::size_t> readOnce_;  // how many names of a directory were, and not kept
  std::optional<Identity> missedIn_;  // where Find found nothing at last, unless it has found since
  std::map<Identity, Directory> directories_;
  std::map<int, Identity> watches_;
};

}  // namespace platform::posix
