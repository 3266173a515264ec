#include "platform/formats/hive_log.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "platform/formats/hive_format.h"

namespace platform::posix {
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

template <typename Number>
Number Get(std::span<const std::byte> bytes, std::size_t at) {
  Number number;
  std::memcpy(&number, bytes.data() + at, sizeof(number));
  return number;
}

template <typename Number>
void Put(Number number, std::size_t at, std::span<std::byte> bytes) {
  std::memcpy(bytes.data() + at, &number, sizeof(number));
}

std::size_t ToSectors(std::size_t size) { return (size + kSector - 1) / kSector * kSector; }

bool IsDataSize(std::uint32_t size) { return size % kBinUnit == 0 && size <= kLargestHive; }

bool StartsWith(std::span<const std::byte> bytes, std::size_t at, const char* text) {
  return bytes.size() >= at + 4 && std::memcmp(bytes.data() + at, text, 4) == 0;
}

}  // namespace

bool BaseBlock::IsSound() const {
  return StartsWith(bytes_, 0, "regf") &&
         Get<std::uint32_t>(bytes_, kChecksum) == HiveChecksum(bytes_);
}

BaseBlock::Kind BaseBlock::Type() const { return Kind{Get<std::uint32_t>(bytes_, kTypeAt)}; }
std::uint32_t BaseBlock::First() const { return Get<std::uint32_t>(bytes_, kSequence1); }
std::uint32_t BaseBlock::Second() const { return Get<std::uint32_t>(bytes_, kSequence2); }
std::uint64_t BaseBlock::Time() const { return Get<std::uint64_t>(bytes_, kWritten); }
std::uint32_t BaseBlock::DataSize() const { return Get<std::uint32_t>(bytes_, kDataSize); }
std::uint32_t BaseBlock::Flags() const { return Get<std::uint32_t>(bytes_, kFlagsAt); }

void BaseBlock::SetType(Kind type) {
  Put(static_cast<std::uint32_t>(type), kTypeAt, bytes_);
  Seal();
}

void BaseBlock::SetNumbers(std::uint32_t first, std::uint32_t second) {
  Put(first, kSequence1, bytes_);
  Put(second, kSequence2, bytes_);
  Seal();
}

void BaseBlock::SetTime(std::uint64_t time) {
  Put(time, kWritten, bytes_);
  Seal();
}

void BaseBlock::SetDataSize(std::uint32_t size) {
  Put(size, kDataSize, bytes_);
  Seal();
}

void BaseBlock::SetFlags(std::uint32_t flags) {
  Put(flags, kFlagsAt, bytes_);
  Seal();
}

void BaseBlock::Seal() { Put(HiveChecksum(bytes_), kChecksum, bytes_); }

std::optional<std::size_t> LogEntry::SizeOf(std::span<const std::byte> header) {
  if (header.size() < kHeader || !StartsWith(header, 0, "HvLE") ||
      Get<std::uint64_t>(header, kEntryHeaderSumAt) != Marvin32(header.first(kEntryHeaderSumAt))) {
    return std::nullopt;
  }
  const std::size_t size = Get<std::uint32_t>(header, kEntrySizeAt);
  return size >= kSector && size % kSector == 0 ? std::optional(size) : std::nullopt;
}

std::uint32_t LogEntry::NumberOf(std::span<const std::byte> header) {
  return Get<std::uint32_t>(header, kEntryNumberAt);
}

std::optional<LogEntry> LogEntry::Read(std::span<const std::byte> bytes) {
  if (SizeOf(bytes) != bytes.size() ||
      Get<std::uint64_t>(bytes, kEntryBodySumAt) != Marvin32(bytes.subspan(kHeader))) {
    return std::nullopt;
  }
  LogEntry entry{.flags = Get<std::uint32_t>(bytes, kEntryFlagsAt),
                 .number = NumberOf(bytes),
                 .dataSize = Get<std::uint32_t>(bytes, kEntryDataSizeAt),
                 .pages = {}};
  const std::size_t count = Get<std::uint32_t>(bytes, kEntryPagesAt);
  if (!IsDataSize(entry.dataSize) || count > (bytes.size() - kHeader) / kReferenceSize) {
    return std::nullopt;
  }
  std::size_t data = kHeader + count * kReferenceSize;
  entry.pages.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t reference = kHeader + i * kReferenceSize;
    const auto offset = Get<std::uint32_t>(bytes, reference);
    const auto size = Get<std::uint32_t>(bytes, reference + sizeof(offset));
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
  std::vector<std::byte> bytes(ToSectors(size));
  std::memcpy(bytes.data(), "HvLE", 4);
  Put(static_cast<std::uint32_t>(bytes.size()), kEntrySizeAt, bytes);
  Put(flags, kEntryFlagsAt, bytes);
  Put(number, kEntryNumberAt, bytes);
  Put(dataSize, kEntryDataSizeAt, bytes);
  Put(static_cast<std::uint32_t>(pages.size()), kEntryPagesAt, bytes);
  std::size_t reference = kHeader;
  std::size_t data = kHeader + pages.size() * kReferenceSize;
  for (const LoggedPage& page : pages) {
    Put(page.offset, reference, bytes);
    Put(static_cast<std::uint32_t>(page.bytes.size()), reference + sizeof(page.offset), bytes);
    std::ranges::copy(page.bytes, bytes.begin() + static_cast<std::ptrdiff_t>(data));
    reference += kReferenceSize;
    data += page.bytes.size();
  }
  Put(Marvin32(std::span(bytes).subspan(kHeader)), kEntryBodySumAt, bytes);
  Put(Marvin32(std::span(bytes).first(kEntryHeaderSumAt)), kEntryHeaderSumAt, bytes);
  return bytes;
}

std::optional<std::vector<LoggedPage>> ReadOldLog(std::span<const std::byte> log,
                                                  std::uint32_t dataSize) {
  const std::size_t map = BaseBlock::kSize + 4;
  const std::size_t sectors = dataSize / kSector;
  std::size_t at = ToSectors(map + (sectors + 7) / 8);
  if (!IsDataSize(dataSize) || !StartsWith(log, BaseBlock::kSize, "DIRT") || log.size() < at) {
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
  std::vector<std::byte> log(ToSectors(map + base.DataSize() / kSector / 8));
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
    mix(Get<std::uint32_t>(bytes, 0));
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

}  // namespace platform::posix
