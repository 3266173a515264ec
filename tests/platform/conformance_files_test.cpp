#include <array>

#include "platform/files.h"
#include "platform/paths.h"
#include "platform/text_file.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

using files::Access;
using files::Disposition;
using files::File;
using files::Open;
using files::Share;

constexpr Access kAccesses[] = {Access::Read, Access::Write, Access::ReadWrite};
constexpr Share kShares[] = {Share::None, Share::Read, Share::ReadWrite, Share::ReadWriteDelete};

// Names that Windows refuses.
constexpr cvn::StringView kBadNames[] = {u"a*b", u"a?b",  u"a<b",     u"a>b",
                                         u"a|b", u"a\"b", u"a\u0001b"};

// "file" holds "old content", "folder" is a folder.
class FilesConformance : public FolderTest {
 protected:
  FilesConformance() {
    WriteContent(Path(u"file"), "old content");
    EXPECT_EQ(files::CreateDirectory(Path(u"folder")), kSuccess);
  }

  Outcome ObserveOpen(cvn::StringView path, Access access, Disposition disposition) {
    return Observe([&] {
      File file;
      const Code code = Open(path, access, Share::None, disposition, &file);
      EXPECT_EQ(file.IsOpen(), code == kSuccess);
      return code;
    });
  }
};

TEST_F(FilesConformance, OpenGivesTheCodesOfCreateFile) {
  struct Case {
    cvn::StringView name;
    Access access;
    Disposition disposition;
    Code code;
  };
  constexpr Case kCases[] = {
      {u"file", Access::Read, Disposition::OpenExisting, kSuccess},
      {u"FILE", Access::ReadWrite, Disposition::OpenExisting, kSuccess},
      {u"file", Access::Write, Disposition::CreateNew, kFileExists},
      {u"FiLe", Access::Write, Disposition::CreateNew, kFileExists},
      {u"missing", Access::Read, Disposition::OpenExisting, kFileNotFound},
      {u"missing\\file", Access::Read, Disposition::OpenExisting, kPathNotFound},
      {u"missing\\file", Access::Write, Disposition::CreateAlways, kPathNotFound},
      {u"file\\below", Access::Read, Disposition::OpenExisting, kPathNotFound},
      {u"file\\below", Access::Write, Disposition::CreateNew, kPathNotFound},
      {u"folder", Access::Read, Disposition::OpenExisting, kAccessDenied},
      {u"folder", Access::Write, Disposition::OpenAlways, kAccessDenied},
      {u"folder", Access::Write, Disposition::CreateAlways, kAccessDenied},
      {u"folder", Access::Write, Disposition::CreateNew, kFileExists},
      {u"folder\\..\\.\\file", Access::Read, Disposition::OpenExisting, kSuccess},
      {u"folder/../file", Access::Read, Disposition::OpenExisting, kSuccess},
      {u"file. .", Access::Read, Disposition::OpenExisting, kSuccess},
  };
  for (const Case& test : kCases) {
    EXPECT_EQ(ObserveOpen(Path(test.name), test.access, test.disposition), Expected(test.code))
        << Utf8(test.name) << ", access " << static_cast<int>(test.access) << ", disposition "
        << static_cast<int>(test.disposition);
  }
  EXPECT_EQ(ContentOf(Path(u"file")), "old content");
  EXPECT_EQ(ObserveOpen(u"", Access::Read, Disposition::OpenExisting), Expected(kPathNotFound));
}

TEST_F(FilesConformance, RefusesNamesThatWindowsRefuses) {
  for (const cvn::StringView name : kBadNames) {
    const cvn::String path = Path(name);
    const cvn::String below = Joined(path, u"\\file");
    EXPECT_EQ(ObserveOpen(path, Access::Write, Disposition::CreateAlways), Expected(kInvalidName))
        << Utf8(name);
    EXPECT_EQ(ObserveOpen(below, Access::Read, Disposition::OpenExisting), Expected(kInvalidName))
        << Utf8(name);
    EXPECT_EQ(Observe([&] { return files::CreateDirectory(path); }), Expected(kInvalidName))
        << Utf8(name);
    EXPECT_EQ(Observe([&] { return files::Delete(path); }), Expected(kInvalidName)) << Utf8(name);
    EXPECT_EQ(Observe([&] { return files::Replace(Path(u"file"), path); }), Expected(kInvalidName))
        << Utf8(name);
    EXPECT_FALSE(paths::Exists(path));
    EXPECT_EQ(LastError(), kInvalidName) << Utf8(name);
  }
}

