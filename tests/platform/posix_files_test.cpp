// What only the Linux home has of files: how the host keeps attributes, links and names, full
// disks, and what happens to a copy that is stopped.

#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "platform/file_search.h"
#include "platform/formats/names.h"
#include "platform/formats/wildcards.h"
#include "platform/offline/volume/volume.h"
#include "platform/paths.h"
#include "platform/registry.h"
#include "tests/platform/fixture.h"
#include "tests/platform/host_file.h"
#include "tests/platform/private_mount.h"

namespace platform::test {
namespace {

using files::Attributes;
using files::Copy;
using files::kArchive;
using files::kHidden;
using files::kMoveCopyAllowed;
using files::kMoveDelayUntilReboot;
using files::kMoveReplaceExisting;
using files::kNormal;
using files::kReadOnly;
using files::kSystem;
using files::Move;
using files::Search;
using files::SearchEntry;

constexpr const char* kDosName = "user.DOSATTRIB";

class PosixFiles : public FolderTest {
 protected:
  PosixFiles() {
    posix::HostPath host;
    EXPECT_EQ(posix::Resolve(Folder(), &host), kSuccess);
    host_ = host.path;
  }

  // A place in the test's folder, as the host names it.
  std::string Host(const std::string& name) const { return host_ + "/" + name; }

  std::string Find(cvn::StringView pattern) const {
    Search search;
    SearchEntry entry;
    std::string names;
    Code code = search.First(Path(pattern), &entry);
    for (; code == kSuccess; code = search.Next(&entry)) {
      names += (names.empty() ? "" : " ") + Utf8(entry.Name());
    }
    return code == kNoMoreFiles ? names : std::to_string(code);
  }

  Attributes AttributesOf(cvn::StringView name) const {
    Attributes attributes = 0;
    EXPECT_EQ(files::GetAttributes(Path(name), &attributes), kSuccess) << Utf8(name);
    return attributes;
  }

  // Lets every user of the host come to the test's folder.
  void OpenWay(mode_t permissions) const {
    const std::filesystem::path top =
        std::filesystem::path(posix::Machine::Get().Root()).parent_path();
    for (std::filesystem::path way = host_; way != top.parent_path(); way = way.parent_path()) {
      ASSERT_EQ(chmod(way.c_str(), way == host_ ? permissions : 0711), 0) << way;
    }
  }

