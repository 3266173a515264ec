// Short names of files, and the names of devices.

#include <string>

#include "platform/final_path.h"
#include "platform/offline/volume/volume.h"
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

}  // namespace
}  // namespace platform::test
