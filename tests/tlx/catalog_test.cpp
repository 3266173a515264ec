// Catalogs as tlx writes them, read by the platform.
#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>

#include "platform/catalogs.h"
#include "support/utf.h"
#include "tests/platform/fixture.h"
#include "tests/platform/signing.h"
#include "tests/tlx/run_tool.h"

namespace tlx::test {
namespace {

namespace fs = std::filesystem;
namespace catalogs = platform::catalogs;
using platform::test::DigestOf;
using platform::test::Hex;
using platform::test::Identity;
using platform::test::MakeIdentity;

constexpr unsigned kBits = 2048;
constexpr char kName[] = "Corvane SRL";

std::string_view ViewOf(const std::vector<std::byte>& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// All with one authority.
struct Publishers {
  Identity root = MakeIdentity({"Catalog root", nullptr, true, "", -900, 900, kBits});
  Identity good = MakeIdentity({kName, &root, false, "codeSigning", -10, 100, kBits, kName});
  Identity expired = MakeIdentity({kName, &root, false, "codeSigning", -100, -5, kBits, kName});
  Identity curve = MakeIdentity({"Curve", &root});
};

class CatalogTest : public FolderTest {
 protected:
  CatalogTest() {
    fs::create_directories(folder_ / "dir" / "sub");
    WritePem("root", W().root);
    WritePem("good", W().good);
  }

  static const Publishers& W() {
    static const Publishers publishers;
    return publishers;
  }

  // NAME.pem and NAME.key.
  void WritePem(const std::string& name, const Identity& identity) const {
    using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;
    const File certificate(std::fopen(In(name + ".pem").c_str(), "wb"), std::fclose);
    PEM_write_X509(certificate.get(), identity.certificate.get());
    const File key(std::fopen(In(name + ".key").c_str(), "wb"), std::fclose);
    PEM_write_PrivateKey(key.get(), identity.key.get(), nullptr, nullptr, 0, nullptr, nullptr);
  }

  // Runs tlx with files of the test's folder. Its exit code and its first line.
  std::string Catalog(const std::string& certificate, const std::string& key,
                      const std::string& folder, const char* force = nullptr) const {
    std::vector<std::string> arguments = {"catalog",  "--cert",  In(certificate),
                                          "--key",    In(key),   "--dir",
                                          In(folder), "--chain", In("root.pem")};
    if (force != nullptr) {
      arguments.emplace_back(force);
    }
    const ToolResult result = Tlx(arguments);
    return std::to_string(result.exitCode) + ' ' +
           result.err.substr(0, result.err.find_first_of("\r\n"));
  }
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
  ASSERT_EQ(Catalog("good.pem", "good.key", "dir"), "0 ");

  // What a PE image is without its checksum and the security directory's entry, and padded to 8.
  std::string digested = image;
  digested.resize((image.size() + 7) / 8 * 8);
  digested.erase(platform::test::kImageSecurityEntry, 8).erase(platform::test::kImageChecksum, 4);
  cvn::List<catalogs::Member> members;
  ASSERT_EQ(catalogs::ReadMembers(cvn::Utf8ToWide(In("dir/patch.cat")), &members),
            platform::kSuccess);
  ASSERT_EQ(members.size(), files.size());
  // File, digest and tag. Wine's CryptCATGetAttrInfo finds no attribute, and it makes the tags from
  // the digests.
  std::set<std::array<std::string, 3>> expected;
  std::set<std::array<std::string, 3>> seen;
  const bool isWine = platform::test::RunsUnderWine();
  for (const auto& [name, content] : files) {
    const std::string digest =
        Hex(DigestOf(name == "sub/tool.exe" ? digested : content, EVP_sha256()));
    // Tags are unique, although two of the files have the same content.
    const bool isSecond = name == "sub/Same.txt" && !isWine;
    expected.insert({isWine ? "" : name, digest, digest + (isSecond ? ".2" : "")});
  }
  for (const catalogs::Member& member : members) {
    std::string name = cvn::WideToUtf8(member.file.value_or(cvn::String()));
    std::ranges::replace(name, '\\', '/');
    seen.insert({name, Hex(ViewOf(member.digest)), cvn::WideToUtf8(member.tag)});
  }
  EXPECT_EQ(seen, expected);
}

TEST_F(CatalogTest, RefusesWhatCannotBeSigned) {
  WriteFile(In("dir/fix.tlx"), "patch");
  WritePem("expired", W().expired);
  WritePem("curve", W().curve);
  fs::create_directories(In("hollow/sub"));
  WriteFile(In("none.pem"), "nothing");
  const struct {
    std::array<std::string, 3> files;  // certificate, key, folder
    std::string bad;
    std::string error;
  } cases[] = {
      {{"good.pem", "expired.key", "dir"},
       "expired.key",
       ": error: the key doesn't belong to the certificate in " + In("good.pem")},
      {{"good.pem", "curve.key", "dir"},
       "curve.key",
       ": error: the key must be an RSA key of 2048 bits or more"},
      {{"none.pem", "good.key", "dir"},
       "none.pem",
       ":1: error: there is no certificate in PEM form in it"},
      {{"expired.pem", "expired.key", "dir"},
       "expired.pem",
       ": error: the certificate has expired (--force signs all the same)"},
      {{"good.pem", "good.key", "none"}, "none", ": error: there is no such folder"},
      {{"good.pem", "good.key", "hollow"},
       "hollow",
       ": error: there is no file in it for a catalog to list"},
  };
  for (const auto& example : cases) {
    const auto& [certificate, key, folder] = example.files;
    EXPECT_EQ(Catalog(certificate, key, folder), "1 " + In(example.bad) + example.error);
    EXPECT_FALSE(fs::exists(In(folder + "/patch.cat"))) << example.error;
  }
  EXPECT_TRUE(Catalog("expired.pem", "expired.key", "dir", "--force").starts_with("0 "));
}

}  // namespace
}  // namespace tlx::test
