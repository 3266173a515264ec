// Files of the offline volume: how the host keeps attributes, links and names, full disks, and what
// becomes of a file when its writer is stopped.

#include <sys/stat.h>
#include <sys/xattr.h>

#include <fstream>
#include <vector>

#include "platform/formats/ini_text.h"
#include "platform/formats/wildcards.h"
#include "platform/linux/code_page.h"
#include "tests/platform/host_folder.h"
#include "tests/platform/listed_copies.h"
#include "tests/platform/private_mount.h"

namespace platform::test {
namespace {

using namespace std::string_view_literals;
using namespace steps;  // NOLINT(google-build-using-namespace): the columns of the tables
using files::Attributes;
using files::kArchive;
using files::kHidden;
using files::kMoveCopyAllowed;
using files::kMoveReplaceExisting;
using files::kNormal;
using files::kReadOnly;
using files::kSystem;

constexpr const char* kDosName = "user.DOSATTRIB";

class OfflineFiles : public HostFolderTest {
 protected:
  Attributes AttributesOf(cvn::StringView name) const {
    Attributes attributes = 0;
    EXPECT_EQ(files::GetAttributes(Path(name), &attributes), kSuccess) << Utf8(name);
    return attributes;
  }

  // Runs the table as an ordinary user, to whom the test's folder has these permissions.
  void RunAsOrdinaryUser(mode_t permissions, std::span<const Step> table) const {
    const std::filesystem::path top = posix::Machine::Get().Root();
    for (std::filesystem::path way = Host(); way != top.parent_path().parent_path();
         way = way.parent_path()) {
      ASSERT_EQ(chmod(way.c_str(), way == Host() ? permissions : 0711), 0) << way;
    }
    EXPECT_EQ(AsOrdinaryUser([&] {
                Run(table);
                return HasFailure() ? 1 : 0;
              }),
              0);
  }
};

TEST(Wildcards, FollowTheRulesOfWindows) {
  constexpr cvn::StringView kNames[] = {u".",    u"..",   u"A",     u"AB",      u"A.B",
                                        u"A.BC", u"AB.C", u"A.B.C", u".HIDDEN", u"A.TAR.GZ"};
  constexpr std::string_view kAll = ". .. A AB A.B A.BC AB.C A.B.C .HIDDEN A.TAR.GZ";
  constexpr std::pair<cvn::StringView, std::string_view> kCases[] = {
      {u"*", kAll},
      {u"*.*", kAll},
      {u"*.*.", kAll},
      {u"*.*.*", kAll},
      {u"* .", ". .. A AB"},
      {u"*.", ". .. A AB"},
      {u"a*.", "A AB"},
      {u"*.c", "AB.C A.B.C"},
      {u"*.tar.gz", "A.TAR.GZ"},
      {u"a?", "A AB"},
      {u"a?.?", "A AB A.B AB.C"},
      {u"a.?", "A A.B"},
      {u"a.*", "A A.B A.BC A.B.C A.TAR.GZ"},
      {u"?", ". A"},
      {u".*", ". .. .HIDDEN"},
      {u"?.b?", "A.B A.BC"},
      {u"*b*", "AB A.B A.BC AB.C A.B.C"},
      {u"*a*a*", "A.TAR.GZ"},
      {u"a**c", "A.BC AB.C A.B.C"},
      {u"*bc", "A.BC"},
      {u"*x", ""},
      {u"<", ". .. A AB"},
      {u"<.<.<", ".. A.B.C A.TAR.GZ"},
      {u"..<", ".."},
      {u">>", ". A AB"},
      {u">.>>", ". .. A.B A.BC"},
      {u"a\"*", "A A.B A.BC A.B.C A.TAR.GZ"},
      {u"a\"b\"c", "A.B.C"},
  };
  for (const auto& [text, expected] : kCases) {
    posix::Pattern pattern(text, true);
    std::string matching;
    for (const cvn::StringView name : kNames) {
      if (pattern.Matches(name)) {
        matching += (matching.empty() ? "" : " ") + Utf8(name);
      }
    }
    EXPECT_EQ(matching, expected) << Utf8(text);
  }
  // No pattern may take more than its length for each unit of the name.
  posix::Pattern hard(Joined(Repeated(u"*a", 100), u"?b"), true);
  EXPECT_FALSE(hard.Matches(std::u16string(255, u'A')));
}

TEST_F(OfflineFiles, ReadsEveryFormOfStoredAttributes) {
  constexpr std::pair<std::string_view, Attributes> kCases[] = {
      {"0x2"sv, kHidden},
      {"0x26"sv, kHidden | kSystem | kArchive},
      {"0x0"sv, kNormal},
      {"0X24\0"sv, kSystem | kArchive},
      {"0x1"sv, kNormal},  // the permission alone makes READONLY
      // Samba, version 3 with a text, versions 4 and 5 without one.
      {"0x22\0\0\3\0\3\0\0\0\x11\0\0\0\x22\0\0\0\0\0\0\0"sv, kHidden | kArchive},
      {"\0\0\4\0\4\0\0\0\x11\0\0\0\x06\0\0\0\0\0\0\0\0\0\0\0"sv, kHidden | kSystem},
      {"\0\0\5\0\5\0\0\0\x11\0\0\0\x04\0\0\0\0\0\0\0\0\0\0\0"sv, kSystem},
      // No attributes in it, an unknown version, cut short, nonsense: as if there were none.
      {"\0\0\5\0\5\0\0\0\x10\0\0\0\x04\0\0\0\0\0\0\0\0\0\0\0"sv, kArchive},
      {"\0\0\7\0\7\0\0\0\x11\0\0\0\x04\0\0\0"sv, kArchive},
      {"\0\0\5\0\5\0\0\0\x11\0\0\0\x04\0"sv, kArchive},
      {"\0"sv, kArchive},
      {"0x"sv, kArchive},
      {"0x2z"sv, kArchive},
      {"0x222222222"sv, kArchive},
      {"hidden"sv, kArchive},
  };
  const std::string file = Host("file");
  Touch(file);
  if (setxattr(file.c_str(), kDosName, "0x2", 3, 0) != 0) {
    GTEST_SKIP() << "the file system has no extended attributes";
  }
  for (const auto& [value, attributes] : kCases) {
    ASSERT_EQ(setxattr(file.c_str(), kDosName, value.data(), value.size(), 0), 0);
    EXPECT_EQ(AttributesOf(u"file"), attributes) << testing::PrintToString(value);
  }
  ASSERT_EQ(files::SetAttributes(Path(u"file"), kHidden | kReadOnly), kSuccess);
  char text[16] = {};
  EXPECT_EQ(getxattr(file.c_str(), kDosName, text, sizeof(text)), 3);
  EXPECT_STREQ(text, "0x2");
  EXPECT_EQ(std::filesystem::status(file).permissions() & std::filesystem::perms(0222),
            std::filesystem::perms::none);
  // What a new file has need not be stored.
  ASSERT_EQ(files::SetAttributes(Path(u"file"), kArchive), kSuccess);
  EXPECT_EQ(getxattr(file.c_str(), kDosName, text, sizeof(text)), -1);
  // A file that is hidden can't be emptied as one that is not.
  constexpr Step kSteps[] = {{Mark<kHidden>, u"file"}, {Empty, u"file", {}, kAccessDenied}};
  Run(kSteps);
}

TEST_F(OfflineFiles, AnotherVolumeHasItsOwnRules) {
  const PrivateMount mount(Host("mount"), "ramfs", "");  // without extended attributes
  if (!mount.IsMounted()) {
    GTEST_SKIP() << "file systems can't be mounted here";
  }
  constexpr Step kSteps[] = {
      {Create, u"mount\\file"},
      {Mark<kHidden | kArchive>, u"mount\\file", {}, kNotSupported},
      {Mark<kNormal>, u"mount\\file", {}, kNotSupported},
      {Mark<kReadOnly | kHidden>, u"mount\\file", {}, kNotSupported},
      {Mark<kArchive>, u"mount\\file"},
      {Mark<kReadOnly | kArchive>, u"mount\\file"},
      {Create, u"file"},
      {Make, u"folder"},
      {Mark<kHidden>, u"file"},
      {CopyNew, u"file", u"mount\\copy"},  // a copy counts for its content
      {Move<0>, u"file", u"mount\\moved", kNotSameDevice},
      {Move<kMoveCopyAllowed>, u"folder", u"mount\\moved", kNotSameDevice},
      {Move<kMoveCopyAllowed>, u"file", u"mount\\moved"},
      {Has, u"mount\\moved", u"new"},
      {Exists, u"file", {}, kFileNotFound},
      {Remove, u"mount", {}, kBusy},
  };
  Run(kSteps);
  EXPECT_EQ(AttributesOf(u"mount\\file"), kReadOnly | kArchive);
}

TEST_F(OfflineFiles, PermissionsBindAsOnWindows) {
  constexpr Step kReadOnlySteps[] = {
      {Create, u"file"},
      {Mark<kReadOnly | kSystem>, u"file"},
      {Mark<kReadOnly | kHidden>, u"file"},
      {Write, u"file", {}, kAccessDenied},
      {Delete, u"file", {}, kAccessDenied},
      {Mark<kHidden>, u"file"},
      {Delete, u"file"},
      // A read-only folder is kept itself, and denies nothing of what is in it.
      {Make, u"folder"},
      {Create, u"folder\\file"},
      {Mark<kReadOnly>, u"folder"},
      {Create, u"folder\\new"},
      {Make, u"folder\\sub"},
      {CopyNew, u"folder\\file", u"folder\\copy"},
      {Copy, u"folder\\file", u"folder\\copy"},
      {Move<0>, u"folder\\copy", u"folder\\moved"},
      {Move<0>, u"folder\\file", u"out"},
      {Delete, u"folder\\moved"},
      {Remove, u"folder\\sub"},
      {Remove, u"folder", {}, kAccessDenied},
      {Mark<kNormal>, u"folder"},
      {Delete, u"folder\\new"},
      {Delete, u"out"},
      {Remove, u"folder"},
  };
  constexpr Step kForeignSteps[] = {
      {Delete, u"root's", {}, kAccessDenied},
      {CopyNew, u"root's", u"new", kAccessDenied},
      {Move<0>, u"root's", u"new", kAccessDenied},
      {Mark<kReadOnly>, u"root's", {}, kAccessDenied},
      {Mark<kHidden>, u"root's", {}, kAccessDenied},
      {Has, u"root's", u"x"},
  };
  Run(kReadOnlySteps);
  if (geteuid() == 0 && !IsFullRoot()) {
    GTEST_SKIP() << "root is no other user here, and no ordinary one";
  }
  RunAsOrdinaryUser(0777, kReadOnlySteps);
  Touch(Host("root's"));
  ASSERT_EQ(chmod(Host("root's").c_str(), 0644), 0);
  if (!IsFullRoot()) {
    GTEST_SKIP() << "only root can be another user";
  }
  RunAsOrdinaryUser(0755, kForeignSteps);
  // Which names a folder has can't be told, but that there are two files.
  Touch(Host("ROOT'S"));
  constexpr Step kUnreadableSteps[] = {{Move<0>, u"root's", u"ROOT'S", kAlreadyExists}};
  RunAsOrdinaryUser(0733, kUnreadableSteps);
}

TEST_F(OfflineFiles, LinksAreThemselvesAndLeadElsewhere) {
  for (const auto& [target, link] :
       {std::pair{"file", "link"}, {"nowhere", "dangling"}, {"pipe", "pipe link"}}) {
    std::filesystem::create_symlink(target, Host(link));
  }
  ASSERT_EQ(mkfifo(Host("pipe").c_str(), 0600), 0);
  Touch(Host("file"));
  ASSERT_EQ(chmod(Host("file").c_str(), 0640), 0);
  std::filesystem::create_hard_link(Host("file"), Host("second"));
  EXPECT_EQ(AttributesOf(u"link"), files::kReparsePoint | kArchive);
  EXPECT_EQ(AttributesOf(u"dangling"), files::kReparsePoint | kArchive);
  constexpr Step kSteps[] = {
      {Mark<kHidden>, u"link", {}, kNotSupported},
      {Mark<kArchive>, u"link"},
      {CopyNew, u"link", u"copy"},
      {Create, u"other"},
      {CopyNew, u"other", u"link", kFileExists},
      {Copy, u"other", u"link"},
      {Has, u"file", u"new"},
      {Copy, u"file", u"link", kSharingViolation},
      {Copy, u"dangling", u"none", kFileNotFound},
      // A new version goes where a link leads, and takes the place of files only.
      {TakePlace, u"copy", u"link"},
      {Has, u"file", u"x"},
      {TakePlace, u"other", u"dangling", kFileNotFound},
      {TakePlace, u"other", u"pipe", kAccessDenied},
      {TakePlace, u"other", u"pipe link", kAccessDenied},
      {Replace, u"other", u"pipe", kAccessDenied},
      {Move<kMoveReplaceExisting | kMoveCopyAllowed>, u"other", u"pipe", kAccessDenied},
      {Has, u"other", u"new"},
  };
  Run(kSteps);
  EXPECT_TRUE(std::filesystem::is_symlink(Host("link")));
  EXPECT_TRUE(std::filesystem::is_fifo(Host("pipe")));
  EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(Host("file")).permissions()), 0640U);
  // Of two names of one file, a move over the other leaves one.
  std::filesystem::create_hard_link(Host("file"), Host("third"));
  constexpr Step kNames[] = {
      {Move<0>, u"file", u"third", kAlreadyExists},
      {Move<kMoveReplaceExisting>, u"file", u"third"},
      {Exists, u"file", {}, kFileNotFound},
      {Delete, u"link"},
      {Has, u"third", u"x"},
  };
  Run(kNames);
}

