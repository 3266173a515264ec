#include "platform/offline/authenticode/catalog_file.h"

#include <array>
#include <utility>

#include "platform/formats/little_endian.h"
#include "support/format.h"

namespace platform::posix {
namespace {

constexpr ObjectId kTrustList(1, 3, 6, 1, 4, 1, 311, 10, 1);       // szOID_CTL
constexpr ObjectId kCatalogList(1, 3, 6, 1, 4, 1, 311, 12, 1, 1);  // szOID_CATALOG_LIST
constexpr ObjectId kSecondForm(1, 3, 6, 1, 4, 1, 311, 12, 1, 3);   // szOID_CATALOG_LIST_MEMBER2
constexpr ObjectId kNameValue(1, 3, 6, 1, 4, 1, 311, 12, 2, 1);    // CAT_NAMEVALUE_OBJID
constexpr Code kInvalidData = 13;                                  // ERROR_INVALID_DATA

struct TrustList {
  bool isCatalog = false;
  bool tagsAreBytes = false;
  DerReader subjects{Der()};
};

TrustList ReadTrustList(const SignedData& data) {
  TrustList list;
  if (!(kTrustList == data.contentType) || data.content.tag != DerTag::Sequence) {
    return list;
  }
  DerReader reader(data.content.value);
  reader.TakeIf(DerTag::Integer);  // a version other than the first
  DerReader usages(reader.Take(DerTag::Sequence).value);
  list.isCatalog = kCatalogList == usages.Take(DerTag::ObjectId).value;
  reader.TakeIf(DerTag::OctetString);  // the list's identifier
  reader.TakeIf(DerTag::Integer);      // its number
  // When it was made, and when the next one is due.
  while (reader.TakeIf(DerTag::UtcTime) || reader.TakeIf(DerTag::GeneralizedTime)) {
  }
  DerReader algorithm(reader.Take(DerTag::Sequence).value);
  list.tagsAreBytes = kSecondForm == algorithm.Take(DerTag::ObjectId).value;
  if (const auto subjects = reader.TakeIf(DerTag::Sequence)) {
    list.subjects = DerReader(subjects->value);
  }
  reader.TakeIf(DerTag::Context0);  // extensions
  list.isCatalog = list.isCatalog && reader.IsDone() && algorithm.IsGood();
  return list;
}

cvn::String WideText(Der bytes) {
  cvn::String text;
  for (std::size_t at = 0; at + 1 < bytes.size(); at += sizeof(char16_t)) {
    text.Append(NumberAt<char16_t>(bytes, at));
  }
  return text;
}

bool IsNamedFile(Der name) {
  constexpr std::string_view kFile("\0F\0i\0l\0e", 8);  // a BMPString
  return AreEqual(name, std::as_bytes(std::span(kFile)));
}

bool ReadDigest(Der values, CatalogEntry* entry) {
  DerReader reader(values);
  const auto data = ParseIndirectData(reader.Take(DerTag::Sequence).value);
  if (data) {
    entry->digest = data->digest;
  }
  return data && reader.IsDone();
}

bool ReadNameValues(Der values, CatalogEntry* entry) {
  DerReader all(values);
  while (!all.AtEnd()) {
    DerReader reader(all.Take(DerTag::Sequence).value);
    const Der name = reader.Take(DerTag::BmpString).value;
    reader.Take(DerTag::Integer);
    const Der value = reader.Take(DerTag::OctetString).value;
    if (!reader.IsGood()) {
      return false;
    }
    if (!entry->fileName && IsNamedFile(name)) {
      entry->fileName = value;
    }
  }
  return all.IsGood();
}

bool ReadAttribute(Der attribute, CatalogEntry* entry) {
  DerReader reader(attribute);
  const Der type = reader.Take(DerTag::ObjectId).value;
  const Der values = reader.Take(DerTag::Set).value;
  if (!reader.IsDone()) {
    return false;
  }
  if (kIndirectData == type) {
    return ReadDigest(values, entry);
  }
  return !(kNameValue == type) || ReadNameValues(values, entry);
}

}  // namespace

bool IsCatalog(const SignedData& data) { return ReadTrustList(data).isCatalog; }

bool IsStrictCatalog(const SignedData& data) { return IsSorted(data.certificates); }

CatalogReader::CatalogReader(const SignedData& data) : subjects_(Der()) {
  TrustList list = ReadTrustList(data);
  good_ = list.isCatalog;
  tagsAreBytes_ = list.tagsAreBytes;
  if (good_) {
    subjects_ = list.subjects;
  }
}

bool CatalogReader::Next(CatalogEntry* entry) {
  if (!IsGood() || subjects_.AtEnd()) {
    return false;
  }
  *entry = {};
  DerReader subject(subjects_.Take(DerTag::Sequence).value);
  entry->tag = subject.Take(DerTag::OctetString).value;
  const auto attributes = subject.TakeIf(DerTag::Set);
  for (DerReader reader(attributes ? attributes->value : Der()); good_ && !reader.AtEnd();) {
    const Der attribute = reader.Take(DerTag::Sequence).value;
    good_ = reader.IsGood() && ReadAttribute(attribute, entry);
  }
  good_ = good_ && subject.IsDone();
  return IsGood();
}

cvn::String CatalogReader::TagOf(const CatalogEntry& entry) const {
  cvn::String tag;
  if (!tagsAreBytes_) {
    return WideText(entry.tag).CStr();
  }
  for (const std::byte byte : entry.tag) {
    tag.Append(cvn::Format(u"%02X", std::to_integer<int>(byte)));
  }
  return tag;
}

Bytes ReadSequenceFile(const ByteSource& source) {
  constexpr std::uint64_t kLargest = 128 << 20;
  std::array<std::byte, 6> beginning{};
  if (!source.Read(0, beginning) || source.Size() > kLargest ||
      SequenceSize(beginning) != source.Size()) {
    return {};
  }
  Bytes bytes(source.Size());
  return source.Read(0, bytes) ? bytes : Bytes();
}

Code ReadCatalog(Der bytes, cvn::List<catalogs::Member>* members) {
  const std::optional<SignedData> data = ParseSignedData(bytes);
  if (!data) {
    return kInvalidData;
  }
  CatalogReader reader(*data);
  cvn::List<catalogs::Member> found;
  for (CatalogEntry entry; reader.Next(&entry);) {
    if (!entry.digest) {
      continue;
    }
    catalogs::Member member;
    member.tag = reader.TagOf(entry);
    member.digest.assign(entry.digest->begin(), entry.digest->end());
    if (entry.fileName) {
      member.file = WideText(*entry.fileName);
    }
    found.push_back(std::move(member));
  }
  if (!reader.IsGood()) {
    return kInvalidData;
  }
  *members = std::move(found);
  return kSuccess;
}

}  // namespace platform::posix
