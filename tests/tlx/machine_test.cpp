// tlx machine, which has its own process for every machine that it looks at.
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "platform/environment.h"
#include "platform/formats/environment_names.h"
#include "platform/machine.h"
#include "platform/registry.h"
#include "support/utf.h"
#include "tests/tlx/run_tool.h"

namespace tlx::test {
namespace {

namespace fs = std::filesystem;
namespace registry = platform::registry;
using Words = std::vector<std::string>;

class MachineTest : public FolderTest {
 protected:
  // The exit code that `action` gives in a process of its own.
  static int Alone(const std::function<int()>& action) {
    const pid_t child = fork();
    if (child == 0) {
      _exit(action());
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << status;
    return WEXITSTATUS(status);
  }

  // tlx machine. Its exit code stands before all that it writes.
  std::string Machine(Words words) const {
    words.insert(words.begin(), "machine");
    const int code = Alone([&] {
      const ToolResult result = Tlx(words);
      WriteFile(In("out"), result.out + result.err);
      return result.exitCode;
    });
    return std::to_string(code) + ' ' + ReadFile(In("out"));
  }

  // Puts a value into the HKEY_LOCAL_MACHINE of the machine "m".
  void Store(cvn::StringView path, cvn::StringView name, std::uint32_t type,
             std::string_view data) const {
    const auto store = [&] {
      registry::Key key;
      return platform::machine::Use(cvn::Utf8ToWide(In("m"))) == platform::kSuccess &&
             registry::CreateKey(registry::Key(registry::Root::LocalMachine), path, false,
                                 registry::kSetValue, &key) == platform::kSuccess &&
             registry::SetValue(key, name, type, std::as_bytes(std::span(data))) ==
                 platform::kSuccess &&
             registry::Flush() == platform::kSuccess;
    };
    ASSERT_EQ(Alone([&] { return store() ? 0 : 1; }), 0);
  }
};

TEST_F(MachineTest, CreateMakesWhatItIsAskedFor) {
  const std::string folder = "C:\\Program Files\\Ambry Shield";
  const struct {
    Words options;
    Words shown;  // line by line
  } kCases[] = {
      {{}, {"Windows 10 Pro", "10.0", "19045", "Professional", "x64", folder}},
      {{"--windows", "7", "--arch", "x86", "--edition", "Core", "--install-dir", "D:\\Größe"},
       {"Windows 7 Home", "6.1", "7601", "Core", "x86", "D:\\Größe"}},
  };
  for (const auto& example : kCases) {
    const std::string machine = In("m" + example.shown[2]);
    Words words = {"create", machine};
    words.insert(words.end(), example.options.begin(), example.options.end());
    EXPECT_EQ(Machine(words), "0 ");
    EXPECT_EQ(
        Machine({"show", machine}),
        "0 Product:        " + example.shown[0] + "\nVersion:        " + example.shown[1] +
            "\nBuild:          " + example.shown[2] + "\nEdition:        " + example.shown[3] +
            "\nArchitecture:   " + example.shown[4] + "\nInstall folder: " + example.shown[5] +
            "\nTrusted roots:  0\nAfter reboot:   nothing\n");
  }
}

TEST_F(MachineTest, TellsWhatItCannotDo) {
  fs::create_directories(In("full/x"));
  fs::create_directories(In("empty"));
  WriteFile(In("damaged.pem"), "\n-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n");
  ASSERT_EQ(Machine({"create", In("good")}), "0 ");
  ASSERT_EQ(Machine({"create", In("broken")}), "0 ");
  WriteFile(In("broken/Windows/System32/config/SOFTWARE"), "no hive");
  const std::pair<Words, std::string> kCases[] = {
      {{"create", In("m"), "--trust", In("damaged.pem")},
       "1 " + In("damaged.pem") + ":2: error: the certificate that begins here is damaged\n"},
      {{"create", In("full")}, "1 " + In("full") + ": error: the folder is not empty; "},
      {{"create", In("m"), "--windows", "95"},
       "2 tlx: error: option '--windows' takes 7|8|8.1|10|11|"},
      {{"show", In("good"), "HKPD\\x"},
       "1 HKPD\\x: error: a key's name begins with HKLM, HKCU, HKU, HKCR or HKCC\n"},
      {{"show", In("empty")},
       "1 " + In("empty") + ": error: cannot be read: it is no Windows volume"},
      {{"show", In("damaged.pem")},
       "1 " + In("damaged.pem") + ": error: cannot be read: it is no folder\n"},
      {{"show", In("broken")},
       "1 " + In("broken") + ": error: cannot be read: its registry is damaged\n"},
      {{"show", In("broken"), "HKLM\\SOFTWARE\\x"},
       "1 HKLM\\SOFTWARE\\x: error: its hive is damaged\n"},
  };
  for (const auto& [words, told] : kCases) {
    EXPECT_EQ(Machine(words).substr(0, told.size()), told);
  }
  EXPECT_FALSE(fs::exists(In("m")));
  EXPECT_TRUE(fs::is_empty(In("empty")));
}

TEST_F(MachineTest, ShowListsAKey) {
  using namespace std::string_view_literals;
  ASSERT_EQ(Machine({"create", In("m")}), "0 ");
  const struct {
    cvn::StringView name;
    std::uint32_t type;
    std::string_view data;
  } kValues[] = {
      {u"", 1, "t\0e\0x\0t\0\0\0"sv},
      {u"expand", 2, "%\0x\0%\0\0\0"sv},
      {u"unclean \x1B\u202E\n", 1, "\x1B\0[\0"sv},
      {u"number", 4, "\xFE\xFF\xFF\xFF"sv},
      {u"big", 11, "\x01\0\0\0\0\0\0\x80"sv},
      {u"list", 7, "a\0\0\0\0\0b\0c\0\0\0\0\0"sv},
      {u"byte", 3, "\x7F"},
      {u"bytes", 3, "0123456789abcdef0123456789abcdef!"sv},
  };
  for (const auto& value : kValues) {
    Store(u"SOFTWARE\\Shown", value.name, value.type, value.data);
  }
  Store(u"SOFTWARE\\Shown\\Sub key", u"", 0, "");
  for (const char* key : {"HKLM\\SOFTWARE\\Shown", "hkey_local_machine\\software\\SHOWN\\"}) {
    EXPECT_EQ(Machine({"show", In("m"), key}),
              "0   Sub key\\\n"
              "  (default): REG_SZ \"text\"\n"
              "  expand: REG_EXPAND_SZ \"%x%\"\n"
              "  unclean \\x1B\\u202E\\x0A: REG_SZ \"\\x1B[\"\n"
              "  number: REG_DWORD 0xFFFFFFFE (4294967294)\n"
              "  big: REG_QWORD 0x8000000000000001 (9223372036854775809)\n"
              "  list: REG_MULTI_SZ of 3 strings\n    \"a\"\n    \"\"\n    \"bc\"\n"
              "  byte: REG_BINARY 7f (1 byte)\n"
              "  bytes: REG_BINARY 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 30 31 32 33 34 "
              "35 36 37 38 39 61 62 63 64 65 66 ... (33 bytes)\n");
  }

  std::u16string moves;
  for (const cvn::StringView text : {u"\\??\\C:\\gone", u"", u"\\??\\C:\\a b", u"\\??\\C:\\c",
                                     u"\\??\\C:\\new", u"!\\??\\C:\\old"}) {
    moves.append(text).push_back(u'\0');
  }
  Store(u"SYSTEM\\CurrentControlSet\\Control\\Session Manager", u"PendingFileRenameOperations",
        registry::kTypeMultiString,
        std::string_view(reinterpret_cast<const char*>(moves.data()), 2 * moves.size()));
  EXPECT_TRUE(Machine({"show", In("m")})
                  .ends_with("After reboot:   \n"
                             "  delete C:\\gone\n"
                             "  move C:\\a b to C:\\c\n"
                             "  move C:\\new to C:\\old (replacing)\n"));
}

// What 'tlx inspect' calls the machine's is what a run takes from it.
TEST_F(MachineTest, EveryMachineHasTheEnvironmentOfWindows) {
  for (const cvn::StringView name : platform::WindowsEnvironmentNames()) {
    EXPECT_TRUE(platform::environment::Get(name).has_value()) << cvn::WideToUtf8(name);
  }
}

}  // namespace
}  // namespace tlx::test
