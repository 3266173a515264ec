#include "tests/platform/signing.h"

#include <gtest/gtest.h>
#include <openssl/pkcs7.h>
#include <openssl/x509v3.h>

#include <algorithm>

#include "platform/registry.h"
#include "support/format.h"
#include "support/utf.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

constexpr std::time_t kDay = 86'400;
constexpr char kIndirectData[] = "1.3.6.1.4.1.311.2.1.4";

template <typename T>
using Encoder = int (*)(const T*, unsigned char**);

template <typename T>
std::string Encoded(const T* object, Encoder<T> encode) {
  unsigned char* bytes = nullptr;
  const int size = encode(object, &bytes);
  std::string text(reinterpret_cast<char*>(bytes), static_cast<std::size_t>(std::max(size, 0)));
  OPENSSL_free(bytes);
  return text;
}

using Message = std::unique_ptr<PKCS7, decltype(&PKCS7_free)>;

Message Decoded(const std::string& bytes) {
  const auto* at = reinterpret_cast<const unsigned char*>(bytes.data());
  Message message(d2i_PKCS7(nullptr, &at, static_cast<long>(bytes.size())), &PKCS7_free);
  EXPECT_NE(message, nullptr);
  return message;
}

PKCS7_SIGNER_INFO* SignerOf(const Message& message) {
  return sk_PKCS7_SIGNER_INFO_value(PKCS7_get_signer_info(message.get()), 0);
}

std::string SignatureOf(const Message& message) {
  const ASN1_OCTET_STRING* signature = SignerOf(message)->enc_digest;
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(signature)),
          static_cast<std::size_t>(ASN1_STRING_length(signature))};
}

void AddExtension(X509* certificate, X509* issuer, int kind, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value);
  ASSERT_EQ(X509_add_ext(certificate, extension, -1), 1) << value;
  X509_EXTENSION_free(extension);
}

std::string Number(std::uint64_t value, int bytes) {
  return {reinterpret_cast<const char*>(&value), static_cast<std::size_t>(bytes)};
}

void Put(std::string* bytes, std::size_t offset, const std::string& what) {
  bytes->replace(offset, what.size(), what);
}

std::string Wide(std::string_view ascii) {
  std::string wide;
  for (const char character : ascii) {
    wide += {character, '\0'};
  }
  return wide;
}

std::string Aligned(std::string bytes, std::size_t unit) {
  bytes.resize((bytes.size() + unit - 1) / unit * unit);
  return bytes;
}

// A node of version information.
std::string Node(std::string_view name, const std::string& value, bool isText,
                 const std::string& children) {
  std::string node = Aligned(std::string(6, '\0') + Wide(name) + std::string(2, '\0'), 4) + value;
  node = children.empty() ? node : Aligned(node, 4) + children;
  Put(&node, 0, Number(node.size(), 2));
  Put(&node, 2, Number(isText ? value.size() / 2 : value.size(), 2));
  Put(&node, 4, Number(isText ? 1 : 0, 2));
  return Aligned(node, 4);
}

std::string VersionInformation(std::string_view company) {
  const std::string strings =
      Node("StringFileInfo", "", true,
           Node("040904B0", "", true,
                Node("FileVersion", Wide("1") + std::string(2, '\0'), true, "") +
                    Node("CompanyName", Wide(company) + std::string(2, '\0'), true, "")));
  const std::string translation = Number(0x0409, 2) + Number(0x04B0, 2);
  return Node("VS_VERSION_INFO", std::string(52, '\0'), false,
              strings + Node("VarFileInfo", "", true, Node("Translation", translation, false, "")));
}

// A directory of resources with one entry.
std::string Directory(std::uint32_t id, std::uint32_t offset) {
  return std::string(14, '\0') + Number(1, 2) + Number(id, 4) + Number(offset, 4);
}

std::string IndirectDataOf(const std::string& what, const std::string& digest) {
  const char* algorithm = digest.size() == 20 ? "1.3.14.3.2.26" : "2.16.840.1.101.3.4.2.1";
  return Sequence({what, Sequence({Sequence({Oid(algorithm), Tlv(5, "")}), Tlv(4, digest)})});
}

}  // namespace

std::string Identity::Der() const { return Encoded(certificate.get(), &i2d_X509); }

