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
  Range certificates;  // the certificate table, which follows the headers and lies outside sections
  std::uint32_t resources = 0;  // the address of the resource directory; 0 when there is none
  std::vector<PeSection> sections;

  // Where the bytes from `address` on stand in the file, up to the end of the section's data; empty
  // when no section holds it.
  Range DataAt(std::uint32_t address) const;
};

// Nothing when the file is no PE image, or its certificate table lies outside the file, in the
// headers or in a section.
std::optional<PeImage> ReadPeImage(const ByteSource& source);

// Whether the file has the magic numbers of an image, and yet is none.
bool IsBrokenPeImage(const ByteSource& source);

// What the Authenticode digest of an image covers: all of the file but the checksum, the security
// directory's entry and the certificate table. For an image as linkers make it, that is what
// Microsoft's description reaches section by section. Here the stretches between sections count as
// well, so that no byte escapes.
std::vector<Range> DigestedRanges(const PeImage& image, std::uint64_t fileSize);

}  // namespace platform
