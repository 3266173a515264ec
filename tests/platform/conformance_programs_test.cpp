// Programs and libraries: what starts or loads, what doesn't and why, and what can be told of them.

#include <algorithm>
#include <thread>

#include "platform/libraries.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "support/format.h"
#include "support/numbers.h"
#include "tests/libraries/fixture.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

using libraries::kDefaultSearch;
using libraries::Library;
using process::Handle;
using test_libraries::Built;

// The program in a command line, with a blank behind it.
cvn::String Quoted(cvn::StringView path) { return cvn::Format(u"\"%s\" ", path); }

class ProcessesConformance : public FolderTest {
 protected:
  // Each test's children run a copy of their own, by which they are told apart from others.
  ProcessesConformance() { EXPECT_EQ(files::Copy(Built(u"child.exe"), child_, true), kSuccess); }
  ~ProcessesConformance() override {
    for (const std::uint32_t id : IdsOf(child_)) {
      End(id);
    }
  }

  static void End(std::uint32_t id) {
    Handle child;
    EXPECT_EQ(process::Open(id, process::kTerminate | process::kSynchronize, &child), kSuccess);
    EXPECT_EQ(process::Terminate(child, 0), kSuccess);
    EXPECT_EQ(process::Wait(child, process::kInfinite), kSuccess);
  }

  Handle Started(cvn::StringView arguments) const {
    constexpr Code kInternalError = 1359;  // now and then Wine makes no process
    const cvn::String command = Joined(Quoted(child_), arguments);
    Handle child;
    Code code = process::Start(command, Folder(), &child);
    if (code == kInternalError && RunsUnderWine()) {
      code = process::Start(command, Folder(), &child);
    }
    EXPECT_EQ(code, kSuccess);
    return child;
  }

  Handle StartedSleeper(cvn::StringView file) const {
    Handle child = Started(Joined(u"sleep ", file));
    while (process::Wait(child, 0) == process::kWaitTimeout && !ContentOf(Path(file))) {
      std::this_thread::yield();
    }
    return child;
  }

