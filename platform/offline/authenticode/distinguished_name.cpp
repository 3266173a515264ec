#include "platform/offline/authenticode/distinguished_name.h"

#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <array>
#include <string_view>

#include "platform/openssl.h"
#include "support/format.h"
#include "support/utf.h"

namespace platform::posix {
namespace {

constexpr Code kNameUnparseable = 8350;  // ERROR_DS_NAME_UNPARSEABLE
constexpr cvn::StringView kSpace = u" \t\r\n";

// The keys that CertNameToStrW documents for CERT_X500_NAME_STR.
constexpr struct {
  int attribute;
  cvn::StringView key;
} kKeys[] = {
    {NID_commonName, u"CN"},
    {NID_localityName, u"L"},
    {NID_organizationName, u"O"},
    {NID_organizationalUnitName, u"OU"},
    {NID_pkcs9_emailAddress, u"E"},
    {NID_countryName, u"C"},
    {NID_stateOrProvinceName, u"S"},
    {NID_streetAddress, u"STREET"},
    {NID_title, u"T"},
    {NID_givenName, u"G"},
    {NID_initials, u"I"},
    {NID_surname, u"SN"},
    {NID_domainComponent, u"DC"},
    {NID_serialNumber, u"SERIALNUMBER"},
    {NID_description, u"Description"},
    {NID_postalCode, u"PostalCode"},
    {NID_postOfficeBox, u"POBox"},
    {NID_telephoneNumber, u"Phone"},
    {NID_x121Address, u"X21Address"},
    {NID_dnQualifier, u"dnQualifier"},
};

cvn::String KeyOf(const ASN1_OBJECT* attribute) {
  const int number = OBJ_obj2nid(attribute);
  for (const auto& entry : kKeys) {
    if (entry.attribute == number) {
      return entry.key;
    }
  }
  std::array<char, 256> digits{};
  OBJ_obj2txt(digits.data(), static_cast<int>(digits.size()), attribute, 1);
  cvn::String key = u"OID.";
  key.Append(cvn::Utf8ToWide(digits.data()));
  return key;
}

bool IsText(const ASN1_STRING* value) {
  switch (ASN1_STRING_type(value)) {
    case V_ASN1_UTF8STRING:
    case V_ASN1_NUMERICSTRING:
    case V_ASN1_PRINTABLESTRING:
    case V_ASN1_T61STRING:
    case V_ASN1_IA5STRING:
    case V_ASN1_VISIBLESTRING:
    case V_ASN1_UNIVERSALSTRING:
    case V_ASN1_BMPSTRING:
      return true;
    default:
      return false;
  }
}

cvn::String TextOf(const ASN1_STRING* value) {
  unsigned char* utf8 = nullptr;
  const int size = IsText(value) ? ASN1_STRING_to_UTF8(&utf8, value) : -1;
  if (size >= 0) {
    const OpenSsl<unsigned char> owner(utf8);
    return cvn::Utf8ToWide({reinterpret_cast<char*>(utf8), static_cast<std::size_t>(size)});
  }
  cvn::String text = u"#";
  for (int i = 0; i < ASN1_STRING_length(value); ++i) {
    text.Append(cvn::Format(u"%02X", ASN1_STRING_get0_data(value)[i]));
  }
  return text;
}

bool NeedsQuotes(cvn::StringView value) {
  return value.empty() || kSpace.find(value.front()) != cvn::StringView::npos ||
         kSpace.find(value.back()) != cvn::StringView::npos ||
         value.find_first_of(u",+=\"\n<>#;") != cvn::StringView::npos;
}

void AppendValue(const ASN1_STRING* value, cvn::String* out) {
  const cvn::String text = TextOf(value);
  if (!IsText(value) || !NeedsQuotes(text)) {
    out->Append(text);
    return;
  }
  out->Append(u'"');
  for (const char16_t character : text.AsView()) {
    out->Append(character);
    if (character == u'"') {
      out->Append(character);
    }
  }
  out->Append(u'"');
}

// Where a value ends that `text` begins with: in quotes, a doubled quote does not end it.
std::size_t EndOfValue(cvn::StringView text) {
  if (!text.starts_with(u'"')) {
    return std::min(text.find_first_of(u",;+"), text.size());
  }
  for (std::size_t at = 1; at < text.size(); ++at) {
    if (text[at] != u'"') {
      continue;
    }
    if (!text.substr(at + 1).starts_with(u'"')) {
      return at + 1;
    }
    ++at;
  }
  return cvn::StringView::npos;
}

cvn::StringView Trimmed(cvn::StringView text) {
  const std::size_t first = text.find_first_not_of(kSpace);
  return first == cvn::StringView::npos
             ? cvn::StringView()
             : text.substr(first, text.find_last_not_of(kSpace) + 1 - first);
}

}  // namespace

cvn::String X500Text(const X509_NAME* name) {
  cvn::String text;
  int part = -1;
  for (int i = 0; i < X509_NAME_entry_count(name); ++i) {
    const X509_NAME_ENTRY* entry = X509_NAME_get_entry(name, i);
    if (i > 0) {
      text.Append(X509_NAME_ENTRY_set(entry) == part ? u" + " : u", ");
    }
    part = X509_NAME_ENTRY_set(entry);
    text.Append(KeyOf(X509_NAME_ENTRY_get_object(entry)));
    text.Append(u'=');
    AppendValue(X509_NAME_ENTRY_get_data(entry), &text);
  }
  return text;
}

cvn::String SimpleDisplayName(X509* certificate) {
  X509_NAME* subject = X509_get_subject_name(certificate);
  for (const int attribute :
       {NID_commonName, NID_organizationalUnitName, NID_organizationName, NID_pkcs9_emailAddress}) {
    const int place = X509_NAME_get_index_by_NID(subject, attribute, -1);
    if (place >= 0) {
      return TextOf(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, place)));
    }
  }
  cvn::String name;
  const OpenSsl<GENERAL_NAMES> alternatives(static_cast<GENERAL_NAMES*>(
      X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
  for (int i = 0; name.Empty() && i < sk_GENERAL_NAME_num(alternatives.get()); ++i) {
    const GENERAL_NAME* alternative = sk_GENERAL_NAME_value(alternatives.get(), i);
    if (alternative->type == GEN_EMAIL) {
      name = TextOf(alternative->d.rfc822Name);
    }
  }
  if (name.Empty() && X509_NAME_entry_count(subject) > 0) {
    name = TextOf(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, 0)));
  }
  return name;
}

