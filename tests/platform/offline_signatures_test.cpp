// Authenticode of the offline volume: images, catalogs and names of certificates. osslsigncode,
// which shares nothing with this code but OpenSSL, is asked for its opinion on the same files, and
// signs some of them.

#include <openssl/pem.h>

#include <array>
#include <cstring>
#include <optional>

#include "platform/catalogs.h"
#include "platform/file_digest.h"
#include "platform/offline/authenticode/authenticode.h"
#include "platform/offline/authenticode/catalog_file.h"
#include "platform/offline/authenticode/distinguished_name.h"
#include "platform/signatures.h"
#include "support/format.h"
#include "support/utf.h"
#include "tests/platform/host_folder.h"
#include "tests/platform/signing.h"

namespace platform::test {
namespace {

using namespace signatures;  // NOLINT(google-build-using-namespace): its statuses
using Statuses = std::vector<TrustStatus>;

constexpr std::time_t kDay = 86'400;

// Who there is, and what the machine knows of them.
struct World {
  Identity root = MakeIdentity({"Root", nullptr, true, "", -900, 900});
  Identity foreignRoot = MakeIdentity({"Foreign root", nullptr, true, "", -900, 900});
  Identity authority = MakeIdentity({"Authority", &root, true, "", -900, 900});
  Identity known = MakeIdentity({"Known authority", &root, true, "", -900, 900});
  Identity publisher = MakeIdentity({"Publisher", &root});
  Identity expired = MakeIdentity({"Expired", &root, false, "codeSigning", -100, -5});
  Identity lifetime =
      MakeIdentity({"Lifetime", &root, false, "codeSigning,1.3.6.1.4.1.311.10.3.13", -100, -5});
  Identity foreign = MakeIdentity({"Foreign", &foreignRoot});
  Identity stamper = MakeIdentity({"Stamper", &root, false, "critical,timeStamping", -500, -1});
  Identity revoked = MakeIdentity({"Revoked", &known});
  Identity distrusted = MakeIdentity({"Distrusted", &root});
  Identity twin = MakeIdentity({"Twin", nullptr, true});
  Identity otherTwin = MakeIdentity({"Twin", nullptr, true});
  Identity oldRoot =
      MakeIdentity({.name = "Old", .isAuthority = true, .rsaBits = 1024, .digest = EVP_md5()});

  World() {
    AddToStore("ROOT\\Certificates", 32, root.Der());
    for (const Identity& trusted : {twin, otherTwin, oldRoot}) {
      AddToStore("ROOT\\Certificates", 32, trusted.Der());
    }
    AddToStore("CA\\Certificates", 32, known.Der());
    AddToStore("CA\\CRLs", 33, MakeRevocationList(known, revoked, -1));
    AddToStore("Disallowed\\Certificates", 32, distrusted.Der());
  }
};

class Authenticode : public HostFolderTest {
 protected:
  static const World& W() {
    static const World world;
    return world;
  }
  static std::time_t DaysAgo(int days) { return std::time(nullptr) - days * kDay; }

  cvn::String Write(cvn::StringView name, const std::string& content) const {
    WriteContent(Path(name), content);
    return Path(name);
  }

  std::string WritePem(const std::string& name, const Identity& identity) const {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(Host(name).c_str(), "w"),
                                                               &std::fclose);
    PEM_write_X509(file.get(), identity.certificate.get());
    PEM_write_PrivateKey(file.get(), identity.key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    return Host(name);
  }

  // What the verifier says of each signature of the file.
  Statuses Verdicts(const std::string& content) const {
    const cvn::String path = Write(u"verified", content);
    const files::File file = Held(u"verified", files::Share::ReadWrite);
    Verifier verifier(path, file);
    Statuses statuses;
    do {
      statuses.push_back(verifier.Verify(static_cast<std::uint32_t>(statuses.size()), false));
    } while (statuses.size() <= verifier.SecondaryCount());
    return statuses;
  }

