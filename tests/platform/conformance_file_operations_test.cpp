#include "platform/file_identity.h"
#include "platform/file_search.h"
#include "platform/paths.h"
#include "platform/registry.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

using files::Attributes;
using files::Copy;
using files::kArchive;
using files::kHidden;
using files::kMoveCopyAllowed;
using files::kMoveReplaceExisting;
using files::kMoveWriteThrough;
using files::kNormal;
using files::kReadOnly;
using files::kSystem;
using files::Move;
using files::SetAttributes;

constexpr Attributes kFolder = files::kDirectory;

constexpr const char* kWineHasNoReadOnly =
    "Wine leaves read-only, hidden and system targets to its host, where root writes to them";

// "file" holds "content", "other" holds "other content", "folder" is a folder with "in" in it.
class FileOperations : public FolderTest {
 protected:
  FileOperations() {
    WriteContent(Path(u"file"), "content");
    WriteContent(Path(u"other"), "other content");
    EXPECT_EQ(files::CreateDirectory(Path(u"folder")), kSuccess);
    WriteContent(Path(u"folder\\in"), "in");
  }

  Attributes AttributesOf(cvn::StringView name) const {
    Attributes attributes = 0;
    EXPECT_EQ(Observe([&] { return files::GetAttributes(Path(name), &attributes); }),
              Expected(kSuccess))
        << Utf8(name);
    return Comparable(attributes);
  }

  std::uint64_t WriteTimeOf(cvn::StringView name) const {
    files::Search search;
    files::SearchEntry entry;
    EXPECT_EQ(search.First(Path(name), &entry), kSuccess) << Utf8(name);
    return entry.LastWriteTime();
  }
};

TEST_F(FileOperations, SetsAndGivesAttributes) {
  struct Case {
    Attributes set;
    Attributes ofFile;
    Attributes ofFolder;
  };
  constexpr Case kCases[] = {
      {kReadOnly, kReadOnly, kFolder | kReadOnly},
      {kHidden, kHidden, kFolder | kHidden},
      {kSystem | kArchive, kSystem | kArchive, kFolder | kSystem | kArchive},
      {kReadOnly | kHidden | kSystem | kArchive, kReadOnly | kHidden | kSystem | kArchive,
       kFolder | kReadOnly | kHidden | kSystem | kArchive},
      {kNormal, kNormal, kFolder},
      {kHidden | files::kDirectory | files::kReparsePoint, kHidden, kFolder | kHidden},
      {0, kNormal, kFolder},
  };
  EXPECT_EQ(AttributesOf(u"file"), Comparable(kArchive));
  EXPECT_EQ(AttributesOf(u"folder"), kFolder);
  for (const Case& test : kCases) {
    for (const cvn::StringView name : {u"file", u"folder"}) {
      // Of a folder, the bit that makes it one may be given or not; of a file it must not.
      const bool isFile = name == u"file";
      const Attributes word = isFile ? test.set & ~files::kDirectory : test.set;
      EXPECT_EQ(Observe([&] { return SetAttributes(Path(name), word); }), Expected(kSuccess))
          << test.set;
      EXPECT_EQ(AttributesOf(name), Comparable(isFile ? test.ofFile : test.ofFolder)) << test.set;
    }
  }
  EXPECT_EQ(ContentOf(Path(u"file")), "content");
  for (const auto& [name, code] :
       {std::pair{u"missing", kFileNotFound}, std::pair{u"missing\\file", kPathNotFound},
        std::pair{u"file\\below", kPathNotFound}}) {
    Attributes attributes = 0;
    EXPECT_EQ(Observe([&] { return files::GetAttributes(Path(name), &attributes); }),
              Expected(code));
    EXPECT_EQ(Observe([&] { return SetAttributes(Path(name), kHidden); }), Expected(code));
  }
}

