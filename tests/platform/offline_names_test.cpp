// Short names of files, and the names of devices.

#include <string>

#include "platform/final_path.h"
#include "platform/held_folder.h"
#include "platform/offline/volume/volume.h"
#include "platform/process.h"
#include "platform/profile.h"
#include "platform/registry.h"
#include "support/utf.h"
#include "tests/platform/host_folder.h"
#include "tests/platform/ntfs_mount.h"

namespace platform::test {
namespace {

using files::kMoveReplaceExisting;
using posix::Machine;
using namespace steps;

class ShortNames : public HostFolderTest {
 protected:
  ShortNames() : volume_(Host("ntfs")) {}

  void SetUp() override {
    if (!volume_.IsMounted()) {
      GTEST_SKIP() << "no NTFS can be mounted here";
    }
    std::filesystem::create_directories(Host("ntfs/Program Files/Ambry Shield"));
    MakeFile("Program Files/Ambry Shield/long file name.txt", "LONGFI~1.TXT");
    MakeFile("page.html", "PAGE~1.HTM");
    MakeFile("given name", "GIVEN.X");  // as any name can be set
    ASSERT_TRUE(volume_.SetShortName("Program Files", "PROGRA~1"));
    ASSERT_TRUE(volume_.SetShortName("Program Files/Ambry Shield", "AMBRYS~1"));
  }

  void MakeFile(const std::string& name, const std::string& shortName) const {
    Touch(Host("ntfs/" + name));
    ASSERT_TRUE(volume_.SetShortName(name, shortName)) << name;
  }

  // What a path in the volume is resolved to there, or the code of a failure but that of a last
  // name that is missing.
  std::string Place(cvn::StringView name) const {
    posix::HostPath host;
    const Code code = posix::Resolve(Path(Joined(u"ntfs\\", name)), &host);
    const bool isPlace = code == kSuccess || code == kFileNotFound;
    return isPlace ? (code == kSuccess ? "" : "new ") + host.spelling.substr(Host("ntfs/").size())
                   : std::to_string(code);
  }

  std::string FinalPath(cvn::StringView path) const {
    cvn::String text;
    paths::VolumeName volume{};
    return paths::GetFinalPath(path, &text, &volume) == kSuccess ? Utf8(text) : "none";
  }

