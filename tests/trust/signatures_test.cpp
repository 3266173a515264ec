// Catalogs and programs with real signatures, on a machine that knows one root.
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "files/path_text.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "support/utf.h"
#include "tests/libraries/fixture.h"
#include "tests/platform/certificate_store.h"
#include "tests/platform/fixture.h"
#include "tests/platform/signing.h"
#include "trace/trace.h"
#include "trust/catalog.h"
#include "trust/catalog_check.h"
#include "trust/digital_signature.h"
#include "trust/locations.h"
#include "trust/path_key.h"

namespace tessel {
namespace {

namespace files = platform::files;
using platform::test::Identity;
using platform::test::kTrustListType;
using platform::test::Listed;
using platform::test::MakeIdentity;
using platform::test::Utf8;

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
  return platform::test::Sign(signer, kTrustListType, platform::test::MakeTrustList(members));
}

Listed Member(cvn::StringView name, const std::string& content, const EVP_MD* algorithm) {
  const std::string digest = platform::test::DigestOf(content, algorithm);
  return {platform::test::Hex(digest),
          digest,
          {reinterpret_cast<const char*>(name.data()), name.size() * sizeof(char16_t)}};
}

// In lower-case digits, as serials are told.
std::string SerialOf(const Identity& identity) {
  const ASN1_INTEGER* number = X509_get0_serialNumber(identity.certificate.get());
  cvn::String digits = cvn::Utf8ToWide(
      platform::test::Hex({reinterpret_cast<const char*>(ASN1_STRING_get0_data(number)),
                           static_cast<std::size_t>(ASN1_STRING_length(number))}));
  LowerCase(&digits);
  return Utf8(digits);
}

class Signatures : public platform::test::FolderTest {
 protected:
  cvn::String HashOf(cvn::StringView name) const {
    CatalogFunctions functions;
    BindCatalogFunctions(&functions);
    cvn::String hash;
    EXPECT_EQ(CalcFileHash(functions, Path(name), &hash), platform::kSuccess);
    return hash;
  }