TEST_F(FileOperations, CopyGivesTheCodesOfCopyFile) {
  struct Case {
    cvn::StringView from;
    cvn::StringView to;
    bool failIfExists;
    Code code;
  };
  constexpr Case kCases[] = {
      {u"missing", u"new", true, kFileNotFound},
      {u"missing\\file", u"new", true, kPathNotFound},
      {u"file", u"missing\\new", true, kPathNotFound},
      {u"file", u"file\\new", true, kPathNotFound},
      {u"file", u"other", true, kFileExists},
      {u"file", u"OTHER", true, kFileExists},
      {u"folder", u"new", true, kAccessDenied},
      {u"file", u"folder", false, kAccessDenied},
      {u"file", u"file", true, kFileExists},
      {u"file", u"FILE", false, kSharingViolation},
      {u"file", u"n|ew", true, kInvalidName},
      {u"", u"new", true, kPathNotFound},
      {u"file", u"new", true, kSuccess},
      {u"FILE", u"other", false, kSuccess},
      {u"file", u"folder\\deep", false, kSuccess},
  };
  for (const Case& test : kCases) {
    const cvn::String from = test.from.empty() ? cvn::String() : Path(test.from);
    EXPECT_EQ(Observe([&] { return Copy(from, Path(test.to), test.failIfExists); }),
              Expected(test.code))
        << Utf8(test.from) << " to " << Utf8(test.to);
  }
  for (const cvn::StringView name : {u"file", u"new", u"other", u"folder\\deep"}) {
    EXPECT_EQ(ContentOf(Path(name)), "content") << Utf8(name);
  }
}

TEST_F(FileOperations, CopyTakesAttributesAndWriteTimeAlong) {
  const std::string longContent(3'000'001, 'x');
  WriteContent(Path(u"file"), longContent);
  const std::uint64_t time = WriteTimeOf(u"file");
  for (const Attributes word : {kReadOnly | kArchive, kHidden | kArchive, kArchive}) {
    ASSERT_EQ(SetAttributes(Path(u"file"), word), kSuccess);
    ASSERT_EQ(Copy(Path(u"file"), Path(u"new"), true), kSuccess);
    EXPECT_EQ(AttributesOf(u"new"), Comparable(word));
    EXPECT_EQ(WriteTimeOf(u"new"), time);
    EXPECT_EQ(ContentOf(Path(u"new")), longContent);
    ASSERT_EQ(SetAttributes(Path(u"new"), kNormal), kSuccess);
    ASSERT_EQ(files::Delete(Path(u"new")), kSuccess);
  }
  // Over a longer file nothing of that one is left.
  ASSERT_EQ(Copy(Path(u"other"), Path(u"file"), false), kSuccess);
  EXPECT_EQ(ContentOf(Path(u"file")), "other content");
  EXPECT_EQ(WriteTimeOf(u"file"), WriteTimeOf(u"other"));
}

TEST_F(FileOperations, CopyLeavesProtectedTargetsAlone) {
  if (RunsUnderWine()) {
    GTEST_SKIP() << kWineHasNoReadOnly;
  }
  for (const Attributes word : {kReadOnly, kHidden, kSystem}) {
    ASSERT_EQ(SetAttributes(Path(u"other"), word), kSuccess);
    EXPECT_EQ(Observe([&] { return Copy(Path(u"file"), Path(u"other"), false); }),
              Expected(kAccessDenied))
        << word;
    EXPECT_EQ(Observe([&] { return Copy(Path(u"file"), Path(u"other"), true); }),
              Expected(kFileExists))
        << word;
    EXPECT_EQ(AttributesOf(u"other"), word);
  }
  EXPECT_EQ(ContentOf(Path(u"other")), "other content");
}

TEST_F(FileOperations, WhatIsOpenIsNeitherCopiedOverNorMoved) {
  for (const files::Share share : {files::Share::None, files::Share::Read}) {
    files::File held;
    ASSERT_EQ(files::Open(Path(u"other"), files::Access::Read, share,
                          files::Disposition::OpenExisting, &held),
              kSuccess);
    EXPECT_EQ(Observe([&] { return Copy(Path(u"file"), Path(u"other"), false); }),
              Expected(kSharingViolation));
    EXPECT_EQ(Observe([&] { return Copy(Path(u"other"), Path(u"copy"), false); }),
              Expected(share == files::Share::None ? kSharingViolation : kSuccess));
    EXPECT_EQ(Observe([&] { return Move(Path(u"other"), Path(u"moved"), kMoveWriteThrough); }),
              Expected(kSharingViolation));
  }
  EXPECT_EQ(ContentOf(Path(u"other")), "other content");
}