  NtfsMount volume_;
};

TEST_F(ShortNames, LeadToTheFile) {
  constexpr std::pair<cvn::StringView, const char*> kCases[] = {
      {u"PROGRA~1", "Program Files"},
      {u"progra~1\\ambrys~1\\LongFi~1.txt", "Program Files/Ambry Shield/long file name.txt"},
      {u"PROGRA~1\\AMBRYS~1\\New~1", "new Program Files/Ambry Shield/New~1"},
      {u"Program Files\\AMBRYS~1\\..\\x", "new Program Files/x"},
      {u"PROGRA~2\\x", "3"},
      {u"GIVEN.X", "given name"},
      {u"given.x", "given name"},
      {u"GIVEN.X1", "new GIVEN.X1"},
  };
  for (const auto& [name, place] : kCases) {
    EXPECT_EQ(Place(name), place) << Utf8(name);
  }
  EXPECT_EQ(Utf8(paths::LongName(Path(u"ntfs\\PROGRA~1\\ambrys~1"))),
            Utf8(Path(u"ntfs\\Program Files\\Ambry Shield")));
  files::HeldFolder held;
  files::File file;
  ASSERT_EQ(held.Hold(Path(u"ntfs")), kSuccess);
  EXPECT_CODE(kSuccess, held.OpenFile(u"progra~1\\ambrys~1\\LongFi~1.txt", &file));
  EXPECT_CODE(kFileNotFound, held.OpenFile(u"progra~1\\ambrys~1\\LongFi~2.txt", &file));
  // A file whose own name it is comes first, in any case; the driver has them side by side.
  Touch(Host("ntfs/page~1.htm"));
  EXPECT_EQ(Place(u"PAGE~1.HTM"), "page~1.htm");
}

TEST_F(ShortNames, AreNoOtherPlaceToWhatComparesPaths) {
  const std::string expected = "\\\\?\\" + Utf8(Path(u"ntfs\\Program Files\\Ambry Shield"));
  const std::string link = Machine::Get().Root() + "-link";
  std::filesystem::create_symlink(Host("ntfs/PROGRA~1/AMBRYS~1"), link);
  for (const std::string& host :
       {Host("ntfs/PROGRA~1/AMBRYS~1"), Host("ntfs/progra~1/Ambry Shield"), link}) {
    EXPECT_EQ(FinalPath(Joined(u"Z:", cvn::Utf8ToWide(host))), expected) << host;
  }
  EXPECT_EQ(FinalPath(Path(u"ntfs\\PROGRA~1\\ambrys~1")), expected);
  std::filesystem::remove(link);
}

TEST_F(ShortNames, WorkAsTheNamesDo) {
  constexpr Step kSteps[] = {
      {Create, u"ntfs\\PAGE~1.HTM", {}, kFileExists},
      {Empty, u"ntfs\\page~1.htm"},
      {Has, u"ntfs\\page.html", u"new"},
      {Make, u"ntfs\\PROGRA~1", {}, kAlreadyExists},
      {Move<0>, u"ntfs\\PAGE~1.HTM", u"ntfs\\moved.html"},
      {Exists, u"ntfs\\PAGE~1.HTM", {}, kFileNotFound},
      {Has, u"ntfs\\moved.html", u"new"},
      {Move<kMoveReplaceExisting>, u"ntfs\\moved.html", u"ntfs\\progra~1\\ambrys~1\\longfi~1.txt"},
      {Has, u"ntfs\\Program Files\\Ambry Shield\\long file name.txt", u"new"},
      {Delete, u"ntfs\\GIVEN.X"},
      {Exists, u"ntfs\\given name", {}, kFileNotFound},
  };
  Run(kSteps);
  EXPECT_EQ(Found(Path(u"ntfs\\*")), "., .., Program Files");
}

TEST_F(ShortNames, MatchPatterns) {
  constexpr std::pair<cvn::StringView, const char*> kCases[] = {
      {u"*.htm", "page.html"},
      {u"PAGE~*", "page.html"},
      {u"?????.x", "given name"},
      {u"PROGRA~?", "Program Files"},
      {u"*.html", "page.html"},
      {u"*.ht", "2"},
      {u"progra~1", "Program Files"},
      {u"PROGRA~1\\*.t?t", "2"},
      {u"PROGRA~1\\AMBRYS~1\\l*~*", "long file name.txt"},
  };
  for (const auto& [pattern, found] : kCases) {
    EXPECT_EQ(Found(Path(Joined(u"ntfs\\", pattern))), found) << Utf8(pattern);
  }
}

TEST_F(ShortNames, ChangeWithTheFolder) {
  EXPECT_EQ(Place(u"late~1"), "new late~1");
  MakeFile("a late one", "LATE~1");
  EXPECT_EQ(Place(u"late~1"), "a late one");
  std::filesystem::rename(Host("ntfs/a late one"), Host("ntfs/another"));  // it goes with the name
  EXPECT_EQ(Place(u"late~1"), "new late~1");
  MakeFile("the next one", "LATE~1");
  EXPECT_EQ(Place(u"LATE~1"), "the next one");
  ASSERT_TRUE(volume_.SetShortName("the next one", "NEXT~1"));
  EXPECT_EQ(Place(u"late~1"), "new late~1");
  EXPECT_EQ(Place(u"next~1"), "the next one");
  std::filesystem::remove(Host("ntfs/the next one"));
  EXPECT_EQ(Place(u"NEXT~1"), "new NEXT~1");
}

// What Windows before 11, and since, takes paths for: '0' for the null device, 'd' for another one,
// '-' for a file.
constexpr std::pair<cvn::StringView, cvn::StringView> kDevicePaths[] = {
    {u"nul", u"00"},
    {u"sub\\NUL", u"00"},
    {u"sub/nul . .", u"00"},
    {u"nul:", u"00"},
    {u"nul.txt", u"0-"},
    {u"nul .tar.gz", u"0-"},
    {u"nul:x", u"0x"},
    {u"nul0", u"--"},
    {u" nul", u"--"},
    {u"con", u"dd"},
    {u"sub\\con", u"d-"},
    {u"aux.xml", u"d-"},
    {u"PRN. ", u"dd"},
    {u"com1", u"dd"},
    {u"sub\\com9.", u"d-"},
    {u"lpt\u00b9", u"dd"},
    {u"com\u00b3.txt", u"d-"},
    {u"com0", u"--"},
    {u"com10", u"--"},
    {u"conin$", u"dd"},
    {u"sub\\conout$", u"d-"},
    {u"conerr$", u"--"},
    {u"sub\\nul\\", u"--"},
    {u"nul\\file", u"33"},
    {u"C:nul", u"00"},
    {u"C:con", u"d-"},
    {u"\\nul", u"00"},
    {u"\\\\.\\NUL", u"00"},
    {u"\\\\?\\con", u"dd"},
    {u"missing\\nul", u"33"},
    {u"\\\\.\\C:\\nul", u"--"},
    {u"\\\\?\\C:\\nul", u"--"},
    {u"Z:\\nul", u"--"},
};

char16_t KindOf(cvn::StringView path) {
  posix::HostPath host;
  const Code code = posix::Resolve(path, &host);
  if (host.device != posix::Device::None) {
    EXPECT_TRUE(code == kSuccess && host.At().folder < 0) << Utf8(path);
    return host.device == posix::Device::Null ? u'0' : u'd';
  }
  return code == kPathNotFound ? u'3' : (code == kFileNotFound ? u'-' : u'x');
}

class DeviceNames : public HostFolderTest {
 protected:
  void SetUp() override { std::filesystem::create_directory(Host("sub")); }
  ~DeviceNames() override { SetBuild(u"19045"); }

