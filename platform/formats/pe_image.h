// PE images: programs, libraries and drivers.
//
// What the headers claim is checked against the file before it is used.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/byte_source.h"

namespace platform {

struct PeSection {
  std::uint32_t address;      // in memory, relative to the image's start
  std::uint32_t virtualSize;  // in memory
  Range data;                 // in the file, and all of it there
};

struct PeImage {
  Range checksum;       // the header's field
  Range securityEntry;  // the security directory's entry; empty when there are fewer directories
  Range certificates;   // the certificate table, at the file's end; empty when there is none
  std::vector<Range> signedData;  // of each entry of the certificate table
  std::uint32_t resources = 0;    // the address of the resource directory; 0 when there is none
  std::vector<PeSection> sections;

  // Where the bytes from `address` on stand in the file, up to the end of the section's data; empty
  // when no section holds it.
  Range DataAt(std::uint32_t address) const;
};

// Nothing when the file is no PE image, or does not hold together: headers, sections and
// certificate table must lie in the file and apart, and the table must end the file, but for zeros
// up to a multiple of eight, and have nothing but signatures in it (certificate_table.h). So two
// images with one digest differ in checksum and signatures only.
std::optional<PeImage> ReadPeImage(const ByteSource& source);

// Whether the file has the magic numbers of an image, and yet is none.
bool IsBrokenPeImage(const ByteSource& source);

// What the Authenticode digest of an image covers: all of the file but the checksum, the security
// directory's entry and the certificate table. Microsoft's "Windows Authenticode Portable
// Executable Signature Format" reaches the same section by section, with what lies between the last
// one and the table as the rest. Here stretches between sections count as well, which linkers do
// not leave.
std::vector<Range> DigestedRanges(const PeImage& image, std::uint64_t fileSize);

}  // namespace platform
