#include "platform/formats/hive_log.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "platform/formats/hive_format.h"

namespace platform {
namespace {

// More offsets in the base block.
constexpr std::size_t kTypeAt = 28;
constexpr std::size_t kFlagsAt = 144;

// Offsets in an entry's header.
constexpr std::size_t kEntrySizeAt = 4;
constexpr std::size_t kEntryFlagsAt = 8;
constexpr std::size_t kEntryNumberAt = 12;
constexpr std::size_t kEntryDataSizeAt = 16;
constexpr std::size_t kEntryPagesAt = 20;
constexpr std::size_t kEntryBodySumAt = 24;
constexpr std::size_t kEntryHeaderSumAt = 32;  // of all before it
constexpr std::size_t kReferenceSize = 8;

constexpr std::size_t kSector = 512;

bool IsDataSize(std::uint32_t size) { return size % kBinUnit == 0 && size <= kLargestHive; }

}  // namespace

bool BaseBlock::IsSound() const {
  return HiveView(bytes_).Is("regf") &&
         Fetch<std::uint32_t>(&bytes_[kChecksum]) == HiveChecksum(bytes_);
}

BaseBlock::Kind BaseBlock::Type() const { return Kind{Fetch<std::uint32_t>(&bytes_[kTypeAt])}; }
std::uint32_t BaseBlock::First() const { return Fetch<std::uint32_t>(&bytes_[kSequence1]); }
std::uint32_t BaseBlock::Second() const { return Fetch<std::uint32_t>(&bytes_[kSequence2]); }
std::uint64_t BaseBlock::Time() const { return Fetch<std::uint64_t>(&bytes_[kWritten]); }
std::uint32_t BaseBlock::DataSize() const { return Fetch<std::uint32_t>(&bytes_[kDataSize]); }
std::uint32_t BaseBlock::Flags() const { return Fetch<std::uint32_t>(&bytes_[kFlagsAt]); }

void BaseBlock::SetType(Kind type) {
  Store(&bytes_[kTypeAt], static_cast<std::uint32_t>(type));
  Seal();
}

void BaseBlock::SetNumbers(std::uint32_t first, std::uint32_t second) {
  Store(&bytes_[kSequence1], first);
  Store(&bytes_[kSequence2], second);
  Seal();
}

void BaseBlock::SetTime(std::uint64_t time) {
  Store(&bytes_[kWritten], time);
  Seal();
}

void BaseBlock::SetDataSize(std::uint32_t size) {
  Store(&bytes_[kDataSize], size);
  Seal();
}

void BaseBlock::SetFlags(std::uint32_t flags) {
  Store(&bytes_[kFlagsAt], flags);
  Seal();
}

void BaseBlock::Seal() { Store(&bytes_[kChecksum], HiveChecksum(bytes_)); }

std::optional<std::size_t> LogEntry::SizeOf(std::span<const std::byte> header) {
  if (header.size() < kHeader || !HiveView(header).Is("HvLE") ||
      Fetch<std::uint64_t>(&header[kEntryHeaderSumAt]) !=
          Marvin32(header.first(kEntryHeaderSumAt))) {
    return std::nullopt;
  }
  const std::size_t size = Fetch<std::uint32_t>(&header[kEntrySizeAt]);
  return size >= kSector && size % kSector == 0 ? std::optional(size) : std::nullopt;
}

std::uint32_t LogEntry::NumberOf(std::span<const std::byte> header) {
  return Fetch<std::uint32_t>(&header[kEntryNumberAt]);
}

std::optional<LogEntry> LogEntry::Read(std::span<const std::byte> bytes) {
  if (SizeOf(bytes) != bytes.size() ||
      Fetch<std::uint64_t>(&bytes[kEntryBodySumAt]) != Marvin32(bytes.subspan(kHeader))) {
    return std::nullopt;
  }
  LogEntry entry{.flags = Fetch<std::uint32_t>(&bytes[kEntryFlagsAt]),
                 .number = NumberOf(bytes),
                 .dataSize = Fetch<std::uint32_t>(&bytes[kEntryDataSizeAt]),
                 .pages = {}};
  const std::size_t count = Fetch<std::uint32_t>(&bytes[kEntryPagesAt]);
  if (!IsDataSize(entry.dataSize) || count > (bytes.size() - kHeader) / kReferenceSize) {
    return std::nullopt;
  }
  std::size_t data = kHeader + count * kReferenceSize;
  entry.pages.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t reference = kHeader + i * kReferenceSize;
    const auto offset = Fetch<std::uint32_t>(&bytes[reference]);
    const auto size = Fetch<std::uint32_t>(&bytes[reference + sizeof(offset)]);
    if (size > bytes.size() - data || size > entry.dataSize || offset > entry.dataSize - size) {
      return std::nullopt;
    }
    entry.pages.push_back({offset, bytes.subspan(data, size)});
    data += size;
  }
  return entry;
}

