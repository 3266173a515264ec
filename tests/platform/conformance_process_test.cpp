#include <algorithm>
#include <thread>

#include "platform/process.h"
#include "support/format.h"
#include "support/numbers.h"
#include "tests/libraries/fixture.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

using process::Handle;
using test_libraries::Built;

// The program in a command line, with a blank behind it.
cvn::String Quoted(cvn::StringView path) { return cvn::Format(u"\"%s\" ", path); }

class ProcessesConformance : public FolderTest {
 protected:
  ~ProcessesConformance() override {
    for (const std::uint32_t id : ChildIds()) {
      Handle child;
      if (process::Open(id, process::kTerminate | process::kSynchronize, &child) == kSuccess) {
        IgnoreError(process::Terminate(child, 0));
        process::Wait(child, process::kInfinite);
      }
    }
  }

  // Each test's children run a copy of their own, by which they are told apart from others.
  cvn::String Child() const {
    const cvn::String child = Path(u"child.exe");
    EXPECT_EQ(files::Copy(Built(u"child.exe"), child, true), kSuccess);
    return child;
  }

  Code StartChild(cvn::StringView arguments, Handle* child) const {
    return process::Start(Joined(Quoted(Child()), arguments), Folder(), child);
  }

  void StartSleeper(cvn::StringView file, Handle* child) const {
    ASSERT_EQ(StartChild(Joined(u"sleep ", file), child), kSuccess);
    while (!ContentOf(Path(file))) {
      std::this_thread::yield();
    }
  }

  cvn::List<std::uint32_t> ChildIds() const { return IdsOf(Path(u"child.exe")); }

  static cvn::List<std::uint32_t> IdsOf(const cvn::String& path) {
    cvn::List<process::Entry> entries;
    process::ListStep step;
    EXPECT_EQ(process::List(&entries, &step), kSuccess);
    cvn::List<std::uint32_t> ids;
    for (const process::Entry& entry : entries) {
      cvn::String module;
      if (entry.executable == u"child.exe" &&
          process::MainModulePath(entry.id, &module) == kSuccess &&
          cvn::EqualNoCase(module, path)) {
        ids.push_back(entry.id);
      }
    }
    return ids;
  }
};

