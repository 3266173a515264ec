#include <span>
#include <string>
#include <vector>

#include "platform/held_file.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "platform/services.h"
#include "refused_serials.h"
#include "support/format.h"
#include "tests/platform/fixture.h"
#include "trust/caller.h"
#include "trust/digital_signature.h"
#include "trust/instance_guard.h"
#include "trust/locations.h"
#include "trust/path_key.h"

namespace tessel {
namespace {

namespace services = platform::services;
using platform::test::Utf8;

class Trust : public platform::test::FolderTest {};

TEST(PathKey, TextIsTidied) {
  struct Row {
    cvn::StringView path;
    cvn::StringView tidied;
  };
  for (const Row& row : std::vector<Row>{{u"", u""},
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
                                         {u":", u":"}}) {
    EXPECT_EQ(Utf8(TidyPath(row.path)), Utf8(row.tidied)) << Utf8(row.path);
  }
}

TEST(PathKey, DevicePrefixIsCut) {
  struct Row {
    cvn::StringView finalPath;
    cvn::StringView path;
  };
  for (const Row& row : std::vector<Row>{{u"\\\\?\\C:\\a", u"C:\\a"},
                                         {u"\\\\?\\C:", u"C:"},
                                         {u"\\\\?\\C", u"\\\\?\\C"},
                                         {u"\\\\?\\1:\\a", u"\\\\?\\1:\\a"},
                                         {u"\\\\?\\UNC\\server\\share", u"\\\\server\\share"},
                                         {u"\\\\?\\Volume{1}\\a", u"\\\\?\\Volume{1}\\a"},
                                         {u"C:\\a", u"C:\\a"}}) {
    EXPECT_EQ(Utf8(WithoutDevicePrefix(row.finalPath)), Utf8(row.path));
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

// A service with this image for as long as it lives.
class TestService {
 public:
  explicit TestService(cvn::StringView binaryPath) {
    EXPECT_EQ(services::OpenManager(services::kManagerAllAccess, &manager_), platform::kSuccess);
    services::Config config;
    config.name = kName;
    config.displayName = kName;
    config.serviceType = 0x10;
    config.startType = 3;
    config.binaryPath = binaryPath;
    EXPECT_EQ(services::Create(manager_, config), platform::kSuccess) << Utf8(binaryPath);
  }
  ~TestService() {
    services::Handle service;
    EXPECT_EQ(services::Open(manager_, kName, services::kDelete, &service), platform::kSuccess);
    EXPECT_EQ(services::Delete(service), platform::kSuccess);
  }
  const services::Handle& Manager() const { return manager_; }
  static constexpr cvn::StringView kName = u"TesselTrustTest";

 private:
  services::Handle manager_;
};

TEST(Locations, FoldersOfServices) {
  struct Row {
    cvn::StringView binaryPath;
    cvn::StringView imageFolder;
    cvn::StringView folder;
  };
  for (const Row& row :
       std::vector<Row>{{u"C:\\a b\\s.exe", u"C:\\a b\\", u"C:\\a b"},
                        {u"\"C:\\a b\\s.exe\"", u"C:\\a b\\", u"C:\\a b"},
                        {u"\"C:\\a b\\s.exe\" -run", u"C:\\a b\\", u"C:\\a b"},
                        {u"C:\\a\\s.exe -file D:\\x\\y", u"C:\\a\\s.exe -file D:\\x\\",
                         u"C:\\a\\s.exe -file D:\\x"},
                        {u"\"\"C:\\a\\s.exe", u"\"C:\\a\\", u"C:\\a"},
                        {u"s.exe", u"", u""}}) {
    const TestService service(row.binaryPath);
    cvn::String folder = u"before";
    EXPECT_EQ(GetServiceImageFolder(service.Manager(), TestService::kName, &folder),
              platform::kSuccess);
    EXPECT_EQ(Utf8(folder), Utf8(row.imageFolder)) << Utf8(row.binaryPath);
    EXPECT_EQ(Utf8(GetServiceFolder(TestService::kName)), Utf8(row.folder)) << Utf8(row.binaryPath);
  }
  EXPECT_TRUE(GetServiceFolder(TestService::kName).Empty());
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
  struct Row {
    cvn::List<Certificate> certificates;
    bool passes;
  };
  for (const Row& row : std::vector<Row>{{{}, false},
                                         {{good}, true},
                                         {{Issued(u"corvane srl", kName, u"01")}, false},
                                         {{Issued(kName, u"Corvane", u"01")}, false},
                                         {{Issued(u"Corvane", kName, u"01"), good}, true},
                                         {{lost}, false},
                                         {{lost, good}, false},
                                         {{good, lost}, true}}) {
    EXPECT_EQ(IsPublishersChain({row.certificates}), row.passes);
  }
}

TEST_F(Trust, OnlyProgramsAndCatalogsNeedASignature) {
  for (const cvn::StringView name : {u"a.txt", u"exe", u"a.exe.txt", u"a"}) {
    platform::test::WriteContent(Path(name), "no signature");
    EXPECT_TRUE(VerifyPublisherSignature(Path(name), Path(name), false)) << Utf8(name);
  }
  for (const cvn::StringView name : {u"a.exe", u"a.DLL", u"a.sys", u"a.Cat", u".cat"}) {
    platform::test::WriteContent(Path(name), "no signature");
    EXPECT_FALSE(VerifyPublisherSignature(Path(name), Path(name), false)) << Utf8(name);
  }
}

TEST_F(Trust, AHeldFileStaysAsItWas) {
  platform::test::WriteContent(Path(u"a"), "before");
  platform::files::HeldFile held;
  ASSERT_EQ(held.Hold(Path(u"a")), platform::kSuccess);
  platform::files::File writer;
  for (const cvn::String& path : {cvn::String(held.Path()), cvn::String(Path(u"a"))}) {
    if (platform::files::Open(
            path, platform::files::Access::ReadWrite, platform::files::Share::ReadWrite,
            platform::files::Disposition::OpenExisting, &writer) == platform::kSuccess) {
      const std::string changed = "after!";
      EXPECT_EQ(writer.Write(std::as_bytes(std::span(changed))), platform::kSuccess);
    }
  }
  EXPECT_EQ(platform::test::ContentOf(held.Path()), "before");
}

TEST(Caller, ThisProcessHasAParentAndAUser) {
  EXPECT_TRUE(GetProcessUserSid(platform::process::CurrentId()).AsView().starts_with(u"S-1-"));
  EXPECT_EQ(ProcessUtils::ProcessTool::GetParentPid(0),
            ProcessUtils::ProcessTool::GetParentPid(platform::process::CurrentId()));
  EXPECT_EQ(ProcessUtils::ProcessTool::GetParentPid(0xFFFFFFF0), 0U);
  cvn::String path;
  EXPECT_EQ(ProcessUtils::ProcessTool::GetPathFromPid(platform::process::CurrentId(), &path),
            platform::kSuccess);
  EXPECT_EQ(NormalizePathKey(path), NormalizePathKey(platform::paths::ModuleFileName()));
}

}  // namespace
}  // namespace tessel
