#include "logging/log.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/utf.h"
#include "tests/libraries/fixture.h"

namespace logging {
namespace {

namespace libraries = platform::libraries;
using platform::kSuccess;
using test_libraries::Built;
using test_libraries::Lines;

constexpr char16_t kRoutine[] = u"Some::Routine";

class LoggingTest : public test_libraries::RecordingTest {
 protected:
  void PutBesideProgram(cvn::StringView library) {
    cvn::String path = test_libraries::ProgramFolder();
    path.Append(u"\\journal.dll");
    Put(library, path);
  }

  static inline const Lines kStart = {"loaded", "LogInit"};
  static inline const Lines kEnd = {"LogDeinit", "LogUninitDeskMetrics",
                                    "LogRemoveModule logging::CLogDLL::~CLogDLL", "unloaded"};
};

TEST_F(LoggingTest, HandsOverWhatAFormatAsksFor) {
  PutBesideProgram(u"journal.dll");
  LogRef log;
  log.Attach();
  EXPECT_EQ(Recorded(), kStart);
  const cvn::String text = u"a text that is too long to be kept inside the object, \u00E9";
  std::string order;
  WriteLine(kFailure, kRoutine, u"Error %u", std::uint32_t{0xFFFFFFFF});
  WriteLine(kNotice, kRoutine, u"again");
  WriteLine(kDetail, kRoutine, u"process %d [0x%x]", -1, 0x2BADu);
  WriteLine(kDetail, kRoutine, u"Issuer: %s", text);
  WriteLine(kDetail, kRoutine, u"Serial: %s", [&] { return cvn::String(text); });
  WriteLine(kDetail, kRoutine, u"%02d/%02d/%04d %02d", std::uint16_t{1}, 2, 2026, short{23});
  platform::SetLastError(0x80092004);
  WriteLine(kFailure, kRoutine, u"error 0x%.8X\n", platform::LastError);
  WriteLine(
      kFailure, kRoutine, u"Index %d from %d", [&] { return order += "a", 1; },
      [&] { return order += "b", 2; });
  EXPECT_EQ(order, "ab");
  const std::string shown = "a text that is too long to be kept inside the object, \\u00e9";
  EXPECT_EQ(Recorded(), (Lines{"+0 4 program Some::Routine: Error 4294967295",
                               "+0 16 program Some::Routine: again",
                               "+0 32 program Some::Routine: process -1 [0x2bad]",
                               "+0 32 program Some::Routine: Issuer: " + shown,
                               "+0 32 program Some::Routine: Serial: " + shown,
                               "+0 32 program Some::Routine: 01/02/2026 23",
                               "+0 4 program Some::Routine: error 0x80092004\\u000a",
                               "+0 4 program Some::Routine: Index 1 from 2"}));
  log.Release();
  EXPECT_EQ(Recorded(), kEnd);
}

TEST_F(LoggingTest, WritesAsLongAsAnyThreadHoldsIt) {
  PutBesideProgram(u"journal.dll");
  for (int run = 0; run < 2; ++run) {
    LogRef reader;
    EXPECT_EQ(reader.Instance(), nullptr);
    reader.Attach();
    reader.Attach();
    EXPECT_NE(reader.Instance(), nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        for (int line = 0; line < 1000; ++line) {
          LogRef nested;
          nested.Attach();
          nested.Attach();
          EXPECT_EQ(nested.Instance(), reader.Instance());
          nested.Release();
          nested.Release();
          EXPECT_EQ(nested.Instance(), nullptr);
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_EQ(Recorded(), kStart);
    WriteLine(kNotice, kRoutine, u"held");
    EXPECT_EQ(Recorded(), Lines{"+0 16 program Some::Routine: held"});
    EXPECT_TRUE(IsHeld());
    reader.Release();
    EXPECT_FALSE(IsHeld());
    EXPECT_EQ(reader.Instance(), nullptr);
    EXPECT_EQ(Recorded(), kEnd);
    int asked = 0;
    WriteLine(kFailure, kRoutine, u"%d", [&] { return ++asked; });
    { const ScopeTrace scope(kRoutine); }
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(Recorded(), Lines());
  }
}

TEST_F(LoggingTest, TracesTheScopesOfRoutines) {
  PutBesideProgram(u"journal.dll");
  const cvn::String longName(std::u16string(300, u'n'));
  LogRef log;
  log.Attach();
  {
    const ScopeTrace outer(kRoutine);
    const ScopeTrace inner(longName);
  }
  Lines lines = Recorded();
  ASSERT_EQ(lines.size(), kStart.size() + 4);
  lines.erase(lines.begin(), lines.begin() + 2);
  EXPECT_EQ(lines[0], "+1 32 program Some::Routine: -> Some::Routine()");
  const std::string function(259, 'n');
  const std::string display(257, 'n');
  EXPECT_EQ(lines[1], "+1 32 program " + function + ": -> " + display + "()");
  EXPECT_TRUE(lines[2].starts_with("-1 32 program " + function + ": <- " + display + "() ["));
  constexpr std::string_view kExit = "-1 32 program Some::Routine: <- Some::Routine() [";
  ASSERT_TRUE(lines[3].starts_with(kExit) && lines[3].ends_with("]")) << lines[3];
  EXPECT_EQ(lines[3].find_first_not_of("0123456789", kExit.size()), lines[3].size() - 1);
}

TEST_F(LoggingTest, TakesTheCopyThatIsInTheProcess) {
  PutBesideProgram(u"mute\\journal.dll");
  libraries::Library another;
  ASSERT_EQ(libraries::Load(Built(u"journal.dll"), libraries::kDefaultSearch, &another), kSuccess);
  LogRef log;
  log.Attach();
  WriteLine(kNotice, kRoutine, u"line");
  log.Release();
  EXPECT_EQ(Recorded(),
            (Lines{"loaded", "LogInit", "+0 16 program Some::Routine: line", "LogDeinit",
                   "LogUninitDeskMetrics", "LogRemoveModule logging::CLogDLL::~CLogDLL"}));
  another.Free();
  EXPECT_EQ(Recorded(), Lines{"unloaded"});
}

TEST_F(LoggingTest, DoesWithoutWhatIsMissing) {
  constexpr std::int32_t kNoInterface = -2147467262;  // 0x80004002
  const struct {
    cvn::StringView library;
    std::int32_t status;
    Lines recorded;
  } kCases[] = {
      {u"", kNoInterface, {}},
      {u"hollow.dll", kNoInterface, {}},
      {u"mute\\journal.dll",
       kNoInterface,
       {"loaded", "LogInit", "LogDeinit", "LogUninitDeskMetrics",
        "LogRemoveModule logging::CLogDLL::~CLogDLL", "unloaded"}},
      {u"writer\\journal.dll", 0, {"loaded", "+0 4 program Some::Routine: 7", "unloaded"}},
  };
  for (const auto& example : kCases) {
    if (!example.library.empty()) {
      PutBesideProgram(example.library);
    }
    LogRef log;
    log.Attach();
    Level level = kFailure;
    EXPECT_EQ(
        log.Instance()->Write(kSameStep, &level, libraries::ProgramModule(), kRoutine, u"%d", 7),
        example.status);
    log.Release();
    EXPECT_EQ(Recorded(), example.recorded) << cvn::WideToUtf8(example.library);
  }
}

}  // namespace
}  // namespace logging