std::vector<std::byte> LogEntry::Write() const {
  std::size_t size = kHeader + pages.size() * kReferenceSize;
  for (const LoggedPage& page : pages) {
    size += page.bytes.size();
  }
  std::vector<std::byte> bytes(RoundUp(size, kSector));
  std::memcpy(bytes.data(), "HvLE", 4);
  Store(&bytes[kEntrySizeAt], static_cast<std::uint32_t>(bytes.size()));
  Store(&bytes[kEntryFlagsAt], flags);
  Store(&bytes[kEntryNumberAt], number);
  Store(&bytes[kEntryDataSizeAt], dataSize);
  Store(&bytes[kEntryPagesAt], static_cast<std::uint32_t>(pages.size()));
  std::size_t reference = kHeader;
  std::size_t data = kHeader + pages.size() * kReferenceSize;
  for (const LoggedPage& page : pages) {
    Store(&bytes[reference], page.offset);
    Store(&bytes[reference + sizeof(page.offset)], static_cast<std::uint32_t>(page.bytes.size()));
    std::ranges::copy(page.bytes, bytes.begin() + static_cast<std::ptrdiff_t>(data));
    reference += kReferenceSize;
    data += page.bytes.size();
  }
  Store(&bytes[kEntryBodySumAt], Marvin32(std::span(bytes).subspan(kHeader)));
  Store(&bytes[kEntryHeaderSumAt], Marvin32(std::span(bytes).first(kEntryHeaderSumAt)));
  return bytes;
}

std::optional<std::vector<LoggedPage>> ReadOldLog(std::span<const std::byte> log,
                                                  std::uint32_t dataSize) {
  const std::size_t map = BaseBlock::kSize + 4;
  const std::size_t sectors = dataSize / kSector;
  std::size_t at = RoundUp(map + (sectors + 7) / 8, kSector);
  if (!IsDataSize(dataSize) || log.size() < at ||
      !HiveView(log.subspan(BaseBlock::kSize)).Is("DIRT")) {
    return std::nullopt;
  }
  std::vector<LoggedPage> pages;
  for (std::size_t sector = 0; sector < sectors; ++sector) {
    if ((std::to_integer<unsigned>(log[map + sector / 8]) >> sector % 8 & 1) == 0) {
      continue;
    }
    if (log.size() - at < kSector) {
      return std::nullopt;
    }
    pages.push_back({static_cast<std::uint32_t>(sector * kSector), log.subspan(at, kSector)});
    at += kSector;
  }
  return pages;
}

std::vector<std::byte> WriteOldLog(const BaseBlock& base, std::span<const LoggedPage> pages) {
  const std::size_t map = BaseBlock::kSize + 4;
  std::vector<std::byte> log(RoundUp(map + base.DataSize() / kSector / 8, kSector));
  std::ranges::copy(base.Bytes(), log.begin());
  std::memcpy(log.data() + BaseBlock::kSize, "DIRT", 4);
  for (const LoggedPage& page : pages) {
    const std::size_t first = page.offset / kSector;
    for (std::size_t sector = first; sector < first + page.bytes.size() / kSector; ++sector) {
      log[map + sector / 8] |= std::byte{1} << sector % 8;
    }
    log.insert(log.end(), page.bytes.begin(), page.bytes.end());
  }
  return log;
}

std::uint64_t Marvin32(std::span<const std::byte> bytes, std::uint64_t seed) {
  auto low = static_cast<std::uint32_t>(seed);
  auto high = static_cast<std::uint32_t>(seed >> 32);
  const auto mix = [&low, &high](std::uint32_t word) {
    low += word;
    high ^= low;
    low = std::rotl(low, 20) + high;
    high = std::rotl(high, 9) ^ low;
    low = std::rotl(low, 27) + high;
    high = std::rotl(high, 19);
  };
  while (bytes.size() >= sizeof(std::uint32_t)) {
    mix(Fetch<std::uint32_t>(bytes.data()));
    bytes = bytes.subspan(sizeof(std::uint32_t));
  }
  std::uint32_t last = 0x80;
  for (std::size_t i = bytes.size(); i > 0; --i) {
    last = last << 8 | std::to_integer<std::uint32_t>(bytes[i - 1]);
  }
  mix(last);
  mix(0);
  return std::uint64_t{high} << 32 | low;
}

}  // namespace platform
