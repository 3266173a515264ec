#include "tools/tlx/trust_list.h"

#include <openssl/rand.h>

#include <array>
#include <ctime>
#include <memory>

#include "platform/openssl.h"
#include "support/containers.h"
#include "support/format.h"
#include "tools/tlx/der_writer.h"

namespace tlx {
namespace {

using der::Algorithm;
using der::Attribute;
using der::BmpText;
using der::Element;
using der::Integer;
using der::ObjectId;
using der::Sequence;
using der::SetOf;
using der::Tag;
using der::View;
using platform::Encoded;
using platform::OpenSsl;

// --- The list

// The placeholder of SpcLink in Microsoft's published description of Authenticode.
std::string ObsoleteLink() {
  return Element(Tag::Context2, BmpText(Tag::Primitive0, u"<<<Obsolete>>>"));
}

std::string IndirectData(const ListedFile& file) {
  const std::string what =
      file.isImage ? Sequence({ObjectId("1.3.6.1.4.1.311.2.1.15"),
                               // No flag is set.
                               Sequence({Element(Tag::BitString, std::string_view("\0", 1)),
                                         Element(Tag::Context0, ObsoleteLink())})})
                   : Sequence({ObjectId("1.3.6.1.4.1.311.2.1.25"), ObsoleteLink()});
  const std::string digest =
      Sequence({Algorithm(der::kSha256), Element(Tag::OctetString, View(file.digest))});
  return Attribute("1.3.6.1.4.1.311.2.1.4", Sequence({what, digest}));
}

// CAT_MEMBERINFO: the kind of file, by the identifier of its subject interface package.
std::string MemberInfo(const ListedFile& file) {
  constexpr std::uint32_t kVersion = 0x200;
  constexpr cvn::StringView kImage = u"{C689AAB8-8E78-11D0-8C47-00C04FC295EE}";
  constexpr cvn::StringView kFlat = u"{DE351A42-8E59-11D0-8C47-00C04FC295EE}";
  return Attribute(
      "1.3.6.1.4.1.311.12.2.2",
      Sequence({BmpText(Tag::BmpString, file.isImage ? kImage : kFlat), Integer(kVersion)}));
}

// CAT_NAMEVALUE. Readers take the value's size for its length, so no closing zero is written.
std::string FileName(const ListedFile& file) {
  constexpr std::uint32_t kSignedText = 0x10010001;  // authenticated; name and value are text
  return Attribute("1.3.6.1.4.1.311.12.2.1",
                   Sequence({BmpText(Tag::BmpString, u"File"), Integer(kSignedText),
                             Element(Tag::OctetString, der::WideBytes(file.name))}));
}

// Gives the digest's digits. Tags must differ, so a content that was there before gets a number
// too.
class TagMaker {
 public:
  cvn::String Make(std::span<const std::byte> digest) {
    cvn::String tag;
    for (const std::byte byte : digest) {
      tag.Append(cvn::Format(u"%02X", std::to_integer<int>(byte)));
    }
    const int count = ++counts_[tag];
    if (count > 1) {
      tag.Append(cvn::Format(u".%d", count));
    }
    return tag;
  }

 private:
  cvn::Map<cvn::String, int> counts_;
};

std::string Subject(const ListedFile& file, const cvn::String& tag) {
  const std::string identifier = der::WideBytes(tag) + std::string(2, '\0');
  return Sequence({Element(Tag::OctetString, identifier),
                   SetOf(Tag::Set, {IndirectData(file), MemberInfo(file), FileName(file)})});
}

// Now, as UTCTime up to 2049 and GeneralizedTime from then on.
std::string Now() {
  const OpenSsl<ASN1_TIME> time(ASN1_TIME_set(nullptr, std::time(nullptr)));
  return time == nullptr ? std::string() : std::string(View(Encoded<i2d_ASN1_TIME>(time.get())));
}

struct FreeElements {
  void operator()(ASN1_SEQUENCE_ANY* it) const { sk_ASN1_TYPE_pop_free(it, ASN1_TYPE_free); }
};

// The elements in a SEQUENCE, which is the whole of `bytes`. Nothing when it is malformed.
std::optional<std::vector<std::string>> ElementsIn(std::string_view bytes) {
  const auto* at = reinterpret_cast<const unsigned char*>(bytes.data());
  const auto* end = at + bytes.size();
  const std::unique_ptr<ASN1_SEQUENCE_ANY, FreeElements> parsed(
      d2i_ASN1_SEQUENCE_ANY(nullptr, &at, static_cast<long>(bytes.size())));
  if (parsed == nullptr || at != end) {
    return std::nullopt;
  }
  std::vector<std::string> elements;
  const int count = sk_ASN1_TYPE_num(parsed.get());
  elements.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    elements.emplace_back(View(Encoded<i2d_ASN1_TYPE>(sk_ASN1_TYPE_value(parsed.get(), i))));
  }
  return elements;
}

}  // namespace

std::optional<ListOrigin> MakeOrigin() {
  std::array<unsigned char, 16> identifier{};
  ListOrigin origin;
  origin.time = Now();
  if (origin.time.empty() ||
      RAND_bytes(identifier.data(), static_cast<int>(identifier.size())) != 1) {
    return std::nullopt;
  }
  origin.identifier = Element(Tag::OctetString, View(std::as_bytes(std::span(identifier))));
  return origin;
}

std::vector<std::string> EncodeEntries(std::span<const ListedFile> files) {
  TagMaker tags;
  std::vector<std::string> entries;
  for (const ListedFile& file : files) {
    entries.push_back(Subject(file, tags.Make(file.digest)));
  }
  return entries;
}

std::string BuildTrustList(const TrustList& list) {
  std::string entries;
  for (const std::string& entry : list.entries) {
    entries.append(entry);
  }
  return Sequence({Sequence({ObjectId("1.3.6.1.4.1.311.12.1.1")}), list.origin.identifier,
                   list.origin.time, Algorithm("1.3.6.1.4.1.311.12.1.2"),
                   Element(Tag::Sequence, entries)});
}

std::optional<TrustList> ParseTrustList(std::string_view content) {
  auto parts = ElementsIn(Element(Tag::Sequence, content));
  auto entries = parts && parts->size() == 5 ? ElementsIn(parts->back()) : std::nullopt;
  if (!entries) {
    return std::nullopt;
  }
  return TrustList{{std::move((*parts)[1]), std::move((*parts)[2])}, std::move(*entries)};
}

}  // namespace tlx
