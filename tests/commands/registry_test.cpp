// What the registry commands do in states that no real registry comes into by a script.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/commands/stand_ins.h"
#include "tests/engine/script_harness.h"

namespace tessel::testing {
namespace {

using namespace std::string_view_literals;

// Runs a command, and then a trace of %v% and of the error.
ScriptOutcome Ran(const std::string& command) {
  const std::size_t end = command.find(' ');
  return RunScript("<" + command.substr(0, end) + " root='HKEY_LOCAL_MACHINE'" +
                       command.substr(end) + "/><trace value='[%v%] %error%'/>",
                   {{u"v", u"before"}});
}

// The lines of a deletion between its first and its last.
Lines Deleted(const std::string& key) {
  const Lines lines = Ran("regDeleteKey key='" + key + "'").Ran();
  return {lines.begin() + 1, lines.end() - 2};
}

TEST(RegistryCommands, ReadWhateverIsStored) {
  constexpr struct {
    std::uint32_t type;
    std::string_view data;
    const char* expected;
  } kCases[] = {
      {1, "a\0b\0"sv, "[ab] 0|"},  // without its zero
      {1, "a\0\0\0b\0\0\0"sv, "[a] 0|"},
      {2, "%\0x\0"sv, "[%x] 0|"},
      {4, ""sv, "[0] 0|"},
      {4, "\xFE\xFF"sv, "[65534] 0|"},
      {4, "\x01\0\0\0\x07"sv, "[1] 0|"},
      {11, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv, "[72057594037927935] 0|"},
      {11, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x01"sv, "[-1] 0|"},
      {7, "a\0\0\0\0\0b\0\0\0\0\0"sv, "[a] 0|"},
      {7, "a\0|\0\0\0|\0\0\0\0\0"sv, "[a] 0|"},
      {7, "|\0a\0\0\0b\0"sv, "[|a|b] 0|"},  // without any end
      {0, "x"sv, "[before] 1630|"},
      {0xFFFFFFFF, ""sv, "[before] 1630|"},
  };
  for (const auto& example : kCases) {
    ScriptedSystem& system = ResetSystem();
    system.valueType = example.type;
    system.valueData = example.data;
    EXPECT_EQ(Ran("regRead var='v' key='k' value='n'").Told(), example.expected)
        << example.type << " of " << example.data.size();
  }
}

TEST(RegistryCommands, WriteOnlyHexadecimalDigits) {
  ScriptedSystem& system = ResetSystem();
  Ran("regWrite key='k' value='n' type='REG_BINARY' data='09afAFx'");
  EXPECT_EQ(system.calls.back(), "set n 3 09afaf");
  for (const std::string digit : {"/", ":", "`", "g", "@", "G"}) {
    EXPECT_EQ(Ran("regWrite key='k' value='n' type='REG_BINARY' data='0" + digit + "'").Told(),
              "[before] 111|");
  }
}

// And each failure of the system is theirs.
TEST(RegistryCommands, AskForNoMoreThanTheyNeed) {
  const struct {
    const char* command;
    Lines calls;
  } kCases[] = {
      {"regRead var='v' key='k' value='n'", {"key k 1", "value n"}},
      {"regGetKeys var='v' key='k' delim=';'", {"key k 8", "name sub"}},
      {"regGetValues var='v' key='k' delim=';'", {"key k 1", "name value"}},
      {"regWrite key='k' value='n' data='-2' type='REG_DWORD'", {"key k 2", "set n 4 feffffff"}},
      {"regCreateKey key='k'", {"create lasting", "key k 0"}},
      {"regCreateKey key='k' volatile='1'", {"create volatile", "key k 0"}},
      {"regCreateKey key='k' volatile='True'", {"create lasting", "key k 0"}},
      {"regDeleteValue key='k' value='n'", {"key k 2", "unset n"}},
  };
  for (const auto& example : kCases) {
    Lines failing = example.calls;
    failing.push_back("none");
    for (const std::string& call : failing) {
      ScriptedSystem& system = ResetSystem();
      system.subKeys = {u"sub"};
      system.valueNames = {u"value"};
      system.codes[call] = platform::kAccessDenied;
      const std::string told = Ran(example.command).Told();
      EXPECT_TRUE(call == "none" ? told.ends_with("] 0|") : told == "[before] 5|")
          << example.command << ": " << call;
      EXPECT_TRUE(call != "none" || system.calls == example.calls) << example.command;
      EXPECT_EQ(system.openHandles, 0);
    }
  }
  ScriptedSystem& system = ResetSystem();
  EXPECT_TRUE(Ran("regExistsKey key='k'").Traced("regExistsKey function end with True."));
  EXPECT_EQ(system.calls, Lines{"key k 1"});
  EXPECT_EQ(system.openHandles, 0);
}

// A value's name may have one character more.
TEST(RegistryCommands, WalksGiveAllNamesOrNone) {
  for (const std::size_t length : {255U, 256U, 257U}) {
    ScriptedSystem& system = ResetSystem();
    system.valueNames = system.subKeys = {cvn::String(std::u16string(length, u'n'))};
    const std::string names = "[" + std::string(length, 'n') + ";] 0|";
    const std::string none = "[before] 234|";
    EXPECT_EQ(Ran("regGetKeys var='v' key='k' delim=';'").Told(), length < 256 ? names : none);
    EXPECT_EQ(Ran("regGetValues var='v' key='k' delim=';'").Told(), length < 257 ? names : none);
  }
}

TEST(RegistryCommands, DeletionStopsAtTheFirstKeyThatResists) {
  ScriptedSystem& system = ResetSystem();
  system.subKeys = {u"a", u"b", u"c"};
  system.deepest = 3;
  system.codes["delete b"] = platform::kAccessDenied;
  EXPECT_EQ(Deleted("top"), (Lines{"Deleting subkey 'a'", "Deleting subkey 'b'"}));
  EXPECT_EQ(system.Called("key"), (Lines{"key top 9", "key a 9", "key a 9", "key b 9"}));
  EXPECT_EQ(system.openHandles, 2) << "of the keys that were being emptied";
}

// A name that can't be had is left out; the deletion of its parent tells of it.
TEST(RegistryCommands, DeletionTriesWhatItCannotLookInto) {
  ScriptedSystem& system = ResetSystem();
  system.subKeys = {u"closed", u"unnamed", u"uncounted"};
  system.codes = {{"key closed 9", platform::kAccessDenied},
                  {"info #2", platform::kGenFailure},
                  {"name unnamed", platform::kMoreData}};
  EXPECT_EQ(Deleted("top"),
            (Lines{"Cannot enumerate registry keys for 'closed'", "Deleting subkey 'closed'",
                   "Deleting subkey 'uncounted'", "Deleting subkey 'top'"}));
  EXPECT_EQ(system.openHandles, 0);
}

TEST(RegistryCommands, DeletionHasNoDepthLimit) {
  ScriptedSystem& system = ResetSystem();
  system.subKeys = {u"d"};
  system.deepest = 50'000;
  EXPECT_EQ(Deleted("top").size(), 50'000U);
  EXPECT_EQ(system.openHandles, 0);
}

}  // namespace
}  // namespace tessel::testing
