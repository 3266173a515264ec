// Reading of DER (X.690), the encoding that signatures, certificates' names and catalogs have.
//
// Nothing is copied, and nothing is taken that DER does not allow: lengths are definite and as
// short as can be, and no element reaches beyond the one around it. Tag numbers above 30 do not
// occur in what is read here, and are refused.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace platform {

using Der = std::span<const std::byte>;

enum class DerTag : std::uint8_t {
  Integer = 0x02,
  BitString = 0x03,
  OctetString = 0x04,
  ObjectId = 0x06,
  BmpString = 0x1E,
  UtcTime = 0x17,
  GeneralizedTime = 0x18,
  Sequence = 0x30,
  Set = 0x31,
  Context0Primitive = 0x80,
  Context0 = 0xA0,
  Context1 = 0xA1,
};

struct DerElement {
  DerTag tag{};
  Der value;
  Der whole;  // tag and length included
};

// Takes element after element. The first one that is not as it has to be is the end: from there on
// everything is empty, and IsGood is false.
class DerReader {
 public:
  explicit DerReader(Der bytes) : rest_(bytes) {}

  bool IsGood() const { return good_; }
  bool AtEnd() const { return rest_.empty(); }
  // Whether everything was there, and nothing else.
  bool IsDone() const { return good_ && rest_.empty(); }

  DerElement Take();
  // An element with that tag, and no other.
  DerElement Take(DerTag tag);
  // The next element if it has that tag.
  std::optional<DerElement> TakeIf(DerTag tag);

 private:
  void Fail();

  Der rest_;
  bool good_ = true;
};

// The size, header included, of the SEQUENCE whose first bytes these are, six at least.
std::optional<std::uint64_t> SequenceSize(Der beginning);

// Whether `bytes` begins with an element all of whose parts, at every depth, have the lengths that
// DER allows. More than 64 levels are refused.
bool IsDer(Der bytes);

// Whether the elements stand in the order that DER has for a SET OF: that of their encodings
// (X.690, 11.6).
bool IsSorted(Der elements);

bool AreEqual(Der left, Der right);

// The content of an object identifier's encoding.
class ObjectId {
 public:
  template <typename... Arcs>
  constexpr explicit ObjectId(std::uint32_t first, std::uint32_t second, Arcs... arcs) {
    Append(first * 40 + second);
    (Append(static_cast<std::uint32_t>(arcs)), ...);
  }
  bool operator==(Der content) const { return AreEqual(Der(bytes_).first(size_), content); }

 private:
  constexpr void Append(std::uint32_t arc) {
    int shift = 28;
    while (shift > 0 && arc >> shift == 0) {
      shift -= 7;
    }
    for (; shift >= 0; shift -= 7) {
      bytes_[size_++] = static_cast<std::byte>((arc >> shift & 0x7F) | (shift > 0 ? 0x80 : 0));
    }
  }

  std::array<std::byte, 16> bytes_{};
  std::size_t size_ = 0;
};

}  // namespace platform