  static cvn::List<std::uint32_t> IdsOf(const cvn::String& path) {
    cvn::List<process::Entry> entries;
    process::ListStep step;
    EXPECT_CODE(kSuccess, process::List(&entries, &step));
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

  const cvn::String child_ = Path(u"child.exe");
};

TEST_F(ProcessesConformance, ArgumentsArriveAsWindowsSplitsThem) {
  const cvn::String longWord = Repeated(u"\u00E9", 31'000);
  const std::pair<cvn::String, std::string> kCases[] = {
      {u"", ""},
      {u"  \t one\ttwo  ", "one\ntwo\n"},
      {u"\"a b\" c\" \"d \"\"", "a b\nc d\n\n"},
      {u"a\\b \\\\x\\\\ \"C:\\Program Files\\\\\"", "a\\b\n\\\\x\\\\\nC:\\Program Files\\\n"},
      {u"\\\"q\\\" a\\\\\"b c\\\\\\\"\"d", "\"q\"\na\\b c\\\"d\n"},
      {longWord, Utf8(longWord) + '\n'},
  };
  for (const auto& [text, expected] : kCases) {
    const Handle child = Started(cvn::Format(u"record record.txt %s", text));
    EXPECT_EQ(process::Wait(child, process::kInfinite), kSuccess);
    EXPECT_TRUE(ContentOf(Path(u"record.txt")) == expected) << expected.substr(0, 80);
    EXPECT_EQ(files::Delete(Path(u"record.txt")), kSuccess);
  }
}

TEST_F(ProcessesConformance, FindsProgramsAsWindowsDoes) {
  ASSERT_EQ(files::CreateDirectory(Path(u"a b")), kSuccess);
  ASSERT_EQ(files::Copy(child_, Path(u"a b\\c d.exe"), true), kSuccess);
  const cvn::String commandLines[] = {
      cvn::Format(u"\"%s\" exit 0", Path(u"child")),  // ".exe" is added
      cvn::Format(u"%s exit 0", Path(u"a b\\c d")),   // a blank may be part of the path
      cvn::Format(u"%s\texit 0", Path(u"a b\\c d.exe")),
      cvn::Format(u"\"%s\"", Path(u"a b\\C D.EXE")),
  };
  Handle child;
  for (const cvn::String& commandLine : commandLines) {
    EXPECT_CODE(kSuccess, process::Start(commandLine, u"", &child)) << Utf8(commandLine);
    EXPECT_EQ(process::Wait(child, process::kInfinite), kSuccess);
  }
  const cvn::String line = Quoted(child_);
  const cvn::String tooLong = Joined(line, Repeated(u"x", 32'767 - line.Length()));
  EXPECT_CODE(kFilenameExceedsRange, process::Start(tooLong, u"", &child));
}

TEST_F(ProcessesConformance, WaitsEndsAndTellsOfProcesses) {
  Handle children[] = {StartedSleeper(u"first"), StartedSleeper(u"second")};
  const auto waitFor = [&](std::uint32_t time) {
    return Observe([&] { return process::Wait(children[0], time); });
  };
  const auto waitForAll = [&](std::uint32_t time) {
    return Observe([&] { return process::WaitForAll(children, time); });
  };
  constexpr Outcome kTimeout{process::kWaitTimeout, kUntouched};
  EXPECT_EQ(waitFor(0), kTimeout);
  EXPECT_EQ(waitForAll(1), kTimeout);
  EXPECT_CODE(kSuccess, process::Terminate(children[0], 0));
  EXPECT_EQ(waitFor(process::kInfinite), Expected(kSuccess));
  EXPECT_EQ(waitForAll(1), kTimeout) << "one of them runs";

  const auto ids = IdsOf(child_);
  ASSERT_EQ(ids.size(), 1U);
  cvn::List<process::Entry> entries;
  process::ListStep listStep;
  EXPECT_CODE(kSuccess, process::List(&entries, &listStep));
  const auto entry = std::ranges::find(entries, ids[0], &process::Entry::id);
  ASSERT_NE(entry, entries.end());
  EXPECT_EQ(entry->parentId, process::CurrentId());
  cvn::String image;
  process::ImageStep step;
  EXPECT_CODE(kSuccess, process::ImagePath(ids[0], &image, &step));
  EXPECT_TRUE(cvn::EqualNoCase(image, child_)) << Utf8(image);
  EXPECT_TRUE(process::UserSid(ids[0]).AsView().starts_with(u"S-1-"));
  EXPECT_EQ(process::UserSid(ids[0]), process::UserSid(process::CurrentId()));
  Handle opened;
  EXPECT_CODE(kSuccess, process::Open(ids[0], process::kSynchronize, &opened));
  EXPECT_EQ(process::Wait(opened, 1), process::kWaitTimeout);
  End(ids[0]);
  EXPECT_EQ(process::Wait(opened, process::kInfinite), kSuccess);
  EXPECT_EQ(process::Wait(Handle(), 0), process::kWaitFailed) << "and not a wait for this process";
  EXPECT_EQ(waitForAll(process::kInfinite), Expected(kSuccess));
}

TEST_F(ProcessesConformance, LeavesNothingOpen) {
  std::size_t before = 0;
  for (int i = 0; i < 40; ++i) {
    // Output never blocks the child.
    ASSERT_EQ(process::Wait(Started(i == 0 ? u"flood" : u"exit 7"), process::kInfinite), kSuccess);
    before = i == 0 ? OpenHandles() : before;
  }
  EXPECT_EQ(OpenHandles(), before);
  EXPECT_TRUE(IdsOf(child_).empty());
}

TEST(IdentityConformance, ImpersonatesNobodyUnknown) {
  const Outcome outcome =
      Observe([] { return process::Impersonate(u"tessel-nobody", u"tessel-nowhere", u"wrong"); });
  EXPECT_NE(outcome.code, kSuccess);
  EXPECT_EQ(outcome.lastError, outcome.code);
  EXPECT_CODE(kSuccess, process::Revert());
}

class LibrariesConformance : public FolderTest {
 protected:
  cvn::String FileWith(cvn::StringView name, std::string_view content) const {
    WriteContent(Path(name), content);
    return Path(name);
  }
  static Library Loaded(const cvn::String& path) {
    Library library;
    EXPECT_CODE(kSuccess, libraries::Load(path, kDefaultSearch, &library)) << Utf8(path);
    return library;
  }
};

TEST_F(LibrariesConformance, LoadsWhatIsALibrary) {
  const std::string image = ContentOf(Built(u"hollow.dll")).value_or("");
  ASSERT_GT(image.size(), 4096U);
  std::string otherMachine = image;
  otherMachine[image.starts_with("MZ") ? otherMachine.find("PE") + 4 : 18] = 3;
  const std::pair<cvn::String, Code> kCases[] = {
      {Built(u"needy\\..\\HOLLOW.dll"), kSuccess},
      {FileWith(u"copy.txt", image), kSuccess},
      {Built(u"absent.dll"), kModNotFound},
      {Built(u"needy\\needy.dll"), kModNotFound},  // of what it needs
      {FileWith(u"empty.dll", ""), kBadExeFormat},
      {FileWith(u"text.dll", "Not a library, whatever its name may be."), kBadExeFormat},
      {FileWith(u"machine.dll", otherMachine), kBadExeFormat},
  };
  for (const std::uint32_t flags : {kDefaultSearch, libraries::kAlteredSearchPath,
                                    libraries::kSearchLibraryFolderAndDefaults}) {
    for (const auto& [path, code] : kCases) {
      Library library;
      EXPECT_CODE(code, libraries::Load(path, flags, &library)) << Utf8(path) << ", " << flags;
      EXPECT_EQ(library.IsLoaded(), code == kSuccess);
    }
  }
}

TEST_F(LibrariesConformance, FindsOnlyTheLibrarysOwnSymbols) {
  const Library hollow = Loaded(Built(u"hollow.dll"));
  const Library needy = Loaded(Built(u"needy\\needy.dll"));
  SetLastError(kUntouched);
  const auto needyNumber =
      reinterpret_cast<int* (*)()>(libraries::FindSymbol(needy, "NeedyNumber"));
  ASSERT_NE(needyNumber, nullptr);
  EXPECT_EQ(*needyNumber(), 42);
  const auto* number = reinterpret_cast<const void*>(libraries::FindSymbol(hollow, "hollowNumber"));
  EXPECT_EQ(Utf8(libraries::FileNameOf(number)), Utf8(Built(u"hollow.dll")));
  EXPECT_EQ(Utf8(libraries::FileNameOf(&kUntouched)), Utf8(paths::ModuleFileName()));
  EXPECT_EQ(Utf8(libraries::FileNameOf(libraries::ProgramModule())), Utf8(paths::ModuleFileName()));
  libraries::NarrowSearch();
  EXPECT_TRUE(libraries::CanNarrowSearch());
  EXPECT_EQ(LastError(), kUntouched);
  for (const char* name : {"hollowNumber", "needyNumber", "malloc", ""}) {
    SetLastError(kUntouched);
    EXPECT_EQ(libraries::FindSymbol(needy, name), nullptr) << name;
    EXPECT_EQ(LastError(), kProcNotFound) << name;
  }
}

}  // namespace
}  // namespace platform::test