  // What is traced while `action` runs.
  template <typename Action>
  std::string Traced(Action action) const {
    OpenTraceFile(Path(u"trace.txt"));
    action();
    CloseTraceFile();
    return platform::test::ContentOf(Path(u"trace.txt")).value_or("no trace");
  }
};

TEST_F(Signatures, AnySignatureOfAFileMayBeThePublishers) {
  using platform::test::WithNested;
  const std::string own = Catalog(W().publisher);
  const std::string others = Catalog(W().another);
  const std::string impostors = Catalog(W().impostor);
  const struct {
    const char* what;
    std::string file;
    bool passes;
  } kCases[] = {
      {"own", own, true},
      {"another's", others, false},
      {"impostor's", impostors, false},
      {"another's, own", WithNested(others, own), true},
      {"impostor's, own", WithNested(impostors, own), true},
      {"own, impostor's", WithNested(own, impostors), true},
      {"another's, impostor's", WithNested(others, impostors), false},
  };
  const cvn::String path = Path(u"patch.cat");
  for (const auto& signedFile : kCases) {
    platform::test::WriteContent(path, signedFile.file);
    EXPECT_EQ(VerifyPublisherSignature(path, path, false), signedFile.passes) << signedFile.what;
  }
}

TEST_F(Signatures, ThePatchIsListedByItsSha256) {
  const std::string patch = "the patch";
  const Listed old = Member(u"fix.tlx", patch, EVP_sha1());
  const Listed good = Member(u"fix.tlx", patch, EVP_sha256());
  const struct {
    const char* what;
    std::vector<Listed> members;
    std::int32_t result;
  } kCases[] = {
      {"SHA-1", {old}, kPatchFileMismatch},
      {"both", {old, good}, kCatalogPassed},
      {"under another name", {Member(u"fox.tlx", patch, EVP_sha256())}, kPatchFileMismatch},
      {"without a name", {{good.tag, good.digest, ""}}, kPatchFileMismatch},
      {"nothing", {}, kPatchFileMismatch},
  };
  platform::test::WriteContent(Path(u"fix.tlx"), patch);
  const cvn::String contentHash = HashOf(u"fix.tlx");
  for (const auto& listed : kCases) {
    platform::test::WriteContent(Path(u"patch.cat"), Catalog(W().publisher, listed.members));
    cvn::String reason;
    EXPECT_EQ(CheckCatalog(Path(u"fix.tlx"), contentHash, &reason), listed.result) << listed.what;
    EXPECT_EQ(Utf8(reason), listed.result == kCatalogPassed ? "" : "file hash mismatch");
  }
}

TEST_F(Signatures, AFileThatACatalogFindsOutsideIsNotCopied) {
  ASSERT_EQ(files::CreateDirectoryRecursive(GetInstallPath()), platform::kSuccess);
  ASSERT_EQ(files::CreateDirectory(Path(u"patch")), platform::kSuccess);
  platform::test::WriteContent(Path(u"patch\\fix.tlx"), "the patch");
  platform::test::WriteContent(Path(u"out.txt"), "outside");
  platform::test::WriteContent(
      Path(u"patch\\patch.cat"),
      Catalog(W().publisher, {Member(u"fix.tlx", "the patch", EVP_sha256()),
                              Member(u"..\\out.txt", "outside", EVP_sha256())}));
  const std::string trace = Traced([this] {
    cvn::String reason;
    EXPECT_EQ(CheckCatalog(Path(u"patch\\fix.tlx"), HashOf(u"patch\\fix.tlx"), &reason),
              kCatalogPassed);
  });
  EXPECT_NE(trace.find("Could not extract file relative path: ["), std::string::npos) << trace;
  EXPECT_NE(trace.find("Could not copy all patch files to protected folder!"), std::string::npos);
  EXPECT_EQ(trace.find("Copying file to protected folder:"), std::string::npos) << trace;
  EXPECT_FALSE(
      platform::paths::Exists(JoinPath(JoinPath(GetInstallPath(), u"customPatches"), u"out.txt")));
}

TEST_F(Signatures, AProgramIsSignedByItselfOrByASystemCatalog) {
  const auto signedBy = [](const std::string& image, const Identity& signer) {
    return platform::test::WithSignatures(image, {platform::test::SignImage(image, signer)});
  };
  const auto changed = [](std::string image) {
    image[platform::test::kImageSecurityEntry + 0x100] ^= 1;
    return image;
  };
  const std::string listed = platform::test::MakeImage("Listed");
  const std::string image = platform::test::MakeImage("Unlisted");
  std::string covered = listed;
  covered.erase(platform::test::kImageSecurityEntry, 8).erase(platform::test::kImageChecksum, 4);
  constexpr cvn::StringView kCatalogs =
      u"C:\\Windows\\System32\\CatRoot\\{F750E6C3-38EE-11D1-85E5-00C04FC295EE}";
  ASSERT_EQ(files::CreateDirectoryRecursive(kCatalogs), platform::kSuccess);
  platform::test::WriteContent(JoinPath(kCatalogs, u"a.cat"),
                               Catalog(W().another, {Member(u"", covered, EVP_sha1())}));
  const struct {
    const char* what;
    std::string content;
    bool isSigned;
  } kCases[] = {
      {"unsigned", image, false},
      {"signed", signedBy(image, W().another), true},
      {"signed by whomever", signedBy(image, W().impostor), true},
      {"signed, then changed", changed(signedBy(image, W().another)), false},
      {"listed", listed, true},
      {"listed, then changed", changed(listed), false},
      {"text", "text", false},
  };
  for (const auto& program : kCases) {
    platform::test::WriteContent(Path(u"a.exe"), program.content);
    EXPECT_EQ(IsFileSigned(Path(u"a.exe")), program.isSigned) << program.what;
  }
}

class SignatureLog : public test_libraries::RecordingTest {
 protected:
  static cvn::String PathOf(const char* name) {
    return cvn::Utf8ToWide((std::filesystem::current_path() / name).string());
  }