TEST_F(FileOperations, MoveGivesTheCodesOfMoveFile) {
  struct Case {
    cvn::StringView from;
    cvn::StringView to;
    std::uint32_t flags;
    Code code;
  };
  constexpr Case kCases[] = {
      {u"missing", u"new", 0, kFileNotFound},
      {u"missing\\file", u"new", 0, kPathNotFound},
      {u"file", u"missing\\new", 0, kPathNotFound},
      {u"file", u"other", 0, kAlreadyExists},
      {u"file", u"OTHER", kMoveCopyAllowed | kMoveWriteThrough, kAlreadyExists},
      {u"file", u"folder", 0, kAlreadyExists},
      {u"folder", u"file", 0, kAlreadyExists},
      {u"file", u"folder", kMoveReplaceExisting, kAccessDenied},
      {u"file", u"a|b", 0, kInvalidName},
      {u"file", u"other", kMoveReplaceExisting, kSuccess},
      {u"other", u"OTHER", kMoveWriteThrough, kSuccess},  // a new spelling
      {u"OTHER", u"folder\\deep", kMoveWriteThrough, kSuccess},
      {u"folder", u"moved", kMoveWriteThrough, kSuccess},
  };
  for (const Case& test : kCases) {
    EXPECT_EQ(Observe([&] { return Move(Path(test.from), Path(test.to), test.flags); }),
              Expected(test.code))
        << Utf8(test.from) << " to " << Utf8(test.to);
  }
  EXPECT_EQ(ContentOf(Path(u"moved\\deep")), "content");
  EXPECT_EQ(ContentOf(Path(u"moved\\in")), "in");
  EXPECT_FALSE(paths::Exists(Path(u"folder")));
  EXPECT_FALSE(paths::Exists(Path(u"other")));
}

TEST_F(FileOperations, AFolderReplacesNothing) {
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine moves a folder over a file";
  }
  ASSERT_EQ(files::CreateDirectory(Path(u"empty")), kSuccess);
  for (const cvn::StringView name : {u"file", u"empty"}) {
    EXPECT_EQ(Observe([&] { return Move(Path(u"folder"), Path(name), kMoveReplaceExisting); }),
              Expected(kAccessDenied));
  }
  EXPECT_EQ(ContentOf(Path(u"file")), "content");
}

TEST_F(FileOperations, MoveTakesAttributesAndWriteTimeAlong) {
  const std::uint64_t time = WriteTimeOf(u"file");
  ASSERT_EQ(SetAttributes(Path(u"file"), kReadOnly | kArchive), kSuccess);
  ASSERT_EQ(Move(Path(u"file"), Path(u"new"), kMoveWriteThrough), kSuccess);
  EXPECT_EQ(AttributesOf(u"new"), Comparable(kReadOnly | kArchive));
  EXPECT_EQ(WriteTimeOf(u"new"), time);
}

// The list of moves that the session manager makes at the next start: UTF-16 texts, each with a
// zero behind it.
class PendingMoves {
 public:
  PendingMoves() {
    EXPECT_EQ(registry::OpenKey(registry::Key(registry::Root::LocalMachine),
                                u"SYSTEM\\CurrentControlSet\\Control\\Session Manager",
                                registry::kQueryValue | registry::kSetValue, &key_),
              kSuccess);
    before_ = Read();
  }
  ~PendingMoves() {
    if (before_.empty()) {
      IgnoreError(registry::DeleteValue(key_, kName));
    } else {
      EXPECT_EQ(registry::SetValue(key_, kName, registry::kTypeMultiString, before_), kSuccess);
    }
  }

  // What came to the list, with '|' for each zero but the last, which ends the list.
  std::string Added() const {
    const std::vector<std::byte> now = Read();
    const std::size_t start = before_.empty() ? 0 : before_.size() - sizeof(char16_t);
    std::string text;
    for (std::size_t at = start; at + 2 * sizeof(char16_t) <= now.size(); at += sizeof(char16_t)) {
      const char16_t unit = static_cast<char16_t>(std::to_integer<int>(now[at]) |
                                                  std::to_integer<int>(now[at + 1]) << 8);
      text += unit == 0 ? "|" : Utf8(cvn::StringView(&unit, 1));
    }
    return text;
  }