 private:
  std::string host_;
};
// Runs `action` in a process of an ordinary user, and gives what it returns.
template <typename Action>
int AsOrdinaryUser(Action action) {
  const pid_t child = fork();
  if (child == 0) {
    constexpr uid_t kNobody = 65534;
    const bool isRoot = geteuid() == 0;
    _exit(isRoot && (setgid(kNobody) != 0 || setuid(kNobody) != 0) ? 99 : action());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Wildcards, FollowTheRulesOfWindows) {
  struct Case {
    cvn::StringView pattern;
    std::string_view matching;  // of the names below
  };
  constexpr cvn::StringView kNames[] = {u".",    u"..",   u"A",     u"AB",      u"A.B",
                                        u"A.BC", u"AB.C", u"A.B.C", u".HIDDEN", u"A.TAR.GZ"};
  const Case kCases[] = {
      {u"*", ". .. A AB A.B A.BC AB.C A.B.C .HIDDEN A.TAR.GZ"},
      {u"*.*", ". .. A AB A.B A.BC AB.C A.B.C .HIDDEN A.TAR.GZ"},
      {u"*.*.", ". .. A AB A.B A.BC AB.C A.B.C .HIDDEN A.TAR.GZ"},
      {u"* .", ". .. A AB"},
      {u"*.", ". .. A AB"},
      {u"a*.", "A AB"},
      {u"*.c", "AB.C A.B.C"},
      {u"*.tar.gz", "A.TAR.GZ"},
      {u"*.*.*", ". .. A AB A.B A.BC AB.C A.B.C .HIDDEN A.TAR.GZ"},
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
  };
  for (const Case& test : kCases) {
    posix::Pattern pattern(test.pattern);
    std::string matching;
    for (const cvn::StringView name : kNames) {
      if (pattern.Matches(name)) {
        matching += (matching.empty() ? "" : " ") + Utf8(name);
      }
    }
    EXPECT_EQ(matching, test.matching) << Utf8(test.pattern);
  }
  // No pattern may take more than its length for each unit of the name.
  cvn::String hard;
  for (int i = 0; i < 100; ++i) {
    hard.Append(u"*a");
  }
  hard.Append(u"?b");
  EXPECT_FALSE(posix::Pattern(hard).Matches(std::u16string(255, u'A')));
}

TEST_F(PosixFiles, ReadsEveryFormOfStoredAttributes) {
  struct Case {
    std::string_view value;
    Attributes attributes;
  };
  using namespace std::string_view_literals;
  constexpr Case kCases[] = {
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
  WriteContent(Path(u"file"), "x");
  if (setxattr(Host("file").c_str(), kDosName, "0x2", 3, 0) != 0) {
    GTEST_SKIP() << "the file system has no extended attributes";
  }
  for (const Case& test : kCases) {
    ASSERT_EQ(setxattr(Host("file").c_str(), kDosName, test.value.data(), test.value.size(), 0), 0);
    EXPECT_EQ(AttributesOf(u"file"), test.attributes) << testing::PrintToString(test.value);
  }
  ASSERT_EQ(files::SetAttributes(Path(u"file"), kHidden | kReadOnly), kSuccess);
  char text[16] = {};
  EXPECT_EQ(getxattr(Host("file").c_str(), kDosName, text, sizeof(text)), 3);
  EXPECT_STREQ(text, "0x2");
  EXPECT_EQ(std::filesystem::status(Host("file")).permissions() & std::filesystem::perms(0222),
            std::filesystem::perms::none);
  // What a new file has need not be stored.
  ASSERT_EQ(files::SetAttributes(Path(u"file"), kArchive), kSuccess);
  EXPECT_EQ(getxattr(Host("file").c_str(), kDosName, text, sizeof(text)), -1);
  // A file that is hidden can't be emptied as one that is not.
  ASSERT_EQ(files::SetAttributes(Path(u"file"), kHidden), kSuccess);
  files::File file;
  EXPECT_EQ(files::Open(Path(u"file"), files::Access::Write, files::Share::None,
                        files::Disposition::CreateAlways, &file),
            kAccessDenied);
}

TEST_F(PosixFiles, AttributesWithoutAPlaceFail) {
  const PrivateMount mount(Host("mount"), "ramfs", "");
  if (!mount.IsMounted()) {
    GTEST_SKIP() << "file systems can't be mounted here";
  }
  WriteContent(Path(u"mount\\file"), "x");
  EXPECT_EQ(files::SetAttributes(Path(u"mount\\file"), kHidden | kArchive), kNotSupported);
  EXPECT_EQ(files::SetAttributes(Path(u"mount\\file"), kNormal), kNotSupported);
  EXPECT_EQ(files::SetAttributes(Path(u"mount\\file"), kReadOnly | kHidden), kNotSupported);
  EXPECT_EQ(AttributesOf(u"mount\\file"), kArchive);
  EXPECT_EQ(files::SetAttributes(Path(u"mount\\file"), kArchive), kSuccess);
  EXPECT_EQ(files::SetAttributes(Path(u"mount\\file"), kReadOnly | kArchive), kSuccess);
  EXPECT_EQ(AttributesOf(u"mount\\file"), kReadOnly | kArchive);
  // A copy counts for its content; and this is another volume.
  WriteContent(Path(u"file"), "content");
  ASSERT_EQ(files::CreateDirectory(Path(u"folder")), kSuccess);
  ASSERT_EQ(files::SetAttributes(Path(u"file"), kHidden), kSuccess);
  EXPECT_EQ(Copy(Path(u"file"), Path(u"mount\\copy"), true), kSuccess);
  EXPECT_EQ(Move(Path(u"file"), Path(u"mount\\moved"), 0), kNotSameDevice);
  EXPECT_EQ(Move(Path(u"folder"), Path(u"mount\\moved"), kMoveCopyAllowed), kNotSameDevice);
  EXPECT_EQ(Move(Path(u"file"), Path(u"mount\\moved"), kMoveCopyAllowed), kSuccess);
  EXPECT_EQ(ContentOf(Path(u"mount\\moved")), "content");
  EXPECT_FALSE(paths::Exists(Path(u"file")));
  EXPECT_EQ(files::RemoveDirectory(Path(u"mount")), kBusy);
}

TEST_F(PosixFiles, AnNtfsVolumeKeepsItsOwnAttributes) {
  std::ofstream(Host("image")).close();
  std::filesystem::resize_file(Host("image"), 8 << 20);
  std::filesystem::create_directory(Host("mount"));
  const std::string make = "mkfs.ntfs -q -F '" + Host("image") + "' > /dev/null 2>&1";
  const std::string mount = "ntfs-3g '" + Host("image") + "' '" + Host("mount") + "' 2> /dev/null";
  if (std::system(make.c_str()) != 0 || std::system(mount.c_str()) != 0) {
    GTEST_SKIP() << "ntfs-3g is not installed, or may not mount";
  }
  WriteContent(Path(u"mount\\file"), "content");
  for (const Attributes word : {kHidden | kReadOnly, kSystem | kArchive, kReadOnly, kNormal}) {
    EXPECT_EQ(files::SetAttributes(Path(u"mount\\file"), word), kSuccess);
    EXPECT_EQ(AttributesOf(u"mount\\file"), word);
    EXPECT_LT(getxattr(Host("mount/file").c_str(), kDosName, nullptr, 0), 0);
    const bool isReadOnly = (word & kReadOnly) != 0;
    EXPECT_EQ(Move(Path(u"mount\\file"), Path(u"mount\\moved"), 0), kSuccess);
    EXPECT_EQ(files::Delete(Path(u"mount\\moved")), isReadOnly ? kAccessDenied : kSuccess);
    IgnoreError(files::SetAttributes(Path(u"mount\\moved"), kNormal));
    IgnoreError(files::Delete(Path(u"mount\\moved")));
    WriteContent(Path(u"mount\\file"), "content");
  }
  umount2(Host("mount").c_str(), MNT_DETACH);
}

TEST_F(PosixFiles, ANewVersionGoesWhereALinkLeads) {
  WriteContent(Path(u"file"), "old");
  ASSERT_EQ(chmod(Host("file").c_str(), 0640), 0);
  ASSERT_EQ(symlink("file", Host("link").c_str()), 0);
  WriteContent(Path(u"version"), "new");
  ASSERT_EQ(files::TakePlace(Path(u"version"), Path(u"link")), kSuccess);
  EXPECT_EQ(ContentOf(Path(u"file")), "new");
  EXPECT_TRUE(std::filesystem::is_symlink(Host("link")));
  EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(Host("file")).permissions()), 0640U);
  ASSERT_EQ(symlink("nowhere", Host("dangling").c_str()), 0);
  WriteContent(Path(u"version"), "kept");
  EXPECT_EQ(files::TakePlace(Path(u"version"), Path(u"dangling")), kFileNotFound);
  EXPECT_EQ(ContentOf(Path(u"version")), "kept");
}

TEST_F(PosixFiles, NoFileTakesThePlaceOfAPipeOrADevice) {
  ASSERT_EQ(mkfifo(Host("pipe").c_str(), 0600), 0);
  ASSERT_EQ(symlink("pipe", Host("link").c_str()), 0);
  WriteContent(Path(u"version"), "new");
  EXPECT_EQ(files::TakePlace(Path(u"version"), Path(u"pipe")), kAccessDenied);
  EXPECT_EQ(files::TakePlace(Path(u"version"), Path(u"link")), kAccessDenied);
  EXPECT_EQ(files::Replace(Path(u"version"), Path(u"pipe")), kAccessDenied);
  EXPECT_EQ(Move(Path(u"version"), Path(u"pipe"), kMoveReplaceExisting | kMoveCopyAllowed),
            kAccessDenied);
  EXPECT_TRUE(std::filesystem::is_fifo(Host("pipe")));
  EXPECT_EQ(ContentOf(Path(u"version")), "new");
}

TEST_F(PosixFiles, ReadOnlyBindsRootAndItsOwner) {
  const auto check = [this](cvn::StringView name) {
    const cvn::String path = Path(name);
    WriteContent(path, "content");
    files::File file;
    const bool kept = files::SetAttributes(path, kReadOnly | kSystem) == kSuccess &&
                      files::SetAttributes(path, kReadOnly | kHidden) == kSuccess &&
                      AttributesOf(name) == (kReadOnly | kHidden) &&
                      files::Open(path, files::Access::Write, files::Share::None,
                                  files::Disposition::OpenExisting, &file) == kAccessDenied &&
                      files::Delete(path) == kAccessDenied;
    return kept && files::SetAttributes(path, kHidden) == kSuccess &&
           AttributesOf(name) == kHidden && files::Delete(path) == kSuccess;
  };
  EXPECT_TRUE(check(u"root's"));
  OpenWay(0777);
  EXPECT_EQ(AsOrdinaryUser([&] { return check(u"user's") ? 0 : 1; }), 0);
}

TEST_F(PosixFiles, AReadOnlyFolderDeniesNothingOfWhatIsInIt) {
  OpenWay(0777);
  const int failed = AsOrdinaryUser([&] {
    files::File file;
    IgnoreError(files::CreateDirectory(Path(u"folder")));
    WriteContent(Path(u"folder\\file"), "content");
    IgnoreError(files::SetAttributes(Path(u"folder"), kReadOnly));
    const Code codes[] = {
        files::Open(Path(u"folder\\new"), files::Access::Write, files::Share::None,
                    files::Disposition::CreateNew, &file),
        files::CreateDirectory(Path(u"folder\\sub")),
        Copy(Path(u"folder\\file"), Path(u"folder\\copy"), true),
        Copy(Path(u"folder\\file"), Path(u"folder\\copy"), false),
        Move(Path(u"folder\\copy"), Path(u"folder\\moved"), 0),
        Move(Path(u"folder\\file"), Path(u"out"), 0),
        files::Delete(Path(u"folder\\moved")),
        files::RemoveDirectory(Path(u"folder\\sub")),
    };
    const bool isKept = AttributesOf(u"folder") == (kReadOnly | files::kDirectory) &&
                        files::RemoveDirectory(Path(u"folder")) == kAccessDenied;
    const auto* bad = std::find_if(std::begin(codes), std::end(codes),
                                   [](Code code) { return code != kSuccess; });
    return isKept ? static_cast<int>(std::end(codes) - bad) : -1;
  });
  EXPECT_EQ(failed, 0);
}

TEST_F(PosixFiles, ForeignFilesNeedPermission) {
  WriteContent(Path(u"file"), "content");
  ASSERT_EQ(chmod(Host("file").c_str(), 0644), 0);
  OpenWay(0755);
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can be another user";
  }
  EXPECT_EQ(AsOrdinaryUser([&] {
              const bool denied = files::Delete(Path(u"file")) == kAccessDenied &&
                                  Copy(Path(u"file"), Path(u"new"), true) == kAccessDenied &&
                                  Move(Path(u"file"), Path(u"new"), 0) == kAccessDenied &&
                                  files::SetAttributes(Path(u"file"), kReadOnly) == kAccessDenied &&
                                  files::SetAttributes(Path(u"file"), kHidden) == kAccessDenied;
              return denied ? 0 : 1;
            }),
            0);
  EXPECT_EQ(ContentOf(Path(u"file")), "content");
}

TEST_F(PosixFiles, LinksAreThemselvesAndLeadElsewhere) {
  WriteContent(Path(u"file"), "content");
  std::filesystem::create_symlink("file", Host("link"));
  std::filesystem::create_symlink("nowhere", Host("dangling"));
  std::filesystem::create_hard_link(Host("file"), Host("second"));
  EXPECT_EQ(AttributesOf(u"link"), files::kReparsePoint | kArchive);
  EXPECT_EQ(AttributesOf(u"dangling"), files::kReparsePoint | kArchive);
  EXPECT_EQ(files::SetAttributes(Path(u"link"), kHidden), kNotSupported);
  EXPECT_EQ(files::SetAttributes(Path(u"link"), kArchive), kSuccess);
  // From a link, and to one.
  EXPECT_EQ(Copy(Path(u"link"), Path(u"copy"), true), kSuccess);
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(Host("copy"))));
  WriteContent(Path(u"other"), "other");
  EXPECT_EQ(Copy(Path(u"other"), Path(u"link"), true), kFileExists);
  EXPECT_EQ(Copy(Path(u"other"), Path(u"link"), false), kSuccess);
  EXPECT_TRUE(std::filesystem::is_symlink(Host("link")));
  EXPECT_EQ(ContentOf(Path(u"file")), "other");
  EXPECT_EQ(Copy(Path(u"file"), Path(u"link"), false), kSharingViolation);
  EXPECT_EQ(Copy(Path(u"dangling"), Path(u"new"), false), kFileNotFound);
  // Of two names of one file, a move over the other leaves one.
  std::filesystem::create_hard_link(Host("file"), Host("third"));
  EXPECT_EQ(Move(Path(u"file"), Path(u"third"), 0), kAlreadyExists);
  EXPECT_EQ(Move(Path(u"file"), Path(u"third"), kMoveReplaceExisting), kSuccess);
  EXPECT_FALSE(paths::Exists(Path(u"file")));
  EXPECT_EQ(files::Delete(Path(u"link")), kSuccess);
  EXPECT_EQ(ContentOf(Path(u"third")), "other");
}