  int Run(const std::string& arguments) const {
    const std::string command =
        "osslsigncode " + arguments + " >" + Host("output") + " 2>&1 </dev/null";
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  // osslsigncode's opinion on what Verdicts was last given.
  bool OtherOpinion() const {
    const std::string root = WritePem("root.pem", W().root);
    return Run("verify -CAfile " + root + " -TSA-CAfile " + root + " -in " + Host("verified")) == 0;
  }

  std::string Output() const { return HostContentOf(Host("output")); }
};

struct ImageCase {
  const char* what;
  std::string file;
  Statuses expected;
  // What osslsigncode should say; nothing where it has another rule, or no way to know.
  std::optional<bool> opinion;
};

// NOLINTNEXTLINE(readability-function-size): a table
std::vector<ImageCase> Images(const World& w) {
  const std::string image = MakeImage("Example");
  const auto one = [&image](const std::string& signature) {
    return WithSignatures(image, {signature});
  };
  const auto daysAgo = [](int days) { return std::time(nullptr) - days * kDay; };
  const std::string good = SignImage(image, w.publisher);
  const std::string foreign = SignImage(image, w.foreign, {.others = {w.foreignRoot}});
  const std::string old = SignImage(image, w.expired);
  const std::string lifetime = SignImage(image, w.lifetime);
  const std::string nobodys = SignImage(image, w.publisher, {.withCertificate = false});
  const Identity wrongUsage = MakeIdentity({"Server", &w.root, false, "serverAuth"});
  const Identity alone = MakeIdentity({"Alone"});
  const Identity chained = MakeIdentity({"Chained", &w.authority});
  const Identity fromKnown = MakeIdentity({"From known", &w.known});
  const Identity upstart = MakeIdentity({"Upstart", &w.publisher});
  const Identity foreignUpstart = MakeIdentity({"Upstart", &w.foreign});
  const Identity lateUpstart =
      MakeIdentity({"Upstart", &w.publisher, false, "codeSigning", -9, -5});
  const Identity lateServer = MakeIdentity({"Server", &w.root, false, "serverAuth", -9, -5});
  const Identity future = MakeIdentity({"Future", &w.root, false, "codeSigning", 5, 9});
  const auto weak = [](const Identity& issuer, bool isAuthority) {
    return MakeIdentity({"Weak", &issuer, isAuthority, "codeSigning", -10, 100, 1016});
  };
  const Identity weakAuthority = weak(w.root, true);
  const Identity fromWeak = MakeIdentity({"From weak", &weakAuthority});
  const Identity weakStamper =
      MakeIdentity({"Weak stamper", &w.root, false, "critical,timeStamping", -10, 100, 1016});
  const Identity small = MakeIdentity({"Small", &w.root, false, "codeSigning", -10, 100, 1024});
  const auto digested = [](const EVP_MD* digest, const Identity& issuer) {
    return MakeIdentity({.name = "Digested", .issuer = &issuer, .digest = digest});
  };
  const Identity newRoot = MakeIdentity({"New root", nullptr, true});
  const Identity cross = MakeIdentity(
      {.name = "New root", .issuer = &w.root, .isAuthority = true, .key = newRoot.key});
  const Identity crossed = MakeIdentity({"Crossed", &newRoot});
  const std::string lateList = MakeRevocationList(w.root, w.publisher, -2);
  const std::string foreignList = MakeRevocationList(w.foreignRoot, w.publisher, -2);
  const std::string listed = SignImage(image, w.publisher, {.lists = {lateList}});
  return {
      {"unsigned", image, {kNoSignature}, false},
      {"signed", one(good), {kTrusted}, true},
      {"SHA-1", one(SignImage(image, w.publisher, {.digest = EVP_sha1()})), {kTrusted}, true},
      {"nested", one(WithNested(good, good)), {kTrusted, kTrusted}, true},
      {"foreign first", one(WithNested(foreign, good)), {kUntrustedRoot, kTrusted}, true},
      {"table of two", WithSignatures(image, {foreign, good}), {kUntrustedRoot, kTrusted}, {}},
      {"expired", one(old), {kExpired}, false},
      {"expired, with token", one(WithToken(old, w.stamper, daysAgo(50), old)), {kTrusted}, true},
      {"expired, counter-signed",
       one(WithCounterSignature(old, w.stamper, daysAgo(50))),
       {kTrusted},
       true},
      {"token after the end", one(WithToken(old, w.stamper, daysAgo(3), old)), {kExpired}, false},
      {"ends with certificate",
       one(WithToken(lifetime, w.stamper, daysAgo(50), lifetime)),
       {kExpired},
       {}},
      {"another's token", one(WithToken(good, w.stamper, daysAgo(2), old)), {kBadTimestamp}, {}},
      {"stamped by a publisher",
       one(WithToken(good, w.publisher, daysAgo(2), good)),
       {kBadTimestamp},
       {}},
      {"not yet valid", one(SignImage(image, future)), {kExpired}, false},
      {"wrong usage", one(SignImage(image, wrongUsage)), {kWrongUsage}, false},
      {"self-signed", one(SignImage(image, alone)), {kUntrustedRoot}, false},
      {"root unknown", one(SignImage(image, w.foreign)), {kBrokenChain}, false},
      {"whole chain", one(SignImage(image, chained, {.others = {w.authority}})), {kTrusted}, true},
      {"authority missing", one(SignImage(image, chained)), {kBrokenChain}, false},
      {"authority of the machine", one(SignImage(image, fromKnown)), {kTrusted}, {}},
      {"no authority",
       one(SignImage(image, upstart, {.others = {w.publisher}})),
       {kBasicConstraints},
       false},
      {"no authority, root not trusted",
       one(SignImage(image, foreignUpstart, {.others = {w.foreign, w.foreignRoot}})),
       {kUntrustedRoot},
       false},
      {"no authority, expired",
       one(SignImage(image, lateUpstart, {.others = {w.publisher}})),
       {kExpired},
       false},
      {"wrong usage, expired", one(SignImage(image, lateServer)), {kWrongUsage}, false},
      {"revoked by the machine's list", one(SignImage(image, w.revoked)), {kRevoked}, {}},
      {"revoked by its own list", one(listed), {kRevoked}, {}},
      {"revoked later", one(WithToken(listed, w.stamper, daysAgo(4), listed)), {kTrusted}, {}},
      {"another's list",
       one(SignImage(image, w.publisher, {.lists = {foreignList}})),
       {kTrusted},
       {}},
      {"distrusted", one(SignImage(image, w.distrusted)), {kDistrusted}, {}},
      {"RSA of 1016 bits",
       one(SignImage(image, weak(w.root, false))),
       {kBadCertificateSignature},
       {}},
      {"authority of 1016 bits",
       one(SignImage(image, fromWeak, {.others = {weakAuthority}})),
       {kBadCertificateSignature},
       {}},
      {"stamper of 1016 bits",
       one(WithToken(good, weakStamper, daysAgo(2), good)),
       {kBadTimestamp},
       {}},
      {"RSA of 1024 bits", one(SignImage(image, small)), {kTrusted}, true},
      {"certified over MD5",
       one(SignImage(image, digested(EVP_md5(), w.oldRoot))),
       {kBadCertificateSignature},
       {}},
      {"certified over SHA-1",
       one(SignImage(image, digested(EVP_sha1(), w.root))),
       {kTrusted},
       true},
      {"root with MD5", one(SignImage(image, digested(EVP_sha256(), w.oldRoot))), {kTrusted}, {}},
      {"unknown root beside its cross-certificate",
       one(SignImage(image, crossed, {.others = {newRoot, cross}})),
       {kTrusted},
       {}},
      {"cross-certificate first",
       one(SignImage(image, crossed, {.others = {cross, newRoot}})),
       {kTrusted},
       {}},
      {"unknown root alone",
       one(SignImage(image, crossed, {.others = {newRoot}})),
       {kUntrustedRoot},
       false},
      {"roots of one name",
       one(WithNested(SignImage(image, MakeIdentity({"Left", &w.twin})),
                      SignImage(image, MakeIdentity({"Right", &w.otherTwin})))),
       {kTrusted, kTrusted},
       {}},
      {"certificate missing", one(nobodys), {kNoSignerCertificate}, false},
      {"of another image", one(SignImage(MakeImage("Other"), w.publisher)), {kBadDigest}, false},
      {"appended", one(good) + std::string(8, 'a'), {kBadImage}, false},
      {"cut", one(good).substr(0, one(good).size() - 9), {kBadImage}, false},
      {"no signature inside", one(Tlv(0x30, "nothing")), {kNoSignature}, false},
      {"text", "just text", {kSubjectFormUnknown}, false},
      {"empty", "", {kSubjectFormUnknown}, false},
  };
}

TEST_F(Authenticode, JudgesImages) {
  const bool canAsk = Run("--version") != 127;
  for (const ImageCase& image : Images(W())) {
    SCOPED_TRACE(image.what);
    EXPECT_EQ(Verdicts(image.file), image.expected);
    if (canAsk && image.opinion) {
      EXPECT_EQ(OtherOpinion(), *image.opinion) << Output();
    }
  }
}

TEST_F(Authenticode, TellsTheSigner) {
  const std::string image = MakeImage("Example");
  std::string signature = SignImage(image, W().publisher);
  const std::time_t moment = DaysAgo(3);
  signature = WithToken(signature, W().stamper, moment, signature);
  const cvn::String path = Write(u"a.exe", WithSignatures(image, {signature}));
  const files::File file = Held(u"a.exe", files::Share::ReadWrite);
  Verifier verifier(path, file);
  Certificate certificate;
  EXPECT_FALSE(verifier.HasProviderData());
  EXPECT_FALSE(verifier.SignerCertificate(&certificate));
  ASSERT_EQ(verifier.Verify(0, true), kTrusted);
  ASSERT_TRUE(verifier.HasProviderData() && verifier.HasSigner());
  ASSERT_TRUE(verifier.SignerCertificate(&certificate));
  EXPECT_EQ(Utf8(certificate.subject), "C=RO, O=\"Example, SRL\", CN=Publisher");
  EXPECT_EQ(Utf8(certificate.issuer), "C=RO, O=\"Example, SRL\", CN=Root");
  std::int64_t serial = 0;
  std::memcpy(&serial, certificate.serial.data(), certificate.serial.size());
  std::int64_t expected = 0;
  ASN1_INTEGER_get_int64(&expected, X509_get0_serialNumber(W().publisher.certificate.get()));
  EXPECT_EQ(serial, expected);
  std::uint64_t ticks = 0;
  EXPECT_EQ(verifier.SigningTime(&ticks), Timestamp::Found);
  EXPECT_EQ(static_cast<std::time_t>(ticks / 10'000'000 - 11'644'473'600), moment);
  verifier.Close();
  EXPECT_FALSE(verifier.HasSigner());
  EXPECT_EQ(Utf8(SignerName(path)), "Publisher");
}

// Every byte of an image counts but those that signing itself changes.
TEST_F(Authenticode, NoticesEachChangedByte) {
  const std::string image = MakeImage("Example");
  const std::string whole = WithSignatures(image, {SignImage(image, W().publisher)});
  for (std::size_t at = 0; at < image.size(); ++at) {
    std::string changed = whole;
    changed[at] ^= 0x40;
    const ByteSource source(BytesOf(changed));
    posix::SignedFile file(source);
    const posix::SignedData* data = file.At(0);
    const bool isTrusted = data != nullptr && file.CheckContent(*data) == kTrusted;
    const bool isLeftOut = at >= kImageChecksum && at < kImageChecksum + 4;
    EXPECT_EQ(isTrusted, isLeftOut) << "byte " << at;
  }
}

// Whatever happens to a signature: what is signed in it stays, or it is refused.
TEST_F(Authenticode, SurvivesDamagedSignatures) {
  const std::string image = MakeImage("Example");
  std::string signature = SignImage(image, W().publisher, {.others = {W().authority}});
  signature = WithNested(WithToken(signature, W().stamper, DaysAgo(2), signature), signature);
  const posix::CertificateStore store = posix::ReadMachineStore();
  const auto judge = [&](const std::string& damaged) {
    const std::string file = WithSignatures(image, {damaged});
    const ByteSource source(BytesOf(file));
    posix::SignedFile signedFile(source);
    return posix::VerifySignature(&signedFile, 0, store, posix::Revocation::OnHand).status;
  };
  ASSERT_EQ(judge(signature), kTrusted);
  const auto parsed = posix::ParseSignedData(BytesOf(signature));
  ASSERT_TRUE(parsed && parsed->signer);
  EXPECT_TRUE(platform::IsDer(BytesOf("0\x04\x04\x02xx")));
  EXPECT_FALSE(platform::IsDer(BytesOf("0\x04\x04\x03xx"))) << "what lies within is judged too";
  const Der kept[] = {parsed->content.whole, parsed->signer->signedAttributes.whole,
                      parsed->signer->signature, parsed->signer->serial};
  const auto isKept = [&](std::size_t at) {
    const std::byte* place = BytesOf(signature).data() + at;
    return std::ranges::any_of(kept, [place](Der part) {
      return place >= part.data() && place < part.data() + part.size();
    });
  };
  constexpr std::size_t kStep = 5;  // each byte would take its time
  for (std::size_t at = 0; at < signature.size(); at += kStep) {
    std::string damaged = signature;
    damaged[at] ^= 0x11;
    const TrustStatus status = judge(damaged);
    EXPECT_TRUE(status != kTrusted || !isKept(at)) << "byte " << at;
    if (at + 8 <= signature.size()) {  // what pads the table could stand for less
      EXPECT_NE(judge(signature.substr(0, at)), kTrusted) << "cut to " << at;
    }
  }
}

TEST_F(Authenticode, RefusesImagesThatDoNotHoldTogether) {
  const std::string image = MakeImage("Example");
  const std::string whole = WithSignatures(image, {SignImage(image, W().publisher)});
  const struct {
    const char* what;
    std::size_t offset;
    std::string bytes;
    TrustStatus expected = kBadImage;
  } kCases[] = {
      {"header outside", 60, "\xFF\xFF\xFF\x7F", kSubjectFormUnknown},
      {"header at the end", 60, std::string("\xF0\5\0\0", 4), kSubjectFormUnknown},
      {"sections beyond the file", 0x80 + 6, "\xFF\xFF"},
      {"table in the headers", kImageSecurityEntry, std::string("\x10\0\0\0", 4)},
      {"table in a section", kImageSecurityEntry, std::string("\0\3\0\0", 4)},
      {"table outside", kImageSecurityEntry, "\xF0\xFF\xFF\xFF"},
      {"table too long", kImageSecurityEntry + 4, "\xFF\xFF\xFF\xFF"},
      {"no such magic number", 0x80 + 24, "\x0C\x02"},
  };
  for (const auto& broken : kCases) {
    SCOPED_TRACE(broken.what);
    std::string changed = whole;
    changed.replace(broken.offset, broken.bytes.size(), broken.bytes);
    EXPECT_EQ(Verdicts(changed), Statuses{broken.expected});
  }
}

// Nothing is added to a signed image, nor moved in it, whether its own digest or a catalog's is
// asked. osslsigncode takes, as Windows does where it isn't told otherwise, bytes that an entry
// counts as its own, and looks at no section.
TEST_F(Authenticode, AnImageIsWhatItsSignerSaw) {
  const std::string image = MakeImage("Example");
  const std::string signature = SignImage(image, W().publisher);
  const std::string whole = WithSignatures(image, {signature});
  const std::string table = whole.substr(image.size());
  const auto with = [&](const std::string& newTable, const std::string& behind = "") {
    std::string file = whole;
    const auto size = static_cast<std::uint32_t>(newTable.size());
    file.replace(kImageSecurityEntry + 4, 4, reinterpret_cast<const char*>(&size), 4);
    return file.replace(image.size(), std::string::npos, newTable + behind);
  };
  const auto entry = [](char type, const std::string& content) {
    return std::string({static_cast<char>(content.size() + 8), 0, 0, 0, 0, 2, type, 0}) + content;
  };
  std::string moved = image;
  moved.insert(image.size() - 32, table)
      .replace(kImageSecurityEntry, 8, whole, kImageSecurityEntry, 8);
  moved[kImageSecurityEntry] -= 32;
  std::string endless = table;
  endless.replace(0, 4, 4, '\xFF');
  std::string longer = table + std::string(8, 'x');
  longer.replace(0, 2, {static_cast<char>(longer.size()), static_cast<char>(longer.size() >> 8)});
  const auto resigned = [&](std::size_t at, char value) {
    std::string changed = image;
    changed[at] = value;
    return WithSignatures(changed, {SignImage(changed, W().publisher)});
  };
  const struct {
    const char* what;
    std::string file;
    bool opinion;
  } kCases[] = {
      {"table moved before the last bytes", moved, false},
      {"an entry of another kind first", with(entry(1, "evil evil evil e") + table), false},
      {"an entry of another kind last", with(table + entry(1, "evil evil evil e")), false},
      {"bytes behind the signature", with(longer), true},
      {"zeros as an entry", with(table + std::string(16, '\0')), false},
      {"an entry without end", with(endless), false},
      {"zeros behind the table", with(table, std::string(4, '\0')), false},
      {"sections over each other", resigned(0x80 + 24 + 240 + 40 + 21, 3), true},
      {"section beyond the file", resigned(0x80 + 24 + 240 + 40 + 17, 0x10), true},
      {"section in the headers", resigned(0x80 + 24 + 240 + 21, 1), true},
  };
  const bool canAsk = Run("--version") != 127;
  for (const auto& changed : kCases) {
    SCOPED_TRACE(changed.what);
    EXPECT_EQ(Verdicts(changed.file), Statuses{kBadImage});
    if (canAsk) {
      EXPECT_EQ(OtherOpinion(), changed.opinion) << Output();
    }
    const ByteSource source(BytesOf(changed.file));
    EXPECT_FALSE(CatalogDigest(source, std::array{EVP_sha256()}));
  }
}

TEST_F(Authenticode, TakesWhatOsslsigncodeSigns) {
  if (Run("--version") == 127) {
    GTEST_SKIP() << "osslsigncode isn't installed";
  }
  Write(u"plain.exe", MakeImage("Example"));
  const std::string plain = Host("plain.exe");
  const std::string key = WritePem("publisher.pem", W().publisher);
  const std::string sign = "sign -certs " + key + " -key " + key;
  const std::string first = Host("first.exe");
  const std::string second = Host("second.exe");
  ASSERT_EQ(Run(sign + " -h sha1 -n Name -in " + plain + " -out " + first), 0) << Output();
  ASSERT_EQ(Run(sign + " -nest -h sha384 -ph -in " + first + " -out " + second), 0) << Output();
  EXPECT_EQ(Verdicts(HostContentOf(first)), Statuses{kTrusted});
  EXPECT_EQ(Verdicts(HostContentOf(second)), (Statuses{kTrusted, kTrusted}));
}

// --- Catalogs

constexpr std::string_view kName("s\0u\0b\0\\\0A\0", 10);

// A catalog's certificates in DER's order, or in the other.
std::string MakeCatalog(const World& w, const std::vector<Listed>& members, bool isSorted = true) {
  std::vector<Identity> identities = {w.publisher, w.authority};
  std::ranges::sort(identities, [isSorted](const Identity& left, const Identity& right) {
    return isSorted ? left.Der() < right.Der() : right.Der() < left.Der();
  });
  return Sign(w.publisher, kTrustListType, MakeTrustList(members),
              {.others = identities, .withCertificate = false});
}

TEST_F(Authenticode, ReadsMembers) {
  const std::string sha256(32, '\x5A');
  const std::string sha1(20, '\xA5');
  const std::vector<Listed> members = {{Hex(sha256), sha256, std::string(kName)},
                                       {Hex(sha1), sha1, ""},
                                       {"nothing", "", std::string(kName)},
                                       {"", sha256, std::string(kName) + '\0' + '\0'}};
  const cvn::String path = Write(u"a.cat", MakeCatalog(W(), members));
  cvn::List<catalogs::Member> found;
  ASSERT_EQ(catalogs::ReadMembers(path, &found), kSuccess);
  ASSERT_EQ(found.size(), 3U);
  EXPECT_EQ(Utf8(found[0].tag), Hex(sha256));
  EXPECT_EQ(found[0].digest, std::vector<std::byte>(32, std::byte{0x5A}));
  EXPECT_EQ(found[0].file, cvn::String(u"sub\\A"));
  EXPECT_EQ(found[1].digest.size(), 20U);
  EXPECT_FALSE(found[1].file);
  EXPECT_TRUE(found[2].tag.Empty());
  EXPECT_EQ(found[2].file, cvn::String(cvn::StringView(u"sub\\A\0", 6)));
  EXPECT_EQ(catalogs::ReadMembers(Path(u"missing.cat"), &found), kFileNotFound);
  EXPECT_NE(catalogs::ReadMembers(Write(u"b.cat", "text"), &found), kSuccess);
}

TEST_F(Authenticode, JudgesCatalogs) {
  const std::vector<Listed> members = {{"tag", std::string(32, 'h'), std::string(kName)}};
  const std::string list = MakeTrustList(members);
  const std::string good = MakeCatalog(W(), members);
  std::string changed = good;
  changed[changed.find(std::string(32, 'h'))] ^= 1;
  const std::string nested = WithNested(MakeCatalog(W(), members), good);
  const struct {
    const char* what;
    std::string file;
    Statuses expected;
  } kCases[] = {
      {"good", good, {kTrusted}},
      {"no members", MakeCatalog(W(), {}), {kTrusted}},
      {"nested", nested, {kTrusted, kTrusted}},
      {"changed", changed, {kBadDigest}},
      {"foreign", Sign(W().foreign, kTrustListType, list), {kBrokenChain}},
      {"certificates not sorted", MakeCatalog(W(), members, false), {kNoSignature}},
      {"in an octet string",
       Sign(W().publisher, kTrustListType, Tlv(4, list)),
       {kSubjectFormUnknown}},
      {"another content",
       Sign(W().publisher, "1.2.840.113549.1.7.1", Tlv(4, list)),
       {kSubjectFormUnknown}},
      {"appended", good + std::string(4, '\0'), {kSubjectFormUnknown}},
      {"cut", good.substr(0, good.size() - 1), {kSubjectFormUnknown}},
  };
  for (const auto& catalog : kCases) {
    SCOPED_TRACE(catalog.what);
    EXPECT_EQ(Verdicts(catalog.file), catalog.expected);
  }
}

// The system's catalogs are read once, so everything about them stands in one test.
TEST_F(Authenticode, FindsFilesInTheSystemsCatalogs) {
  constexpr cvn::StringView kFolder = kSystemCatalogs;
  const std::string image = MakeImage("Example");
  const std::string covered = CoveredPart(image);
  const auto entry = [](std::string_view bytes, const EVP_MD* algorithm) {
    const std::string digest = DigestOf(bytes, algorithm);
    return Listed{Hex(digest), digest, ""};
  };
  const World& w = W();
  const std::pair<cvn::StringView, std::string> kCatalogs[] = {
      {u"1.cat", "junk"},
      {u"2.cat", Sign(w.foreign, kTrustListType,
                      MakeTrustList({entry("foreign", EVP_sha1()), entry("both", EVP_sha1())}))},
      {u"3.cat", MakeCatalog(w, {entry(covered, EVP_sha1()), entry("text", EVP_sha1()),
                                 entry("new", EVP_sha256()), entry("both", EVP_sha1())})},
  };
  ASSERT_EQ(files::CreateDirectoryRecursive(kFolder), kSuccess);
  for (const auto& [name, content] : kCatalogs) {
    WriteContent(Joined(Joined(kFolder, u"\\"), name), content);
  }
  const struct {
    std::string content;
    bool isListed;
    cvn::StringView catalog;
  } kCases[] = {
      {"text", true, u"\\3.cat"},
      {"new", true, u"\\3.cat"},
      {image, true, u"\\3.cat"},
      {WithSignatures(image, {SignImage(image, w.foreign)}), true, u"\\3.cat"},
      {image + "x", false, u""},
      {"foreign", false, u"\\2.cat"},
      {"both", true, u"\\2.cat"},
      {"unlisted", false, u""},
      {"", false, u""},
  };
  for (const auto& listed : kCases) {
    SCOPED_TRACE(listed.content.substr(0, 20));
    const cvn::String path = Write(u"file", listed.content);
    files::File file = Held(u"file", files::Share::Read);
    EXPECT_EQ(catalogs::IsListedBySystem(path, &file), listed.isListed);
    EXPECT_EQ(catalogs::FindSystemCatalog(path),
              listed.catalog.empty() ? cvn::String() : Joined(kFolder, listed.catalog));
  }
  EXPECT_EQ(Utf8(SignerName(Joined(kFolder, u"\\3.cat"))), "Publisher");
}

// --- Names

TEST_F(Authenticode, WritesNamesAsX500DoesAndReadsThemBack) {
  const std::unique_ptr<X509_NAME, decltype(&X509_NAME_free)> name(X509_NAME_new(),
                                                                   &X509_NAME_free);
  const struct {
    const char* type;
    std::string value;
    int set;
    std::string text;
  } kEntries[] = {
      {"C", "RO", 0, "C=RO"},
      {"ST", "Ilfov", 0, ", S=Ilfov"},
      {"O", "Example \"One\", SRL", 0, ", O=\"Example \"\"One\"\", SRL\""},
      {"OU", " led", -1, " + OU=\" led\""},
      {"emailAddress", "a@example.com", 0, ", E=a@example.com"},
      {"serialNumber", "12", 0, ", SERIALNUMBER=12"},
      {"1.3.6.1.4.1.311.60.2.1.3", "RO", 0, ", OID.1.3.6.1.4.1.311.60.2.1.3=RO"},
      {"CN", "a\\", 0, ", CN=a\\"},
      {"CN", "\xC8\x98tefan", 0, ", CN=\xC8\x98tefan"},
  };
  std::string expected;
  for (const auto& entry : kEntries) {
    ASSERT_EQ(X509_NAME_add_entry_by_txt(
                  name.get(), entry.type, MBSTRING_UTF8,
                  reinterpret_cast<const unsigned char*>(entry.value.c_str()), -1, -1, entry.set),
              1)
        << entry.type;
    expected += entry.text;
  }
  const cvn::String text = posix::X500Text(name.get());
  EXPECT_EQ(Utf8(text), expected);

  const RdnReader reader;
  cvn::StringView rest = text;
  cvn::String key;
  cvn::String value;
  std::string again;
  while (!rest.empty()) {
    ASSERT_EQ(reader.Next(&rest, &key, &value), kSuccess) << again;
    again += Utf8(key) + "=" + Utf8(value) + ";";
  }
  EXPECT_EQ(again,
            "C=RO;S=Ilfov;O=\"Example \"\"One\"\", SRL\";OU=\" led\";E=a@example.com;"
            "SERIALNUMBER=12;OID.1.3.6.1.4.1.311.60.2.1.3=RO;CN=a\\;CN=\xC8\x98tefan;");
  for (const cvn::StringView bad : {u"", u"CN", u"=a", u"CN=\"a", u"CN=\"a\"b, O=c", u"a, CN=b"}) {
    rest = bad;
    EXPECT_NE(reader.Next(&rest, &key, &value), kSuccess) << Utf8(bad);
    EXPECT_EQ(rest, bad);
  }
}

}  // namespace
}  // namespace platform::test