  static void SetBuild(cvn::StringView build) {
    constexpr cvn::StringView kVersion = u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    registry::Key key;
    std::u16string text(build);
    text += u'\0';
    const registry::Key root(registry::Root::LocalMachine);
    ASSERT_EQ(registry::OpenKey(root, kVersion, registry::kSetValue, &key), kSuccess);
    ASSERT_EQ(registry::SetValue(key, u"CurrentBuildNumber", registry::kTypeString,
                                 std::as_bytes(std::span(text))),
              kSuccess);
  }
};

TEST_F(DeviceNames, AreThoseOfTheMachinesVersion) {
  const CurrentDirectory directory(Host());
  for (const std::size_t version : {0, 1}) {
    SetBuild(version == 0 ? u"20348" : u"22000");
    for (const auto& [path, kinds] : kDevicePaths) {
      EXPECT_EQ(KindOf(path), kinds[version]) << Utf8(path) << version;
    }
  }
}

// What Linux has made, or Windows by its full form, isn't touched by the name of the device.
TEST_F(DeviceNames, LeaveFilesOfTheirNamesAlone) {
  Touch(Host("sub/con"));
  Touch(Host("sub/nul"));
  constexpr Step kSteps[] = {
      {Read, u"sub\\con", {}, kFileNotFound},  // there is no such device
      {Empty, u"sub\\con", {}, kFileNotFound},
      {Make, u"sub\\con", {}, kFileNotFound},
      {Delete, u"sub\\con", {}, kFileNotFound},
      {Mark<files::kReadOnly>, u"sub\\con", {}, kFileNotFound},
      {Move<0>, u"sub\\con", u"moved", kFileNotFound},
      {Copy, u"sub\\con", u"copy", kFileNotFound},
      {Exists, u"sub\\con"},
      {Has, u"sub\\nul", u""},
      {Empty, u"sub\\nul"},
      {DeleteLater, u"sub\\nul", {}, kNotSameDevice},
      {Remove, u"sub\\nul", {}, platform::kDirectory},
  };
  Run(kSteps);
  EXPECT_EQ(Found(Path(u"sub\\*")), "., .., con, nul");
  EXPECT_EQ(Found(Path(u"sub\\AUX.txt")), "AUX");
  EXPECT_NE(profile::WriteString(u"section", u"key", u"value", Path(u"sub\\nul")), kSuccess);
  process::Handle program;
  EXPECT_NE(process::Start(Path(u"sub\\nul"), Folder(), &program), kSuccess);
  cvn::String text;
  paths::VolumeName volume{};
  EXPECT_EQ(paths::GetFinalPath(Path(u"sub\\nul"), &text, &volume), kAccessDenied);
  for (const char* name : {"sub/con", "sub/nul"}) {
    EXPECT_EQ(HostContentOf(Host(name)), "x") << name;
  }
  const cvn::String literal = Joined(u"\\\\?\\", Path(u"sub\\nul"));
  EXPECT_EQ(ContentOf(literal), "x");
  EXPECT_EQ(files::Delete(literal), kSuccess);
  EXPECT_EQ(Found(Path(u"sub\\*")), "., .., con");
}

}  // namespace
}  // namespace platform::test