TEST_F(PosixFiles, CirclesEndWhereTheHostEndsThem) {
  std::filesystem::create_directories(Host("a/b"));
  std::filesystem::create_symlink("../..", Host("a/b/up"));
  cvn::String way(u"a");
  Code code = kSuccess;
  int rounds = 0;
  for (; code == kSuccess && rounds < 1000; ++rounds) {
    Search search;
    SearchEntry entry;
    code = search.First(Path(Joined(way, u"\\*")), &entry);
    way.Append(u"\\b\\up\\a");
  }
  EXPECT_GT(rounds, 20);
  EXPECT_EQ(code, kCantResolveFilename);

  cvn::String longWay(u"a");
  for (int i = 0; i < 2500; ++i) {
    longWay.Append(u"\\b");
  }
  for (const cvn::StringView path : {cvn::StringView(longWay), cvn::StringView(u"a\\*")}) {
    Search search;
    SearchEntry entry;
    const bool isLong = path == longWay;
    EXPECT_EQ(search.First(Path(path), &entry), isLong ? kFilenameExceedsRange : kSuccess);
  }
}

TEST_F(PosixFiles, FoldersAreNotMovedIntoThemselvesNorRoots) {
  ASSERT_EQ(files::CreateDirectory(Path(u"folder")), kSuccess);
  EXPECT_EQ(Move(Path(u"folder"), Path(u"folder\\deep"), 0), kSharingViolation);
  EXPECT_EQ(Move(u"C:\\", Path(u"new"), 0), kAccessDenied);
  EXPECT_EQ(files::RemoveDirectory(u"C:\\"), kAccessDenied);
  EXPECT_EQ(files::RemoveDirectory(u"Z:\\"), kAccessDenied);
  // Drives are volumes, whatever the host makes of them.
  const std::string outside = posix::Machine::Get().Root() + "-outside";
  const cvn::String place = posix::ToMachinePath(outside);
  EXPECT_EQ(Move(Path(u"folder"), place, kMoveCopyAllowed), kNotSameDevice);
  WriteContent(Path(u"file"), "content");
  EXPECT_EQ(Move(Path(u"file"), place, 0), kNotSameDevice);
  EXPECT_EQ(Move(Path(u"file"), place, kMoveCopyAllowed), kSuccess);
  EXPECT_EQ(ContentOf(place), "content");
  EXPECT_EQ(files::Delete(place), kSuccess);

  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(Host("folder"));
  EXPECT_EQ(files::RemoveDirectory(Path(u"folder")), kSharingViolation);
  std::filesystem::current_path(before);
  EXPECT_EQ(files::RemoveDirectory(Path(u"folder")), kSuccess);
}

