// Catalogs as tlx writes them, read and judged by the home's own platform.
#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <tuple>

#include "platform/catalogs.h"
#include "platform/signatures.h"
#include "support/utf.h"
#include "tests/platform/certificate_store.h"
#include "tests/platform/fixture.h"
#include "tests/platform/signing.h"
#include "tests/tlx/run_tool.h"

namespace tlx::test {
namespace {

namespace fs = std::filesystem;
namespace catalogs = platform::catalogs;
namespace signatures = platform::signatures;
using platform::test::DigestOf;
using platform::test::Hex;
using platform::test::Identity;
using platform::test::MakeIdentity;

constexpr unsigned kBits = 2048;

std::string_view ViewOf(const std::vector<std::byte>& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// What is known of members: the file's name, the digest, the tag.
using Rows = std::set<std::array<std::string, 3>>;

// Wine's CryptCATGetAttrInfo finds no attribute, and it makes the tags from the digests.
Rows AsWineTells(const Rows& rows) {
  Rows told;
  for (const auto& [name, digest, tag] : rows) {
    told.insert({"", digest, digest});
  }
  return told;
}

// All with one authority, which the system trusts.
struct Publishers {
  Identity root = MakeIdentity({"Catalog root", nullptr, true, "", -900, 900, kBits});
  Identity good = MakeIdentity({"Publisher", &root, false, "codeSigning", -10, 100, kBits});
  Identity wrongPurpose = MakeIdentity({"Server", &root, false, "serverAuth", -10, 100, kBits});
  Identity expired = MakeIdentity({"Expired", &root, false, "codeSigning", -100, -5, kBits});
  Identity early = MakeIdentity({"Early", &root, false, "codeSigning", 5, 100, kBits});
  Identity curve = MakeIdentity({"Curve", &root});

  Publishers() { platform::test::AddToStore("ROOT\\Certificates", 32, root.Der()); }
};

class CatalogTest : public testing::Test {
 protected:
  CatalogTest() : folder_(fs::temp_directory_path() / "tessel-catalog-test") {
    fs::remove_all(folder_);
    fs::create_directories(folder_ / "dir" / "sub");
    WritePem("root", W().root);
    WritePem("good", W().good);
  }
  ~CatalogTest() override { fs::remove_all(folder_); }

  static const Publishers& W() {
    static const Publishers publishers;
    return publishers;
  }

  std::string In(const std::string& name) const { return (folder_ / name).string(); }

  // NAME.pem and NAME.key.
  void WritePem(const std::string& name, const Identity& identity) const {
    using Bio = std::unique_ptr<BIO, decltype(&BIO_free)>;
    const auto write = [](const std::string& path, const auto& fill) {
      const Bio bio(BIO_new(BIO_s_mem()), &BIO_free);
      fill(bio.get());
      char* data = nullptr;
      const long size = BIO_get_mem_data(bio.get(), &data);
      WriteFile(path, {data, static_cast<std::size_t>(size)});
    };
    write(In(name + ".pem"),
          [&identity](BIO* bio) { PEM_write_bio_X509(bio, identity.certificate.get()); });
    write(In(name + ".key"), [&identity](BIO* bio) {
      PEM_write_bio_PrivateKey(bio, identity.key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
  }

  // Runs tlx as `publisher`, with its files in the test's folder.
  ToolResult Catalog(const std::string& publisher,
                     const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments = {"catalog",
                                          "--cert",
                                          In(publisher + ".pem"),
                                          "--key",
                                          In(publisher + ".key"),
                                          "--chain",
                                          In("root.pem"),
                                          "--dir",
                                          In("dir")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Tlx(arguments);
  }

  cvn::List<catalogs::Member> Members() const {
    cvn::List<catalogs::Member> members;
    EXPECT_EQ(catalogs::ReadMembers(cvn::Utf8ToWide(In("dir/patch.cat")), &members),
              platform::kSuccess);
    return members;
  }

  signatures::TrustStatus Verdict(signatures::Certificate* certificate) const {
    const cvn::String path = cvn::Utf8ToWide(In("dir/patch.cat"));
    platform::files::File file;
    EXPECT_EQ(platform::files::Open(path, platform::files::Access::Read,
                                    platform::files::Share::ReadWrite,
                                    platform::files::Disposition::OpenExisting, &file),
              platform::kSuccess);
    signatures::Verifier verifier(path, file);
    const signatures::TrustStatus status = verifier.Verify(0, false);
    if (verifier.HasProviderData() && verifier.HasSigner()) {
      verifier.SignerCertificate(certificate);
    }
    return status;
  }

  const fs::path folder_;
};

TEST_F(CatalogTest, ListsEveryFileBelowTheFolder) {
  const std::string image = platform::test::MakeImage("Somebody") + "odd";
  const std::map<std::string, std::string> files = {
      {"Fix.tlx", "patch"},     {"empty", ""},           {"sub/Same.txt", "patch"},
      {"sub/patch.cat", "not"}, {"sub/tool.exe", image},
  };
  for (const auto& [name, content] : files) {
    WriteFile(In("dir/" + name), content);
  }
  WriteFile(In("dir/patch.cat"), "an older one");
  const ToolResult result = Catalog("good");
  ASSERT_EQ(std::tuple(result.exitCode, result.err), std::tuple(0, ""));

  // What a PE image is without its checksum and the security directory's entry, and padded to 8.
  std::string digested = image;
  digested.resize((image.size() + 7) / 8 * 8);
  digested.erase(platform::test::kImageSecurityEntry, 8).erase(platform::test::kImageChecksum, 4);
  const cvn::List<catalogs::Member> members = Members();
  ASSERT_EQ(members.size(), files.size());
  Rows expected;
  Rows seen;
  for (const auto& [name, content] : files) {
    const std::string digest =
        Hex(DigestOf(name == "sub/tool.exe" ? digested : content, EVP_sha256()));
    // Tags are unique, although two of the files have the same content.
    expected.insert({name, digest, digest + (name == "sub/Same.txt" ? ".2" : "")});
  }
  for (const catalogs::Member& member : members) {
    std::string name = cvn::WideToUtf8(member.file.value_or(cvn::String()));
    std::ranges::replace(name, '\\', '/');
    seen.insert({name, Hex(ViewOf(member.digest)), cvn::WideToUtf8(member.tag)});
  }
  EXPECT_EQ(seen, platform::test::RunsUnderWine() ? AsWineTells(expected) : expected);
}

TEST_F(CatalogTest, ThePlatformTrustsItUntilAByteChanges) {
  WriteFile(In("dir/fix.tlx"), "patch");
  WriteFile(In("dir/sub/tool.exe"), platform::test::MakeImage("Somebody"));
  ASSERT_EQ(Catalog("good").exitCode, 0);
  signatures::Certificate certificate;
  EXPECT_EQ(Verdict(&certificate), signatures::kTrusted);
  EXPECT_NE(certificate.subject.AsView().find(u"CN=Publisher"), cvn::StringView::npos)
      << cvn::WideToUtf8(certificate.subject);

  const std::string catalog = ReadFile(In("dir/patch.cat"));
  const struct {
    std::size_t place;
    bool isSeenByWine;
  } changes[] = {
      // A digest in the list; Wine takes the digest in the signature for that of the list.
      {catalog.find(DigestOf("patch", EVP_sha256())), false},
      // The signature's last byte.
      {catalog.size() - 1, true},
  };
  for (const auto& [place, isSeenByWine] : changes) {
    std::string changed = catalog;
    changed[place] = static_cast<char>(changed[place] ^ 1);
    WriteFile(In("dir/patch.cat"), changed);
    if (isSeenByWine || !platform::test::RunsUnderWine()) {
      EXPECT_NE(Verdict(&certificate), signatures::kTrusted) << place;
    }
  }
}

TEST_F(CatalogTest, ItsDigestsAreThePlatformsOwn) {
  catalogs::Functions functions;
  functions.Bind();
  const std::map<std::string, std::string> files = {
      {"fix.tlx", "patch"},
      {"odd.exe", platform::test::MakeImage("Somebody") + "odd"},
      {"tool.exe", platform::test::MakeImage("Somebody")},
  };
  for (const auto& [name, content] : files) {
    WriteFile(In("dir/" + name), content);
  }
  ASSERT_EQ(Catalog("good").exitCode, 0);
  std::set<std::string> listed;
  std::set<std::string> computed;
  for (const catalogs::Member& member : Members()) {
    listed.insert(Hex(ViewOf(member.digest)));
  }
  for (const auto& [name, content] : files) {
    platform::files::File file;
    ASSERT_EQ(platform::files::Open(cvn::Utf8ToWide(In("dir/" + name)),
                                    platform::files::Access::Read, platform::files::Share::Read,
                                    platform::files::Disposition::OpenExisting, &file),
              platform::kSuccess);
    std::vector<std::byte> digest;
    const platform::Code code = functions.Hash(&file, &digest);
    if (code == platform::kProcNotFound && platform::test::RunsUnderWine()) {
      GTEST_SKIP() << "this Wine has no CryptCATAdminCalcHashFromFileHandle2";
    }
    EXPECT_EQ(code, platform::kSuccess) << name;
    computed.insert(Hex(ViewOf(digest)));
  }
  EXPECT_EQ(computed, listed);
}

TEST_F(CatalogTest, RefusesWhatCannotBeSigned) {
  WriteFile(In("dir/fix.tlx"), "patch");
  for (const auto& [name, identity] :
       {std::pair("expired", &W().expired), std::pair("early", &W().early),
        std::pair("curve", &W().curve)}) {
    WritePem(name, *identity);
  }
  fs::create_directories(In("hollow/sub"));
  WriteFile(In("none.pem"), "nothing");
  const std::string good = In("good.pem");
  const std::string key = In("good.key");
  const struct {
    std::array<std::string, 3> files;  // certificate, key, folder
    std::string error;
  } cases[] = {
      {{good, In("expired.key"), In("dir")},
       In("expired.key") + ": error: the key doesn't belong to the certificate in " + good},
      {{good, In("curve.key"), In("dir")},
       In("curve.key") + ": error: the key must be an RSA key of 2048 bits or more"},
      {{good, good, In("dir")}, good + ": error: there is no private key in PEM form in it"},
      {{In("none.pem"), key, In("dir")},
       In("none.pem") + ":1: error: there is no certificate in PEM form in it"},
      {{In("expired.pem"), In("expired.key"), In("dir")},
       In("expired.pem") + ": error: the certificate has expired (--force signs all the same)"},
      {{In("early.pem"), In("early.key"), In("dir")},
       In("early.pem") + ": error: the certificate isn't valid yet (--force signs all the same)"},
      {{good, key, In("hollow")},
       In("hollow") + ": error: there is no file in it for a catalog to list"},
      {{good, key, In("nowhere")}, In("nowhere") + ": error: there is no such folder"},
      {{good, key, good}, good + ": error: there is no such folder"},
  };
  for (const auto& [files, error] : cases) {
    const ToolResult result =
        Tlx({"catalog", "--cert", files[0], "--key", files[1], "--dir", files[2]});
    EXPECT_EQ(result.exitCode, 1) << error;
    EXPECT_EQ(result.err.substr(0, result.err.find_first_of("\r\n")), error);
    EXPECT_FALSE(fs::exists(fs::path(files[2]) / "patch.cat")) << error;
  }
  EXPECT_EQ(Tlx({"catalog", "--cert", good, "--key", key}).exitCode, 2);
  EXPECT_EQ(Catalog("expired", {"--force"}).exitCode, 0);
}

TEST_F(CatalogTest, WarnsOfACertificateForAnotherPurpose) {
  WriteFile(In("dir/fix.tlx"), "patch");
  WritePem("server", W().wrongPurpose);
  const ToolResult result = Catalog("server");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_TRUE(result.err.starts_with(In("server.pem") + ": warning: ")) << result.err;
  if (platform::test::RunsUnderWine()) {
    GTEST_SKIP() << "Wine doesn't look at a signer's purpose";
  }
  signatures::Certificate certificate;
  EXPECT_EQ(Verdict(&certificate), signatures::kWrongUsage);
}

}  // namespace
}  // namespace tlx::test