Identity MakeIdentity(const Wish& wish) {
  static std::int64_t serial = 0x1234567890;
  Identity made{wish.key, {X509_new(), &X509_free}};
  if (!made.key) {
    made.key = {wish.rsaBits == 0 ? EVP_EC_gen("P-256") : EVP_RSA_gen(wish.rsaBits),
                &EVP_PKEY_free};
  }
  X509* certificate = made.certificate.get();
  const Identity& issuer = wish.issuer == nullptr ? made : *wish.issuer;
  X509_set_version(certificate, 2);
  ASN1_INTEGER_set_int64(X509_get_serialNumber(certificate), ++serial);
  const auto now = std::time(nullptr);
  ASN1_TIME_set(X509_getm_notBefore(certificate), now + wish.fromDay * kDay);
  ASN1_TIME_set(X509_getm_notAfter(certificate), now + wish.toDay * kDay);
  X509_NAME* name = X509_get_subject_name(certificate);
  const auto add = [name](const char* key, const std::string& value) {
    X509_NAME_add_entry_by_txt(name, key, MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(value.c_str()), -1, -1, 0);
  };
  add("C", "RO");
  add("O", wish.organisation);
  add("CN", wish.name);
  X509_set_issuer_name(certificate, X509_get_subject_name(issuer.certificate.get()));
  X509_set_pubkey(certificate, made.key.get());
  AddExtension(certificate, issuer.certificate.get(), NID_basic_constraints,
               wish.isAuthority ? "critical,CA:TRUE" : "CA:FALSE");
  AddExtension(certificate, issuer.certificate.get(), NID_key_usage,
               wish.isAuthority ? "keyCertSign,cRLSign" : "digitalSignature");
  if (!wish.usages.empty() && !wish.isAuthority) {
    AddExtension(certificate, issuer.certificate.get(), NID_ext_key_usage, wish.usages.c_str());
  }
  EXPECT_GT(X509_sign(certificate, issuer.key.get(), wish.digest), 0);
  return made;
}

std::string MakeRevocationList(const Identity& authority, const Identity& revoked, int day) {
  const std::unique_ptr<X509_CRL, decltype(&X509_CRL_free)> list(X509_CRL_new(), &X509_CRL_free);
  const std::unique_ptr<ASN1_TIME, decltype(&ASN1_TIME_free)> time(
      ASN1_TIME_set(nullptr, std::time(nullptr) + day * kDay), &ASN1_TIME_free);
  X509_CRL_set_version(list.get(), 1);
  X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(authority.certificate.get()));
  X509_CRL_set1_lastUpdate(list.get(), time.get());
  X509_CRL_set1_nextUpdate(list.get(), time.get());
  X509_REVOKED* entry = X509_REVOKED_new();
  X509_REVOKED_set_serialNumber(entry, X509_get_serialNumber(revoked.certificate.get()));
  X509_REVOKED_set_revocationDate(entry, time.get());
  X509_CRL_add0_revoked(list.get(), entry);
  EXPECT_GT(X509_CRL_sign(list.get(), authority.key.get(), EVP_sha256()), 0);
  return Encoded(list.get(), &i2d_X509_CRL);
}

std::string Hex(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += {kDigits[value / 16], kDigits[value % 16]};
  }
  return text;
}

std::string Tlv(int tag, std::string_view content) {
  std::string out;
  for (std::size_t rest = content.size(); rest != 0 && content.size() >= 128; rest >>= 8) {
    out.insert(out.begin(), static_cast<char>(rest));
  }
  out.insert(out.begin(), static_cast<char>(out.empty() ? content.size() : 128 + out.size()));
  out.insert(out.begin(), static_cast<char>(tag));
  return out.append(content);
}

std::string Oid(const char* digits) {
  const std::unique_ptr<ASN1_OBJECT, decltype(&ASN1_OBJECT_free)> object(OBJ_txt2obj(digits, 1),
                                                                         &ASN1_OBJECT_free);
  return Encoded(object.get(), &i2d_ASN1_OBJECT);
}

std::string Sequence(std::initializer_list<std::string> parts) {
  std::string content;
  for (const std::string& part : parts) {
    content += part;
  }
  return Tlv(0x30, content);
}

std::string DigestOf(std::string_view bytes, const EVP_MD* algorithm) {
  std::string digest(static_cast<std::size_t>(EVP_MD_get_size(algorithm)), '\0');
  EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<unsigned char*>(digest.data()), nullptr,
             algorithm, nullptr);
  return digest;
}

