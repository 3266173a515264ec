// Kept change sets: they are read as they were written, and refused when anything is wrong in them.

#include <cstdlib>

#include "changes/content_diff.h"
#include "changes/kept_set.h"
#include "changes/manifest.h"
#include "changes/set_draft.h"
#include "platform/file_digest.h"
#include "support/format.h"
#include "support/utf.h"
#include "tests/platform/host_folder.h"

namespace tessel {
namespace {

using namespace platform::test;  // NOLINT(google-build-using-namespace)
namespace files = platform::files;
using platform::kFileNotFound;
using platform::kSuccess;
using platform::machine::ChangeSet;
using platform::machine::EntryKind;
using platform::machine::EntryState;
using platform::machine::FileChange;
using platform::machine::KeyChange;
using platform::machine::Side;

EntryState FileState(std::string_view bytes) {
  EntryState state;
  state.attributes = files::kArchive;
  state.written = 132'000'000'000'000'001;
  state.size = bytes.size();
  state.digest =
      Utf8(cvn::HexText(platform::Digest(std::as_bytes(std::span(bytes)), EVP_sha256())));
  state.mode = 0644;
  return state;
}

ChangeSet SomeChanges() {
  ChangeSet changes;
  EntryState folder;
  folder.kind = EntryKind::Folder;
  folder.attributes = files::kDirectory;
  folder.mode = 0755;
  folder.written = -1;
  EntryState link;
  link.kind = EntryKind::Link;
  link.attributes = files::kReparsePoint;
  link.target = "\xFFnowhere";
  FileChange odd{u"C:\\a\\\xDC80", {}, FileState("old"), FileState("new")};
  odd.after->extended = {{"user.stream", {std::byte{1}}}, {"user.\xFF", {}}};
  changes.files = {{u"C:\\a", {}, {}, folder},
                   {u"C:\\a\\moved", u"C:\\moved", FileState("same"), FileState("same")},
                   odd,
                   {u"C:\\b", {}, link, FileState("old")},
                   {u"C:\\gone", {}, FileState(""), {}}};
  changes.files[1].after->attributes = files::kHidden;
  KeyChange key{u"C:\\Windows\\System32\\config\\SOFTWARE", u"", {{}}, {{}}, {}};
  key.values.push_back({u"", {{1, {std::byte{'x'}, std::byte{}}}}, {}});
  key.after->security = {std::byte{7}};
  changes.keys.push_back(key);
  key.path = cvn::String(u"new \xD800");
  key.before.reset();
  key.after->isLink = true;
  key.after->className = u"Class";
  key.values = {{u"none", {}, {{0xFFFFFFFF, {}}}}};
  changes.keys.push_back(key);
  return changes;
}

SetRecord SomeRecord() {
  return {SetState::Rehearsed,
          133'000'000'000'000'000,
          u"/srv/machine",
          u"fix.tlx",
          u"fix-1",
          -3,
          "Ended",
          "overlay"};
}

// The bytes are those that the digests are of.
class SomeBytes final : public platform::machine::ChangeBytes {
 public:
  explicit SomeBytes(cvn::StringView folder) : folder_(folder) {}
  platform::Code Open(const FileChange& change, Side side, files::File* file) override {
    const EntryState& state = side == Side::Before ? *change.before : *change.after;
    for (const char* bytes : {"old", "new", "same", ""}) {
      if (FileState(bytes).digest == state.digest) {
        const cvn::String path = Joined(folder_, u"\\content");
        WriteContent(path, isFalse ? "false" : bytes);
        return files::Open(path, files::Access::Read, files::Share::ReadWriteDelete,
                           files::Disposition::OpenExisting, file);
      }
    }
    return kFileNotFound;
  }

  bool isFalse = false;

 private:
  cvn::String folder_;
};

class Sets : public HostFolderTest {
 protected:
  platform::Code Write() {
    return WriteSet(Path(u"set"), SomeRecord(), SomeChanges(), &bytes_, &problem_);
  }
  platform::Code Read() { return set_.Read(Path(u"set"), &problem_); }
  cvn::String BytesPath(std::string_view bytes) {
    return Path(cvn::Format(u"set\\bytes\\%s", cvn::Utf8ToWide(FileState(bytes).digest)));
  }