TEST_F(FilesConformance, RefusesNamesOfMoreThan255Characters) {
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine looks the name up on its host, which doesn't find it: 2";
  }
  cvn::String name;
  for (int i = 0; i < 256; ++i) {
    name.Append(u'x');
  }
  EXPECT_EQ(ObserveOpen(Path(name), Access::Write, Disposition::CreateAlways),
            Expected(kInvalidName));
}

TEST_F(FilesConformance, DispositionsMakeKeepOrEmpty) {
  struct Case {
    Disposition disposition;
    std::string_view contentWhenThere;  // after "new" was written at the start
    bool makes;
  };
  constexpr Case kCases[] = {
      {Disposition::OpenExisting, "new content", false},
      {Disposition::OpenAlways, "new content", true},
      {Disposition::CreateAlways, "new", true},
  };
  for (const Case& test : kCases) {
    WriteContent(Path(u"there"), "old content");
    for (const bool isThere : {true, false}) {
      const cvn::String path = Path(isThere ? u"there" : u"made");
      File file;
      EXPECT_EQ(
          Observe([&] { return Open(path, Access::Write, Share::None, test.disposition, &file); }),
          Expected(isThere || test.makes ? kSuccess : kFileNotFound));
      if (file.IsOpen()) {
        EXPECT_EQ(Observe([&] { return file.Write(BytesOf("new")); }), Expected(kSuccess));
        file.Close();
        EXPECT_EQ(ContentOf(path), isThere ? test.contentWhenThere : "new");
      }
    }
    IgnoreError(files::Delete(Path(u"made")));
  }
}

TEST_F(FilesConformance, EachHolderAgreesToTheOthersAccess) {
  const auto allows = [](Share share, Access access) {
    return share == Share::ReadWrite || share == Share::ReadWriteDelete ||
           (share == Share::Read && access == Access::Read);
  };
  for (const Access held : kAccesses) {
    for (const Share heldShare : kShares) {
      File holder;
      ASSERT_EQ(Open(Path(u"file"), held, heldShare, Disposition::OpenExisting, &holder), kSuccess);
      for (const Access asked : kAccesses) {
        for (const Share askedShare : kShares) {
          File file;
          const bool agree = allows(heldShare, asked) && allows(askedShare, held);
          EXPECT_EQ(Observe([&] {
                      return Open(Path(u"FILE"), asked, askedShare, Disposition::OpenExisting,
                                  &file);
                    }),
                    Expected(agree ? kSuccess : kSharingViolation))
              << static_cast<int>(held) << static_cast<int>(heldShare) << static_cast<int>(asked)
              << static_cast<int>(askedShare);
        }
      }
    }
  }
  EXPECT_EQ(ObserveOpen(Path(u"file"), Access::ReadWrite, Disposition::OpenExisting),
            Expected(kSuccess));
}

TEST_F(FilesConformance, ReadsAndWritesAtThePosition) {
  File file;
  ASSERT_EQ(Open(Path(u"new"), Access::ReadWrite, Share::None, Disposition::CreateNew, &file),
            kSuccess);
  std::array<std::byte, 8> buffer{};
  std::size_t count = 99;
  std::uint64_t size = 99;
  EXPECT_EQ(Observe([&] { return file.Read(buffer, &count); }), Expected(kSuccess));
  EXPECT_EQ(count, 0U);
  EXPECT_EQ(Observe([&] { return file.Write({}); }), Expected(kSuccess));
  EXPECT_EQ(Observe([&] { return file.Write(BytesOf("0123456789")); }), Expected(kSuccess));
  EXPECT_EQ(Observe([&] { return file.Seek(4); }), Expected(kSuccess));
  EXPECT_EQ(Observe([&] { return file.Read(buffer, &count); }), Expected(kSuccess));
  EXPECT_EQ(std::string_view(reinterpret_cast<char*>(buffer.data()), count), "456789");
  // Past the end: a gap of zeros.
  EXPECT_EQ(Observe([&] { return file.Seek(12); }), Expected(kSuccess));
  EXPECT_EQ(Observe([&] { return file.Size(&size); }), Expected(kSuccess));
  EXPECT_EQ(size, 10U);
  EXPECT_EQ(file.Write(BytesOf("x")), kSuccess);
  EXPECT_EQ(file.Seek(0), kSuccess);
  EXPECT_EQ(file.Write(BytesOf("AB")), kSuccess);
  EXPECT_EQ(Observe([&] { return file.SeekToEnd(); }), Expected(kSuccess));
  EXPECT_EQ(file.Write(BytesOf("y")), kSuccess);
  EXPECT_EQ(Observe([&] { return file.Flush(); }), Expected(kSuccess));
  SetLastError(kUntouched);
  file.Close();
  EXPECT_EQ(LastError(), kUntouched);
  EXPECT_EQ(ContentOf(Path(u"new")), std::string("AB23456789\0\0xy", 14));
}

