#include <algorithm>
#include <array>

#include "platform/file_identity.h"
#include "platform/files.h"
#include "platform/held_folder.h"
#include "platform/paths.h"
#include "platform/private_file.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "support/format.h"
#include "tests/platform/file_steps.h"

namespace platform::test {
namespace {

using namespace steps;  // NOLINT(google-build-using-namespace): the columns of the tables
using files::Attributes;
using files::File;
using files::kArchive;
using files::kDirectory;
using files::kHidden;
using files::kMoveCopyAllowed;
using files::kMoveDelayUntilReboot;
using files::kMoveReplaceExisting;
using files::kMoveWriteThrough;
using files::kNormal;
using files::kReadOnly;
using files::kSystem;
using files::Open;
using files::Share;

constexpr bool kNotUnderWine = true;

// "file" holds "old content", "other" "other content"; "folder" is a folder with "in" in it.
class FilesConformance : public StepsTest {
 protected:
  FilesConformance() {
    WriteContent(Path(u"file"), "old content");
    WriteContent(Path(u"other"), "other content");
    EXPECT_EQ(files::CreateDirectory(Path(u"folder")), kSuccess);
    WriteContent(Path(u"folder\\in"), "in");
  }

  Attributes AttributesOf(cvn::StringView name) const {
    Attributes attributes = 0;
    EXPECT_CODE(kSuccess, files::GetAttributes(Path(name), &attributes)) << Utf8(name);
    return Comparable(attributes);
  }
};

TEST_F(FilesConformance, Opens) {
  constexpr Step kSteps[] = {
      {Create, u"file", {}, kFileExists},
      {Read, u"missing", {}, kFileNotFound},
      {Empty, u"missing\\file", {}, kPathNotFound},
      {Create, u"file\\below", {}, kPathNotFound},
      {Read, u"folder", {}, kAccessDenied},
      {Ensure, u"folder", {}, kAccessDenied},
      {Empty, u"folder", {}, kAccessDenied},
      // Wine finds that the name is taken before it looks at what has it.
      {Create, u"folder", {}, kAccessDenied, kNotUnderWine},
      {Create, u"folder\\", {}, kPathNotFound, kNotUnderWine},
      {CopyNew, u"file", u"folder", kAccessDenied, kNotUnderWine},
      {Read, u"folder\\..\\.\\file"},
      {Read, u"folder/../file"},
      {Read, u"file. ."},
      {Read, u"", {}, kPathNotFound},
      {Has, u"file", u"old content"},
      {Update, u"FILE"},
      {Has, u"file", u"new content"},
      {Empty, u"file"},
      {Has, u"file", u"new"},
      {Ensure, u"ensured"},
  };
  Run(kSteps);
  for (const auto call : {Read, Create, Delete, Exists}) {
    EXPECT_CODE(kPathNotFound, call(u"  ", {}));
  }
}

TEST_F(FilesConformance, RefusesNamesThatWindowsRefuses) {
  for (const cvn::StringView name :
       {u"a*b", u"a?b", u"a<b", u"a>b", u"a|b", u"a\"b", u"a\u0001b"}) {
    const cvn::String below = Joined(name, u"\\file");
    const Step kSteps[] = {
        {Empty, name, {}, kInvalidName},
        {Read, below, {}, kInvalidName},
        {Make, name, {}, kInvalidName},
        {Delete, name, {}, kInvalidName},
        {Replace, u"file", name, kInvalidName},
        {CopyNew, u"file", name, kInvalidName, kNotUnderWine},
        {Move<0>, u"file", name, kInvalidName, kNotUnderWine},
        {Exists, name, {}, kInvalidName},
    };
    Run(kSteps);
  }
}

// Wine gives the null device of its host to those that change files, and lets them: none may here.
TEST_F(FilesConformance, HasADeviceInEveryFolder) {
  for (const cvn::StringView nul : {u"nul", u"folder\\NUL", u"folder/Nul. ."}) {
    const Step kSteps[] = {
        {Has, nul, u""},
        {Empty, nul},
        {Append, nul},
        {Has, nul, u""},
        {Exists, nul},
        {Create, nul, {}, kSuccess, kNotUnderWine},
        {Make, nul, {}, platform::kDirectory, kNotUnderWine},
        {Delete, nul, {}, kInvalidParameter, kNotUnderWine},
        {Mark<kReadOnly>, nul, {}, kInvalidParameter, kNotUnderWine},
        {Move<0>, nul, u"moved", kInvalidParameter, kNotUnderWine},
        {Move<0>, u"file", nul, kAlreadyExists, kNotUnderWine},
        {Move<kMoveReplaceExisting>, u"file", nul, kAccessDenied, kNotUnderWine},
    };
    Run(kSteps);
    EXPECT_EQ(AttributesOf(nul), Comparable(kArchive));
  }
  constexpr Step kSteps[] = {
      {Has, u"file", u"old content"},
      {Read, u"missing\\nul", {}, kPathNotFound},
      {Exists, u"missing\\nul", {}, kPathNotFound},
  };
  Run(kSteps);
  EXPECT_EQ(Found(Path(u"folder\\nul")), "nul");
  EXPECT_EQ(Found(Path(u"folder\\*")), "., .., in");
}

TEST_F(FilesConformance, EachHolderAgreesToTheOthersAccess) {
  constexpr Access kAccesses[] = {Access::Read, Access::Write, Access::ReadWrite};
  constexpr Share kShares[] = {Share::None, Share::Read, Share::ReadWrite, Share::ReadWriteDelete};
  const auto allows = [](Share share, Access access) {
    return share == Share::ReadWrite || share == Share::ReadWriteDelete ||
           (share == Share::Read && access == Access::Read);
  };
  for (int i = 0; i < 3 * 4 * 3 * 4; ++i) {
    const Access held = kAccesses[i % 3];
    const Access asked = kAccesses[i / 3 % 3];
    const Share heldShare = kShares[i / 9 % 4];
    const Share askedShare = kShares[i / 36];
    File holder;
    File file;
    ASSERT_EQ(Open(Path(u"file"), held, heldShare, Disposition::OpenExisting, &holder), kSuccess);
    const bool agree = allows(heldShare, asked) && allows(askedShare, held);
    EXPECT_CODE(agree ? kSuccess : kSharingViolation,
                Open(Path(u"FILE"), asked, askedShare, Disposition::OpenExisting, &file))
        << i;
  }
}

TEST_F(FilesConformance, ReadsAndWritesAtThePosition) {
  File file;
  ASSERT_EQ(Open(Path(u"new"), Access::ReadWrite, Share::None, Disposition::CreateNew, &file),
            kSuccess);
  std::array<std::byte, 8> buffer{};
  std::size_t count = 99;
  std::uint64_t size = 99;
  EXPECT_CODE(kSuccess, file.Read(buffer, &count));
  EXPECT_EQ(count, 0U);
  EXPECT_CODE(kSuccess, file.Write({}));
  EXPECT_CODE(kSuccess, file.Write(BytesOf("0123456789")));
  EXPECT_CODE(kSuccess, file.Seek(4));
  EXPECT_CODE(kSuccess, file.Read(buffer, &count));
  EXPECT_EQ(std::string_view(reinterpret_cast<char*>(buffer.data()), count), "456789");
  // Past the end: a gap of zeros.
  EXPECT_CODE(kSuccess, file.Seek(12));
  EXPECT_CODE(kSuccess, file.Size(&size));
  EXPECT_EQ(size, 10U);
  EXPECT_EQ(file.Write(BytesOf("x")), kSuccess);
  EXPECT_EQ(file.Seek(0), kSuccess);
  EXPECT_EQ(file.Write(BytesOf("AB")), kSuccess);
  EXPECT_CODE(kSuccess, file.SeekToEnd());
  EXPECT_EQ(file.Write(BytesOf("y")), kSuccess);
  EXPECT_CODE(kSuccess, file.Flush());
  EXPECT_CODE(kSuccess, (file.Close(), kSuccess));
  EXPECT_EQ(ContentOf(Path(u"new")), std::string("AB23456789\0\0xy", 14));
}

TEST_F(FilesConformance, AnOpenFileGivesOnlyWhatItWasOpenedFor) {
  std::array<std::byte, 8> buffer{};
  std::size_t count = 0;
  std::uint64_t size = 0;
  File reader = Held(u"file", Share::None);
  EXPECT_CODE(kAccessDenied, reader.Write(BytesOf("x")));
  File file;
  ASSERT_EQ(Open(Path(u"other"), Access::Write, Share::None, Disposition::OpenExisting, &file),
            kSuccess);
  EXPECT_CODE(kAccessDenied, file.Read(buffer, &count));
  File moved = std::move(file);
  EXPECT_TRUE(moved.IsOpen());
  moved.Close();
  EXPECT_CODE(kInvalidHandle, moved.Read(buffer, &count));
  EXPECT_CODE(kInvalidHandle, moved.Write(BytesOf("x")));
  EXPECT_CODE(kInvalidHandle, moved.Size(&size));
  EXPECT_CODE(kInvalidHandle, moved.Seek(0));
}

TEST_F(FilesConformance, MakesAndRemovesFolders) {
  constexpr Step kSteps[] = {
      {Make, u"two\\"},
      {Make, u"file", {}, kAlreadyExists},
      {MakeAll, u"d/e\\\\f\\"},
      {Exists, u"d\\e\\f\\"},
      {MakeAll, u"file\\below\\that", {}, kAlreadyExists},
      {MakeAll, u"folder\\h|i\\j", {}, kInvalidName},
      {MakeAll, u"Q:\\a\\b", {}, kPathNotFound},
      {MakeAll, u"", {}, kPathNotFound},
      {Remove, u"file", {}, platform::kDirectory},
      {Remove, u"folder", {}, kDirNotEmpty},
      {Remove, u"two\\"},
      // Wine removes read-only folders.
      {Mark<kReadOnly>, u"d\\e\\f", {}, kSuccess, kNotUnderWine},
      {Remove, u"d\\e\\f", {}, kAccessDenied, kNotUnderWine},
      {Mark<kNormal>, u"d\\e\\f", {}, kSuccess, kNotUnderWine},
      {Remove, u"d\\e\\f"},
      {Has, u"folder\\in", u"in"},
  };
  Run(kSteps);
}

TEST_F(FilesConformance, DeletesReplacesAndTakesPlaces) {
  constexpr Step kSteps[] = {
      {Delete, u"", {}, kPathNotFound},
      {Delete, u"folder", {}, kAccessDenied},
      {Mark<kReadOnly>, u"folder\\in"},
      {Delete, u"folder\\in", {}, kAccessDenied},
      {Replace, u"file", u"missing\\file", kPathNotFound},
      {TakePlace, u"file", u"folder", kAccessDenied},
      {Has, u"file", u"old content"},
      {Replace, u"file", u"first"},
      {Replace, u"first", u"FIRST"},
      {Replace, u"first", u"other"},
      {Has, u"other", u"old content"},
      {Exists, u"first", {}, kFileNotFound},
      {TakePlace, u"other", u"another"},
      {Has, u"another", u"old content"},
      {Empty, u"version"},
      {TakePlace, u"version", u"another"},
      {Has, u"another", u"new"},
  };
  Run(kSteps);
}

TEST_F(FilesConformance, NewContentReachesAllNamesOfAFile) {
  constexpr cvn::StringView kAbandoned = u"tessel-999999999-0123456789abcdef.tmp";
  constexpr cvn::StringView kNoDraft = u"tessel-999999999-0123456789abcde.tmp";
  const cvn::String longer(Repeated(u"long ", 100'000));
  const cvn::String live = cvn::Format(u"tessel-%u-0123456789abcdef.tmp", process::CurrentId());
  WriteContent(Path(u"longer"), Utf8(longer));
  for (const cvn::StringView name : {live.AsView(), kAbandoned, kNoDraft}) {
    WriteContent(Path(name), "");
  }
  const Step kSteps[] = {
      {Link, u"file", u"name"},
      {Save, u"file"},
      {Has, u"name", u"saved"},
      {Copy, u"longer", u"name"},
      {Has, u"file", longer},
      {Copy, u"other", u"name"},
      {Has, u"file", u"other content"},
      {Mark<kReadOnly>, u"name"},
      // Wine keeps attributes with a name, Windows with the file.
      {Save, u"file", {}, kAccessDenied, kNotUnderWine},
      {Copy, u"longer", u"file", kAccessDenied, kNotUnderWine},
      {Mark<kNormal>, u"name"},
      {Replace, u"longer", u"name"},
      {Has, u"file", u"other content"},
      {Save, u"file"},
      {Has, u"name", longer},
      // Of what others left, the drafts of processes that have ended are gone.
      {Exists, kAbandoned, {}, kFileNotFound},
      {Exists, live},
      {Exists, kNoDraft},
  };
  Run(kSteps);
}

TEST_F(FilesConformance, WhatIsOpenIsNeitherReplacedNorMoved) {
  for (const Share share : {Share::None, Share::Read, Share::ReadWrite}) {
    const File held = Held(u"other", share);
    const Step kSteps[] = {
        {Delete, u"other", {}, kSharingViolation},
        {Replace, u"other", u"moved", kSharingViolation},
        {Replace, u"file", u"other", kAccessDenied},
        {TakePlace, u"file", u"other", kSharingViolation},
        {Copy, u"other", u"copy", share == Share::None ? kSharingViolation : kSuccess},
        {Copy, u"file", u"other", share == Share::ReadWrite ? kSuccess : kSharingViolation},
    };
    Run(std::span(kSteps).first(share == Share::ReadWrite ? 4 : 6));
  }
  EXPECT_EQ(ContentOf(Path(u"other")), "other content");
}

// Any text without a separator or a refused character is a name, in any script and form.
TEST_F(FilesConformance, KeepsAnyName) {
  constexpr cvn::StringView kNames[] = {
      u"with blanks and (marks) %TEMP% {x} 'y' `z` ~1",
      u"\U0001D11E clef \U0001F600.txt",
      u"caf\u00E9",
      u"cafe\u0301",
      u"\u202Ertl\u202C \u05D0\u05D1",
      u".hidden",
      u"\xDC00 single surrogate \xD800",  // which Wine can't name on its host
  };
  const auto names = std::span(kNames).first(std::size(kNames) - (RunsUnderWine() ? 1 : 0));
  for (const cvn::StringView name : names) {
    EXPECT_CODE(kSuccess, Create(Path(name), {})) << Utf8(name);
    WriteContent(Path(name), Utf8(name));
  }
  EXPECT_FALSE(paths::Exists(Path(u"\xD800 single surrogate \xDC00")));
  for (const cvn::StringView name : names) {
    EXPECT_EQ(ContentOf(Path(name)), Utf8(name));
    EXPECT_TRUE(paths::LongName(Path(name)) == Path(name)) << Utf8(name);
    EXPECT_EQ(files::Delete(Path(name)), kSuccess) << Utf8(name);
  }
}

TEST_F(FilesConformance, FindsNamesWithoutRegardToCase) {
  constexpr Step kSteps[] = {
      {Create, u"Read Me.TXT"},
      {Create, u"rEAD mE.txt", {}, kFileExists},
      {Create, u"\u00C4\u00D6\u00DC.x"},
      {Create, u"\u00E4\u00F6\u00FC.X", {}, kFileExists},
      {Create, u"\u0416\u0443\u043A"},
      {Create, u"\u0436\u0423\u041A", {}, kFileExists},
      {Create, u"stra\u00DFe"},
      {Create, u"STRASSE"},  // one unit never stands for two
      {Create, u"i\u0307"},
      {Create, u"\u0130"},
  };
  Run(kSteps);
}

// Around the classic limits of folders and of files, and far beyond them.
TEST_F(FilesConformance, TakesLongPaths) {
  for (const std::size_t length : {247, 248, 259, 260, 2000}) {
    const cvn::String path = PathOfLength(length);
    const cvn::String moved = Joined(path, u"-moved");
    const Step kSteps[] = {
        {Make, path},
        {Exists, path},
        {Remove, path},
        {CopyNew, u"file", path},
        {Replace, path, moved},
        {Delete, path, {}, kFileNotFound},
        {Move<kMoveWriteThrough>, moved, path},
        {Has, path, u"old content"},
    };
    SCOPED_TRACE(length);
    Run(kSteps);
    EXPECT_FALSE(paths::IsDirectory(path));
    EXPECT_EQ(Found(Joined(path, u"*")), Utf8(paths::FindFileName(path)));
    EXPECT_EQ(Utf8(paths::LongName(path)), Utf8(path));
    EXPECT_EQ(files::Delete(path), kSuccess);
  }
}

TEST_F(FilesConformance, KeepsAttributes) {
  struct Case {
    Attributes set;
    Attributes ofFile;
  };
  constexpr Attributes kEach = kReadOnly | kHidden | kSystem | kArchive;
  constexpr Case kCases[] = {
      {kHidden, kHidden}, {kEach, kEach},
      {kNormal, kNormal}, {kHidden | kDirectory | files::kReparsePoint, kHidden},
      {0, kNormal},
  };
  EXPECT_EQ(AttributesOf(u"file"), Comparable(kArchive));
  EXPECT_EQ(AttributesOf(u"folder"), kDirectory);
  for (const Case& test : kCases) {
    // Of a folder, the bit that makes it one may be given or not; of a file it must not.
    EXPECT_CODE(kSuccess, files::SetAttributes(Path(u"file"), test.set & ~kDirectory)) << test.set;
    EXPECT_CODE(kSuccess, files::SetAttributes(Path(u"folder"), test.set)) << test.set;
    EXPECT_EQ(AttributesOf(u"file"), Comparable(test.ofFile)) << test.set;
    EXPECT_EQ(AttributesOf(u"folder"), Comparable(kDirectory | (test.ofFile & kEach))) << test.set;
  }
  EXPECT_EQ(ContentOf(Path(u"file")), "old content");
}

TEST_F(FilesConformance, CopiesAndMoves) {
  constexpr auto kOver = Move<kMoveReplaceExisting>;
  constexpr auto kThrough = Move<kMoveWriteThrough>;
  constexpr Step kSteps[] = {
      {CopyNew, u"file", u"file\\new", kPathNotFound},
      {CopyNew, u"file", u"file", kFileExists},
      {Copy, u"file", u"FILE", kSharingViolation},
      {Move<kMoveCopyAllowed | kMoveWriteThrough>, u"file", u"OTHER", kAlreadyExists},
      {kOver, u"file", u"folder", kAccessDenied},
      {Make, u"empty"},
      // Wine moves a folder over a file.
      {kOver, u"folder", u"file", kAccessDenied, kNotUnderWine},
      {kOver, u"folder", u"empty", kAccessDenied, kNotUnderWine},
      {kOver, u"file", u"other"},
      {kThrough, u"other", u"OTHER"},  // a new spelling
      {kThrough, u"OTHER", u"Deep"},
      {Make, u"sub"},
      {kThrough, u"sub", u"Sub"},
      {Empty, u"file"},
      {kOver, u"FILE", u"DEEP"},  // spells what it replaces
      {Empty, u"Version"},
      {TakePlace, u"version", u"Deep"},  // which keeps its spelling
  };
  Run(kSteps);
  // Wine leaves names that are there as they are.
  EXPECT_EQ(Found(Path(u"*")), RunsUnderWine() ? "., .., Deep, empty, folder, sub"
                                               : "., .., DEEP, empty, folder, Sub");
}

// The moves that the session manager makes at the next start.
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
    EXPECT_EQ(before_.empty() ? registry::DeleteValue(key_, kName)
                              : registry::SetValue(key_, kName, kType, before_),
              kSuccess);
  }

  // What came to the list, with '|' for each zero but the last, which ends the list.
  std::string Added() const {
    const std::vector<std::byte> now = Read();
    cvn::StringView units(reinterpret_cast<const char16_t*>(now.data()), now.size() / 2);
    units.remove_prefix(before_.empty() ? 0 : before_.size() / 2 - 1);
    std::string text = Utf8(units.substr(0, units.size() - 1));
    std::ranges::replace(text, '\0', '|');
    return text;
  }

 private:
  static constexpr cvn::StringView kName = u"PendingFileRenameOperations";
  static constexpr std::uint32_t kType = registry::kTypeMultiString;

  std::vector<std::byte> Read() const {
    std::uint32_t type = kType;
    std::vector<std::byte> data;
    IgnoreError(registry::QueryValue(key_, kName, &type, &data));  // there may be none
    EXPECT_EQ(type, kType);
    return data;
  }

  registry::Key key_;
  std::vector<std::byte> before_;
};

TEST_F(FilesConformance, MovesLater) {
  constexpr auto kLater = Move<kMoveDelayUntilReboot>;
  constexpr Step kSteps[] = {
      {DeleteLater, u"file"},
      {kLater, u"file", u"", kPathNotFound},  // no target is not a deletion
      {kLater, u"other", u"new"},
      {Move<kMoveDelayUntilReboot | kMoveReplaceExisting>, u"other", u"file"},
      {Has, u"file", u"old content"},
      {Has, u"other", u"other content"},
  };
  const PendingMoves pending;
  Run(kSteps);
  const std::string folder = "\\??\\" + Utf8(Folder());
  const std::string other = folder + "\\other|";
  EXPECT_EQ(pending.Added(),
            folder + "\\file||" + other + folder + "\\new|" + other + "!" + folder + "\\file|");
  if (!RunsUnderWine()) {  // which takes any text
    constexpr Step kRefused[] = {
        {Move<kMoveDelayUntilReboot | kMoveCopyAllowed>, u"file", u"to", kInvalidParameter},
        {kLater, u"file", u"a|b", kInvalidName},
        {DeleteLater, u"Q:\\a", {}, kPathNotFound},
    };
    Run(kRefused);
  }
}

TEST_F(FilesConformance, ALinkToAFolderIsNotTheFolder) {
  if (!MakeFolderLink(Path(u"link"), Path(u"folder"))) {
    GTEST_SKIP() << "links can't be made here";
  }
  files::Identity folder;
  files::Identity link;
  EXPECT_CODE(kSuccess, files::GetIdentity(Path(u"folder"), &folder));
  EXPECT_CODE(kSuccess, files::GetIdentity(Path(u"link"), &link));
  EXPECT_EQ(link, folder);
  constexpr Step kSteps[] = {
      {Delete, u"link", {}, kAccessDenied},
      {Remove, u"link"},
      {Has, u"folder\\in", u"in"},
  };
  Run(kSteps);
}

TEST_F(FilesConformance, AHeldFolderIsLookedIntoItself) {
  ASSERT_EQ(files::CreateDirectoryRecursive(Path(u"Held\\Sub")), kSuccess);
  WriteContent(Path(u"Held\\Sub\\File.txt"), "genuine");
  files::HeldFolder held;
  EXPECT_CODE(kFileNotFound, held.Hold(Path(u"none")));
  ASSERT_EQ(held.Hold(Path(u"Held")), kSuccess);
  files::Identity wanted;
  EXPECT_CODE(kSuccess, files::GetIdentity(Path(u"Held\\Sub\\File.txt"), &wanted));
  constexpr std::pair<cvn::StringView, Code> kCases[] = {{u"Sub\\File.txt", kSuccess},
                                                         {u"sub/FILE.TXT", kSuccess},
                                                         {u"Sub", kAccessDenied},
                                                         {u"Sub\\none", kFileNotFound},
                                                         {u"none\\File.txt", kPathNotFound}};
  for (const auto& [name, code] : kCases) {
    File file;
    files::Identity found;
    EXPECT_EQ(held.OpenFile(name, &file), code) << Utf8(name);
    EXPECT_TRUE(code != kSuccess ||
                (files::GetIdentity(file, &found) == kSuccess && found == wanted))
        << Utf8(name);
  }
}

TEST_F(FilesConformance, APrivateFileIsNew) {
  File file;
  ASSERT_EQ(files::CreatePrivate(Path(u"new"), &file), kSuccess);
  EXPECT_EQ(file.Write(BytesOf("secret")), kSuccess);
  constexpr Step kWhileOpen[] = {{Read, u"new", {}, kSharingViolation}};
  Run(kWhileOpen);
  file.Close();
  EXPECT_EQ(ContentOf(Path(u"new")), "secret");
  EXPECT_CODE(kFileExists, files::CreatePrivate(Path(u"NEW"), &file));
  EXPECT_CODE(kPathNotFound, files::CreatePrivate(Path(u"missing\\new"), &file));
}

}  // namespace
}  // namespace platform::test
