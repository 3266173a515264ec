// Catalogs and programs with real signatures, and what is copied of a patch, on a machine that
// knows one root and has the product's install folder.
#include <gmock/gmock.h>

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "files/path_text.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "support/utf.h"
#include "tests/libraries/fixture.h"
#include "tests/platform/fixture.h"
#include "tests/platform/signing.h"
#include "trace/trace.h"
#include "trust/catalog.h"
#include "trust/catalog_check.h"
#include "trust/digital_signature.h"
#include "trust/locations.h"
#include "trust/path_key.h"
#include "trust/protected_folder.h"

namespace tessel {
namespace {

namespace files = platform::files;
using platform::kSuccess;
using platform::test::ContentOf;
using platform::test::Identity;
using platform::test::Joined;
using platform::test::Listed;
using platform::test::MakeIdentity;
using platform::test::Utf8;
using platform::test::WriteContent;

Identity Issue(const char* name, const char* organisation, const Identity& issuer) {
  return MakeIdentity({.name = name, .issuer = &issuer, .organisation = organisation});
}

struct World {
  Identity root = MakeIdentity({.name = "Root", .isAuthority = true});
  Identity strangeRoot = MakeIdentity({.name = "Strange root", .isAuthority = true});
  Identity publisher = Issue("Corvane SRL", "Corvane SRL", root);
  Identity another = Issue("Another", "Corvane SRL", root);
  Identity impostor = Issue("Corvane SRL", "Corvane SRL", strangeRoot);

  World() { platform::test::AddToStore("ROOT\\Certificates", 32, root.Der()); }
};

const World& W() {
  static const World world;
  return world;
}

std::string Catalog(const Identity& signer, const std::vector<Listed>& members = {}) {
  return platform::test::Sign(signer, platform::test::kTrustListType,
                              platform::test::MakeTrustList(members));
}

Listed Member(cvn::StringView name, const std::string& content, const EVP_MD* algorithm) {
  const std::string digest = platform::test::DigestOf(content, algorithm);
  return {platform::test::Hex(digest),
          digest,
          {reinterpret_cast<const char*>(name.data()), name.size() * sizeof(char16_t)}};
}

class Signatures : public platform::test::FolderTest {
 protected:
  Signatures() {
    EXPECT_EQ(files::CreateDirectoryRecursive(GetInstallPath()), kSuccess);
    EXPECT_EQ(files::CreateDirectory(Path(u"patch")), kSuccess);
  }

  CatalogEntry Entry(cvn::StringView name) const {
    CatalogFunctions functions;
    BindCatalogFunctions(&functions);
    CatalogEntry entry{Path(name), name.substr(name.find(u'\\') + 1), {}, {}};
    files::File file;
    EXPECT_EQ(files::OpenRegular(entry.path, &file), kSuccess);
    EXPECT_EQ(CalcFileHash(functions, &file, &entry.hash), kSuccess);
    LowerCase(&entry.path);
    return entry;
  }

