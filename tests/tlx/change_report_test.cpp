// Change sets in words.

#include <gtest/gtest.h>

#include "support/utf.h"
#include "tools/tlx/change_report.h"

namespace tlx {
namespace {

namespace files = platform::files;
using platform::machine::ChangeSet;
using platform::machine::EntryKind;
using platform::machine::EntryState;
using platform::machine::KeyState;
using platform::machine::ValueState;

constexpr cvn::StringView kSystem = u"C:\\Windows\\System32\\config\\SYSTEM";

EntryState File(const std::string& digest) {
  EntryState state;
  state.attributes = files::kArchive;
  state.mode = 0644;
  state.size = digest.size();
  state.digest = digest;
  return state;
}

EntryState Folder(std::int64_t written) {
  EntryState state;
  state.kind = EntryKind::Folder;
  state.attributes = files::kDirectory;
  state.written = written;
  return state;
}

ValueState Text(std::u16string_view text) {
  const auto bytes = std::as_bytes(std::span(text));
  return {1, {bytes.begin(), bytes.end()}};
}

ChangeSet SomeFiles() {
  ChangeSet changes;
  EntryState hidden = File("a");
  hidden.attributes = files::kHidden;
  hidden.mode = 0600;
  hidden.extended = {{"user.s", {std::byte{1}}}};
  EntryState dated = File("a");
  dated.written = 1;
  EntryState link;
  link.kind = EntryKind::Link;
  link.target = "\x1B[2J";
  changes.files = {
      {u"C:\\a", {}, Folder(1), Folder(2)},
      {u"C:\\a\\hidden", {}, File("a"), hidden},
      {u"C:\\a\\dated", {}, File("a"), dated},
      {u"C:\\a\\link\x1B", {}, {}, link},
      {u"C:\\b", u"C:\\c", Folder(1), Folder(1)},
      {u"C:\\b\\x", u"C:\\c\\x", File("x"), File("x")},
      {u"C:\\b\\y", u"C:\\c\\y", File("y"), hidden},
      {u"C:\\bin", {}, File("12"), File("345")},
      {u"C:\\gone", {}, File("1"), {}},
      {u"C:\\M\\matrix", {}, {}, Folder(1)},
      {u"C:\\P\\matrix", {}, {}, Folder(1)},
      {u"C:\\P\\matrix\\events", {}, {}, Folder(1)},
      {u"C:\\P\\matrix\\events\\00c0ffee-0000-4000-8000-0123456789ab", {}, {}, File("1")},
      {u"C:\\P\\matrix\\events\\1", {}, {}, File("1")},
      {u"C:\\ProgramData\\Tessera\\ts-1-2.txt", {}, {}, File("1")},
      {u"C:\\ProgramData\\Tessera\\ts-1-2.txt.exe", {}, {}, File("1")},
      {u"C:\\turned", {}, Folder(1), File("1")}};
  changes.files[6].after->digest = "y";
  return changes;
}

ChangeSet SomeKeys() {
  const std::u16string before(u"\\??\\C:\\a\0\0\\??\\C:\\b\0\0\0", 19);
  const std::u16string after(u"\\??\\C:\\b\0\0\\??\\C:\\c\0!\\??\\C:\\d\0\0", 29);
  const KeyState plain;
  KeyState secured;
  secured.security = {std::byte{1}};
  ValueState list = Text(std::u16string_view(u"one\0two\0\0", 9));
  list.type = 7;
  ChangeSet changes;
  changes.keys = {
      {kSystem,
       u"ControlSet001\\Control\\Session Manager",
       plain,
       plain,
       {{u"PendingFileRenameOperations", Text(before), Text(after)}}},
      {kSystem,
       u"ControlSet001\\Services\\Old",
       plain,
       plain,
       {{u"Start", Text(u"1"), Text(u"2")}}},
      {kSystem, u"ControlSet001\\Services\\Old\\Parameters", plain, {}, {}},
      {kSystem, u"ControlSet001\\Services\\Sub\\Sub", {}, plain, {}},
      {kSystem, u"Select", plain, secured, {{u"", {}, Text(u"\n")}, {u"gone", Text(u"x"), {}}}},
      {u"C:\\Users\\Ann\\NTUSER.DAT", u"", plain, plain, {{u"list", {}, list}}}};
  return changes;
}

std::string Described(const ChangeSet& changes) {
  std::string text;
  for (const cvn::String& line : DescribeReport(ReportChanges(changes, nullptr))) {
    text += cvn::WideToUtf8(line) + '\n';
  }
  return text;
}

TEST(ChangeReports, TellWhatMatters) {
  EXPECT_EQ(Described({}), "No changes.\n");
  EXPECT_EQ(Described(SomeFiles()), R"(Files:
  changed  C:\a\hidden
      attributes: ARCHIVE -> HIDDEN
      permissions on the host: 0644 -> 0600
      extended attribute added: user.s
  changed  C:\a\dated
      time of the last write
  added    C:\a\link\x1B (link)
      target: \x1B[2J
  moved    C:\b (folder) from C:\c, with 2 in it
  moved    C:\b\y from C:\c\y
      attributes: ARCHIVE -> HIDDEN
      permissions on the host: 0644 -> 0600
      extended attribute added: user.s
  changed  C:\bin
      content: 2 bytes, SHA-256 12 -> 3 bytes, SHA-256 345
  removed  C:\gone
      1 byte, SHA-256 1
  added    C:\M\matrix (folder)
  added    C:\P\matrix\events\1
      1 byte, SHA-256 1
  added    C:\ProgramData\Tessera\ts-1-2.txt.exe
      1 byte, SHA-256 1
  changed  C:\turned
      kind: folder -> file
      1 byte, SHA-256 1
The run's own traces and events:
  added    C:\P\matrix
  added    C:\P\matrix\events
  added    C:\P\matrix\events\00c0ffee-0000-4000-8000-0123456789ab
  added    C:\ProgramData\Tessera\ts-1-2.txt
)");
  EXPECT_EQ(Described(SomeKeys()), R"(Services:
  changed  Old
    changed  [HKEY_LOCAL_MACHINE\SYSTEM\ControlSet001\Services\Old]
        -"Start"=REG_SZ "1"
        +"Start"=REG_SZ "2"
    removed  [HKEY_LOCAL_MACHINE\SYSTEM\ControlSet001\Services\Old\Parameters]
  changed  Sub
    added    [HKEY_LOCAL_MACHINE\SYSTEM\ControlSet001\Services\Sub\Sub]
Registry:
  changed  [HKEY_LOCAL_MACHINE\SYSTEM\Select]
      security descriptor: 0 -> 1 bytes
      +@=REG_SZ "\x0A"
      -"gone"=REG_SZ "x"
  changed  [C:\Users\Ann\NTUSER.DAT]
      +"list"=REG_MULTI_SZ of 2 strings
              "one"
              "two"
At the next boot:
  move C:\c to C:\d (replacing)
No longer at the next boot:
  delete C:\a
)");
}

}  // namespace
}  // namespace tlx