TEST_F(PosixFiles, SearchesTakeNamesAsTheHostHasThem) {
  for (const char* name : {"b", "B", "a", "\xFF", "\xC3\xA9", "\xC3\x89", "\xF0\x9F\x98\x80",
                           "\xEF\xBF\xBD", "dots...", "a:b"}) {
    std::ofstream(Host(name)).put('x');
  }
  std::vector<std::string> found;
  Search search;
  SearchEntry entry;
  for (Code code = search.First(Path(u"*"), &entry); code == kSuccess; code = search.Next(&entry)) {
    std::string name;
    posix::AppendHostText(entry.Name(), &name);
    found.push_back(name);
    struct stat status {};
    ASSERT_EQ(stat(Host(name).c_str(), &status), 0) << name;
    EXPECT_EQ(entry.LastWriteTime() / 10'000'000 - 11'644'473'600,
              static_cast<std::uint64_t>(status.st_mtime));
  }
  // In the order of UTF-16 units, where a surrogate comes before U+FFFD.
  const std::vector<std::string> expected = {
      ".",    "..",          "a",        "a:b",      "B",
      "b",    "dots...",     "\xC3\x89", "\xC3\xA9", "\xF0\x9F\x98\x80",
      "\xFF", "\xEF\xBF\xBD"};
  EXPECT_EQ(found, expected);
  EXPECT_EQ(Find(u"B"), "B");
  EXPECT_EQ(Find(u"b"), "b");
  EXPECT_EQ(Find(u"b*"), "B b");
  EXPECT_EQ(Find(u"\u00C9*"), "\xC3\x89 \xC3\xA9");
}

