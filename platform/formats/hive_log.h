// What stands in the files of a hive besides its bins: the base block, and the entries of the logs
// from which an interrupted write is completed.
//
// A hive is a primary file and its logs. Windows 8.1 and later append to a log: each entry has the
// pages of one write, a number, and two sums. Earlier ones write the log anew: a map of the pages
// that it has, and the pages. In both a copy of the base block comes first.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace platform {

// The part of a base block that means something: the first sector of a primary file and of a log.
class BaseBlock {
 public:
  static constexpr std::size_t kSize = 512;

  enum class Kind : std::uint32_t { Primary = 0, OldLog = 1, OldLogOfVista = 2, Log = 6 };

  bool operator==(const BaseBlock&) const = default;

  std::span<std::byte> Bytes() { return bytes_; }
  std::span<const std::byte> Bytes() const { return bytes_; }

  // Whether it is a base block at all, and whole.
  bool IsSound() const;
  // A write to the primary file has begun and not ended.
  bool IsDirty() const { return First() != Second(); }
  Kind Type() const;
  bool IsOldLog() const { return Type() == Kind::OldLog || Type() == Kind::OldLogOfVista; }
  std::uint32_t First() const;     // the number of the last write that began
  std::uint32_t Second() const;    // and of the last that ended
  std::uint64_t Time() const;      // of the last write, 100 ns since 1601
  std::uint32_t DataSize() const;  // of all bins, in bytes
  std::uint32_t Flags() const;

  // Changes fields, and the sum to match.
  void SetType(Kind type);
  void SetNumbers(std::uint32_t first, std::uint32_t second);
  void SetTime(std::uint64_t time);
  void SetDataSize(std::uint32_t size);
  void SetFlags(std::uint32_t flags);

 private:
  void Seal();

  std::array<std::byte, kSize> bytes_ = {};
};

// A piece of a hive, which a log has.
struct LoggedPage {
  std::uint32_t offset = 0;  // from the first bin
  std::span<const std::byte> bytes;
};

// An entry of a log, as Windows 8.1 and later write it. Offsets of entries are multiples of 512.
struct LogEntry {
  static constexpr std::size_t kHeader = 40;

  std::uint32_t flags = 0;     // of the base block
  std::uint32_t number = 0;    // what both numbers of the base block become
  std::uint32_t dataSize = 0;  // of the hive's bins, from then on
  std::vector<LoggedPage> pages;

  // The size of the entry that begins with these bytes, as far as its header can be trusted: the
  // sum over it is right. Nothing where there is no entry.
  static std::optional<std::size_t> SizeOf(std::span<const std::byte> header);
  // The number in a header.
  static std::uint32_t NumberOf(std::span<const std::byte> header);
  // Reads an entry, whose size is that of `bytes` and which its pages point into. Nothing when
  // a sum is wrong, or what it says doesn't fit together.
  static std::optional<LogEntry> Read(std::span<const std::byte> bytes);
  std::vector<std::byte> Write() const;
};

// The pages of a log of the old kind, which is the whole of `log`; they point into it. `dataSize`
// is what the log's base block says. Nothing when the log isn't whole.
std::optional<std::vector<LoggedPage>> ReadOldLog(std::span<const std::byte> log,
                                                  std::uint32_t dataSize);

// Such a log: `base`, whose type and numbers are the log's, the map and the pages. The pages are in
// the order of their offsets, and each has a multiple of 512 bytes.
std::vector<std::byte> WriteOldLog(const BaseBlock& base, std::span<const LoggedPage> pages);

// The sum that log entries have, with the seed that Windows uses there; or another.
constexpr std::uint64_t kLogSeed = 0xC5554E7A884DEF82;
std::uint64_t Marvin32(std::span<const std::byte> bytes, std::uint64_t seed = kLogSeed);

}  // namespace platform