TEST_F(ProcessesConformance, ArgumentsArriveAsWindowsSplitsThem) {
  const cvn::String longWord(std::u16string(31'000, u'\u00E9'));
  const struct {
    cvn::String text;
    std::vector<std::string> arguments;
  } kCases[] = {
      {u"", {}},
      {u"  \t one\ttwo  ", {"one", "two"}},
      {u"\"a b\" c\" \"d \"\"", {"a b", "c d", ""}},
      {u"a\\b \\\\x\\\\ \"C:\\Program Files\\\\\"", {"a\\b", "\\\\x\\\\", "C:\\Program Files\\"}},
      {u"\\\"q\\\" a\\\\\"b c\\\\\\\"\"d", {"\"q\"", "a\\b c\\\"d"}},
      {u"'single' $HOME *.* %PATH% ; | > x",
       {"'single'", "$HOME", "*.*", "%PATH%", ";", "|", ">", "x"}},
      {u"\u00E9 \U0001F600\u65E5", {"\xC3\xA9", "\xF0\x9F\x98\x80\xE6\x97\xA5"}},
      {longWord, {Utf8(longWord)}},
  };
  int number = 0;
  for (const auto& example : kCases) {
    const cvn::String file = cvn::Format(u"record-%d.txt", ++number);
    Handle child;
    ASSERT_EQ(StartChild(cvn::Format(u"record %s %s", file, example.text), &child), kSuccess);
    EXPECT_EQ(process::Wait(child, process::kInfinite), kSuccess);
    std::string expected;
    for (const std::string& argument : example.arguments) {
      expected += argument + '\n';
    }
    EXPECT_TRUE(ContentOf(Path(file)) == expected) << number << ": " << *ContentOf(Path(file));
  }
}

TEST_F(ProcessesConformance, TellsWhyNothingStarts) {
  WriteContent(Path(u"broken.exe"), "MZ and no more");
  const cvn::String child = Child();
  const cvn::String line = Quoted(child);
  cvn::String longest(line);
  while (longest.Length() < 32'767) {
    longest.Append(u'x');
  }
  const struct {
    cvn::String commandLine;
    cvn::String directory;
    Code code;
  } kCases[] = {
      {Quoted(Path(u"missing.exe")), u"", kFileNotFound},
      {u"\"tessel-no-such-program\" ", u"", kFileNotFound},
      {u"tessel-no-such-program with arguments", u"", kFileNotFound},
      {Quoted(Path(u"broken.exe")), u"", kBadExeFormat},
      {line, Path(u"missing"), kDirectory},
      {line, child, kDirectory},
      {longest, u"", kFilenameExceedsRange},
  };
  for (const auto& example : kCases) {
    Handle started;
    EXPECT_EQ(
        Observe([&] { return process::Start(example.commandLine, example.directory, &started); }),
        Expected(example.code))
        << Utf8(example.commandLine.AsView().substr(0, 100)) << Utf8(example.directory);
    EXPECT_FALSE(started.IsOpen());
  }
  longest.Truncate(32'766);
  Handle started;
  EXPECT_EQ(Observe([&] { return process::Start(longest, u"", &started); }), Expected(kSuccess));
  EXPECT_EQ(process::Wait(started, process::kInfinite), kSuccess);
}

TEST_F(ProcessesConformance, FindsProgramsAsWindowsDoes) {
  Child();
  ASSERT_EQ(files::CreateDirectoryRecursive(Path(u"a b")), kSuccess);
  ASSERT_EQ(files::Copy(Path(u"child.exe"), Path(u"a b\\c d.exe"), true), kSuccess);
  const cvn::String commandLines[] = {
      cvn::Format(u"\"%s\" exit 0", Path(u"child")),  // ".exe" is added
      cvn::Format(u"%s exit 0", Path(u"a b\\c d")),   // a blank may be part of the path
      cvn::Format(u"%s\texit 0", Path(u"a b\\c d.exe")),
      cvn::Format(u"\"%s\"", Path(u"a b\\C D.EXE")),
  };
  for (const cvn::String& commandLine : commandLines) {
    Handle child;
    EXPECT_EQ(Observe([&] { return process::Start(commandLine, u"", &child); }), Expected(kSuccess))
        << Utf8(commandLine);
    EXPECT_EQ(process::Wait(child, process::kInfinite), kSuccess);
  }
}

TEST_F(ProcessesConformance, WaitsAndEnds) {
  Handle children[2];
  StartSleeper(u"first", &children[0]);
  StartSleeper(u"second", &children[1]);
  const auto waitFor = [&](std::uint32_t time) {
    return Observe([&] { return process::Wait(children[0], time); });
  };
  const auto waitForAll = [&](std::uint32_t time) {
    return Observe([&] { return process::WaitForAll(children, time); });
  };
  constexpr Outcome kTimeout{process::kWaitTimeout, kUntouched};
  EXPECT_EQ(waitFor(0), kTimeout);
  EXPECT_EQ(waitFor(1), kTimeout);
  EXPECT_EQ(waitForAll(1), kTimeout);
  EXPECT_EQ(Observe([&] { return process::Terminate(children[0], 0); }), Expected(kSuccess));
  EXPECT_EQ(waitFor(process::kInfinite), Expected(kSuccess));
  EXPECT_EQ(waitFor(0), Expected(kSuccess)) << "it stays ended";
  EXPECT_EQ(waitForAll(1), kTimeout) << "one of them runs";

  ASSERT_EQ(ChildIds().size(), 1U);
  Handle opened;
  const std::uint32_t id = ChildIds()[0];
  EXPECT_EQ(Observe([&] { return process::Open(id, process::kSynchronize, &opened); }),
            Expected(kSuccess));
  EXPECT_EQ(process::Wait(opened, 1), process::kWaitTimeout);
  Handle toEnd;
  EXPECT_EQ(Observe([&] { return process::Open(id, process::kTerminate, &toEnd); }),
            Expected(kSuccess));
  EXPECT_EQ(process::Terminate(toEnd, 0), kSuccess);
  EXPECT_EQ(process::Wait(opened, process::kInfinite), kSuccess);
  EXPECT_EQ(waitForAll(process::kInfinite), Expected(kSuccess));
}

TEST_F(ProcessesConformance, RefusesWhatItCannotWaitForOrOpen) {
  const std::vector<Handle> tooMany(process::kMostWaitHandles + 1);
  constexpr Outcome kRefused{process::kWaitFailed, kInvalidParameter};
  EXPECT_EQ(Observe([&] { return process::WaitForAll(tooMany, 0); }), kRefused);
  EXPECT_EQ(Observe([&] { return process::WaitForAll({}, 0); }), kRefused);
  Handle opened;
  for (const std::uint32_t id : {0U, 0x7FFFFFFCU, 0xFFFFFFFCU}) {
    EXPECT_EQ(Observe([&] { return process::Open(id, process::kSynchronize, &opened); }),
              Expected(kInvalidParameter))
        << id;
    EXPECT_FALSE(opened.IsOpen());
  }
}

TEST_F(ProcessesConformance, TellsOfOtherProcesses) {
  Handle child;
  StartSleeper(u"sleeping", &child);
  cvn::List<process::Entry> entries;
  process::ListStep listStep;
  ASSERT_EQ(Observe([&] { return process::List(&entries, &listStep); }), Expected(kSuccess));
  const auto ids = ChildIds();
  ASSERT_EQ(ids.size(), 1U);
  const auto entry = std::ranges::find(entries, ids[0], &process::Entry::id);
  ASSERT_NE(entry, entries.end());
  EXPECT_EQ(entry->parentId, process::CurrentId());
  EXPECT_NE(std::ranges::find(entries, process::CurrentId(), &process::Entry::id), entries.end());

  cvn::String image;
  process::ImageStep step;
  EXPECT_EQ(Observe([&] { return process::ImagePath(ids[0], &image, &step); }), Expected(kSuccess));
  EXPECT_TRUE(cvn::EqualNoCase(image, Path(u"child.exe"))) << Utf8(image);
  EXPECT_TRUE(process::UserSid(ids[0]).AsView().starts_with(u"S-1-"));
  EXPECT_EQ(process::UserSid(ids[0]), process::UserSid(process::CurrentId()));

  constexpr std::uint32_t kNobody = 0x7FFFFFFC;
  EXPECT_EQ(Observe([&] { return process::ImagePath(kNobody, &image, &step); }),
            Expected(kInvalidParameter));
  EXPECT_EQ(step, process::ImageStep::Open);
  EXPECT_NE(process::MainModulePath(kNobody, &image), kSuccess);
  EXPECT_EQ(process::UserSid(kNobody), u"");
}

TEST_F(ProcessesConformance, LeavesNothingOpen) {
  const cvn::String line = Joined(Quoted(Child()), u"exit 7");
  std::size_t before = 0;
  for (int i = 0; i < 40; ++i) {
    Handle child;
    ASSERT_EQ(process::Start(line, u"", &child), kSuccess);
    ASSERT_EQ(process::Wait(child, process::kInfinite), kSuccess);
    child.Close();
    before = i == 0 ? OpenHandles() : before;
  }
  EXPECT_EQ(OpenHandles(), before);
  EXPECT_TRUE(ChildIds().empty());
}

TEST_F(ProcessesConformance, OutputNeverBlocksTheChild) {
  Handle child;
  ASSERT_EQ(StartChild(u"flood", &child), kSuccess);
  EXPECT_EQ(process::Wait(child, process::kInfinite), kSuccess);
}

using ProcessesConformanceDeathTest = ProcessesConformance;

TEST_F(ProcessesConformanceDeathTest, ChildOutlivesItsParent) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const cvn::String child = Built(u"child.exe");
  EXPECT_EXIT(
      {
        Handle started;
        const Code code =
            process::Start(Joined(Quoted(child), u"sleep outliving"), Folder(), &started);
        std::_Exit(code == kSuccess ? 7 : 1);
      },
      testing::ExitedWithCode(7), "");
  const auto ids = IdsOf(child);
  ASSERT_EQ(ids.size(), 1U);
  Handle survivor;
  ASSERT_EQ(process::Open(ids[0], process::kTerminate | process::kSynchronize, &survivor),
            kSuccess);
  EXPECT_EQ(process::Wait(survivor, 1), process::kWaitTimeout);
  EXPECT_EQ(process::Terminate(survivor, 0), kSuccess);
  EXPECT_EQ(process::Wait(survivor, process::kInfinite), kSuccess);
}

TEST(IdentityConformance, ImpersonatesNobodyUnknown) {
  SetLastError(kUntouched);
  const Code code = process::Impersonate(u"tessel-nobody", u"tessel-nowhere", u"wrong");
  EXPECT_NE(code, kSuccess);
  EXPECT_EQ(LastError(), code);
  EXPECT_EQ(Observe(process::Revert), Expected(kSuccess));
}

}  // namespace
}  // namespace platform::test
