#include "tools/tlx/hive_state.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>

#include "platform/file_search.h"
#include "platform/files.h"
#include "platform/formats/little_endian.h"
#include "platform/paths.h"
#include "support/format.h"

namespace tlx {
namespace {

namespace files = platform::files;
using platform::Code;
using platform::kSuccess;
using platform::NumberAt;

// The base block of a hive, which a log begins with too, and the headers of bins and of the entries
// of a log, in the terms of the format's public descriptions.
constexpr std::size_t kBaseSize = 4096;
constexpr std::size_t kBaseInLog = 512;
constexpr std::size_t kSequence1 = 4;
constexpr std::size_t kSequence2 = 8;
constexpr std::size_t kMajorVersion = 20;
constexpr std::size_t kMinorVersion = 24;
constexpr std::size_t kDataSize = 40;
constexpr std::size_t kSum = 508;
constexpr std::size_t kBinOffset = 4;
constexpr std::size_t kBinSize = 8;
constexpr std::size_t kBinUnit = 4096;
constexpr std::size_t kEntrySize = 4;
constexpr std::size_t kEntrySequence = 12;

bool HasSignature(std::span<const std::byte> block, std::string_view signature) {
  return block.size() >= signature.size() &&
         std::memcmp(block.data(), signature.data(), signature.size()) == 0;
}

bool IsSumRight(std::span<const std::byte> base) {
  std::uint32_t sum = 0;
  for (std::size_t at = 0; at < kSum; at += sizeof(sum)) {
    sum ^= NumberAt<std::uint32_t>(base, at);
  }
  // Two sums stand for something else, and their neighbours for them.
  constexpr std::uint32_t kNone = 0;
  constexpr std::uint32_t kAll = 0xFFFFFFFF;
  sum = sum == kNone ? 1 : sum == kAll ? kAll - 1 : sum;
  return sum == NumberAt<std::uint32_t>(base, kSum);
}

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
  std::array<std::byte, kBinSize + sizeof(std::uint32_t)> header{};
  for (std::uint64_t at = 0; at < dataSize;) {
    const std::uint64_t place = kBaseSize + at;
    if (!ReadAt(file, place, header) || !HasSignature(header, "hbin")) {
      return place;
    }
    const auto size = NumberAt<std::uint32_t>(header, kBinSize);
    if (NumberAt<std::uint32_t>(header, kBinOffset) != at || size == 0 || size % kBinUnit != 0 ||
        size > dataSize - at) {
      return place;
    }
    at += size;
  }
  std::array<std::byte, 1> last{};
  const bool isWhole = dataSize != 0 && ReadAt(file, kBaseSize + dataSize - 1, last);
  return isWhole ? std::nullopt : std::optional<std::uint64_t>(kBaseSize);
}

// The entries of a log that are numbered from `sequence` on.
std::uint32_t CountEntries(cvn::StringView path, std::uint32_t sequence) {
  files::File log;
  std::array<std::byte, kBaseInLog> base{};
  if (OpenToRead(path, &log) != kSuccess || !ReadAt(&log, 0, base) || !HasSignature(base, "regf")) {
    return 0;
  }
  std::uint32_t count = 0;
  std::array<std::byte, kEntrySequence + sizeof(std::uint32_t)> header{};
  for (std::uint64_t at = kBaseInLog; ReadAt(&log, at, header);) {
    if (at == kBaseInLog && HasSignature(header, "DIRT")) {
      return 1;  // a log of the older kind is one change
    }
    const auto size = NumberAt<std::uint32_t>(header, kEntrySize);
    const auto number = NumberAt<std::uint32_t>(header, kEntrySequence);
    if (!HasSignature(header, "HvLE") || size < kBaseInLog || (count != 0 && number != sequence)) {
      break;
    }
    // What stands before it is in the file already.
    if (number >= sequence) {
      ++count;
      sequence = number + 1;
    }
    at += size;
  }
  return count;
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
  std::array<std::byte, kBaseSize> base{};
  if (!ReadAt(&file, 0, base) || !HasSignature(base, "regf")) {
    state.damagedAt = 0;
    return state;
  }
  state.majorVersion = NumberAt<std::uint32_t>(base, kMajorVersion);
  state.minorVersion = NumberAt<std::uint32_t>(base, kMinorVersion);
  const auto sequence = NumberAt<std::uint32_t>(base, kSequence2);
  const bool isSumRight = IsSumRight(base);
  state.isClean = isSumRight && NumberAt<std::uint32_t>(base, kSequence1) == sequence;
  if (!state.isClean) {
    for (const cvn::StringView ending : {u".LOG1", u".LOG2", u".LOG"}) {
      state.pendingEntries += CountEntries(cvn::Format(u"%s%s", path, ending), sequence);
    }
  }
  // A log can hold what the file lacks.
  if (state.pendingEntries == 0) {
    state.damagedAt = isSumRight ? FindBrokenBin(&file, NumberAt<std::uint32_t>(base, kDataSize))
                                 : std::optional<std::uint64_t>(kSum);
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
