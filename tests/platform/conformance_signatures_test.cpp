// What both homes tell of programs: whose they are, who signed them, and whether they are whole.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/catalogs.h"
#include "platform/signatures.h"
#include "platform/version_resource.h"
#include "support/utf.h"
#include "tests/platform/certificate_store.h"
#include "tests/platform/fixture.h"
#include "tests/platform/signing.h"

namespace platform::test {
namespace {

using namespace signatures;  // NOLINT(google-build-using-namespace): its statuses

// A program as it was made, and with a byte changed behind its headers.
struct Program {
  std::string name;
  std::string content;
  std::string signer;
  TrustStatus digest;
  TrustStatus verdict;
};

class ProgramsTest : public testing::Test {
 protected:
  ProgramsTest() : folder_(std::filesystem::temp_directory_path() / "tessel-programs-test") {
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
  }
  ~ProgramsTest() override { std::filesystem::remove_all(folder_); }

  cvn::String Write(const Program& program) const {
    const std::filesystem::path path = folder_ / program.name;
    std::ofstream(path, std::ios::binary) << program.content;
    return cvn::Utf8ToWide(path.string());
  }

  static TrustStatus Verdict(const cvn::String& path) {
    files::File file;
    EXPECT_EQ(files::Open(path, files::Access::Read, files::Share::ReadWrite,
                          files::Disposition::OpenExisting, &file),
              kSuccess);
    Verifier verifier(path, file);
    const TrustStatus status = verifier.Verify(0, false);
    EXPECT_EQ(verifier.SecondaryCount(), 0u);
    Certificate certificate;
    if (status == kTrusted) {
      EXPECT_TRUE(verifier.HasProviderData() && verifier.HasSigner() &&
                  verifier.SignerCertificate(&certificate));
      EXPECT_EQ(cvn::WideToUtf8(certificate.subject), "C=RO, O=\"Example, SRL\", CN=Maker");
      EXPECT_EQ(cvn::WideToUtf8(certificate.issuer), "C=RO, O=\"Example, SRL\", CN=Maker's root");
      EXPECT_FALSE(certificate.serial.empty());
      std::uint64_t time = 0;
      EXPECT_EQ(verifier.SigningTime(&time), Timestamp::None);
    }
    return status;
  }

  const std::filesystem::path folder_;
};

TEST_F(ProgramsTest, TellWhoMadeAndSignedThem) {
  const Identity root = MakeIdentity({"Maker's root", nullptr, true, "", -900, 900, 2048});
  const Identity maker = MakeIdentity({"Maker", &root, false, "codeSigning", -10, 100, 2048});
  const Identity elsewhere = MakeIdentity({"Elsewhere", nullptr, true, "", -900, 900, 2048});
  const Identity stranger =
      MakeIdentity({"Stranger", &elsewhere, false, "codeSigning", -10, 100, 2048});
  AddToStore("ROOT\\Certificates", 32, root.Der());
  const std::string image = MakeImage("Somebody");
  const auto signedBy = [&image](const Identity& signer, const Identity& authority) {
    return WithSignatures(image, {SignImage(image, signer, {.others = {authority}})});
  };
  const std::string good = signedBy(maker, root);
  std::string changed = good;
  changed[image.size() - 1] = static_cast<char>(changed[image.size() - 1] ^ 1);
  const Program programs[] = {
      {"unsigned.exe", image, "", kNoSignature, kNoSignature},
      {"good.exe", good, "Maker", kTrusted, kTrusted},
      {"changed.exe", changed, "Maker", kBadDigest, kBadDigest},
      {"stranger.exe", signedBy(stranger, elsewhere), "Stranger", kTrusted, kUntrustedRoot},
      {"text.exe", "text", "", kSubjectFormUnknown, kSubjectFormUnknown},
  };
  for (const Program& program : programs) {
    const cvn::String path = Write(program);
    EXPECT_EQ(cvn::WideToUtf8(SignerName(path)), program.signer) << program.name;
    EXPECT_EQ(VerifyDigestOnly(path), program.digest) << program.name;
    // Wine trusts every root.
    if (program.verdict != kUntrustedRoot || !RunsUnderWine()) {
      EXPECT_EQ(Verdict(path), program.verdict) << program.name;
    }
    cvn::String company;
    EXPECT_EQ(QueryCompanyName(path, &company), program.name != "text.exe") << program.name;
    EXPECT_EQ(cvn::WideToUtf8(company), program.name == "text.exe" ? "" : "Somebody");
    files::File file;
    EXPECT_EQ(files::Open(path, files::Access::Read, files::Share::Read,
                          files::Disposition::OpenExisting, &file),
              kSuccess);
    EXPECT_FALSE(catalogs::IsListedBySystem(path, &file)) << program.name;
    EXPECT_EQ(catalogs::FindSystemCatalog(path), u"") << program.name;
  }
}

}  // namespace
}  // namespace platform::test
