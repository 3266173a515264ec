// Where things stand in a hive file: the format regf, in the terms of its public description (base
// block, hive bin, cell, key node, key value, key security, index leaf, fast leaf, hash leaf, index
// root, big data). All numbers are little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

namespace platform {

constexpr std::size_t kBaseSize = 4096;  // the base block, before the first bin
constexpr std::size_t kBinUnit = 4096;
constexpr std::size_t kBinHeader = 32;
constexpr std::size_t kCellHeader = 4;  // the size of the cell, negative while it is in use
constexpr std::size_t kCellUnit = 8;
constexpr std::size_t kLargestHive = 0x7FFFF000;  // 2 GiB, less than what a cell's offset can say

// Offsets in the base block, "regf".
constexpr std::size_t kSequence1 = 4;  // the primary sequence number: a write has begun
constexpr std::size_t kSequence2 = 8;  // the secondary one: it has ended
constexpr std::size_t kWritten = 12;
constexpr std::size_t kMajorVersion = 20;
constexpr std::size_t kMinorVersion = 24;
constexpr std::size_t kFormat = 32;  // 1: loaded from the disk straight into memory
constexpr std::size_t kRootCell = 36;
constexpr std::size_t kDataSize = 40;  // of all bins
constexpr std::size_t kClustering = 44;
constexpr std::size_t kFileName = 48;
constexpr std::size_t kFileNameUnits = 31;
constexpr std::size_t kChecksum = 508;  // of the 508 bytes before it

// Offsets in a bin's header, "hbin".
constexpr std::size_t kBinOffset = 4;
constexpr std::size_t kBinSize = 8;
constexpr std::size_t kBinWritten = 20;

// Offsets in a key node, "nk".
constexpr std::size_t kKeyFlags = 2;
constexpr std::size_t kKeyWritten = 4;
constexpr std::size_t kKeyParent = 16;
constexpr std::size_t kKeySubKeys = 20;
constexpr std::size_t kKeySubKeyList = 28;
constexpr std::size_t kKeyVolatileList = 32;
constexpr std::size_t kKeyValues = 36;
constexpr std::size_t kKeyValueList = 40;
constexpr std::size_t kKeySecurity = 44;
constexpr std::size_t kKeyClass = 48;
constexpr std::size_t kKeyLongestName = 52;
constexpr std::size_t kKeyLongestClass = 56;
constexpr std::size_t kKeyLongestValueName = 60;
constexpr std::size_t kKeyLongestData = 64;
constexpr std::size_t kKeyNameSize = 72;
constexpr std::size_t kKeyClassSize = 74;
constexpr std::size_t kKeyName = 76;

constexpr std::uint16_t kFlagRoot = 0x0004;
constexpr std::uint16_t kFlagNoDelete = 0x0008;
constexpr std::uint16_t kFlagLink = 0x0010;
constexpr std::uint16_t kFlagNarrowName = 0x0020;

// Offsets in a key value, "vk".
constexpr std::size_t kValueNameSize = 2;
constexpr std::size_t kValueDataSize = 4;
constexpr std::size_t kValueData = 8;
constexpr std::size_t kValueType = 12;
constexpr std::size_t kValueFlags = 16;
constexpr std::size_t kValueName = 20;

constexpr std::uint16_t kValueNarrowName = 0x0001;
constexpr std::uint32_t kDataInRecord = 0x80000000;  // up to four bytes, in place of their offset

// Offsets in a key security, "sk". All of a hive stand in one ring.
constexpr std::size_t kSecurityNext = 4;
constexpr std::size_t kSecurityPrevious = 8;
constexpr std::size_t kSecurityUsers = 12;
constexpr std::size_t kSecuritySize = 16;
constexpr std::size_t kSecurityDescriptor = 20;

// Lists of subkeys: "li", "lf" and "lh" name keys, "ri" names such lists. Version 1.5 brought the
// hashes of "lh".
constexpr std::size_t kListCount = 2;
constexpr std::size_t kListEntries = 4;
constexpr std::size_t kIndexStep = 4;  // of "li" and "ri": a cell
constexpr std::size_t kLeafStep = 8;   // of "lf" and "lh": a cell, and what is known of the name
// As many bytes of entries as fit into one bin of the least size.
constexpr std::size_t kLargestLeafSize = kBinUnit - kBinHeader - kCellHeader - kListEntries;
constexpr std::size_t kLargestLeaf = kLargestLeafSize / kLeafStep;
constexpr std::size_t kLargestList = 0xFFFF;

// From version 1.4 on, data above this much stands in segments of as much, which a "db" record
// lists.
constexpr std::size_t kSegment = 16344;
// A full segment's cell has four bytes more, and other readers take the last four of each one for
// padding.
constexpr std::size_t kSegmentPadding = 4;
constexpr std::size_t kSegmentCount = 2;
constexpr std::size_t kSegmentList = 4;
constexpr std::size_t kSegmentsRecord = 8;

inline std::size_t RoundUp(std::size_t size, std::size_t unit) {
  return (size + unit - 1) / unit * unit;
}

template <typename Number>
Number Fetch(const std::byte* from) {
  Number number;
  std::memcpy(&number, from, sizeof(number));
  return number;
}

template <typename Number>
void Store(std::byte* to, Number number) {
  std::memcpy(to, &number, sizeof(number));
}

// The sum of a base block, of which `base` has at least the first 512 bytes.
inline std::uint32_t HiveChecksum(std::span<const std::byte> base) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < kChecksum; i += sizeof(sum)) {
    sum ^= Fetch<std::uint32_t>(&base[i]);
  }
  // 0 and -1 are never stored.
  return sum == 0 ? 1 : (sum == 0xFFFFFFFF ? 0xFFFFFFFE : sum);
}

// A cell's content, for reading. One without content stands for a cell that isn't there or isn't
// what was expected.
class HiveView {
 public:
  HiveView() = default;
  explicit HiveView(std::span<const std::byte> bytes) : bytes_(bytes) {}

  explicit operator bool() const { return !bytes_.empty(); }
  std::size_t Size() const { return bytes_.size(); }
  bool Is(std::string_view id) const {
    return bytes_.size() >= id.size() && std::memcmp(bytes_.data(), id.data(), id.size()) == 0;
  }
  std::uint16_t Short(std::size_t at) const { return Fetch<std::uint16_t>(&bytes_[at]); }
  std::uint32_t Long(std::size_t at) const { return Fetch<std::uint32_t>(&bytes_[at]); }
  std::uint64_t Quad(std::size_t at) const { return Fetch<std::uint64_t>(&bytes_[at]); }
  std::span<const std::byte> Part(std::size_t at, std::size_t size) const {
    return bytes_.subspan(at, size);
  }

 private:
  std::span<const std::byte> bytes_;
};

inline std::size_t LeafStep(HiveView leaf) { return leaf.Is("li") ? kIndexStep : kLeafStep; }

// The cell that an entry of a list of subkeys names.
inline std::uint32_t EntryOf(HiveView leaf, std::uint32_t entry) {
  return leaf.Long(kListEntries + entry * LeafStep(leaf));
}

inline std::uint32_t EntryOfIndex(HiveView index, std::uint32_t leafNumber) {
  return index.Long(kListEntries + leafNumber * kIndexStep);
}

}  // namespace platform