TEST_F(PosixFiles, ASearchOutlivesItsFolder) {
  ASSERT_EQ(files::CreateDirectory(Path(u"folder")), kSuccess);
  WriteContent(Path(u"folder\\a"), "x");
  WriteContent(Path(u"folder\\b"), "x");
  Search search;
  SearchEntry entry;
  ASSERT_EQ(search.First(Path(u"folder\\*"), &entry), kSuccess);
  std::filesystem::remove_all(Host("folder"));
  std::string names;
  do {
    names += Utf8(entry.Name());
    EXPECT_EQ(entry.GetAttributes(), entry.IsDirectory() ? files::kDirectory : kArchive);
    EXPECT_EQ(entry.LastWriteTime(), 116'444'736'000'000'000U);  // 1970
  } while (search.Next(&entry) == kSuccess);
  EXPECT_EQ(names, "...ab");
}

TEST_F(PosixFiles, AFullDiskLeavesNoHalfFile) {
  const PrivateMount mount(Host("mount"), "tmpfs", "size=256k");
  if (!mount.IsMounted()) {
    GTEST_SKIP() << "file systems can't be mounted here";
  }
  WriteContent(Path(u"large"), std::string(1 << 20, 'x'));
  WriteContent(Path(u"mount\\old"), "old");
  for (const cvn::StringView name : {u"mount\\new", u"mount\\old"}) {
    EXPECT_EQ(Copy(Path(u"large"), Path(name), false), kDiskFull);
  }
  EXPECT_EQ(Move(Path(u"large"), Path(u"mount\\new"), kMoveCopyAllowed), kDiskFull);
  EXPECT_TRUE(paths::Exists(Path(u"large")));
  EXPECT_EQ(Find(u"mount\\*"), ". .. old");
  EXPECT_EQ(ContentOf(Path(u"mount\\old")), "old");
}

TEST_F(PosixFiles, CopiesHolesAsHoles) {
  const off_t size = 64 << 20;
  WriteContent(Path(u"sparse"), "start");
  std::ofstream(Host("sparse"), std::ios::in | std::ios::out).seekp(8 << 20).put('m');
  std::filesystem::resize_file(Host("sparse"), size);
  ASSERT_EQ(Copy(Path(u"sparse"), Path(u"copy"), true), kSuccess);
  struct stat status {};
  ASSERT_EQ(stat(Host("copy").c_str(), &status), 0);
  EXPECT_EQ(status.st_size, size);
  EXPECT_LT(status.st_blocks * 512, 4 << 20);
  EXPECT_EQ(ContentOf(Path(u"copy")), ContentOf(Path(u"sparse")));
}

TEST_F(PosixFiles, ACopyOfAGrowingFileEnds) {
  WriteContent(Path(u"log"), "start");
  std::atomic<bool> done = false;
  std::thread writer([&] {
    std::ofstream log(Host("log"), std::ios::app);
    const std::string block(1 << 16, 'x');
    for (int i = 0; i < 2000 && !done; ++i) {
      log << block << std::flush;
    }
  });
  for (int i = 0; i < 5; ++i) {
    const auto before = std::filesystem::file_size(Host("log"));
    EXPECT_EQ(Copy(Path(u"log"), Path(u"copy"), false), kSuccess);
    EXPECT_GE(std::filesystem::file_size(Host("copy")), before);
  }
  done = true;
  writer.join();
  EXPECT_EQ(Copy(u"Z:\\dev\\zero", Path(u"copy"), false), kAccessDenied);
}

// Under its name, a copy is there whole or as it was before, whenever the process is killed.
TEST_F(PosixFiles, AKilledCopyLeavesNoHalfFile) {
  const std::string older(3 << 20, 'o');
  const std::string newer(3 << 20, 'n');
  WriteContent(Path(u"older"), older);
  WriteContent(Path(u"newer"), newer);
  WriteContent(Path(u"target"), older);
  for (int round = 0; round < 30; ++round) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
      for (;;) {
        IgnoreError(Copy(Path(u"newer"), Path(u"target"), false));
        static_cast<void>(write(ends[1], "x", 1) == 1);
        IgnoreError(Copy(Path(u"older"), Path(u"target"), false));
      }
    }
    char started = 0;
    ASSERT_EQ(read(ends[0], &started, 1), 1);
    for (int i = 0; i < round * 100; ++i) {
      sched_yield();
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(ends[0]);
    close(ends[1]);
    const std::string content = HostContentOf(Host("target"));
    ASSERT_TRUE(content == older || content == newer) << content.size() << " bytes";
  }
  // What the killed ones left has a name that tells.
  for (const auto& entry : std::filesystem::directory_iterator(Host(""))) {
    const std::string name = entry.path().filename();
    const bool isLeft = name.starts_with("tessel-") && name.ends_with(".tmp");
    EXPECT_TRUE(isLeft || name == "older" || name == "newer" || name == "target") << name;
  }
}

