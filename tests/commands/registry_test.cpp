// What the registry commands do in states that no real registry comes into by a script.

#include <gtest/gtest.h>

#include "tests/commands/scripted_registry.h"
#include "tests/engine/script_harness.h"

namespace tessel::testing {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

constexpr char kRoot[] = "root='HKEY_LOCAL_MACHINE' ";

// The lines that begin with "Trace: ", "Deleting", or "Cannot".
std::vector<std::string> Telling(const ScriptOutcome& outcome) {
  std::vector<std::string> lines;
  for (const std::string& line : outcome.trace) {
    if (line.starts_with("Trace: ") || line.starts_with("Deleting") || line.starts_with("Cannot")) {
      lines.push_back(line);
    }
  }
  return lines;
}

std::vector<std::string> Told(const std::string& command) {
  return Telling(RunScript(command + "<trace value='[%v%] %error%'/><exit/>", {{u"v", u"before"}}));
}

std::string With(const std::string& element, const std::string& attributes) {
  return "<" + element + " " + kRoot + attributes + "/>";
}

TEST(RegistryCommands, WantTheirAttributes) {
  const struct {
    const char* element;
    bool isAccepted;
  } kCases[] = {
      {"<regRead var='v' root='HKEY_USERS' key='' value=''/>", true},
      {"<regRead var='' root='HKEY_USERS' key='' value=''/>", false},
      {"<regRead root='HKEY_USERS' key='' value=''/>", false},
      {"<regRead var='v' key='' value=''/>", false},
      {"<regRead var='v' root='HKEY_USERS' value=''/>", false},
      {"<regRead var='v' root='HKEY_USERS' key=''/>", false},
      {"<regRead var='v' root='hkey_users' key='' value=''/>", false},
      {"<regRead var='v' root='HKU' key='' value=''/>", false},
      {"<regRead var='v' root='%root%' key='' value=''/>", false},
      {"<regGetKeys var='v' root='HKEY_CLASSES_ROOT' key='' delim=''/>", true},
      {"<regGetKeys var='' root='HKEY_CLASSES_ROOT' key='' delim=''/>", false},
      {"<regGetKeys var='v' root='HKEY_CLASSES_ROOT' key=''/>", false},
      {"<regGetValues var='v' root='HKEY_CURRENT_CONFIG' key='' delim=''/>", true},
      {"<regGetValues var='v' root='HKEY_CURRENT_CONFIG' delim=''/>", false},
      {"<regWrite root='HKEY_CURRENT_USER' key='' value='' data='' type='REG_SZ'/>", true},
      {"<regWrite root='HKEY_CURRENT_USER' key='' value='' data='' type='REG_NONE'/>", false},
      {"<regWrite root='HKEY_CURRENT_USER' key='' value='' data='' type='reg_sz'/>", false},
      {"<regWrite root='HKEY_CURRENT_USER' key='' value='' data='' type='1'/>", false},
      {"<regWrite root='HKEY_CURRENT_USER' key='' value='' data=''/>", false},
      {"<regWrite root='HKEY_CURRENT_USER' key='' value='' type='REG_SZ'/>", false},
      {"<regWrite root='HKEY_CURRENT_USER' key='' data='' type='REG_SZ'/>", false},
      {"<regExistsKey root='HKEY_LOCAL_MACHINE' key=''/>", true},
      {"<regExistsKey root='HKEY_LOCAL_MACHINE'/>", false},
      {"<regCreateKey root='HKEY_LOCAL_MACHINE' key='' volatile='perhaps'/>", true},
      {"<regCreateKey key='' volatile='1'/>", false},
      {"<regDeleteKey root='HKEY_LOCAL_MACHINE' key=''/>", true},
      {"<regDeleteKey root='HKEY_PERFORMANCE_DATA' key=''/>", false},
      {"<regDeleteValue root='HKEY_LOCAL_MACHINE' key='' value=''/>", true},
      {"<regDeleteValue root='HKEY_LOCAL_MACHINE' key=''/>", false},
  };
  for (const auto& example : kCases) {
    ResetRegistry();
    const ScriptOutcome outcome = RunScript("<exit/>" + std::string(example.element));
    EXPECT_EQ(outcome.loadCode == kLoadSuccess, example.isAccepted) << example.element;
  }
}

TEST(RegistryCommands, ReadWhateverIsStored) {
  constexpr struct {
    std::uint32_t type;
    std::string_view data;
    const char* expected;
  } kCases[] = {
      {1, "a\0b\0"sv, "[ab] 0"},  // without its zero
      {1, "a\0b"sv, "[ab] 0"},
      {1, "a\0\0\0b\0\0\0"sv, "[a] 0"},
      {1, ""sv, "[] 0"},
      {2, "%\0x\0"sv, "[%x] 0"},
      {4, ""sv, "[0] 0"},
      {4, "\xFE\xFF"sv, "[65534] 0"},
      {4, "\0\0\0\x80"sv, "[-2147483648] 0"},
      {4, "\x01\0\0\0\x07"sv, "[1] 0"},
      {11, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv, "[72057594037927935] 0"},
      {11, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x01"sv, "[-1] 0"},
      {11, ""sv, "[0] 0"},
      {7, "a\0\0\0\0\0b\0\0\0\0\0"sv, "[a] 0"},
      {7, "a\0|\0\0\0|\0\0\0\0\0"sv, "[a] 0"},
      {7, "|\0a\0\0\0b\0"sv, "[|a|b] 0"},  // without any end
      {7, "a\0b"sv, "[ab] 0"},
      {7, ""sv, "[] 0"},
      {3, "\x00\xAB\x0F"sv, "[00ab0f] 1630"},
      {0, "x"sv, "[before] 1630"},
      {5, "\0\0\0\x01"sv, "[before] 1630"},
      {6, "a\0"sv, "[before] 1630"},
      {8, ""sv, "[before] 1630"},
      {0xFFFFFFFF, ""sv, "[before] 1630"},
  };
  for (const auto& example : kCases) {
    ResetRegistry()->Add(u"k")->AddValue(u"n", example.type, example.data);
    EXPECT_EQ(Told(With("regRead", "var='v' key='k' value='n'")),
              std::vector{"Trace: " + std::string(example.expected)})
        << example.type << " of " << example.data.size();
    EXPECT_EQ(OpenKeys(), 0);
  }
}

TEST(RegistryCommands, WriteWholeTexts) {
  constexpr struct {
    const char* type;
    const char* data;
    std::string_view bytes;
  } kCases[] = {
      {"REG_SZ", "", "\0\0"sv},
      {"REG_SZ", "a", "a\0\0\0"sv},
      {"REG_EXPAND_SZ", "%%a%%", "%\0a\0%\0\0\0"sv},
      {"REG_MULTI_SZ", "", "\0\0"sv},
      {"REG_MULTI_SZ", "a", "a\0\0\0\0\0"sv},
      {"REG_MULTI_SZ", "|a|", "\0\0a\0\0\0\0\0\0\0"sv},
      {"REG_DWORD", "-2", "\xFE\xFF\xFF\xFF"sv},
      {"REG_QWORD", "256", "\0\x01\0\0\0\0\0\0"sv},
      {"REG_BINARY", "aB09f", "\xAB\x09"sv},
      {"REG_BINARY", "a", ""sv},
  };
  for (const auto& example : kCases) {
    const ScriptedKey* key = ResetRegistry()->Add(u"k");
    Told(With("regWrite", "key='k' value='n' data='" + std::string(example.data) + "' type='" +
                              example.type + "'"));
    ASSERT_EQ(key->values.size(), 1U) << example.type << ' ' << example.data;
    const auto& data = key->values[0].data;
    EXPECT_EQ(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()),
              example.bytes)
        << example.type << ' ' << example.data;
  }
}

TEST(RegistryCommands, AskForNoMoreThanTheyNeed) {
  constexpr struct {
    const char* element;
    const char* attributes;
    std::uint32_t access;
    bool isVolatile;
  } kCases[] = {
      {"regRead", "var='v' key='k' value=''", 1, false},
      {"regGetKeys", "var='v' key='k' delim=''", 8, false},
      {"regGetValues", "var='v' key='k' delim=''", 1, false},
      {"regWrite", "key='k' value='' data='' type='REG_SZ'", 2, false},
      {"regExistsKey", "key='k'", 1, false},
      {"regCreateKey", "key='k'", 0, false},
      {"regCreateKey", "key='k' volatile='1'", 0, true},
      {"regCreateKey", "key='k' volatile='true'", 0, true},
      {"regCreateKey", "key='k' volatile='True'", 0, false},
      {"regDeleteKey", "key='k'", 9, false},
      {"regDeleteValue", "key='k' value=''", 2, false},
  };
  for (const auto& example : kCases) {
    const ScriptedKey* key = ResetRegistry()->Add(u"k");
    Told(With(example.element, example.attributes));
    EXPECT_EQ(key->accesses, std::vector{example.access}) << example.element;
    EXPECT_EQ(key->isVolatile, example.isVolatile) << example.attributes;
    EXPECT_EQ(OpenKeys(), 0) << example.element;
  }
}

TEST(RegistryCommands, WalksGiveAllNamesOrNone) {
  const auto nameOf = [](std::size_t length) { return cvn::String(std::u16string(length, u'n')); };
  constexpr struct {
    std::size_t length;
    bool isKeyGiven;
    bool isValueGiven;
  } kCases[] = {{255, true, true}, {256, false, true}, {257, false, false}, {5000, false, false}};
  for (const auto& example : kCases) {
    ScriptedKey* key = ResetRegistry()->Add(u"k");
    key->Add(u"first");
    key->Add(nameOf(example.length));
    key->AddValue(u"first", 1, "");
    key->AddValue(nameOf(example.length), 1, "");
    const std::string names = "Trace: [first;" + std::string(example.length, 'n') + ";] 0";
    const std::string none = "Trace: [before] 234";
    EXPECT_EQ(Told(With("regGetKeys", "var='v' key='k' delim=';'")),
              std::vector{example.isKeyGiven ? names : none});
    EXPECT_EQ(Told(With("regGetValues", "var='v' key='k' delim=';'")),
              std::vector{example.isValueGiven ? names : none});
  }
  ScriptedKey* key = ResetRegistry()->Add(u"k");
  key->Add(u"first");
  key->Add(u"second")->nameCode = platform::kAccessDenied;
  EXPECT_EQ(Told(With("regGetKeys", "var='v' key='k' delim=';'")),
            std::vector{"Trace: [before] 5"s});
  EXPECT_EQ(OpenKeys(), 0);
}

TEST(RegistryCommands, DeletionStopsAtTheFirstKeyThatResists) {
  ScriptedKey* top = ResetRegistry()->Add(u"top");
  ScriptedKey* middle = top->Add(u"middle");
  middle->Add(u"a");
  middle->Add(u"b")->deleteCode = platform::kAccessDenied;
  middle->Add(u"c");
  top->Add(u"untouched");
  EXPECT_EQ(Told(With("regDeleteKey", "key='top'")),
            (std::vector{"Deleting subkey 'a'"s, "Deleting subkey 'b'"s, "Trace: [before] 5"s}));
  EXPECT_EQ(middle->subKeys.size(), 2U);
  EXPECT_EQ(top->subKeys.size(), 2U);
  EXPECT_EQ(OpenKeys(), 2) << "of the keys that were being emptied";
}

TEST(RegistryCommands, DeletionTriesWhatItCannotLookInto) {
  ScriptedKey* root = ResetRegistry();
  ScriptedKey* top = root->Add(u"top");
  top->Add(u"closed")->openCode = platform::kAccessDenied;
  ScriptedKey* uncounted = top->Add(u"uncounted");
  uncounted->infoCode = platform::kGenFailure;
  EXPECT_EQ(Told(With("regDeleteKey", "key='top'")),
            (std::vector{"Cannot enumerate registry keys for 'closed'"s,
                         "Deleting subkey 'closed'"s, "Deleting subkey 'uncounted'"s,
                         "Deleting subkey 'top'"s, "Trace: [before] 0"s}));
  EXPECT_TRUE(root->subKeys.empty());
  EXPECT_EQ(OpenKeys(), 0);

  // A name that can't be had is left out, and then its parent isn't empty.
  top = root->Add(u"top");
  top->Add(u"a")->nameCode = platform::kMoreData;
  top->Add(u"b");
  EXPECT_EQ(Told(With("regDeleteKey", "key='top'")),
            (std::vector{"Deleting subkey 'b'"s, "Deleting subkey 'top'"s, "Trace: [before] 5"s}));
  EXPECT_EQ(OpenKeys(), 0);
}

TEST(RegistryCommands, DeletionHasNoDepthLimit) {
  constexpr int kDepth = 50'000;
  ScriptedKey* root = ResetRegistry();
  ScriptedKey* at = root->Add(u"top");
  for (int i = 1; i < kDepth; ++i) {
    at = at->Add(u"d");
  }
  EXPECT_EQ(Told(With("regDeleteKey", "key='top'")).size(), kDepth + 1U);
  EXPECT_TRUE(root->subKeys.empty());
  EXPECT_EQ(OpenKeys(), 0);
}

}  // namespace
}  // namespace tessel::testing
