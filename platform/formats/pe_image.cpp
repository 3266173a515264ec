#include "platform/formats/pe_image.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/formats/certificate_table.h"
#include "platform/formats/little_endian.h"

namespace platform {
namespace {

constexpr std::size_t kDosHeader = 64;
constexpr std::size_t kHeaderOffset = 60;  // in the DOS header
constexpr std::uint16_t kDosMagic = 0x5A4D;
constexpr std::uint32_t kPeMagic = 0x4550;

// Offsets from the PE header's magic number.
constexpr std::size_t kSectionCount = 6;
constexpr std::size_t kOptionalSize = 20;
constexpr std::size_t kOptional = 24;

// Offsets in the optional header, whose later half has larger fields in a 64-bit image.
constexpr std::size_t kChecksum = 64;
constexpr std::uint16_t kMagic32 = 0x10B;
constexpr std::uint16_t kMagic64 = 0x20B;
constexpr std::size_t kDirectoryCount32 = 92;
constexpr std::size_t kDirectoryCount64 = 108;

constexpr std::size_t kDirectoryEntry = 8;
constexpr std::uint32_t kResourceDirectory = 2;
constexpr std::uint32_t kSecurityDirectory = 4;
constexpr std::size_t kHeaders = kOptional + kDirectoryCount64 + 4 + 5 * kDirectoryEntry;

constexpr std::size_t kSectionEntry = 40;
constexpr std::size_t kSectionVirtualSize = 8;
constexpr std::size_t kSectionAddress = 12;
constexpr std::size_t kSectionSize = 16;
constexpr std::size_t kSectionData = 20;

// As many of the headers as the file has, up to the last directory that matters here. Empty when
// there are none.
std::vector<std::byte> ReadHeaders(const ByteSource& source, std::uint64_t* offset) {
  std::array<std::byte, kDosHeader> dos{};
  if (!source.Read(0, dos) || NumberAt<std::uint16_t>(dos, 0) != kDosMagic) {
    return {};
  }
  *offset = NumberAt<std::uint32_t>(dos, kHeaderOffset);
  if (*offset >= source.Size()) {
    return {};
  }
  std::vector<std::byte> headers(std::min<std::uint64_t>(kHeaders, source.Size() - *offset));
  return source.Read(*offset, headers) ? headers : std::vector<std::byte>();
}

bool HasMagicNumber(std::span<const std::byte> headers) {
  return NumberAt<std::uint32_t>(headers, 0) == kPeMagic;
}

bool ReadSections(const ByteSource& source, Range table, std::vector<PeSection>* sections) {
  std::vector<std::byte> entries(source.Holds(table) ? table.size : 0);
  if (entries.size() != table.size || !source.Read(table.offset, entries)) {
    return false;
  }
  for (std::size_t at = 0; at < entries.size(); at += kSectionEntry) {
    PeSection section{NumberAt<std::uint32_t>(entries, at + kSectionAddress),
                      NumberAt<std::uint32_t>(entries, at + kSectionVirtualSize),
                      {NumberAt<std::uint32_t>(entries, at + kSectionData),
                       NumberAt<std::uint32_t>(entries, at + kSectionSize)}};
    if (section.data.offset == 0 || section.data.size == 0) {
      section.data = {};  // it has none, whatever the other says
    }
    sections->push_back(section);
  }
  return true;
}

// Whether headers, the data of the sections and the certificate table lie in the file one behind
// the other, with the table at its end.
bool HoldsTogether(const ByteSource& source, const PeImage& image, Range headers) {
  std::vector<Range> parts = {headers};
  for (const PeSection& section : image.sections) {
    if (section.data.size != 0) {
      parts.push_back(section.data);
    }
  }
  std::ranges::sort(parts, {}, &Range::offset);
  if (image.certificates.size != 0) {
    parts.push_back(image.certificates);
  }
  std::uint64_t end = 0;
  for (const Range& part : parts) {
    if (part.offset < end || !source.Holds(part)) {
      return false;
    }
    end = part.End();
  }
  return image.certificates.size == 0 || EndsFile(source, image.certificates);
}

}  // namespace

Range PeImage::DataAt(std::uint32_t address) const {
  for (const PeSection& section : sections) {
    if (address >= section.address && address - section.address < section.data.size) {
      const std::uint64_t skipped = address - section.address;
      return {section.data.offset + skipped, section.data.size - skipped};
    }
  }
  return {};
}

std::optional<PeImage> ReadPeImage(const ByteSource& source) {
  std::uint64_t offset = 0;
  const std::vector<std::byte> headers = ReadHeaders(source, &offset);
  const auto magic = NumberAt<std::uint16_t>(headers, kOptional);
  if (!HasMagicNumber(headers) || headers.size() < kOptional + kChecksum + 4 ||
      (magic != kMagic32 && magic != kMagic64)) {
    return std::nullopt;
  }
  PeImage image;
  image.checksum = {offset + kOptional + kChecksum, 4};
  const std::size_t count = kOptional + (magic == kMagic32 ? kDirectoryCount32 : kDirectoryCount64);
  const auto directories = NumberAt<std::uint32_t>(headers, count);
  const auto entryOf = [count](std::uint32_t directory) {
    return count + 4 + directory * kDirectoryEntry;
  };
  if (directories > kResourceDirectory) {
    image.resources = NumberAt<std::uint32_t>(headers, entryOf(kResourceDirectory));
  }
  if (directories > kSecurityDirectory) {
    const std::size_t entry = entryOf(kSecurityDirectory);
    if (headers.size() < entry + kDirectoryEntry) {
      return std::nullopt;
    }
    image.securityEntry = {offset + entry, kDirectoryEntry};
    image.certificates = {NumberAt<std::uint32_t>(headers, entry),
                          NumberAt<std::uint32_t>(headers, entry + 4)};
    if ((image.certificates.offset == 0) != (image.certificates.size == 0)) {
      return std::nullopt;
    }
  }
  const Range table{offset + kOptional + NumberAt<std::uint16_t>(headers, kOptionalSize),
                    kSectionEntry * NumberAt<std::uint16_t>(headers, kSectionCount)};
  // What a digest leaves out can't be a section's entry as well.
  if (table.offset < std::max(image.checksum.End(), image.securityEntry.End()) ||
      !ReadSections(source, table, &image.sections) ||
      !HoldsTogether(source, image, {0, table.End()})) {
    return std::nullopt;
  }
  auto signedData = ReadCertificateTable(source, image.certificates);
  if (!signedData) {
    return std::nullopt;
  }
  image.signedData = std::move(*signedData);
  return image;
}

bool IsBrokenPeImage(const ByteSource& source) {
  std::uint64_t offset = 0;
  return HasMagicNumber(ReadHeaders(source, &offset)) && !ReadPeImage(source);
}

std::vector<Range> DigestedRanges(const PeImage& image, std::uint64_t fileSize) {
  const std::uint64_t end = image.certificates.size != 0 ? image.certificates.offset : fileSize;
  std::vector<Range> ranges;
  std::uint64_t from = 0;
  // In this order they stand in the file.
  for (const Range& left : {image.checksum, image.securityEntry}) {
    if (left.size != 0) {
      ranges.push_back({from, left.offset - from});
      from = left.End();
    }
  }
  ranges.push_back({from, end - from});
  return ranges;
}

}  // namespace platform