TEST_F(PosixFiles, AReplacedTargetKeepsItsPermissions) {
  WriteContent(Path(u"file"), "content");
  WriteContent(Path(u"target"), "target");
  ASSERT_EQ(chmod(Host("file").c_str(), 0755), 0);
  ASSERT_EQ(chmod(Host("target").c_str(), 0660), 0);
  const bool isRoot = geteuid() == 0;
  ASSERT_EQ(chown(Host("target").c_str(), isRoot ? 12 : geteuid(), isRoot ? 34 : getegid()), 0);
  for (const auto& [name, mode, owner] :
       {std::tuple{"target", 0660U, isRoot ? 12 : geteuid()}, {"new", 0755U, geteuid()}}) {
    ASSERT_EQ(Copy(Path(u"file"), Path(posix::ToWide(name)), false), kSuccess);
    struct stat status {};
    ASSERT_EQ(stat(Host(name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, mode) << name;
    EXPECT_EQ(status.st_uid, owner) << name;
  }
}

TEST_F(PosixFiles, DelayedMovesStandInTheRegistry) {
  struct Case {
    cvn::String from;
    cvn::String to;
    std::uint32_t flags;
    Code code;
  };
  const std::string outside = posix::Machine::Get().Root() + "-outside";
  WriteContent(Path(u"File"), "content");
  const Case kCases[] = {
      {Path(u"FILE"), Path(u"to"), 0, kSuccess},
      {Path(u"missing\\from"), Path(u"to"), kMoveReplaceExisting, kSuccess},
      {Path(u"FILE"), Path(u"to"), kMoveCopyAllowed, kInvalidParameter},
      {u"", Path(u"to"), 0, kPathNotFound},
      {Path(u"FILE"), Path(u"a|b"), 0, kInvalidName},
      {u"Q:\\a", Path(u"to"), 0, kPathNotFound},
  };
  for (const Case& test : kCases) {
    EXPECT_EQ(Observe([&] { return Move(test.from, test.to, test.flags | kMoveDelayUntilReboot); }),
              Expected(test.code))
        << Utf8(test.from);
  }
  EXPECT_EQ(files::DeleteAtReboot(posix::ToWide(outside)), kSuccess);
  EXPECT_EQ(files::DeleteAtReboot(u"Q:\\a"), kPathNotFound);
  EXPECT_EQ(ContentOf(Path(u"File")), "content");

  registry::Key key;
  ASSERT_EQ(registry::OpenKey(registry::Key(registry::Root::LocalMachine),
                              u"SYSTEM\\CurrentControlSet\\Control\\Session Manager",
                              registry::kQueryValue, &key),
            kSuccess);
  std::uint32_t type = 0;
  std::vector<std::byte> data;
  ASSERT_EQ(registry::QueryValue(key, u"PendingFileRenameOperations", &type, &data), kSuccess);
  EXPECT_EQ(type, registry::kTypeMultiString);
  cvn::String expected;
  const auto add = [&expected](cvn::StringView before, cvn::StringView path) {
    expected.Append(before);
    expected.Append(path);
    expected.Append(u'\0');
  };
  constexpr cvn::StringView kNative = u"\\??\\";
  add(kNative, Path(u"File"));
  add(kNative, Path(u"to"));
  add(kNative, Path(u"missing\\from"));
  add(u"!\\??\\", Path(u"to"));
  add(kNative, posix::ToMachinePath(outside));
  add(u"", u"");
  add(u"", u"");
  const cvn::StringView stored(reinterpret_cast<const char16_t*>(data.data()), data.size() / 2);
  EXPECT_EQ(Utf8(stored), Utf8(expected));
}

}  // namespace
}  // namespace platform::test