std::string Sign(const Identity& signer, const char* contentType, const std::string& content,
                 const Signing& how) {
  const Message message(PKCS7_new(), &PKCS7_free);
  PKCS7_set_type(message.get(), NID_pkcs7_signed);
  PKCS7_SIGNER_INFO* info =
      PKCS7_add_signature(message.get(), signer.certificate.get(), signer.key.get(), how.digest);
  PKCS7* inner = PKCS7_new();
  inner->type = OBJ_txt2obj(contentType, 1);
  const auto* at = reinterpret_cast<const unsigned char*>(content.data());
  const auto size = static_cast<long>(content.size());
  if (OBJ_obj2nid(inner->type) == NID_pkcs7_data) {
    inner->d.data = d2i_ASN1_OCTET_STRING(nullptr, &at, size);
  } else {
    inner->d.other = d2i_ASN1_TYPE(nullptr, &at, size);
  }
  PKCS7_set_content(message.get(), inner);
  std::vector<Identity> identities = how.others;
  if (how.withCertificate) {
    identities.push_back(signer);
  }
  for (const Identity& identity : identities) {
    PKCS7_add_certificate(message.get(), identity.certificate.get());
  }
  for (const std::string& list : how.lists) {
    const auto* encoded = reinterpret_cast<const unsigned char*>(list.data());
    X509_CRL* decoded = d2i_X509_CRL(nullptr, &encoded, static_cast<long>(list.size()));
    PKCS7_add_crl(message.get(), decoded);
    X509_CRL_free(decoded);
  }
  PKCS7_add_attrib_content_type(info, OBJ_dup(inner->type));
  if (how.time != 0) {
    PKCS7_add0_attrib_signing_time(info, ASN1_TIME_set(nullptr, how.time));
  }
  // Without tag and length, which of these contents take up to four bytes.
  const std::size_t header = static_cast<unsigned char>(content[1]) < 128
                                 ? 2
                                 : 2 + (static_cast<unsigned char>(content[1]) & 0x7FU);
  const std::string digest = DigestOf(std::string_view(content).substr(header), how.digest);
  PKCS7_add1_attrib_digest(info, reinterpret_cast<const unsigned char*>(digest.data()),
                           static_cast<int>(digest.size()));
  EXPECT_EQ(PKCS7_SIGNER_INFO_sign(info), 1);
  return Encoded(message.get(), &i2d_PKCS7);
}

std::string WithAttribute(const std::string& signedData, const char* type,
                          const std::string& value) {
  const Message message = Decoded(signedData);
  ASN1_STRING* any = ASN1_STRING_new();
  ASN1_STRING_set(any, value.data(), static_cast<int>(value.size()));
  if (OBJ_txt2nid(type) == NID_undef) {
    OBJ_create(type, type, type);
  }
  PKCS7_add_attribute(SignerOf(message), OBJ_txt2nid(type), V_ASN1_SEQUENCE, any);
  return Encoded(message.get(), &i2d_PKCS7);
}

std::string WithToken(const std::string& signedData, const Identity& authority, std::time_t time,
                      const std::string& signatureOf) {
  const std::string digest = DigestOf(SignatureOf(Decoded(signatureOf)), EVP_sha256());
  std::tm moment{};
  std::string text(16, '\0');
  text.resize(
      std::strftime(text.data(), text.size(), "%Y%m%d%H%M%SZ", OPENSSL_gmtime(&time, &moment)));
  const std::string info =
      Sequence({Tlv(2, "\1"), Oid("1.2.3.4"),
                Sequence({Sequence({Oid("2.16.840.1.101.3.4.2.1"), Tlv(5, "")}), Tlv(4, digest)}),
                Tlv(2, "\7"), Tlv(24, text)});
  return WithAttribute(signedData, "1.3.6.1.4.1.311.3.3.1",
                       Sign(authority, "1.2.840.113549.1.9.16.1.4", Tlv(4, info)));
}

std::string WithCounterSignature(const std::string& signedData, const Identity& authority,
                                 std::time_t time) {
  const std::string signature = SignatureOf(Decoded(signedData));
  const Message counter =
      Decoded(Sign(authority, "1.2.840.113549.1.7.1", Tlv(4, signature), {.time = time}));
  const Message message = Decoded(signedData);
  PKCS7_add_certificate(message.get(), authority.certificate.get());
  return WithAttribute(Encoded(message.get(), &i2d_PKCS7), "1.2.840.113549.1.9.6",
                       Encoded(SignerOf(counter), &i2d_PKCS7_SIGNER_INFO));
}

std::string WithNested(const std::string& signedData, const std::string& nested) {
  return WithAttribute(signedData, "1.3.6.1.4.1.311.2.4.1", nested);
}

