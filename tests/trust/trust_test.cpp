#include <string>
#include <vector>

#include "platform/process.h"
#include "platform/services.h"
#include "refused_serials.h"
#include "support/format.h"
#include "tests/platform/fixture.h"
#include "trust/digital_signature.h"
#include "trust/instance_guard.h"
#include "trust/locations.h"
#include "trust/path_key.h"

namespace tessel {
namespace {

namespace services = platform::services;
using platform::test::Utf8;

class Trust : public platform::test::FolderTest {};

using Texts = std::pair<cvn::StringView, cvn::StringView>;

TEST(PathKey, TextIsTidied) {
  constexpr Texts kTidied[] = {{u"", u""},
                               {u" \n\t", u""},
                               {u"\t c:/a//b\\\\\\c \n", u"c:\\a\\b\\c"},
                               {u"\\a\\\\b", u"\\a\\b"},
                               {u"\\\\server\\\\share", u"\\\\server\\share"},
                               {u"////server/share", u"\\\\server\\share"},
                               {u"\\??\\c:\\a", u"\\??\\c:\\a"},
                               {u"\\\\??\\c:\\a", u"\\??\\c:\\a"},
                               {u"\\\\?\\c:\\a", u"\\\\?\\c:\\a"},
                               {u"\\", u"\\\\"},
                               {u"c:", u"c:\\"},
                               {u"c:\\a\\", u"c:\\a\\"},
                               {u":", u":"}};
  for (const auto& [path, tidied] : kTidied) {
    EXPECT_EQ(Utf8(TidyPath(path)), Utf8(tidied)) << Utf8(path);
  }
  constexpr Texts kFinal[] = {{u"\\\\?\\C:\\a", u"C:\\a"},
                              {u"\\\\?\\C:", u"C:"},
                              {u"\\\\?\\C", u"\\\\?\\C"},
                              {u"\\\\?\\1:\\a", u"\\\\?\\1:\\a"},
                              {u"\\\\?\\UNC\\server\\share", u"\\\\server\\share"},
                              {u"\\\\?\\Volume{1}\\a", u"\\\\?\\Volume{1}\\a"},
                              {u"C:\\a", u"C:\\a"}};
  for (const auto& [finalPath, path] : kFinal) {
    EXPECT_EQ(Utf8(WithoutDevicePrefix(finalPath)), Utf8(path));
  }
}

TEST_F(Trust, SpellingsOfOneFileHaveOneKey) {
  ASSERT_EQ(platform::files::CreateDirectory(Path(u"Folder")), platform::kSuccess);
  platform::test::WriteContent(Path(u"Folder\\File.txt"), "x");
  const cvn::String key = NormalizePathKey(Path(u"Folder\\File.txt"));
  EXPECT_TRUE(key.AsView().ends_with(u"\\folder\\file.txt")) << Utf8(key);
  for (const cvn::StringView spelling :
       {u"folder\\FILE.TXT", u"Folder/File.txt", u"Folder\\\\.\\File.txt",
        u"Folder\\..\\Folder\\File.txt"}) {
    EXPECT_EQ(Utf8(NormalizePathKey(Path(spelling))), Utf8(key)) << Utf8(spelling);
  }
  EXPECT_EQ(Utf8(NormalizePathKey(Path(u"Folder\\"))), Utf8(NormalizePathKey(Path(u"folder"))));
  EXPECT_TRUE(NormalizePathKey(Path(u"Folder\\Other.txt")).Empty());
  EXPECT_EQ(Utf8(NormalizePathKey(u"c:")), "c:\\");
  if (platform::test::MakeFolderLink(Path(u"Link"), Path(u"Folder"))) {
    EXPECT_EQ(Utf8(NormalizePathKey(Path(u"Link\\File.txt"))), Utf8(key));
    EXPECT_EQ(Utf8(MakeRelativeToBase(Path(u"link\\file.txt"), Path(u"Folder"))), "\\file.txt");
  }
  EXPECT_EQ(Utf8(MakeRelativeToBase(Path(u"Folder\\File.txt"), Path(u"missing"))), Utf8(key));
}

TEST(InstanceGuardTest, AnyHolderKeepsIt) {
  const cvn::String name = cvn::Format(u"Global\\trust-test-%d", platform::process::CurrentId());
  InstanceGuard first{.name = name, .handle = {}};
  InstanceGuard second{.name = name, .handle = {}};
  InstanceGuard third{.name = name, .handle = {}};
  InstanceGuard other{.name = u"Global\\trust-test-other", .handle = {}};
  EXPECT_TRUE(IsInstanceFirst(&first));
  EXPECT_FALSE(IsInstanceFirst(&second));
  EXPECT_TRUE(IsInstanceFirst(&other));
  first.handle.Close();
  EXPECT_FALSE(IsInstanceFirst(&third));
  second.handle.Close();
  EXPECT_FALSE(IsInstanceFirst(&first));
  first.handle.Close();
  third.handle.Close();
  EXPECT_TRUE(IsInstanceFirst(&first));
}

TEST(Locations, FoldersOfServices) {
  constexpr cvn::StringView kName = u"TesselTrustTest";
  constexpr struct {
    cvn::StringView binaryPath;
    cvn::StringView imageFolder;
    cvn::StringView folder;
  } kCases[] = {
      {u"C:\\a b\\s.exe", u"C:\\a b\\", u"C:\\a b"},
      {u"\"C:\\a b\\s.exe\" -run", u"C:\\a b\\", u"C:\\a b"},
      {u"C:\\a\\s.exe -file D:\\x\\y", u"C:\\a\\s.exe -file D:\\x\\", u"C:\\a\\s.exe -file D:\\x"},
      {u"\"\"C:\\a\\s.exe", u"\"C:\\a\\", u"C:\\a"},
      {u"s.exe", u"", u""}};
  services::Handle manager;
  ASSERT_EQ(services::OpenManager(services::kManagerAllAccess, &manager), platform::kSuccess);
  for (const auto& [binaryPath, imageFolder, expected] : kCases) {
    services::Config config;
    config.name = kName;
    config.displayName = kName;
    config.serviceType = 0x10;
    config.startType = 3;
    config.binaryPath = binaryPath;
    EXPECT_EQ(services::Create(manager, config), platform::kSuccess) << Utf8(binaryPath);
    cvn::String folder = u"before";
    EXPECT_EQ(GetServiceImageFolder(manager, kName, &folder), platform::kSuccess);
    EXPECT_EQ(Utf8(folder), Utf8(imageFolder)) << Utf8(binaryPath);
    EXPECT_EQ(Utf8(GetServiceFolder(kName)), Utf8(expected)) << Utf8(binaryPath);
    services::Handle service;
    EXPECT_EQ(services::Open(manager, kName, services::kDelete, &service), platform::kSuccess);
    EXPECT_EQ(services::Delete(service), platform::kSuccess);
  }
  EXPECT_TRUE(GetServiceFolder(kName).Empty());
}

TEST_F(Trust, AFolderHoldsWhatItsPathBegins) {
  ASSERT_EQ(platform::files::CreateDirectory(Path(u"b")), platform::kSuccess);
  ASSERT_EQ(platform::files::CreateDirectory(Path(u"bc")), platform::kSuccess);
  const cvn::String inside = NormalizePathKey(Path(u"bc"));
  EXPECT_TRUE(IsPathUnder(inside, Path(u"b")));
  EXPECT_TRUE(IsPathUnder(inside, Path(u"BC")));
  EXPECT_FALSE(IsPathUnder(NormalizePathKey(Path(u"b")), Path(u"bc")));
  EXPECT_FALSE(IsPathUnder(inside, Path(u"missing")));
  EXPECT_FALSE(IsPathUnder(u"", Path(u"b")));
  EXPECT_FALSE(IsPathUnder(inside, u""));
}

using Certificate = Crypt::Chain::Certificate;

Certificate Issued(cvn::StringView commonName, cvn::StringView organisation,
                   cvn::StringView serial) {
  Certificate certificate;
  certificate.subjectParts[u"CN"] = {u"Another", commonName};
  certificate.subjectParts[u"O"] = {organisation};
  certificate.serial = serial;
  return certificate;
}

TEST(Publisher, IsKnownByNameOrganisationAndSerial) {
  constexpr cvn::StringView kName = u"Corvane SRL";
  const Certificate good = Issued(kName, kName, u"01");
  const Certificate lost = Issued(kName, kName, kRefusedSerials[2]);
  const Certificate padded = Issued(kName, kName, cvn::Format(u"00%s", kRefusedSerials[2]));
  const std::pair<cvn::List<Certificate>, bool> kCases[] = {
      {{}, false},
      {{good}, true},
      {{Issued(u"corvane srl", kName, u"01")}, false},
      {{Issued(kName, u"Corvane", u"01")}, false},
      {{Issued(u"Corvane", kName, u"01"), good}, true},
      {{lost}, false},
      {{padded}, false},
      {{lost, good}, false},
      {{good, lost}, true}};
  for (const auto& [certificates, passes] : kCases) {
    EXPECT_EQ(IsPublishersChain({certificates}), passes) << "row " << &passes - &kCases[0].second;
  }
}

TEST_F(Trust, OnlyProgramsAndCatalogsNeedASignature) {
  constexpr std::pair<cvn::StringView, bool> kNames[] = {
      {u"a.txt", true},  {u"exe", true},    {u"a.exe.txt", true},
      {u"a", true},      {u"a.exe", false}, {u"a.DLL", false},
      {u"a.sys", false}, {u"a.Cat", false}, {u".cat", false}};
  for (const auto& [name, passes] : kNames) {
    platform::test::WriteContent(Path(name), "no signature");
    EXPECT_EQ(VerifyPublisherSignature(Path(name), Path(name), false), passes) << Utf8(name);
  }
}

}  // namespace
}  // namespace tessel