Code TakeRdn(cvn::StringView* name, cvn::String* key, cvn::String* value) {
  const std::size_t equals = name->find(u'=');
  if (equals == cvn::StringView::npos) {
    return kNameUnparseable;
  }
  const cvn::StringView keyText = Trimmed(name->substr(0, equals));
  cvn::StringView rest = name->substr(equals + 1);
  rest.remove_prefix(std::min(rest.find_first_not_of(kSpace), rest.size()));
  const std::size_t end = EndOfValue(rest);
  if (keyText.empty() || keyText.find_first_of(u",;+\"") != cvn::StringView::npos ||
      end == cvn::StringView::npos) {
    return kNameUnparseable;
  }
  cvn::StringView next = rest.substr(end);
  next.remove_prefix(std::min(next.find_first_not_of(kSpace), next.size()));
  if (!next.empty() && cvn::StringView(u",;+").find(next.front()) == cvn::StringView::npos) {
    return kNameUnparseable;
  }
  key->Assign(keyText);
  value->Assign(Trimmed(rest.substr(0, end)));
  next.remove_prefix(std::min<std::size_t>(1, next.size()));
  next.remove_prefix(std::min(next.find_first_not_of(kSpace), next.size()));
  *name = next;
  return kSuccess;
}

}  // namespace platform::posix