TEST_F(OfflineFiles, DrivesAndCurrentDirectoriesStay) {
  // Drives are volumes, whatever the host makes of them.
  const cvn::String outside = posix::ToMachinePath(posix::Machine::Get().Root() + "-outside");
  const Step kSteps[] = {
      {Make, u"folder"},
      {Create, u"file"},
      {Move<0>, u"folder", u"folder\\deep", kSharingViolation},
      {Move<0>, u"C:\\", u"new", kAccessDenied},
      {Remove, u"C:\\", {}, kAccessDenied},
      {Remove, u"Z:\\", {}, kAccessDenied},
      {Move<kMoveCopyAllowed>, u"folder", outside, kNotSameDevice},
      {Move<0>, u"file", outside, kNotSameDevice},
      {Move<kMoveCopyAllowed>, u"file", outside},
      {Has, outside, u"new"},
      {Delete, outside},
  };
  Run(kSteps);
  {
    const CurrentDirectory inside(Host("folder"));
    EXPECT_EQ(files::RemoveDirectory(Path(u"folder")), kSharingViolation);
  }
  EXPECT_EQ(files::RemoveDirectory(Path(u"folder")), kSuccess);
}

TEST_F(OfflineFiles, AFullDiskLeavesNoHalfFile) {
  const PrivateMount mount(Host("mount"), "tmpfs", "size=256k");
  if (!mount.IsMounted()) {
    GTEST_SKIP() << "file systems can't be mounted here";
  }
  WriteContent(Path(u"large"), std::string(1 << 20, 'x'));
  WriteContent(Path(u"half"), std::string(160 << 10, 'x'));
  constexpr Step kSteps[] = {
      {Create, u"mount\\old"},
      // There is room for the copy, and none to write it over.
      {Link, u"mount\\old", u"mount\\name"},
      {Copy, u"half", u"mount\\old", kDiskFull},
      {Has, u"mount\\name", u"new"},
      {Delete, u"mount\\name"},
      {Copy, u"large", u"mount\\new", kDiskFull},
      {Copy, u"large", u"mount\\old", kDiskFull},
      {Move<kMoveCopyAllowed>, u"large", u"mount\\new", kDiskFull},
      {Exists, u"large"},
      {Has, u"mount\\old", u"new"},
  };
  Run(kSteps);
  EXPECT_EQ(Found(Path(u"mount\\*")), "., .., old");
}