  // What is logged while a reader looks at the file: without the class's name, and without the
  // times behind the ends of routines.
  static test_libraries::Lines LinesOfReading(const char* name) {
    Crypt::DigitalSignatureObjectImplementation reader;
    Recorded();
    platform::IgnoreError(reader.GetDigitalSignature(PathOf(name), true));
    test_libraries::Lines lines = Recorded();
    for (std::string& line : lines) {
      for (const std::string_view known :
           {"program ", "Crypt::DigitalSignatureObjectImplementation::"}) {
        for (std::size_t at = 0; (at = line.find(known)) != std::string::npos;) {
          line.erase(at, known.size());
        }
      }
      if (line.starts_with("-1 ")) {
        line.resize(line.rfind(" ["));
      }
    }
    return lines;
  }
};

TEST_F(SignatureLog, TellsWhatTheReaderDoes) {
  cvn::String journal = test_libraries::ProgramFolder();
  journal.Append(u"\\journal.dll");
  Put(u"journal.dll", journal);
  platform::test::WriteContent(PathOf("good.cat"), Catalog(W().publisher));
  platform::test::WriteContent(PathOf("junk.cat"), "junk");
  EXPECT_EQ(LinesOfReading("missing.cat"),
            (test_libraries::Lines{"+1 32 GetDigitalSignature: -> GetDigitalSignature()",
                                   "+1 32 OpenFileHandle: -> OpenFileHandle()",
                                   "+0 4 OpenFileHandle: Failed to open file with error 2.",
                                   "-1 32 OpenFileHandle: <- OpenFileHandle()",
                                   "-1 32 GetDigitalSignature: <- GetDigitalSignature()"}));
  EXPECT_EQ(
      LinesOfReading("junk.cat"),
      (test_libraries::Lines{
          "+1 32 GetDigitalSignature: -> GetDigitalSignature()",
          "+1 32 OpenFileHandle: -> OpenFileHandle()", "-1 32 OpenFileHandle: <- OpenFileHandle()",
          "+1 32 EnumCertificates: -> EnumCertificates()",
          "+0 4 EnumCertificates: WinVerifyTrust failed with error 0x800B0003\\u000a",
          "+0 16 EnumCertificates: WinVerifyTrust try again online check",
          "+0 4 EnumCertificates: WinVerifyTrust failed online with error 0x800B0003",
          "+0 4 EnumCertificates: Failed to get crypt provider signer. Index 0 from 0 "
          "certificates.",
          "-1 32 EnumCertificates: <- EnumCertificates()",
          "-1 32 GetDigitalSignature: <- GetDigitalSignature()"}));
  EXPECT_EQ(
      LinesOfReading("good.cat"),
      (test_libraries::Lines{
          "+1 32 GetDigitalSignature: -> GetDigitalSignature()",
          "+1 32 OpenFileHandle: -> OpenFileHandle()", "-1 32 OpenFileHandle: <- OpenFileHandle()",
          "+1 32 EnumCertificates: -> EnumCertificates()", "+1 32 GetIssuer: -> GetIssuer()",
          "+0 32 GetIssuer: Issuer: C=RO, O=\"Example, SRL\", CN=Root",
          "-1 32 GetIssuer: <- GetIssuer()", "+1 32 GetSubject: -> GetSubject()",
          "+0 32 GetSubject: Subject: C=RO, O=Corvane SRL, CN=Corvane SRL",
          "-1 32 GetSubject: <- GetSubject()", "+1 32 GetSerial: -> GetSerial()",
          "+0 32 GetSerial: Serial: " + SerialOf(W().publisher), "-1 32 GetSerial: <- GetSerial()",
          "+1 32 GetTimestamp: -> GetTimestamp()", "+0 4 GetTimestamp: No counter signer found.",
          "-1 32 GetTimestamp: <- GetTimestamp()", "-1 32 EnumCertificates: <- EnumCertificates()",
          "-1 32 GetDigitalSignature: <- GetDigitalSignature()"}));
}

}  // namespace
}  // namespace tessel