TEST_F(FilesConformance, AnOpenFileGivesOnlyWhatItWasOpenedFor) {
  std::array<std::byte, 8> buffer{};
  std::size_t count = 0;
  std::uint64_t size = 0;
  File file;
  ASSERT_EQ(Open(Path(u"file"), Access::Read, Share::None, Disposition::OpenExisting, &file),
            kSuccess);
  EXPECT_EQ(Observe([&] { return file.Write(BytesOf("x")); }), Expected(kAccessDenied));
  file.Close();
  ASSERT_EQ(Open(Path(u"file"), Access::Write, Share::None, Disposition::OpenExisting, &file),
            kSuccess);
  EXPECT_EQ(Observe([&] { return file.Read(buffer, &count); }), Expected(kAccessDenied));

  File moved = std::move(file);
  EXPECT_TRUE(moved.IsOpen());
  moved.Close();
  EXPECT_EQ(Observe([&] { return moved.Read(buffer, &count); }), Expected(kInvalidHandle));
  EXPECT_EQ(Observe([&] { return moved.Write(BytesOf("x")); }), Expected(kInvalidHandle));
  EXPECT_EQ(Observe([&] { return moved.Size(&size); }), Expected(kInvalidHandle));
  EXPECT_EQ(Observe([&] { return moved.Seek(0); }), Expected(kInvalidHandle));
  EXPECT_EQ(Observe([&] { return moved.SeekToEnd(); }), Expected(kInvalidHandle));
  EXPECT_EQ(Observe([&] { return moved.Flush(); }), Expected(kInvalidHandle));
}

TEST_F(FilesConformance, CreatesFolders) {
  struct Case {
    cvn::StringView name;
    Code code;
    Code recursiveCode;
  };
  constexpr Case kCases[] = {
      {u"one", kSuccess, kSuccess},
      {u"two\\", kSuccess, kSuccess},
      {u"folder", kAlreadyExists, kSuccess},
      {u"FOLDER", kAlreadyExists, kSuccess},
      {u"file", kAlreadyExists, kAlreadyExists},
      {u"a\\b\\c", kPathNotFound, kSuccess},
      {u"d/e\\\\f\\", kPathNotFound, kSuccess},
      {u"file\\below", kPathNotFound, kAlreadyExists},
      {u"file\\below\\that", kPathNotFound, kAlreadyExists},
      {u"folder\\h|i\\j", kInvalidName, kInvalidName},
  };
  for (const Case& test : kCases) {
    const cvn::String path = Path(test.name);
    EXPECT_EQ(Observe([&] { return files::CreateDirectory(path); }), Expected(test.code))
        << Utf8(test.name);
    EXPECT_EQ(Observe([&] { return files::CreateDirectoryRecursive(path); }),
              Expected(test.recursiveCode))
        << Utf8(test.name);
    EXPECT_EQ(paths::Exists(Joined(path, u"\\")), test.recursiveCode == kSuccess)
        << Utf8(test.name);
  }
  EXPECT_EQ(Observe([] { return files::CreateDirectoryRecursive(u"C:\\"); }), Expected(kSuccess));
  EXPECT_EQ(Observe([] { return files::CreateDirectoryRecursive(u"Q:\\a\\b"); }),
            Expected(kPathNotFound));
  EXPECT_EQ(Observe([] { return files::CreateDirectory(u""); }), Expected(kPathNotFound));
  EXPECT_EQ(Observe([] { return files::CreateDirectoryRecursive(u""); }), Expected(kPathNotFound));
}

