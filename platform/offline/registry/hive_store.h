// A hive on the disk: the primary file and its logs, which several programs may change in turns.
//
// What a hive holds is the primary file with the log's entries over it. A change is an entry; the
// first one also marks the primary file, which otherwise stays as it was until Settle brings it up
// to date and empties the log. So at every moment the disk has all changes that were logged, for
// Windows and for the next run: both complete the primary file from the log.
//
// Writers take turns by a lock on the primary file. Readers share it for as long as they look, so
// that they never see half a change.
#pragma once

#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/formats/hive_log.h"
#include "platform/linux/descriptor.h"
#include "platform/offline/registry/hive_log_file.h"
#include "platform/offline/registry/hive_pages.h"
#include "platform/offline/registry/registry.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {

class HiveStore {
 public:
  // The hive in the file at `place`, which is no link.
  explicit HiveStore(HostPath place) : place_(std::move(place)) {}
  // One for reading, whose logs lie wherever they do.
  explicit HiveStore(HiveFiles files)
      : place_(std::move(files.primary)), logs_(std::move(files.logs)) {}
  HiveStore(const HiveStore&) = delete;
  HiveStore& operator=(const HiveStore&) = delete;

  HivePages& Pages() { return pages_; }

  // Another number whenever others have changed the bytes, or they were read anew.
  std::uint64_t Version() const { return version_; }

  // Takes the lock, shared or alone, and looks whether others have changed the hive. 170 when it
  // couldn't be had for half a minute; 1009 when there is no hive in the file. Enter with `alone`
  // may follow one without, and then others may have been between the two.
  Code Enter(bool alone);
  // Gives up the lock, if it is held. Changes that no log has are dropped.
  void Leave();
  bool IsEntered() const { return lock_ != Lock::None; }
  bool IsAlone() const { return lock_ == Lock::Alone; }

  // Whether changes are possible: 5 for a file that is read-only, 1009 for a hive whose last
  // changes are in a log that is missing or damaged.
  Code Writability() const { return writability_; }

  // Makes the hive ready to be changed. The lock has to be held alone.
  Code BeginChange();
  // Logs what was changed. After a failure the bytes are those of before, at the next Enter.
  Code Commit();

  // Brings the log to the disk itself, if something was logged since the last time.
  Code Sync();
  // Brings the primary file up to date and empties the log, if this process has logged something.
  Code Settle();

 private:
  // Where the first bin has the time of its last write, which is the base block's.
  static constexpr std::uint32_t kFirstBinTime = HivePages::kPage + 20;

  enum class Lock { None, Shared, Alone };

  // Looking.
  Code TakeLock(Lock wanted);
  Code Open(bool forWriting);
  Code Look(const struct stat& status);
  Code Load();
  Code MapPrimary(const BaseBlock& base);
  void FindWritability();
  BaseBlock InMemory() const;

  // Recovering.
  HostPath LogPlace(std::size_t number) const;  // in kHiveLogs
  std::vector<LogFile> OpenLogs() const;
  Code Recover();
  Code Replay(std::vector<LogFile>* logs, std::uint32_t number);
  Code ReplayMore();
  Code ReplayOld(const LogFile& log, std::uint64_t time);
  std::uint64_t FirstBinTime() const;

  // Writing.
  Code OpenLog();
  Code LogNew();
  Code StartLog(std::uint32_t number, std::span<const std::byte> entry);
  Code DropOtherLogs() const;
  Code LogOld();
  Code WriteBase(const BaseBlock& base);
  Code WritePrimary();
  Code WritePages();
  void EmptyLog(BaseBlock base);

  const HostPath place_;
  const std::optional<std::array<HostPath, kHiveLogs.size()>> logs_;
  Descriptor file_;
  bool canWrite_ = false;      // as far as the host's permissions go
  bool isForWriting_ = false;  // file_ was opened for it
  Lock lock_ = Lock::None;
  HivePages pages_;
  std::uint64_t version_ = 0;
  bool isLoaded_ = false;
  Code writability_ = kSuccess;

  // As the disk had them at the last look.
  struct stat status_ = {};
  BaseBlock base_;
  LogFile log_;               // the one with the last entry
  std::uint64_t logEnd_ = 0;  // where the next entry goes; 0 when there is none
  std::uint32_t number_ = 0;  // of the last entry

  bool isLogOpen_ = false;    // for writing
  bool isNewLog_ = false;     // its name is not on the disk yet
  bool isOldLog_ = false;     // the Windows of this hive knows the old kind only
  bool isUnsettled_ = false;  // what was recovered has to come into the primary file first
  bool isStale_ = false;      // the disk may have more than is known here
  bool hasLogged_ = false;    // this process has, since the last Settle
  bool isUnsynced_ = false;
};

}  // namespace platform::posix