  SomeBytes bytes_{Folder()};
  KeptSet set_;
  cvn::String problem_;
};

TEST_F(Sets, AreReadAsTheyWereWritten) {
  ASSERT_EQ(Write(), kSuccess) << Utf8(problem_);
  EXPECT_EQ(Write(), platform::kAlreadyExists);
  ASSERT_EQ(Read(), kSuccess) << Utf8(problem_);
  EXPECT_EQ(PrintManifest(set_.Record(), set_.Changes()),
            PrintManifest(SomeRecord(), SomeChanges()));
  EXPECT_EQ(set_.Changes().files[2].path, u"C:\\a\\\xDC80");
  files::File file;
  for (const FileChange& change : set_.Changes().files) {
    for (const Side side : {Side::Before, Side::After}) {
      EXPECT_EQ(set_.Open(change, side, &file),
                HasKeptBytes(change, side) ? kSuccess : kFileNotFound);
    }
  }
  EXPECT_EQ(Found(Path(u"*")), "., .., content, set");
  ASSERT_EQ(set_.PutState(SetState::Undone), kSuccess);
  ASSERT_EQ(Read(), kSuccess);
  EXPECT_EQ(set_.Record().state, SetState::Undone);
}

TEST_F(Sets, AreNotLeftHalfWritten) {
  bytes_.isFalse = true;
  EXPECT_EQ(Write(), platform::kReadFault);
  EXPECT_EQ(Utf8(problem_), "the bytes of C:\\a\\\xEF\xBF\xBD can't be kept");
  EXPECT_EQ(Found(Path(u"*")), "., .., content");
}

TEST_F(Sets, RemoveWhatKilledOnesLeft) {
  const cvn::String left = Path(u"set.0123abcd.tmp");
  const cvn::String foreign = Path(u"set.89abcdef.tmp");
  for (const cvn::String& folder : {left, foreign, Path(u"set.0123abcg.tmp")}) {
    ASSERT_EQ(files::CreateDirectory(folder), kSuccess);
    ASSERT_EQ(files::CreateDirectory(cvn::Format(u"%s\\bytes", folder)), kSuccess);
  }
  WriteContent(cvn::Format(u"%s\\bytes\\%s", left, cvn::Utf8ToWide(FileState("x").digest)), "x");
  WriteContent(cvn::Format(u"%s\\claim", left), "");
  WriteContent(cvn::Format(u"%s\\bytes\\mine", foreign), "x");
  {
    const cvn::String set = Path(u"set");
    SetDraft other(set);  // is being made
    ASSERT_EQ(other.Make(), kSuccess);
    ASSERT_EQ(Write(), kSuccess) << Utf8(problem_);
    EXPECT_EQ(Found(cvn::Format(u"%s\\*", other.Path())), "., .., bytes, claim");
  }
  EXPECT_EQ(Found(Path(u"set*")), "set, set.0123abcg.tmp, set.89abcdef.tmp");
  EXPECT_EQ(Found(Path(u"set\\*")), "., .., bytes, manifest.json");
}

TEST_F(Sets, AreRefusedWithBytesThatAreNotTheirs) {
  ASSERT_EQ(Write(), kSuccess);
  WriteContent(BytesPath("old"), "odd");
  EXPECT_EQ(Read(), kDamagedSet);
  EXPECT_EQ(files::Delete(BytesPath("old")), kSuccess);
  EXPECT_EQ(Read(), kFileNotFound);
  EXPECT_NE(Utf8(problem_).find(FileState("old").digest), std::string::npos);
}

// A text of the manifest, what replaces it, and whether the schema notices too: it tells no order,
// and has no numbers that are texts.
struct Damage {
  std::string_view text;
  std::string_view replacement;
  bool isOfForm = true;
};

constexpr Damage kDamages[] = {
    {"", ""},
    {R"("version" : 1)", R"("version" : 2)"},
    {R"("version" : 1)", R"("version" : 1, "more" : 1)"},
    {R"("rehearsed")", R"("done")"},
    {R"("exitCode" : -3)", R"("exitCode" : 4294967296)"},
    {R"("exitCode" : -3)", R"("exitCode" : "-3")"},
    {R"("overlay")", R"("copy")"},
    {R"("133000000000000000")", R"("1e9")"},
    {R"("133000000000000000")", R"("9999999999999999999")"},
    {R"("C:\\b")", R"("C:\\..\\b")"},
    {R"("C:\\b")", R"("C:\\b\\")"},
    {R"("C:\\b")", R"("C:b")"},
    {R"("C:\\b")", R"("C:\\b/c")"},
    {R"("C:\\b")", R"("D:\\b")"},
    {R"("C:\\b")", R"("C:\\z")", false},
    {R"("C:\\b")", R"("C:\\a")", false},
    {R"("C:\\moved")", R"("moved")"},
    {R"("folder")", R"("file")"},
    {R"("folder")", R"("pipe")"},
    {R"("0644")", R"("0888")"},
    {R"("0644")", R"("17777")"},
    {R"("size" : 3)", R"("size" : -3)"},
    {R"("size" : 3)", R"("size" : 3.5)"},
    {R"("class" : "Class")", R"("class" : 7)"},
    {R"("isLink" : true)", R"("isLink" : 1)"},
    {R"("type" : 4294967295)", R"("type" : 4294967296)"},
    {R"("data" : "7800")", R"("data" : "780")"},
    {R"("data" : "7800")", R"("data" : "78ZZ")"},
    {R"("name" : "none")", R"("name" : {"utf16" : "d8"})"},
    {R"("name" : "none")", R"("title" : "none")"},
};

TEST_F(Sets, AreRefusedWhereTheManifestIsWrongAsByTheSchema) {
  const std::string manifest = PrintManifest(SomeRecord(), SomeChanges());
  std::string expected;
  for (std::size_t i = 0; i < std::size(kDamages); ++i) {
    const Damage& damage = kDamages[i];
    std::string text = manifest;
    const std::size_t at = text.find(damage.text);
    ASSERT_NE(at, std::string::npos) << damage.text;
    text.replace(at, damage.text.size(), damage.replacement);
    SetRecord record;
    ChangeSet changes;
    cvn::String problem;
    const bool isSound = ParseManifest(text, &record, &changes, &problem);
    EXPECT_EQ(isSound, i == 0) << damage.replacement << Utf8(problem);
    EXPECT_EQ(problem.Empty(), isSound);
    WriteContent(Path(cvn::Format(u"%02u.json", i)), text);
    expected += isSound || !damage.isOfForm ? "sound\n" : "refused\n";
  }
  const std::string command =
      "out='" + Host() + R"('; /usr/bin/python3 - "$out" > "$out/verdicts" <<'END'
import json, pathlib, sys
import jsonschema
schema = jsonschema.Draft7Validator(json.loads(pathlib.Path("docs/change-set.schema.json").read_text()))
for path in sorted(pathlib.Path(sys.argv[1]).glob("*.json")):
    print("sound" if schema.is_valid(json.loads(path.read_text())) else "refused")
END
)";
  ASSERT_EQ(std::system(command.c_str()), 0);
  EXPECT_EQ(ContentOf(Path(u"verdicts")), expected);
}

// What a diff shows, a line each.
std::string Shown(cvn::StringView path, const std::optional<std::string>& before,
                  const std::optional<std::string>& after) {
  const ContentDiff diff = DiffContent(path, before, after);
  std::string text(1, "BTXJI"[static_cast<int>(diff.form)]);
  text += diff.isLayoutOnly ? " layout" : "";
  text += diff.isTooLarge ? " large" : "";
  for (const DiffLine& line : diff.lines) {
    text += line.origin == '@' ? "|" + line.text : std::string("|") + line.origin + line.text;
  }
  return text;
}

std::string Nested(const std::string& open, const std::string& close, int levels,
                   const std::string& inside = {}, int times = 1) {
  std::string text;
  for (int i = 0; i < levels; ++i) {
    text += open;
  }
  for (int i = 0; i < times; ++i) {
    text += inside;
  }
  text += inside.ends_with(',') ? "0" : "";
  for (int i = 0; i < levels; ++i) {
    text += close;
  }
  return text;
}

TEST(Contents, DifferByWhatTheyHold) {
  const std::string large(kLargestDiffed + 1, 'x');
  const struct {
    cvn::StringView path;
    std::optional<std::string> before;
    std::optional<std::string> after;
    std::string shown;
  } cases[] = {
      {u"a.txt", "1\n2\n", "1\r\n3\n", "T|@@ -1,2 +1,2 @@|-1|-2|+1|+3"},
      {u"a.txt", {}, "new", "T|@@ -0,0 +1 @@|+new"},
      {u"a.txt", "gone\n", {}, "T|@@ -1 +0,0 @@|-gone"},
      {u"a", std::string("\0\1", 2), std::string("\0\2", 2), "B"},
      {u"a", "text", std::string("\0", 1), "B"},
      {u"a",
       std::string("\xFF\xFE"
                   "a\0",
                   4),
       "b", "T|@@ -1 +1 @@|-a|+b"},
      {u"a", "\xEF\xBB\xBFsame", "same", "T layout"},
      {u"a", "caf\xE9", "cafe", "T|@@ -1 +1 @@|-caf\xC3\xA9|+cafe"},
      {u"a.xml", "<a><b x='1'/></a>", "<?xml version='1.0'?>\n<a>\n <b\nx=\"1\"/></a>", "X layout"},
      {u"a.xml", "<a><b/><c>1</c></a>", "<a><b/><c>2</c></a>",
       "X|@@ -1,4 +1,4 @@| <a>|   <b />|-  <c>1</c>|+  <c>2</c>| </a>"},
      {u"a.xml", "<a/>", "<a", "T|@@ -1 +1 @@|-<a/>|+<a"},
      {u"a.json", R"({"b":1,"a":[]})", "{ \"a\" : [ ],\n\"b\" : 1 }", "J layout"},
      {u"a.json", R"({"a":1})", R"({"a":2})", "J|@@ -1,3 +1,3 @@| {|-  \"a\" : 1|+  \"a\" : 2| }"},
      {u"a.json", R"({"a":1})", R"({"a":1} x)", "T|"},
      {u"a.json", R"({"a":1})", R"({"a":0,"a":1})", "T|"},
      {u"a.json", "[1.000000000000000001]", "[1.000000000000000002]", "T|"},
      {u"a.INI", "[a]\nk = 1\n; no\n", "\n[a]\nk=1", "I layout"},
      {u"a.ini", "[a]\nk=1\n", "[a]\nk=2\n", "I|@@ -1,2 +1,2 @@| [a]|-k=1|+k=2"},
      {u"a.txt", large, "x", "B large"},
      {u"a.txt", std::string(60'000, '\n'), "x", "T large"},
      {u"a.xml", std::string(300'000, '<'), "<a/>", "T|"},
      {u"a.json", std::string(100'000, '['), "[]", "T|"},
      // Indented, these would be many gigabytes.
      {u"a.xml", Nested("<a>", "</a>", 100'000), "<a/>", "T|"},
      {u"a.json", Nested("[", "]", 900, "0,0,0,0,0,0,0,0,", 50), "[]", "J|"},
      {u"a.json", Nested("[", "]", 900, "0,0,0,0,0,0,0,0,", 20'000), "[]", "T|"},
  };
  for (const auto& one : cases) {
    const std::string shown = Shown(one.path, one.before, one.after);
    EXPECT_EQ(one.shown.ends_with('|') ? shown.substr(0, 2) : shown, one.shown);
  }
}

}  // namespace
}  // namespace tessel