  // What is traced while the catalog of a patch is checked, which gives `result`.
  std::string CheckedAs(std::int32_t result) const {
    cvn::String reason;
    const cvn::String patch = Path(u"patch\\fix.tlx");
    OpenTraceFile(Path(u"trace.txt"));
    EXPECT_EQ(CheckCatalog(patch, Entry(u"patch\\fix.tlx").hash, &reason), result);
    EXPECT_EQ(Utf8(reason), result == kCatalogPassed ? "" : "file hash mismatch");
    CloseTraceFile();
    return ContentOf(Path(u"trace.txt")).value_or("no trace");
  }
};

TEST_F(Signatures, AnyOfAFileMayBeThePublishers) {
  using platform::test::WithNested;
  const std::string own = Catalog(W().publisher);
  const std::string others = Catalog(W().another);
  const std::string impostors = Catalog(W().impostor);
  const std::pair<std::string, bool> kCases[] = {
      {own, true},
      {others, false},
      {impostors, false},
      {WithNested(others, own), true},
      {WithNested(impostors, own), true},
      {WithNested(own, impostors), true},
      {WithNested(others, impostors), false},
  };
  const cvn::String path = Path(u"patch.cat");
  for (const auto& [file, passes] : kCases) {
    WriteContent(path, file);
    EXPECT_EQ(VerifyPublisherSignature(path, path, false), passes)
        << "row " << &passes - &kCases[0].second;
  }
}

// In one line for each signature, so that a support engineer knows whom to ask.
TEST_F(Signatures, TheTraceTellsWhichCertificateIsRefusedAndWhy) {
  const Identity weak = MakeIdentity({.name = "Weak", .issuer = &W().root, .rsaBits = 1016});
  const Identity late = MakeIdentity({.name = "Late", .issuer = &W().root, .toDay = -1});
  const Identity stray = Issue("Stray", "Any", weak);
  const std::string own = Catalog(W().publisher);
  const std::pair<std::string, const char*> kCases[] = {
      {Catalog(stray),
       "CN=Stray .serial number .* was issued by an authority whose certificate is"},
      {Catalog(weak), "of C=RO, O=\"Example, SRL\", CN=Weak .* has a key that is too short"},
      {Catalog(late), "CN=Late .* has expired"},
      {Catalog(W().another), "CN=Another .* isn't the publisher's"},
      {platform::test::WithToken(own, W().another, std::time(nullptr), own),
       "CN=Another .* another purpose"},
      {"text", "the file is neither a sound program nor a sound catalog"},
  };
  const cvn::String path = Path(u"patch.cat");
  for (const auto& [file, line] : kCases) {
    WriteContent(path, file);
    OpenTraceFile(Path(u"trace.txt"));
    EXPECT_FALSE(VerifyPublisherSignature(path, path, false));
    CloseTraceFile();
    EXPECT_THAT(ContentOf(Path(u"trace.txt")).value_or(""),
                testing::ContainsRegex(std::string("Signature refused: .*") + line));
  }
}

TEST_F(Signatures, ThePatchIsListedByItsSha256) {
  const std::string patch = "the patch";
  const Listed old = Member(u"fix.tlx", patch, EVP_sha1());
  const Listed good = Member(u"fix.tlx", patch, EVP_sha256());
  const std::pair<std::vector<Listed>, std::int32_t> kCases[] = {
      {{old}, kPatchFileMismatch},
      {{old, good}, kCatalogPassed},
      {{Member(u"fox.tlx", patch, EVP_sha256())}, kPatchFileMismatch},
      {{{good.tag, good.digest, ""}}, kPatchFileMismatch},
      {{}, kPatchFileMismatch},
  };
  WriteContent(Path(u"patch\\fix.tlx"), patch);
  for (const auto& [members, result] : kCases) {
    WriteContent(Path(u"patch\\patch.cat"), Catalog(W().publisher, members));
    CheckedAs(result);
  }
}

TEST_F(Signatures, AFileThatACatalogFindsOutsideIsNotCopied) {
  WriteContent(Path(u"patch\\fix.tlx"), "the patch");
  WriteContent(Path(u"out.txt"), "outside");
  WriteContent(Path(u"patch\\patch.cat"),
               Catalog(W().publisher, {Member(u"fix.tlx", "the patch", EVP_sha256()),
                                       Member(u"..\\out.txt", "outside", EVP_sha256())}));
  const std::string trace = CheckedAs(kCatalogPassed);
  EXPECT_NE(trace.find("Could not extract file relative path: ["), std::string::npos) << trace;
  EXPECT_NE(trace.find("Could not copy all patch files to protected folder!"), std::string::npos);
  EXPECT_EQ(trace.find("Copying file to protected folder:"), std::string::npos) << trace;
  EXPECT_FALSE(platform::paths::Exists(JoinPath(GetInstallPath(), u"customPatches\\out.txt")));
}

TEST_F(Signatures, NothingIsWrittenOutsideTheProtectedFolder) {
  for (const cvn::StringView name : {u"patch\\fix.tlx", u"patch\\in.txt", u"out.txt"}) {
    WriteContent(Path(name), Utf8(name));
  }
  for (const cvn::StringView name :
       {u"patch\\..\\out.txt", u"patch\\.\\..\\out.txt", u"patch\\sub\\..\\..\\out.txt",
        u"patch\\..\\patch\\..\\out.txt"}) {
    const cvn::List<CatalogEntry> entries = {Entry(u"patch\\fix.tlx"), Entry(u"patch\\in.txt"),
                                             Entry(name)};
    PatchFolder folderOfPatch;
    cvn::String obstacle;
    EXPECT_EQ(folderOfPatch.Hold(Path(u"patch\\fix.tlx")), kSuccess);
    EXPECT_EQ(CopyToProtectedFolder(entries, 0, &folderOfPatch, &obstacle), kNotAllCopied)
        << Utf8(name);
    EXPECT_TRUE(obstacle.Empty()) << Utf8(obstacle);
    const cvn::String folder = ProtectedFolderPath();
    EXPECT_EQ(ContentOf(JoinPath(folder, u"in.txt")), "patch\\in.txt");
    EXPECT_FALSE(platform::paths::Exists(JoinPath(folder, u"out.txt")));
    EXPECT_FALSE(platform::paths::Exists(JoinPath(folder, u"..\\out.txt")));
    CleanupProtectedFolder();
    EXPECT_FALSE(platform::paths::Exists(folder));
    EXPECT_TRUE(ProtectedFolderPath().Empty());
  }
}

class SignatureLog : public test_libraries::RecordingTest {
 protected:
  // What is logged while a reader looks at a file with this content, but the beginnings and ends of
  // routines.
  static std::string LinesOfReading(const std::string& content) {
    const cvn::String path = Joined(platform::paths::CurrentDirectory(), u"\\a.cat");
    if (!content.empty()) {
      WriteContent(path, content);
    }
    Crypt::DigitalSignatureObjectImplementation reader;
    Recorded();
    platform::IgnoreError(reader.GetDigitalSignature(path, true));
    std::string lines;
    for (const std::string& line : Recorded()) {
      const std::size_t name = line.rfind("::");
      lines += line.starts_with("+0")
                   ? line.substr(3, line.find(' ', 3) - 2) + line.substr(name + 2) + '\n'
                   : "";
    }
    return lines;
  }
};

TEST_F(SignatureLog, TellsWhatTheReaderDoes) {
  Put(u"journal.dll", Joined(test_libraries::ProgramFolder(), u"\\journal.dll"));
  EXPECT_EQ(LinesOfReading(""), "4 OpenFileHandle: Failed to open file with error 2.\n");
  EXPECT_EQ(LinesOfReading("junk"),
            "4 EnumCertificates: WinVerifyTrust failed with error 0x800B0003\\u000a\n"
            "16 EnumCertificates: WinVerifyTrust try again online check\n"
            "4 EnumCertificates: WinVerifyTrust failed online with error 0x800B0003\n"
            "4 EnumCertificates: Failed to get crypt provider signer. Index 0 from 0 "
            "certificates.\n");
  // Serials are told in lower-case digits.
  const ASN1_INTEGER* number = X509_get0_serialNumber(W().publisher.certificate.get());
  cvn::String serial = cvn::Utf8ToWide(
      platform::test::Hex({reinterpret_cast<const char*>(ASN1_STRING_get0_data(number)),
                           static_cast<std::size_t>(ASN1_STRING_length(number))}));
  LowerCase(&serial);
  EXPECT_EQ(LinesOfReading(Catalog(W().publisher)),
            "32 GetIssuer: Issuer: C=RO, O=\"Example, SRL\", CN=Root\n"
            "32 GetSubject: Subject: C=RO, O=Corvane SRL, CN=Corvane SRL\n"
            "32 GetSerial: Serial: " +
                Utf8(serial) + "\n4 GetTimestamp: No counter signer found.\n");
}

}  // namespace
}  // namespace tessel