TEST_F(FilesConformance, ReplaceMovesOver) {
  struct Case {
    cvn::StringView from;
    cvn::StringView to;
    Code code;
  };
  constexpr Case kCases[] = {
      {u"missing", u"file", kFileNotFound},
      {u"missing\\file", u"file", kPathNotFound},
      {u"file", u"missing\\file", kPathNotFound},
      {u"file", u"folder", kAccessDenied},
      {u"file", u"other", kSuccess},
      {u"other", u"OTHER", kSuccess},
      {u"source", u"other", kSuccess},
      {u"folder", u"folder 2", kSuccess},
  };
  WriteContent(Path(u"source"), "source");
  for (const Case& test : kCases) {
    EXPECT_EQ(Observe([&] { return files::Replace(Path(test.from), Path(test.to)); }),
              Expected(test.code))
        << Utf8(test.from) << " over " << Utf8(test.to);
  }
  EXPECT_EQ(ContentOf(Path(u"other")), "source");
  EXPECT_FALSE(paths::Exists(Path(u"file")));
  EXPECT_FALSE(paths::Exists(Path(u"source")));
  EXPECT_TRUE(paths::Exists(Path(u"folder 2\\")));
}

TEST_F(FilesConformance, ANewVersionTakesThePlaceOfAFileOnly) {
  struct Case {
    cvn::StringView to;
    Code code;
  };
  constexpr Case kCases[] = {
      {u"folder", kAccessDenied}, {u"file", kSuccess}, {u"new name", kSuccess}};
  for (const Case& test : kCases) {
    WriteContent(Path(u"version"), "version");
    EXPECT_EQ(Observe([&] { return files::TakePlace(Path(u"version"), Path(test.to)); }),
              Expected(test.code))
        << Utf8(test.to);
    EXPECT_EQ(paths::Exists(Path(u"version")), test.code != kSuccess) << Utf8(test.to);
  }
  EXPECT_TRUE(paths::IsDirectory(Path(u"folder")));
  SetLastError(kSuccess);
  EXPECT_FALSE(paths::IsDirectory(Path(u"file"))) << "no error tells that it is a file";
  EXPECT_EQ(ContentOf(Path(u"file")), "version");
  EXPECT_EQ(ContentOf(Path(u"new name")), "version");
}

TEST_F(FilesConformance, DeletesFilesOnly) {
  struct Case {
    cvn::StringView name;
    Code code;
  };
  constexpr Case kCases[] = {
      {u"FILE", kSuccess},        {u"file", kFileNotFound},      {u"missing\\file", kPathNotFound},
      {u"folder", kAccessDenied}, {u"read-only", kAccessDenied},
  };
  WriteContent(Path(u"read-only"), "content");
  MakeReadOnly(Path(u"read-only"));
  for (const Case& test : kCases) {
    EXPECT_EQ(Observe([&] { return files::Delete(Path(test.name)); }), Expected(test.code))
        << Utf8(test.name);
  }
  EXPECT_TRUE(paths::Exists(Path(u"folder")));
  EXPECT_TRUE(paths::Exists(Path(u"read-only")));
  EXPECT_FALSE(paths::Exists(Path(u"file")));
  EXPECT_EQ(Observe([] { return files::Delete(u""); }), Expected(kPathNotFound));
}

TEST_F(FilesConformance, AReadOnlyFileIsKept) {
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine leaves read-only files to its host, where root writes to them";
  }
  const cvn::String path = Path(u"read-only");
  WriteContent(path, "old content");
  MakeReadOnly(path);
  for (const Access access : {Access::Write, Access::ReadWrite}) {
    for (const Disposition disposition :
         {Disposition::OpenExisting, Disposition::OpenAlways, Disposition::CreateAlways}) {
      EXPECT_EQ(ObserveOpen(path, access, disposition), Expected(kAccessDenied))
          << static_cast<int>(access) << static_cast<int>(disposition);
    }
  }
  TextFile text;
  EXPECT_EQ(Observe([&] { return text.OpenForAppend(path); }), Expected(kAccessDenied));
  EXPECT_EQ(Observe([&] { return files::TakePlace(Path(u"file"), path); }),
            Expected(kAccessDenied));
  EXPECT_EQ(Observe([&] { return files::Replace(Path(u"file"), path); }), Expected(kAccessDenied));
  EXPECT_EQ(ContentOf(path), "old content");
  // It may go elsewhere, though.
  EXPECT_EQ(Observe([&] { return files::Replace(path, Path(u"moved")); }), Expected(kSuccess));
  EXPECT_EQ(ContentOf(Path(u"moved")), "old content");
}