 private:
  static constexpr cvn::StringView kName = u"PendingFileRenameOperations";

  std::vector<std::byte> Read() const {
    std::uint32_t type = registry::kTypeMultiString;
    std::vector<std::byte> data;
    IgnoreError(registry::QueryValue(key_, kName, &type, &data));
    EXPECT_EQ(type, registry::kTypeMultiString);
    return data;
  }

  registry::Key key_;
  std::vector<std::byte> before_;
};

TEST_F(FileOperations, AMoveAfterTheNextStartIsNoted) {
  using files::kMoveDelayUntilReboot;
  const PendingMoves pending;
  const std::string folder = "\\??\\" + Utf8(Folder());
  EXPECT_EQ(Observe([&] { return files::DeleteAtReboot(Path(u"file")); }), Expected(kSuccess));
  // No target is not a deletion.
  for (const std::uint32_t flags : {0U, files::kMoveCopyAllowed, kMoveDelayUntilReboot}) {
    EXPECT_EQ(Observe([&] { return Move(Path(u"file"), u"", flags); }), Expected(kPathNotFound));
  }
  EXPECT_EQ(Observe([&] { return Move(Path(u"other"), Path(u"new"), kMoveDelayUntilReboot); }),
            Expected(kSuccess));
  EXPECT_EQ(Observe([&] {
              return Move(Path(u"other"), Path(u"file"),
                          kMoveDelayUntilReboot | kMoveReplaceExisting);
            }),
            Expected(kSuccess));
  EXPECT_EQ(pending.Added(), folder + "\\file||" + folder + "\\other|" + folder + "\\new|" +
                                 folder + "\\other|!" + folder + "\\file|");
  EXPECT_EQ(ContentOf(Path(u"file")), "content");
  EXPECT_EQ(ContentOf(Path(u"other")), "other content");
}

TEST_F(FileOperations, RemovesEmptyFoldersOnly) {
  struct Case {
    cvn::StringView name;
    Code code;
  };
  constexpr Case kCases[] = {
      {u"missing", kFileNotFound}, {u"missing\\folder", kPathNotFound},
      {u"file", kDirectory},       {u"folder", kDirNotEmpty},
      {u"EMPTY", kSuccess},        {u"empty", kFileNotFound},
      {u"with end\\", kSuccess},
  };
  ASSERT_EQ(files::CreateDirectory(Path(u"empty")), kSuccess);
  ASSERT_EQ(files::CreateDirectory(Path(u"with end")), kSuccess);
  for (const Case& test : kCases) {
    EXPECT_EQ(Observe([&] { return files::RemoveDirectory(Path(test.name)); }), Expected(test.code))
        << Utf8(test.name);
  }
  EXPECT_EQ(ContentOf(Path(u"folder\\in")), "in");
}

TEST_F(FileOperations, AReadOnlyFolderIsKept) {
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine removes read-only folders";
  }
  ASSERT_EQ(files::CreateDirectory(Path(u"empty")), kSuccess);
  ASSERT_EQ(SetAttributes(Path(u"empty"), kReadOnly), kSuccess);
  EXPECT_EQ(Observe([&] { return files::RemoveDirectory(Path(u"empty")); }),
            Expected(kAccessDenied));
  ASSERT_EQ(SetAttributes(Path(u"empty"), kNormal), kSuccess);
  EXPECT_EQ(Observe([&] { return files::RemoveDirectory(Path(u"empty")); }), Expected(kSuccess));
}

TEST_F(FileOperations, OperationsTakeLongPaths) {
  for (const std::size_t length : {247, 259, 260, 600, 2000}) {
    const cvn::String path = PathOfLength(length);
    const cvn::String moved = Joined(path, u"-moved");
    Attributes attributes = 0;
    EXPECT_EQ(Observe([&] { return Copy(Path(u"file"), path, true); }), Expected(kSuccess))
        << length;
    EXPECT_EQ(Observe([&] { return SetAttributes(path, kHidden); }), Expected(kSuccess));
    EXPECT_EQ(Observe([&] { return files::GetAttributes(path, &attributes); }), Expected(kSuccess));
    EXPECT_EQ(Comparable(attributes), kHidden);
    EXPECT_FALSE(paths::IsDirectory(path));
    EXPECT_EQ(Observe([&] { return Move(path, moved, kMoveWriteThrough); }), Expected(kSuccess))
        << length;
    EXPECT_EQ(ContentOf(moved), "content") << length;
    EXPECT_EQ(files::Delete(moved), kSuccess);
    EXPECT_EQ(files::CreateDirectory(path), kSuccess) << length;
    EXPECT_TRUE(paths::IsDirectory(path)) << length;
    EXPECT_EQ(Observe([&] { return files::RemoveDirectory(path); }), Expected(kSuccess)) << length;
  }
}

