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
  WriteLine(kFailure, kRoutine, u"Error %u", std::uint32_t{0xFFFFFFFF});
  WriteLine(kDetail, kRoutine, u"process %d [0x%x]", -1, 0x2BADu);
  WriteLine(kDetail, kRoutine, u"Issuer: %s", text);
  WriteLine(kDetail, kRoutine, u"Serial: %s", [&] { return cvn::String(text); });
  WriteLine(kDetail, kRoutine, u"%02d/%02d/%04d %02d", std::uint16_t{1}, 2, 2026, short{23});
  platform::SetLastError(0x80092004);
  WriteLine(kFailure, kRoutine, u"error 0x%.8X\n", platform::LastError);
  const std::string shown = "a text that is too long to be kept inside the object, \\u00e9";
  EXPECT_EQ(Recorded(), (Lines{"+0 4 program Some::Routine: Error 4294967295",
                               "+0 32 program Some::Routine: process -1 [0x2bad]",
                               "+0 32 program Some::Routine: Issuer: " + shown,
                               "+0 32 program Some::Routine: Serial: " + shown,
                               "+0 32 program Some::Routine: 01/02/2026 23",
                               "+0 4 program Some::Routine: error 0x80092004\\u000a"}));
  log.Release();
  EXPECT_EQ(Recorded(), kEnd);
}

TEST_F(LoggingTest, WritesAsLongAsAnyThreadHoldsIt) {
  PutBesideProgram(u"journal.dll");
  for (int run = 0; run < 2; ++run) {
    LogRef reader;
    reader.Attach();
    reader.Attach();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        for (int line = 0; line < 1000; ++line) {
          LogRef nested;
          nested.Attach();
          EXPECT_EQ(nested.Instance(), reader.Instance());
          nested.Release();
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
    EXPECT_EQ(Recorded(), kEnd);
    WriteLine(kFailure, kRoutine, u"%d", [&] { return ADD_FAILURE(), 1; });
  }
}

TEST_F(LoggingTest, TracesTheScopesOfRoutines) {
  PutBesideProgram(u"journal.dll");
  LogRef log;
  log.Attach();
  Recorded();
  { const ScopeTrace scope(cvn::String(std::u16string(300, u'n'))); }
  const Lines lines = Recorded();
  ASSERT_EQ(lines.size(), 2u);
  const std::string function(259, 'n');
  const std::string display(257, 'n');
  EXPECT_EQ(lines[0], "+1 32 program " + function + ": -> " + display + "()");
  const std::string exit = "-1 32 program " + function + ": <- " + display + "() [";
  EXPECT_TRUE(lines[1].starts_with(exit)) << lines[1];
  EXPECT_EQ(lines[1].find_first_not_of("0123456789", exit.size()), lines[1].size() - 1);
}

TEST_F(LoggingTest, TakesTheCopyThatIsInTheProcess) {
  PutBesideProgram(u"hollow.dll");
  libraries::Library another;
  ASSERT_EQ(libraries::Load(Built(u"journal.dll"), libraries::kDefaultSearch, &another), kSuccess);
  LogRef log;
  log.Attach();
  WriteLine(kNotice, kRoutine, u"line");
  log.Release();
  EXPECT_EQ(Recorded(),
            (Lines{"loaded", "LogInit", "+0 16 program Some::Routine: line", "LogDeinit",
                   "LogUninitDeskMetrics", "LogRemoveModule logging::CLogDLL::~CLogDLL"}));
}

TEST_F(LoggingTest, DoesWithoutWhatIsMissing) {
  for (const cvn::StringView library : {u"", u"hollow.dll"}) {
    if (!library.empty()) {
      PutBesideProgram(library);
    }
    LogRef log;
    log.Attach();
    Level level = kFailure;
    EXPECT_EQ(
        log.Instance()->Write(kSameStep, &level, libraries::ProgramModule(), kRoutine, u"%d", 7),
        -2147467262);  // 0x80004002
  }
}

}  // namespace
}  // namespace logging