TEST_F(FilesConformance, AnOpenFileIsNeitherDeletedNorMoved) {
  File file;
  ASSERT_EQ(Open(Path(u"file"), Access::Read, Share::ReadWrite, Disposition::OpenExisting, &file),
            kSuccess);
  EXPECT_EQ(Observe([&] { return files::Delete(Path(u"file")); }), Expected(kSharingViolation));
  EXPECT_EQ(Observe([&] { return files::Replace(Path(u"file"), Path(u"moved")); }),
            Expected(kSharingViolation));
  file.Close();
  EXPECT_EQ(Observe([&] { return files::Delete(Path(u"file")); }), Expected(kSuccess));
}

// Any text without a separator or a refused character is a name, in any script and form.
TEST_F(FilesConformance, KeepsAnyName) {
  constexpr cvn::StringView kNames[] = {
      u"with blanks and (marks) %TEMP% {x} 'y' `z` ~1",
      u"\u65E5\u672C\u8A9E.txt",
      u"\U0001D11E clef \U0001F600.txt",
      u"caf\u00E9",
      u"cafe\u0301",
      u"\u202Ertl\u202C \u05D0\u05D1",
      u".hidden",
      u"no-break\u00A0\u3000",
  };
  std::size_t index = 0;
  for (const cvn::StringView name : kNames) {
    const std::string content = std::to_string(++index);
    const cvn::String path = Path(name);
    File file;
    EXPECT_EQ(Open(path, Access::Write, Share::None, Disposition::CreateNew, &file), kSuccess)
        << Utf8(name);
    EXPECT_EQ(file.Write(BytesOf(content)), kSuccess);
    file.Close();
    EXPECT_EQ(ContentOf(path), content) << Utf8(name);
    EXPECT_EQ(Utf8(paths::LongName(path)), Utf8(path));
  }
  for (const cvn::StringView name : kNames) {
    EXPECT_EQ(files::Delete(Path(name)), kSuccess) << Utf8(name);
  }
}

TEST_F(FilesConformance, KeepsNamesThatAreNoUnicode) {
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine can't name them on its host";
  }
  const cvn::String path = Path(u"\xDC00 single surrogate \xD800");
  WriteContent(path, "content");
  EXPECT_EQ(ContentOf(path), "content");
  EXPECT_TRUE(paths::LongName(path) == path);
  EXPECT_FALSE(paths::Exists(Path(u"\xD800 single surrogate \xDC00")));
}

TEST_F(FilesConformance, FindsNamesWithoutRegardToCase) {
  struct Case {
    cvn::StringView made;
    cvn::StringView asked;
    bool isSame;
  };
  constexpr Case kCases[] = {
      {u"Read Me.TXT", u"rEAD mE.txt", true},
      {u"\u00C4\u00D6\u00DC.x", u"\u00E4\u00F6\u00FC.X", true},
      {u"\u0416\u0443\u043A", u"\u0436\u0423\u041A", true},
      {u"stra\u00DFe", u"STRASSE", false},  // one unit never stands for two
      {u"i\u0307", u"\u0130", false},
  };
  for (const Case& test : kCases) {
    WriteContent(Path(test.made), "content");
    EXPECT_EQ(paths::Exists(Path(test.asked)), test.isSame) << Utf8(test.made);
    EXPECT_EQ(ObserveOpen(Path(test.asked), Access::Write, Disposition::CreateNew),
              Expected(test.isSame ? kFileExists : kSuccess))
        << Utf8(test.made);
  }
}

// Around the classic limits of folders and of files, and far beyond them.
TEST_F(FilesConformance, TakesLongPaths) {
  for (const std::size_t length : {246, 247, 248, 249, 258, 259, 260, 261, 600, 2000}) {
    const cvn::String path = PathOfLength(length);
    EXPECT_EQ(Observe([&] { return files::CreateDirectory(path); }), Expected(kSuccess)) << length;
    EXPECT_EQ(Observe([&] { return files::CreateDirectory(path); }), Expected(kAlreadyExists))
        << length;
    EXPECT_TRUE(paths::Exists(path)) << length;

    const cvn::String file = PathOfLength(length + 1);
    WriteContent(file, "content");
    EXPECT_EQ(ContentOf(file), "content") << length;
    EXPECT_EQ(Utf8(paths::LongName(file)), Utf8(file));
    EXPECT_EQ(Observe([&] { return files::Replace(file, Joined(file, u"2")); }), Expected(kSuccess))
        << length;
    EXPECT_EQ(Observe([&] { return files::Delete(file); }), Expected(kFileNotFound)) << length;
    EXPECT_EQ(Observe([&] { return files::Delete(Joined(file, u"2")); }), Expected(kSuccess))
        << length;
  }
}

}  // namespace
}  // namespace platform::test