TEST_F(FileOperations, ALinkToAFolderIsNotTheFolder) {
  if (!MakeFolderLink(Path(u"link"), Path(u"folder"))) {
    GTEST_SKIP() << "links can't be made here";
  }
  EXPECT_EQ(AttributesOf(u"link") & (kFolder | files::kReparsePoint),
            kFolder | files::kReparsePoint);
  EXPECT_EQ(ContentOf(Path(u"link\\in")), "in");
  files::Identity folder;
  files::Identity link;
  files::Identity file;
  EXPECT_EQ(Observe([&] { return files::GetIdentity(Path(u"folder"), &folder); }),
            Expected(kSuccess));
  EXPECT_EQ(Observe([&] { return files::GetIdentity(Path(u"link"), &link); }), Expected(kSuccess));
  EXPECT_EQ(Observe([&] { return files::GetIdentity(Path(u"file"), &file); }), Expected(kSuccess));
  EXPECT_EQ(link, folder);
  EXPECT_FALSE(file == folder);
  EXPECT_EQ(Observe([&] { return files::GetIdentity(Path(u"missing"), &link); }),
            Expected(kFileNotFound));
  EXPECT_EQ(Observe([&] { return files::Delete(Path(u"link")); }), Expected(kAccessDenied));
  EXPECT_EQ(Observe([&] { return files::RemoveDirectory(Path(u"link")); }), Expected(kSuccess));
  EXPECT_EQ(ContentOf(Path(u"folder\\in")), "in");
}

TEST_F(FileOperations, KnowsFoldersAndRoots) {
  struct Root {
    cvn::StringView left;
    cvn::StringView right;
    bool isSame;
  };
  constexpr Root kRoots[] = {
      {u"C:\\a", u"c:\\b\\c", true}, {u"C:\\", u"C:\\x", true}, {u"C:\\a", u"Z:\\a", false},
      {u"a", u"b", false},           {u"C:\\a", u"b", false},   {u"", u"", false},
      {u"C:\\a", u"", false},        {u"C:/a", u"C:/b", false}, {u"C:\\a", u"C:/b", false},
  };
  for (const Root& test : kRoots) {
    EXPECT_EQ(paths::IsSameRoot(test.left, test.right), test.isSame)
        << Utf8(test.left) << ", " << Utf8(test.right);
  }
  const std::pair<cvn::StringView, cvn::StringView> kEnds[] = {
      {u"C:\\a\\", u"C:\\a"}, {u"C:\\a", u"C:\\a"}, {u"C:\\", u"C:\\"}, {u"a\\", u"a"}, {u"", u""},
  };
  for (const auto& [path, expected] : kEnds) {
    cvn::String cut(path);
    paths::RemoveBackslash(&cut);
    EXPECT_EQ(Utf8(cut), Utf8(expected));
  }
  cvn::String longPath = PathOfLength(300);
  const cvn::String before = longPath;
  longPath.Append(u'\\');
  paths::RemoveBackslash(&longPath);
  EXPECT_EQ(Utf8(longPath), Utf8(before));

  EXPECT_TRUE(paths::IsDirectory(Path(u"folder")));
  EXPECT_TRUE(paths::IsDirectory(Path(u"FOLDER\\")));
  EXPECT_TRUE(paths::IsDirectory(u"C:\\"));
  for (const cvn::StringView name : {u"file", u"missing", u"fold*", u"folder\\in"}) {
    EXPECT_FALSE(paths::IsDirectory(Path(name))) << Utf8(name);
  }
}

}  // namespace
}  // namespace platform::test
