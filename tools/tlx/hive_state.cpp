#include "tools/tlx/hive_state.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <vector>

#include "platform/file_search.h"
#include "platform/files.h"
#include "platform/formats/hive_format.h"
#include "platform/formats/hive_log.h"
#include "platform/formats/little_endian.h"
#include "platform/paths.h"
#include "support/format.h"

namespace tlx {
namespace {

namespace files = platform::files;
using platform::BaseBlock;
using platform::Code;
using platform::HiveView;
using platform::kSuccess;
using platform::LogEntry;
using platform::NumberAt;

Code OpenToRead(cvn::StringView path, files::File* file) {
  return files::Open(path, files::Access::Read, files::Share::ReadWriteDelete,
                     files::Disposition::OpenExisting, file);
}

// Fills `block` from the file at `offset`. False when the file ends before, or can't be read.
bool ReadAt(files::File* file, std::uint64_t offset, std::span<std::byte> block) {
  if (file->Seek(offset) != kSuccess) {
    return false;
  }
  std::size_t count = 1;
  while (!block.empty() && count != 0) {
    if (file->Read(block, &count) != kSuccess) {
      return false;
    }
    block = block.subspan(count);
  }
  return block.empty();
}

// Where the bins stop following each other; nothing when all are there.
std::optional<std::uint64_t> FindBrokenBin(files::File* file, std::uint32_t dataSize) {
  std::array<std::byte, platform::kBinSize + sizeof(std::uint32_t)> header{};
  for (std::uint64_t at = 0; at < dataSize;) {
    const std::uint64_t place = platform::kBaseSize + at;
    if (!ReadAt(file, place, header) || !HiveView(header).Is("hbin")) {
      return place;
    }
    const auto size = NumberAt<std::uint32_t>(header, platform::kBinSize);
    if (NumberAt<std::uint32_t>(header, platform::kBinOffset) != at || size == 0 ||
        size % platform::kBinUnit != 0 || size > dataSize - at) {
      return place;
    }
    at += size;
  }
  std::array<std::byte, 1> last{};
  const bool isWhole = dataSize != 0 && ReadAt(file, platform::kBaseSize + dataSize - 1, last);
  return isWhole ? std::nullopt : std::optional<std::uint64_t>(platform::kBaseSize);
}

// A log of a hive; it has no size when there is none that is whole at its beginning.
struct Log {
  explicit Log(cvn::StringView path) {
    if (OpenToRead(path, &file) != kSuccess || file.Size(&size) != kSuccess ||
        !ReadAt(&file, 0, base.Bytes()) || !base.IsSound()) {
      size = 0;
    }
  }

  files::File file;
  BaseBlock base;
  std::uint64_t size = 0;  // bytes
};

// Whether it is a log of the older kind, and whole. All of it is one change.
bool IsOldChange(Log* log) {
  constexpr std::uint64_t kLargest = 256 << 20;
  if (log->size == 0 || log->size > kLargest || !log->base.IsOldLog()) {
    return false;
  }
  std::vector<std::byte> bytes(log->size);
  return ReadAt(&log->file, 0, bytes) && platform::ReadOldLog(bytes, log->base.DataSize());
}

// The whole entries of a log, in an unbroken row, that are numbered from `next` on.
std::uint32_t CountEntries(Log* log, std::uint32_t next) {
  std::uint32_t count = 0;
  std::array<std::byte, LogEntry::kHeader> header{};
  std::vector<std::byte> bytes;
  for (std::uint64_t at = BaseBlock::kSize; at < log->size && ReadAt(&log->file, at, header);) {
    const std::size_t size = LogEntry::SizeOf(header).value_or(0);
    if (size == 0 || size > log->size - at) {
      break;
    }
    if (LogEntry::NumberOf(header) == next) {
      bytes.resize(size);
      if (!ReadAt(&log->file, at, bytes) || !LogEntry::Read(bytes)) {
        break;
      }
      ++count;
      ++next;
    } else if (count != 0) {
      break;
    }
    at += size;
  }
  return count;
}

// The changes that the logs of an unfinished hive have for it: one log can go on where the other
// ends.
std::uint32_t CountPending(cvn::StringView path, std::uint32_t next) {
  Log first(cvn::Format(u"%s.LOG1", path));
  Log second(cvn::Format(u"%s.LOG2", path));
  Log only(cvn::Format(u"%s.LOG", path));
  std::uint32_t pending = 0;
  for (Log* const log : {&first, &second, &first}) {
    pending += CountEntries(log, next + pending);
  }
  const bool isOld = IsOldChange(&only) || IsOldChange(&first) || IsOldChange(&second);
  return pending == 0 && isOld ? 1 : pending;
}

}  // namespace

HiveState LookAtHive(cvn::StringView path) {
  HiveState state;
  state.path = path;
  files::File file;
  state.code = OpenToRead(path, &file);
  if (state.code != kSuccess) {
    return state;
  }
  BaseBlock base;
  if (!ReadAt(&file, 0, base.Bytes()) || !HiveView(base.Bytes()).Is("regf")) {
    state.damagedAt = 0;
    return state;
  }
  state.majorVersion = NumberAt<std::uint32_t>(base.Bytes(), platform::kMajorVersion);
  state.minorVersion = NumberAt<std::uint32_t>(base.Bytes(), platform::kMinorVersion);
  state.isClean = base.IsSound() && !base.IsDirty();
  state.pendingEntries = state.isClean ? 0 : CountPending(path, base.Second());
  // A log can hold what the file lacks.
  if (state.pendingEntries == 0) {
    state.damagedAt = base.IsSound() ? FindBrokenBin(&file, base.DataSize())
                                     : std::optional<std::uint64_t>(platform::kChecksum);
  }
  return state;
}

cvn::List<cvn::String> HivesOfMachine() {
  cvn::List<cvn::String> hives;
  for (const cvn::StringView name : {u"SYSTEM", u"SOFTWARE", u"SAM", u"SECURITY", u"DEFAULT"}) {
    hives.push_back(cvn::Format(u"C:\\Windows\\System32\\config\\%s", name));
  }
  files::Search search;
  files::SearchEntry entry;
  for (Code code = search.First(u"C:\\Users\\*", &entry); code == kSuccess;
       code = search.Next(&entry)) {
    for (const cvn::StringView name :
         {u"NTUSER.DAT", u"AppData\\Local\\Microsoft\\Windows\\UsrClass.dat"}) {
      cvn::String path = cvn::Format(u"C:\\Users\\%s\\%s", entry.Name(), name);
      if (!entry.IsLink() && !entry.IsSelfOrParent() && platform::paths::Exists(path)) {
        hives.push_back(std::move(path));
      }
    }
  }
  return hives;
}

}  // namespace tlx