// What is made ahead takes no room from the file whose turn it is.
TEST_F(OfflineFiles, WhatFitsOnADiskIsCopiedInTurn) {
  const PrivateMount mount(Host("mount"), "tmpfs", "size=8m");
  if (!mount.IsMounted()) {
    GTEST_SKIP() << "file systems can't be mounted here";
  }
  Run(std::initializer_list<Step>{{Make, u"from"}});
  auto room = std::filesystem::space(Host("mount")).available;
  std::string expected;
  for (int i = 100; i < 300; ++i) {
    const std::string name = "file " + std::to_string(i);
    const std::size_t size =
        std::size_t{4096} * (i % 9 == 0 ? 300 : 8);  // a large one isn't made ahead
    std::ofstream(Host("from/" + name)) << std::string(size, 'x');
    expected += size <= room ? "" : name + " 112\n";
    room -= size <= room ? size : 0;
  }
  EXPECT_EQ(CopyListed(Path(u"from"), Path(u"mount"), [](const std::string&) { return true; }),
            expected);
}

TEST_F(OfflineFiles, ACopyHasTheSameHoles) {
  constexpr int kSize = 4 << 20;
  constexpr int kPiece = 70'000;
  const auto blocksOf = [this](const char* name) {
    struct stat entry {};
    EXPECT_EQ(stat(Host(name).c_str(), &entry), 0) << name;
    return entry.st_blocks;
  };
  const std::vector<int> kPieces[] = {
      {}, {0}, {1 << 20}, {kSize - kPiece}, {0, 1 << 20, (2 << 20) + 12'345}};
  for (const std::vector<int>& places : kPieces) {
    std::string content(kSize, '\0');
    std::ofstream file(Host("holes"), std::ios::binary);
    for (const int place : places) {
      content.replace(place, kPiece, kPiece, 'x');
      file.seekp(place).write(content.data() + place, kPiece);
    }
    file.close();
    std::filesystem::resize_file(Host("holes"), kSize);
    EXPECT_EQ(files::Copy(Path(u"holes"), Path(u"copy"), false), kSuccess);
    EXPECT_TRUE(HostContentOf(Host("copy")) == content) << places.size();
    // How much a file system rounds up to may depend on how it was written.
    EXPECT_LE(blocksOf("copy"), blocksOf("holes") + 512) << places.size();
  }
}

// Under its name, a file is there whole or as it was before, whenever its writer is killed.
// Those that are made before their turn are as if they weren't: nobody sees them, and what happens
// meanwhile counts.
TEST_F(OfflineFiles, CopiesMadeAheadHaveTheirTurn) {
  Run(std::initializer_list<Step>{{Make, u"from"}, {Make, u"to"}});
  const auto nameOf = [](int number) { return "file " + std::to_string(100 + number); };
  for (int i = 0; i < 200; ++i) {
    std::ofstream(Host("from/" + nameOf(i))) << nameOf(i);
  }
  ASSERT_EQ(files::SetAttributes(Path(u"from\\file 150"), kHidden), kSuccess);
  std::filesystem::create_directory(Host("from/file 229x"));
  std::size_t there = 0;
  const std::string failures = CopyListed(Path(u"from"), Path(u"to"), [&](const std::string& name) {
    EXPECT_EQ(CountIn(Host("to")), there) << name;
    ++there;
    if (name == "file 170") {
      std::ofstream(Host("to/FILE 171")) << "another's";
      ++there;
    } else if (name == "file 200") {
      std::filesystem::rename(Host("to"), Host("before"));
      std::filesystem::create_directory(Host("to"));
      there = 1;
    }
    if (name == "file 171" || name == "file 229x") {
      --there;  // these fail
    }
    return name != "file 280";
  });
  EXPECT_EQ(failures, "file 171 80\nfile 229x 5\n");
  EXPECT_EQ(CountIn(Host("to")), 80u);
  EXPECT_EQ(CountIn(Host("before")), 100u);
  EXPECT_EQ(HostContentOf(Host("before/FILE 171")), "another's");
  for (int i = 0; i < 180; ++i) {
    const std::string copy = Host(i < 100 ? "before/" : "to/") + nameOf(i);
    EXPECT_EQ(i == 71 || HostContentOf(copy) == nameOf(i), true) << copy;
  }
  EXPECT_EQ(AttributesOf(u"before\\file 150"), kHidden | kArchive);
}

TEST_F(OfflineFiles, AKilledWriterLeavesNoHalfFile) {
  const std::string older(3 << 20, 'o');
  const std::string newer(3 << 20, 'n');
  WriteContent(Path(u"older"), older);
  WriteContent(Path(u"newer"), newer);
  WriteContent(Path(u"target"), older);
  const auto writeBoth = [&] {
    EXPECT_EQ(files::Copy(Path(u"newer"), Path(u"target"), false), kSuccess);
    OutputFile output(Path(u"target"));
    EXPECT_EQ(output.Write(older, OutputFile::Readers::Anybody), kSuccess);
    EXPECT_EQ(output.Commit(), kSuccess);
  };
  KillInTheMiddle(30, writeBoth, [&] {
    const std::string content = HostContentOf(Host("target"));
    ASSERT_TRUE(content == older || content == newer) << content.size() << " bytes";
  });
  // What the killed ones left goes with the next, and what isn't theirs stays.
  for (const cvn::StringView name : {u"tessel-1-0123456789abcdef.tmp", u"tessel-99-x.tmp"}) {
    WriteContent(Path(name), "");
  }
  writeBoth();
  EXPECT_EQ(Found(Path(u"*")),
            "., .., newer, older, target, tessel-1-0123456789abcdef.tmp, tessel-99-x.tmp");
}

TEST_F(OfflineFiles, ProcessesAgreeOnSharing) {
  Touch(Host("file"));
  constexpr Step kHeld[] = {{CopyNew, u"file", u"copy"},
                            {Write, u"file", {}, kSharingViolation},
                            {Delete, u"file", {}, kSharingViolation}};
  constexpr Step kFree[] = {{Write, u"file"}};
  const auto runElsewhere = [this](std::span<const Step> table) {
    return InChild([&] { return Run(table), HasFailure() ? 1 : 0; });
  };
  files::File reader = Held(u"file", files::Share::Read);
  EXPECT_EQ(runElsewhere(kHeld), 0);
  reader.Close();
  EXPECT_EQ(runElsewhere(kFree), 0);
}

TEST(CodePages, AreThoseOfWindows) {
  struct Case {
    std::uint32_t page;
    std::string_view bytes;
    cvn::StringView text;
    cvn::StringView lacking;  // in the page
    std::string_view fits;
  };
  constexpr Case kCases[] = {
      {0, "\x80\x81\xFF", u"\u20AC\u0081\u00FF", u"\u0142\u03B1\uFF21\u4E2D", "laA?"},
      {874, "\xA1\x80\x90\xFC", u"\u0E01\u20AC\u0090\uF8C5", u"\u00E9\uFF21", "?A"},
      {1250, "\xB3\x88\xE1", u"\u0142\u0088\u00E1", u"\u00E0\u00BD\u03B1", "a??"},
      {1251, "\xC6\x98\xFF", u"\u0416\u0098\u044F", u"\u00ED\u017E\u0110\u4E2D", "iz??"},
      {1255, "\xCA\xD9\xE0\xFF", u"\u05BA\uF88D\u05D0\uF896", u"\u00E9\U0001F600", "???"},
      {1258, "a\xEC\xFE", u"a\u0301\u20AB", u"\u1EA5", "?"},
      {932, "\x83\x5C\xB1\xA0\xFF", u"\u30BD\uFF71\uF8F0\uF8F3", u"\uAC00", "?"},
      {936, "\xD6\xD0\x80\xFF", u"\u4E2D\u20AC\uF8F5", u"\U0001F600", "??"},
      {949, "\xB0\xA1\x80", u"\uAC00\u0080", u"\u0E01", "?"},
      {950, "\xA4\xA4\xFF", u"\u4E2D\uF8F8", u"\u0E01", "?"},
      {65001, "\xE4\xB8\xAD\xF0\x9F\x98\x80", u"\u4E2D\U0001F600", u"", ""},
  };
  for (const auto& [number, bytes, text, lacking, fits] : kCases) {
    const posix::CodePage page(number);
    EXPECT_EQ(Utf8(page.Decode(bytes)), Utf8(text)) << number;
    EXPECT_EQ(page.Encode(text), bytes) << number;
    EXPECT_EQ(page.Encode(lacking), fits) << number;
  }
  // What isn't whole takes no line end and no '=' with it.
  for (const std::uint32_t number : {932U, 936U, 949U, 950U, 65001U}) {
    const std::u16string text = posix::CodePage(number).Decode("\x85=\x85\r\n\x85");
    EXPECT_EQ(text.size(), 6U) << number;
    EXPECT_EQ(text.substr(3, 2), u"\r\n") << number;
    EXPECT_EQ(text[1], u'=') << number;
  }
}

// No edit changes the bytes around it, though they are no characters.
TEST(CodePages, EditsFindTheirBytes) {
  const std::string bytes = "\xE4\r\n[\xE4\xB8\xAD@]\r\n\n;\xFF\xE4\r\nk=\xE4\xB8\xAD\nj=\x80";
  const std::string after = "\xE4\r\n[\xE4\xB8\xAD@]\r\n\n;\xFF\xE4\r\nk=v\nj=\x80";
  for (const std::uint32_t number : {1252U, 932U, 950U, 65001U}) {
    const posix::CodePage page(number);
    const std::u16string text = page.Decode(bytes);
    const std::u16string section = page.Decode("\xE4\xB8\xAD@");
    const posix::Edit edit = posix::EditForValue(text, section, u"K", u"v");
    const std::size_t start = posix::ByteOffset(bytes, text, edit.offset);
    const std::size_t end = posix::ByteOffset(bytes, text, edit.offset + edit.length);
    std::string edited = bytes;
    edited.replace(start, end - start, page.Encode(edit.replacement));
    EXPECT_EQ(edited, after) << number;
    const posix::Edit added = posix::EditForValue(text, u"new", u"k", u"v");
    EXPECT_EQ(posix::ByteOffset(bytes, text, added.offset), bytes.size()) << number;
  }
}

}  // namespace
}  // namespace platform::test
