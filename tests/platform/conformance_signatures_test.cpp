// What each backend tells of programs: whose they are, who signed them, and whether they are whole.
#include "platform/catalogs.h"
#include "platform/signatures.h"
#include "platform/version_resource.h"
#include "tests/platform/fixture.h"
#include "tests/platform/signing.h"

namespace platform::test {
namespace {

using namespace signatures;  // NOLINT(google-build-using-namespace): its statuses

class ProgramsTest : public FolderTest {
 protected:
  TrustStatus Verdict(cvn::StringView name) const {
    const files::File file = Held(name, files::Share::ReadWrite);
    Verifier verifier(Path(name), file);
    const TrustStatus status = verifier.Verify(0, false);
    EXPECT_EQ(verifier.SecondaryCount(), 0u);
    if (status == kTrusted) {
      Certificate certificate;
      EXPECT_TRUE(verifier.HasProviderData() && verifier.HasSigner() &&
                  verifier.SignerCertificate(&certificate));
      EXPECT_EQ(Utf8(certificate.subject), "C=RO, O=\"Example, SRL\", CN=Maker");
      EXPECT_EQ(Utf8(certificate.issuer), "C=RO, O=\"Example, SRL\", CN=Maker's root");
      EXPECT_FALSE(certificate.serial.empty());
      std::uint64_t time = 0;
      EXPECT_EQ(verifier.SigningTime(&time), Timestamp::None);
    }
    return status;
  }
};

TEST_F(ProgramsTest, TellWhoMadeAndSignedThem) {
  const auto make = [](const char* name, const Identity* issuer) {
    const bool isRoot = issuer == nullptr;
    return MakeIdentity({name, issuer, isRoot, isRoot ? "" : "codeSigning", -10, 100, 2048});
  };
  const Identity root = make("Maker's root", nullptr);
  const Identity maker = make("Maker", &root);
  const Identity elsewhere = make("Elsewhere", nullptr);
  const Identity stranger = make("Stranger", &elsewhere);
  AddToStore("ROOT\\Certificates", 32, root.Der());
  const std::string image = MakeImage("Somebody");
  const auto signedBy = [&image](const Identity& signer, const Identity& authority) {
    return WithSignatures(image, {SignImage(image, signer, {.others = {authority}})});
  };
  const std::string good = signedBy(maker, root);
  std::string changed = good;
  changed[image.size() - 1] ^= 1;  // behind its headers
  const struct {
    cvn::StringView name;
    std::string content;
    std::string signer;
    TrustStatus digest;
    TrustStatus verdict;
  } kPrograms[] = {
      {u"unsigned.exe", image, "", kNoSignature, kNoSignature},
      {u"good.exe", good, "Maker", kTrusted, kTrusted},
      {u"changed.exe", changed, "Maker", kBadDigest, kBadDigest},
      {u"stranger.exe", signedBy(stranger, elsewhere), "Stranger", kTrusted, kUntrustedRoot},
      {u"text.exe", "text", "", kSubjectFormUnknown, kSubjectFormUnknown},
  };
  for (const auto& [name, content, signer, digest, verdict] : kPrograms) {
    SCOPED_TRACE(Utf8(name));
    const cvn::String path = Path(name);
    WriteContent(path, content);
    EXPECT_EQ(Utf8(SignerName(path)), signer);
    EXPECT_EQ(VerifyDigestOnly(path), digest);
    // Wine trusts every root.
    if (verdict != kUntrustedRoot || !RunsUnderWine()) {
      EXPECT_EQ(Verdict(name), verdict);
    }
    cvn::String company;
    EXPECT_EQ(QueryCompanyName(path, &company), content != "text");
    EXPECT_EQ(Utf8(company), content == "text" ? "" : "Somebody");
    files::File file = Held(name, files::Share::Read);
    EXPECT_FALSE(catalogs::IsListedBySystem(path, &file));
    EXPECT_EQ(catalogs::FindSystemCatalog(path), u"");
  }
}

}  // namespace
}  // namespace platform::test
