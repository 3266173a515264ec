// Completing a primary file, in memory, from its logs.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "platform/offline/registry/hive_store.h"

namespace platform::posix {
namespace {

// The number of the last entry that can be applied after those up to `number`, from either log
// first; nothing without any.
std::optional<std::uint32_t> LastOf(const std::vector<LogFile>& logs, std::uint32_t number) {
  std::optional<std::uint32_t> last;
  for (const LogFile& log : logs) {
    const std::optional<std::uint32_t> first = log.LastAfter(number);
    for (const LogFile& other : logs) {
      const auto second = first && &other != &log ? other.LastAfter(*first + 1) : std::nullopt;
      last = std::max({last, first, second});
    }
  }
  return last;
}

// The log whose base block serves when the primary file's is damaged: the one that leads farthest,
// and of those the one that begins first.
const LogFile* FindBase(const std::vector<LogFile>& logs) {
  const LogFile* best = nullptr;
  std::pair<std::uint32_t, std::uint32_t> bestRank;
  for (const LogFile& log : logs) {
    const std::uint32_t start = log.Base().Second();
    const std::pair rank(LastOf(logs, start).value_or(start), ~start);
    if (best == nullptr || rank > bestRank) {
      best = &log;
      bestRank = rank;
    }
  }
  return best;
}

}  // namespace

// Where a log is in any spelling, or else is to be made.
HostPath HiveStore::LogPlace(std::size_t number) const {
  if (logs_) {
    return (*logs_)[number];
  }
  HostPath log = place_;
  log.spelling += kHiveLogs[number];
  log.name += kHiveLogs[number];
  // One that can't be found can't be opened either.
  IgnoreError(ResolveSpelling(&log));
  return log;
}

std::vector<LogFile> HiveStore::OpenLogs() const {
  std::vector<LogFile> logs;
  for (std::size_t i = 0; i < kHiveLogs.size(); ++i) {
    LogFile log(LogPlace(i));
    if (log.Open()) {
      logs.push_back(std::move(log));
    }
  }
  return logs;
}

Code HiveStore::Recover() {
  std::vector<LogFile> logs = OpenLogs();
  const bool isSound = base_.IsSound();
  BaseBlock base = base_;
  if (!isSound) {
    const LogFile* const found = FindBase(logs);
    if (found == nullptr) {
      return kBadDatabase;
    }
    base = found->Base();
    base.SetType(BaseBlock::Kind::Primary);
  }
  Code code = MapPrimary(base);
  if (code != kSuccess) {
    return code;
  }
  number_ = std::max(base.First(), base.Second());
  isUnsettled_ = !isSound;
  std::ranges::copy(base.Bytes(), pages_.Change(0, BaseBlock::kSize));
  code = Replay(&logs, base.Second());
  for (auto log = logs.begin(); code == kSuccess && logEnd_ == 0 && log != logs.end(); ++log) {
    code = ReplayOld(*log, isSound ? base.Time() : FirstBinTime());
    if (isUnsettled_ && isSound) {
      break;
    }
  }
  return code;
}

std::uint64_t HiveStore::FirstBinTime() const {
  std::uint64_t time = 0;
  if (pages_.Bytes().size() >= kFirstBinTime + sizeof(time)) {
    std::memcpy(&time, &pages_.Bytes()[kFirstBinTime], sizeof(time));
  }
  return time;
}

// Applies the entries from `number` on: those of the log that has it, and then those of another
// that goes on where it ended.
Code HiveStore::Replay(std::vector<LogFile>* logs, std::uint32_t number) {
  for (std::size_t round = 0; round < logs->size(); ++round) {
    const auto next = std::ranges::find_if(
        *logs, [number](const LogFile& log) { return log.File() >= 0 && log.Find(number) != 0; });
    if (next == logs->end()) {
      break;
    }
    logEnd_ = next->Find(number);
    log_ = std::move(*next);
    number_ = number - 1;
    const Code code = ReplayMore();
    if (code != kSuccess) {
      return code;
    }
    if (number_ + 1 == number) {
      if (round == 0) {
        logEnd_ = 0;  // not even the first entry is whole
        number_ = number;
      }
      return kSuccess;
    }
    number = number_ + 1;
  }
  return kSuccess;
}

Code HiveStore::ReplayMore() {
  std::vector<std::byte> bytes;
  for (;;) {
    const std::optional<LogEntry> entry = log_.EntryAt(logEnd_, &bytes);
    if (!entry || entry->number != number_ + 1) {
      return kSuccess;
    }
    const Code code = pages_.Apply(entry->dataSize, entry->pages);
    if (code != kSuccess) {
      return code;
    }
    ++version_;
    number_ = entry->number;
    logEnd_ += bytes.size();
    BaseBlock base = InMemory();
    base.SetFlags(entry->flags);
    std::ranges::copy(base.Bytes(), pages_.Change(0, BaseBlock::kSize));
  }
}

Code HiveStore::ReplayOld(const LogFile& log, std::uint64_t time) {
  const BaseBlock& base = log.Base();
  if (!base.IsOldLog() || base.IsDirty() || base.Time() != time) {
    return kSuccess;
  }
  std::vector<std::byte> bytes;
  Code code = log.ReadAll(&bytes);
  const auto pages = code == kSuccess ? ReadOldLog(bytes, base.DataSize()) : std::nullopt;
  if (pages) {
    code = pages_.Apply(base.DataSize(), *pages);
    std::ranges::copy(InMemory().Bytes(), pages_.Change(0, BaseBlock::kSize));
    number_ = std::max(number_, base.First());
    isUnsettled_ = true;
  }
  return code;
}

}  // namespace platform::posix