std::string MakeImage(std::string_view company) {
  constexpr std::uint32_t kResources = 0x2000;
  constexpr std::uint32_t kIsDirectory = 0x80000000;
  const std::string version = VersionInformation(company);
  const std::string resources = Directory(16, kIsDirectory | 24) + Directory(1, kIsDirectory | 48) +
                                Directory(0x409, 72) + Number(kResources + 88, 4) +
                                Number(version.size(), 4) + std::string(8, '\0') + version;
  std::string image(0x200, '\0');
  Put(&image, 0, "MZ");
  Put(&image, 60, Number(0x80, 4));
  Put(&image, 0x80, std::string("PE\0\0\x64\x86\2\0", 8));
  Put(&image, 0x80 + 20, Number(240, 2));
  Put(&image, 0x80 + 24, Number(0x20B, 2));
  Put(&image, 0x80 + 24 + 32, Number(0x1000, 4) + Number(0x200, 4));  // alignments
  Put(&image, 0x80 + 24 + 60, Number(0x200, 4));
  Put(&image, 0x80 + 24 + 108, Number(16, 4));
  Put(&image, 0x80 + 24 + 112 + 2 * 8, Number(kResources, 4) + Number(resources.size(), 4));
  const std::string sections[] = {std::string(0x200, 'c'), Aligned(resources, 0x200)};
  std::size_t header = 0x80 + 24 + 240;
  std::uint32_t address = 0x1000;
  for (const std::string& section : sections) {
    Put(&image, header + 8,
        Number(section.size(), 4) + Number(address, 4) + Number(section.size(), 4) +
            Number(image.size(), 4));
    header += 40;
    address += 0x1000;
    image += section;
  }
  return image + "data behind the last section" + std::string(4, 'x');
}

std::string CoveredPart(std::string image) {
  return image.erase(kImageSecurityEntry, 8).erase(kImageChecksum, 4);
}

std::string SignImage(const std::string& image, const Identity& signer, const Signing& how) {
  const std::string what =
      Sequence({Oid("1.3.6.1.4.1.311.2.1.15"),
                Sequence({Tlv(3, std::string(1, '\0')), Tlv(0xA0, Tlv(0xA2, Tlv(0x80, "")))})});
  return Sign(signer, kIndirectData, IndirectDataOf(what, DigestOf(CoveredPart(image), how.digest)),
              how);
}

std::string WithSignatures(std::string image, const std::vector<std::string>& signatures) {
  const std::size_t start = image.size();
  for (const std::string& signature : signatures) {
    const std::string padded = Aligned(signature, 8);
    image += Number(padded.size() + 8, 4) + Number(0x200, 2) + Number(2, 2) + padded;
  }
  Put(&image, kImageSecurityEntry, Number(start, 4) + Number(image.size() - start, 4));
  return image;
}

std::string MakeTrustList(const std::vector<Listed>& members) {
  std::string subjects;
  for (const Listed& member : members) {
    const std::string what = Sequence({Oid("1.3.6.1.4.1.311.2.1.25"), Tlv(0xA2, Tlv(0x80, ""))});
    std::string attributes;
    if (!member.file.empty()) {
      attributes += Sequence(
          {Oid("1.3.6.1.4.1.311.12.2.1"),
           Tlv(0x31, Sequence({Tlv(0x1E, std::string("\0F\0i\0l\0e", 8)),
                               Tlv(2, std::string("\x10\1\0\1", 4)), Tlv(4, member.file)}))});
    }
    if (!member.digest.empty()) {
      attributes += Sequence({Oid(kIndirectData), Tlv(0x31, IndirectDataOf(what, member.digest))});
    }
    subjects += Sequence({Tlv(4, Wide(member.tag) + std::string(2, '\0')), Tlv(0x31, attributes)});
  }
  return Sequence({Sequence({Oid("1.3.6.1.4.1.311.12.1.1")}), Tlv(4, "identifier"),
                   Tlv(23, "260101000000Z"), Sequence({Oid("1.3.6.1.4.1.311.12.1.2"), Tlv(5, "")}),
                   Tlv(0x30, subjects)});
}

void AddToStore(const char* place, std::uint32_t property, const std::string& encoded) {
  constexpr cvn::StringView kStores = u"SOFTWARE\\Microsoft\\SystemCertificates\\";
  const std::uint32_t header[] = {property, 1, static_cast<std::uint32_t>(encoded.size())};
  const std::string blob = std::string(reinterpret_cast<const char*>(header), 12) + encoded;
  const cvn::String path = cvn::Format(u"%s%s\\%s", kStores, cvn::Utf8ToWide(place),
                                       cvn::Utf8ToWide(Hex(DigestOf(encoded, EVP_sha1()))));
  registry::Key key;
  ASSERT_EQ(registry::CreateKey(registry::Key(registry::Root::LocalMachine), path, false,
                                registry::kSetValue, &key),
            kSuccess);
  ASSERT_EQ(registry::SetValue(key, u"Blob", registry::kTypeBinary, BytesOf(blob)), kSuccess);
}

}  // namespace platform::test
