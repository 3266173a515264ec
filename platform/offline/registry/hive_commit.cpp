// Changes of a hive on their way to the disk.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "platform/clock.h"
#include "platform/linux/file_names.h"
#include "platform/offline/registry/hive_store.h"

namespace platform::posix {
namespace {

// A log of this size is applied and begun anew.
constexpr std::uint64_t kLargestLog = std::uint64_t{32} << 20;

Code Flush(int file) {
  // EINVAL: a file system that has nothing to write.
  return fdatasync(file) == 0 || errno == EINVAL ? kSuccess : RegistryFault(errno);
}

Code Cut(int file, std::uint64_t size) {
  return ftruncate(file, static_cast<off_t>(size)) == 0 ? kSuccess : RegistryFault(errno);
}

}  // namespace

Code HiveStore::BeginChange() {
  if (writability_ != kSuccess || !isUnsettled_) {
    return writability_;
  }
  return WritePrimary();
}

Code HiveStore::Commit() {
  if (!pages_.IsChanged()) {
    return pages_.IsTorn() ? kReadFault : kSuccess;
  }
  Code code = pages_.IsTorn() ? kReadFault : kNotEnoughMemory;
  try {
    code = code == kReadFault ? code : OpenLog();
    if (code == kSuccess) {
      code = isOldLog_ ? LogOld() : LogNew();
    }
  } catch (const std::bad_alloc&) {
    code = kNotEnoughMemory;
  }
  isStale_ = isStale_ || code != kSuccess;
  hasLogged_ = hasLogged_ || code == kSuccess;
  return code;
}

// Opens the log that the next entry goes to, if that isn't done.
Code HiveStore::OpenLog() {
  if (isLogOpen_) {
    return kSuccess;
  }
  if (logEnd_ == 0) {
    // Which kind of log is for the Windows of this hive is seen from those that it has left.
    log_ = LogFile(LogPlace(0));
    for (LogFile& log : OpenLogs()) {
      if (log.Base().IsOldLog()) {
        isOldLog_ = true;
        log_ = std::move(log);
        break;
      }
    }
  }
  Code code = log_.OpenForWriting(file_.Get(), &isNewLog_);
  // What an interrupted writer left behind the last entry can't be taken for what follows the next.
  if (code == kSuccess && logEnd_ != 0) {
    code = Cut(log_.File(), logEnd_);
  }
  isLogOpen_ = code == kSuccess;
  return code;
}

Code HiveStore::LogNew() {
  const bool isFirst = logEnd_ == 0;
  LogEntry entry{.flags = InMemory().Flags(),
                 .number = isFirst ? base_.Second() : number_ + 1,
                 .dataSize = InMemory().DataSize(),
                 .pages = pages_.Changed()};
  const std::vector<std::byte> bytes = entry.Write();
  Code code = isFirst ? StartLog(entry.number, bytes) : WriteAt(log_.File(), logEnd_, bytes);
  if (code != kSuccess) {
    // What a part of an entry leaves counts for nothing, and only takes room.
    IgnoreError(isFirst ? kSuccess : Cut(log_.File(), logEnd_));
    return code;
  }
  pages_.Settle();
  number_ = entry.number;
  logEnd_ = (isFirst ? BaseBlock::kSize : logEnd_) + bytes.size();
  isUnsynced_ = true;
  // The log has it all, and a later Settle tells of the failure.
  IgnoreError(logEnd_ > kLargestLog ? WritePrimary() : kSuccess);
  return kSuccess;
}

// Begins the log with its first entry, and then marks the primary file: before that the log counts
// for nothing.
Code HiveStore::StartLog(std::uint32_t number, std::span<const std::byte> entry) {
  BaseBlock base = InMemory();
  base.SetType(BaseBlock::Kind::Log);
  base.SetNumbers(number, number);
  Code code = DropOtherLogs();
  // What the log had before can't be taken for what follows the entry.
  code = code == kSuccess ? Cut(log_.File(), 0) : code;
  code = code == kSuccess ? WriteAt(log_.File(), BaseBlock::kSize, entry) : code;
  code = code == kSuccess ? WriteAt(log_.File(), 0, base.Bytes()) : code;
  code = code == kSuccess ? Flush(log_.File()) : code;
  if (code == kSuccess && isNewLog_) {
    code = FlushFolder(log_.Place().At().folder);
    isNewLog_ = false;
  }
  BaseBlock dirty = base_;
  dirty.SetNumbers(number + 1, number);
  return code == kSuccess ? WriteBase(dirty) : code;
}

// Entries of another life of the hive could go on where those of this log end.
Code HiveStore::DropOtherLogs() const {
  for (LogFile& other : OpenLogs()) {
    if (other.Place().spelling == log_.Place().spelling || other.Base().IsOldLog()) {
      continue;
    }
    bool isNew = false;
    Code code = other.OpenForWriting(file_.Get(), &isNew);
    code = code == kSuccess ? Cut(other.File(), 0) : code;
    if (code != kSuccess) {
      return code;
    }
  }
  return kSuccess;
}

// A log of the old kind has one write, so that the primary file is brought up to date with each.
Code HiveStore::LogOld() {
  const std::uint64_t time = std::max(clock::FileTimeNow(), base_.Time() + 1);
  const std::uint32_t number = number_ + 1;
  std::memcpy(pages_.Change(kFirstBinTime, sizeof(time)), &time, sizeof(time));
  BaseBlock dirty = InMemory();
  dirty.SetTime(time);
  dirty.SetNumbers(number, number - 1);
  BaseBlock base = dirty;
  base.SetType(BaseBlock::Kind::OldLog);
  base.SetNumbers(number, number);
  const std::vector<std::byte> log = WriteOldLog(base, pages_.Changed());
  Code code = Cut(log_.File(), 0);
  code = code == kSuccess ? WriteAt(log_.File(), 0, log) : code;
  code = code == kSuccess ? Flush(log_.File()) : code;
  code = code == kSuccess ? WriteBase(dirty) : code;
  if (code != kSuccess) {
    return code;
  }
  std::ranges::copy(dirty.Bytes(), pages_.Change(0, BaseBlock::kSize));
  pages_.Settle();
  number_ = number;
  isUnsettled_ = true;
  // From here on the change is safe; what fails now is tried again before the next one.
  code = Flush(file_.Get());
  IgnoreError(code == kSuccess ? WritePrimary() : code);
  return kSuccess;
}

Code HiveStore::WriteBase(const BaseBlock& base) {
  const Code code = WriteAt(file_.Get(), 0, base.Bytes());
  if (code != kSuccess) {
    return code;
  }
  base_ = base;
  return fstat(file_.Get(), &status_) == 0 ? kSuccess : RegistryFault(errno);
}

// Until the base block says that the primary file is whole, the log still has all that it needs.
Code HiveStore::WritePrimary() {
  Code code = kNotEnoughMemory;
  try {
    code = WritePages();
  } catch (const std::bad_alloc&) {
    // The list of the pages is all that needs memory.
  }
  BaseBlock base = InMemory();
  base.SetNumbers(number_ + 1, number_ + 1);
  base.SetTime(isOldLog_ ? base.Time() : clock::FileTimeNow());
  code = code == kSuccess ? WriteBase(base) : code;
  code = code == kSuccess ? Flush(file_.Get()) : code;
  isStale_ = isStale_ || code != kSuccess;
  if (code != kSuccess) {
    return code;
  }
  std::ranges::copy(base.Bytes(), pages_.Change(0, BaseBlock::kSize));
  pages_.Settled();
  ++number_;
  logEnd_ = 0;
  isUnsettled_ = false;
  isUnsynced_ = false;
  EmptyLog(base);
  return kSuccess;
}

Code HiveStore::WritePages() {
  Code code = pages_.IsTorn() ? kReadFault : kSuccess;
  if (code == kSuccess && log_.File() >= 0) {
    code = Flush(log_.File());
  }
  for (const LoggedPage& run : pages_.Missing()) {
    code = code == kSuccess
               ? WriteAt(file_.Get(), HivePages::kPage + std::uint64_t{run.offset}, run.bytes)
               : code;
  }
  return code == kSuccess ? Flush(file_.Get()) : code;
}

// The primary file is whole: a log that stays counts for nothing, and the base block in it serves
// if the other is damaged.
void HiveStore::EmptyLog(BaseBlock base) {
  if (!isLogOpen_ || isOldLog_) {
    return;
  }
  base.SetType(BaseBlock::Kind::Log);
  if (Cut(log_.File(), BaseBlock::kSize) == kSuccess) {
    IgnoreError(WriteAt(log_.File(), 0, base.Bytes()));
  }
}

Code HiveStore::Sync() {
  if (!isUnsynced_) {
    return kSuccess;
  }
  const Code code = log_.File() >= 0 ? Flush(log_.File()) : kSuccess;
  isUnsynced_ = code != kSuccess;
  return code;
}

Code HiveStore::Settle() {
  if (!hasLogged_) {
    return kSuccess;
  }
  Code code = Enter(true);
  if (code == kSuccess && (base_.IsDirty() || isUnsettled_)) {
    code = WritePrimary();
  }
  hasLogged_ = code != kSuccess;
  Leave();
  return code;
}

}  // namespace platform::posix
