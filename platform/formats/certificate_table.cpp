#include "platform/formats/certificate_table.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/formats/der.h"
#include "platform/formats/little_endian.h"

namespace platform {
namespace {

constexpr std::uint64_t kAlignment = 8;
constexpr std::uint64_t kHeader = 8;           // the entry's size, a revision, a type
constexpr std::uint16_t kSignedDataType = 2;   // WIN_CERT_TYPE_PKCS_SIGNED_DATA
constexpr std::uint64_t kLeastSignedData = 8;  // all that is any has far more

// The signed data of the entry that `rest` begins with, and the entry's size.
std::optional<Range> ReadEntry(const ByteSource& source, Range rest, std::uint64_t* size) {
  std::array<std::byte, kHeader + kLeastSignedData> beginning{};
  if (rest.size < beginning.size() || !source.Read(rest.offset, beginning)) {
    return std::nullopt;
  }
  *size = NumberAt<std::uint32_t>(beginning, 0);
  const std::optional<std::uint64_t> signedData =
      SequenceSize(std::span(beginning).subspan<kHeader>());
  if (NumberAt<std::uint16_t>(beginning, 6) != kSignedDataType || *size > rest.size ||
      *size < kHeader || !signedData || *signedData > *size - kHeader) {
    return std::nullopt;
  }
  return Range{rest.offset + kHeader, *signedData};
}

// Too few for another eight.
bool AreFewZeros(const ByteSource& source, Range range) {
  std::array<std::byte, kAlignment - 1> bytes{};
  return range.size <= bytes.size() &&
         source.Read(range.offset, std::span(bytes).first(range.size)) &&
         std::ranges::all_of(bytes, [](std::byte byte) { return byte == std::byte{0}; });
}

}  // namespace

std::optional<std::vector<Range>> ReadCertificateTable(const ByteSource& source, Range table) {
  std::vector<Range> found;
  while (table.size > 0) {
    std::uint64_t size = 0;
    const std::optional<Range> signedData = ReadEntry(source, table, &size);
    if (!signedData) {
      return std::nullopt;
    }
    const std::uint64_t end =
        std::min(table.size, (size + kAlignment - 1) / kAlignment * kAlignment);
    const Range inside{signedData->End(), table.offset + size - signedData->End()};
    const Range behind{table.offset + size, end - size};
    if (!AreFewZeros(source, inside) || !AreFewZeros(source, behind)) {
      return std::nullopt;
    }
    found.push_back(*signedData);
    table = {table.offset + end, table.size - end};
  }
  return found;
}

bool EndsFile(const ByteSource& source, Range table) {
  const std::uint64_t aligned = (table.End() + kAlignment - 1) / kAlignment * kAlignment;
  return source.Size() == table.End() ||
         (source.Size() == aligned && AreFewZeros(source, {table.End(), aligned - table.End()}));
}

}  // namespace platform
