// tlx machine, which has its own process for every machine that it looks at.

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "platform/machine.h"
#include "platform/registry.h"
#include "support/utf.h"
#include "tests/tlx/run_tool.h"

namespace tlx::test {
namespace {

namespace fs = std::filesystem;
namespace registry = platform::registry;
using registry::Key;
using registry::Root;

// A self-signed certificate in PEM form, with a key that all of them share.
std::string MakeCertificate() {
  static EVP_PKEY* const kKey = EVP_RSA_gen(2048);
  static long serial = 0;
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), X509_free);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), ++serial);
  X509_set_pubkey(certificate.get(), kKey);
  X509_sign(certificate.get(), kKey, EVP_sha256());
  const std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), BIO_free);
  PEM_write_bio_X509(bio.get(), certificate.get());
  char* text = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &text);
  return std::string(text, static_cast<std::size_t>(size));
}

class MachineTest : public testing::Test {
 protected:
  void SetUp() override {
    folder_ = fs::temp_directory_path() / ("tlx_machine_test." + std::to_string(getpid()));
    fs::remove_all(folder_);
    fs::create_directories(folder_);
  }
  void TearDown() override { fs::remove_all(folder_); }

  std::string In(const std::string& name) const { return folder_ / name; }

  // Runs `action`, whose result is the exit code, in a process of its own.
  ToolResult Alone(const std::function<int()>& action) const {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      const bool isReady = std::freopen(In("out").c_str(), "wb", stdout) != nullptr &&
                           std::freopen(In("err").c_str(), "wb", stderr) != nullptr;
      const int code = isReady ? action() : 99;
      std::fflush(nullptr);
      _exit(code);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << status;
    return {WEXITSTATUS(status), ReadFile(In("out")), ReadFile(In("err"))};
  }

  // tlx machine.
  ToolResult Machine(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "machine");
    return Alone([&] {
      const ToolResult result = Tlx(arguments);
      std::fputs(result.out.c_str(), stdout);
      std::fputs(result.err.c_str(), stderr);
      return result.exitCode;
    });
  }

  // Puts a value into a machine's HKEY_LOCAL_MACHINE.
  void Store(const std::string& machine, cvn::StringView path, cvn::StringView name,
             std::uint32_t type, std::string_view data) const {
    const ToolResult stored = Alone([&] {
      Key key;
      platform::Code code = platform::machine::Use(cvn::Utf8ToWide(machine));
      if (code == platform::kSuccess) {
        code = registry::CreateKey(Key(Root::LocalMachine), path, false, registry::kSetValue, &key);
      }
      if (code == platform::kSuccess) {
        code = registry::SetValue(key, name, type, std::as_bytes(std::span(data)));
      }
      return static_cast<int>(code == platform::kSuccess ? registry::Flush() : code);
    });
    ASSERT_EQ(stored.exitCode, 0) << stored.err;
  }

 private:
  fs::path folder_;
};

TEST_F(MachineTest, CreateMakesWhatItIsAskedFor) {
  const struct {
    std::vector<std::string> options;
    const char* expected;
  } kCases[] = {
      {{},
       "Product:        Windows 10 Pro\n"
       "Version:        10.0\n"
       "Build:          19045\n"
       "Edition:        Professional\n"
       "Architecture:   x64\n"
       "Install folder: C:\\Program Files\\Ambry Shield\n"
       "Trusted roots:  0\n"
       "After reboot:   nothing\n"},
      {{"--windows", "11", "--edition", "Core", "--arch", "arm64", "--install-dir", "D:\\Größe"},
       "Product:        Windows 10 Home\n"
       "Version:        10.0\n"
       "Build:          26100\n"
       "Edition:        Core\n"
       "Architecture:   arm64\n"
       "Install folder: D:\\Größe\n"
       "Trusted roots:  0\n"
       "After reboot:   nothing\n"},
      {{"--windows", "7", "--arch", "x86"},
       "Product:        Windows 7 Professional\n"
       "Version:        6.1\n"
       "Build:          7601\n"
       "Edition:        Professional\n"
       "Architecture:   x86\n"
       "Install folder: C:\\Program Files\\Ambry Shield\n"
       "Trusted roots:  0\n"
       "After reboot:   nothing\n"},
      {{"--windows", "server2019", "--edition", "ServerDatacenter"},
       "Product:        Windows Server 2019 Datacenter\n"
       "Version:        10.0\n"
       "Build:          17763\n"
       "Edition:        ServerDatacenter\n"
       "Architecture:   x64\n"
       "Install folder: C:\\Program Files\\Ambry Shield\n"
       "Trusted roots:  0\n"
       "After reboot:   nothing\n"},
  };
  int number = 0;
  for (const auto& example : kCases) {
    const std::string machine = In("m" + std::to_string(++number));
    std::vector<std::string> arguments = {"create", machine};
    arguments.insert(arguments.end(), example.options.begin(), example.options.end());
    const ToolResult made = Machine(arguments);
    EXPECT_EQ(made.exitCode, 0) << made.err;
    EXPECT_EQ(made.out + made.err, "");
    const ToolResult shown = Machine({"show", machine});
    EXPECT_EQ(shown.exitCode, 0) << shown.err;
    EXPECT_EQ(shown.out, example.expected);
  }
}

TEST_F(MachineTest, CreateTrustsEveryCertificateItIsGiven) {
  const std::string first = MakeCertificate();
  WriteFile(In("two.pem"), "subject: first\n" + first + "subject: second\n" + MakeCertificate());
  WriteFile(In("one.pem"), MakeCertificate());
  WriteFile(In("again.pem"), first);
  const ToolResult made = Machine({"create", In("m"), "--trust", In("two.pem"), "--trust",
                                   In("one.pem"), "--trust", In("again.pem")});
  ASSERT_EQ(made.exitCode, 0) << made.err;
  EXPECT_NE(Machine({"show", In("m")}).out.find("Trusted roots:  3\n"), std::string::npos);
}

TEST_F(MachineTest, CreateTellsWhatIsWrongWithCertificates) {
  const std::string whole = MakeCertificate();
  std::string damaged = whole;
  damaged[100] = '!';
  const struct {
    std::string content;
    const char* expected;
  } kCases[] = {
      {"", ":1: error: there is no certificate in PEM form in it\n"},
      {"-----BEGIN PUBLIC KEY-----\n", ":1: error: there is no certificate in PEM form in it\n"},
      {"a\nb\n" + whole.substr(0, 500), ":3: error: the certificate that begins here has no end\n"},
      {"\n" + damaged, ":2: error: the certificate that begins here is damaged\n"},
      {"-----BEGIN CERTIFICATE-----\n-----END CERTIFICATE-----\n",
       ":1: error: the certificate that begins here is damaged\n"},
      {"-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n",
       ":1: error: the certificate that begins here is damaged\n"},
  };
  WriteFile(In("good.pem"), whole);
  for (const auto& example : kCases) {
    WriteFile(In("bad.pem"), example.content);
    const ToolResult made =
        Machine({"create", In("m"), "--trust", In("good.pem"), "--trust", In("bad.pem")});
    EXPECT_EQ(made.exitCode, 1);
    EXPECT_EQ(made.err, In("bad.pem") + example.expected);
    EXPECT_FALSE(fs::exists(In("m")));
  }
}

TEST_F(MachineTest, CreateRefusesBadPlacesAndWords) {
  fs::create_directories(In("full/x"));
  WriteFile(In("file"), "x");
  const struct {
    std::vector<std::string> arguments;
    int exitCode;
    std::string problem;  // that the error stream begins with
  } kCases[] = {
      {{In("full")}, 1, In("full") + ": error: the folder is not empty; "},
      {{In("file")}, 1, In("file") + ": error: "},
      {{In("m"), "--install-dir", "Ambry"}, 1, "Ambry: error: "},
      {{In("m"), "--install-dir", "/opt/ambry"}, 1, "/opt/ambry: error: "},
      {{In("m"), "--trust", In("none.pem")},
       1,
       In("none.pem") + ": error: cannot be read: there is no such file\n"},
      {{}, 2, "tlx: error: DIR is missing\n"},
      {{In("m"), In("m2")}, 2, "tlx: error: unexpected argument"},
      {{""}, 2, "tlx: error: DIR is empty\n"},
      {{In("m"), "--windows", "95"}, 2, "tlx: error: option '--windows' takes 7|8|8.1|10|11|"},
      {{In("m"), "--arch", "x"}, 2, "tlx: error: option '--arch' takes x64|x86|arm64, not 'x'\n"},
      {{In("m"), "--arch", "x64", "--arch", "x64"},
       2,
       "tlx: error: option '--arch' is given twice\n"},
  };
  for (const auto& example : kCases) {
    std::vector<std::string> arguments = {"create"};
    arguments.insert(arguments.end(), example.arguments.begin(), example.arguments.end());
    const ToolResult made = Machine(arguments);
    EXPECT_EQ(made.exitCode, example.exitCode) << example.problem;
    EXPECT_TRUE(made.err.starts_with(example.problem)) << made.err;
    EXPECT_FALSE(fs::exists(In("m")));
  }
}

TEST_F(MachineTest, ShowListsAKey) {
  using namespace std::string_view_literals;
  ASSERT_EQ(Machine({"create", In("m")}).exitCode, 0);
  const struct {
    cvn::StringView name;
    std::uint32_t type;
    std::string_view data;
  } kValues[] = {
      {u"", 1, "t\0e\0x\0t\0\0\0"sv},
      {u"expand", 2, "%\0x\0%\0\0\0"sv},
      {u"unclean \x1B\n", 1, "\x1B\0[\0"sv},
      {u"number", 4, "\xFE\xFF\xFF\xFF"sv},
      {u"short number", 4, "\xFE\xFF"sv},
      {u"big", 11, "\x01\0\0\0\0\0\0\x80"sv},
      {u"list", 7, "a\0\0\0\0\0b\0c\0\0\0\0\0"sv},
      {u"no list", 7, ""sv},
      {u"bytes", 3, "0123456789abcdef0123456789abcdef!"sv},
      {u"none", 0, ""sv},
      {u"odd", 77, "x"sv},
  };
  for (const auto& value : kValues) {
    Store(In("m"), u"SOFTWARE\\Shown", value.name, value.type, value.data);
  }
  Store(In("m"), u"SOFTWARE\\Shown\\Sub key", u"", 0, "");
  const char* expected =
      "  Sub key\\\n"
      "  (default): REG_SZ \"text\"\n"
      "  expand: REG_EXPAND_SZ \"%x%\"\n"
      "  unclean \\x1B\\x0A: REG_SZ \"\\x1B[\"\n"
      "  number: REG_DWORD 0xFFFFFFFE (4294967294)\n"
      "  short number: REG_DWORD fe ff (2 bytes)\n"
      "  big: REG_QWORD 0x8000000000000001 (9223372036854775809)\n"
      "  list: REG_MULTI_SZ of 3 strings\n"
      "    \"a\"\n"
      "    \"\"\n"
      "    \"bc\"\n"
      "  no list: REG_MULTI_SZ of 0 strings\n"
      "  bytes: REG_BINARY 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 30 31 32 33 34 35 36 37 "
      "38 39 61 62 63 64 65 66 ... (33 bytes)\n"
      "  none: REG_NONE (0 bytes)\n"
      "  odd: type 0x4D 78 (1 byte)\n";
  for (const char* key : {"HKLM\\SOFTWARE\\Shown", "hkey_local_machine\\software\\SHOWN\\"}) {
    const ToolResult shown = Machine({"show", In("m"), key});
    EXPECT_EQ(shown.exitCode, 0) << shown.err;
    EXPECT_EQ(shown.out, expected);
  }
  EXPECT_NE(Machine({"show", In("m"), "HKLM"}).out.find("  SOFTWARE\\\n"), std::string::npos);
}

TEST_F(MachineTest, ShowTellsWhatTheNextBootMoves) {
  ASSERT_EQ(Machine({"create", In("m")}).exitCode, 0);
  std::u16string moves;
  for (const cvn::StringView text : {u"\\??\\C:\\gone", u"", u"\\??\\C:\\a b", u"\\??\\C:\\c",
                                     u"\\??\\C:\\new", u"!\\??\\C:\\old", u"\\??\\C:\\cut"}) {
    moves.append(text).push_back(u'\0');
  }
  Store(In("m"), u"SYSTEM\\CurrentControlSet\\Control\\Session Manager",
        u"PendingFileRenameOperations", registry::kTypeMultiString,
        std::string_view(reinterpret_cast<const char*>(moves.data()), 2 * moves.size()));
  const ToolResult shown = Machine({"show", In("m")});
  EXPECT_TRUE(
      shown.out.ends_with("After reboot:   \n"
                          "  delete C:\\gone\n"
                          "  move C:\\a b to C:\\c\n"
                          "  move C:\\new to C:\\old (replacing)\n"
                          "  delete C:\\cut\n"))
      << shown.out;
}

TEST_F(MachineTest, ShowTellsWhatItCannotShow) {
  ASSERT_EQ(Machine({"create", In("m")}).exitCode, 0);
  ASSERT_EQ(Machine({"create", In("broken")}).exitCode, 0);
  WriteFile(In("broken/Windows/System32/config/SOFTWARE"), "no hive");
  fs::create_directories(In("empty"));
  const struct {
    std::vector<std::string> arguments;
    std::string problem;
  } kCases[] = {
      {{"show", In("m"), "HKLM\\SOFTWARE\\None"},
       "HKLM\\SOFTWARE\\None: error: there is no such key\n"},
      {{"show", In("m"), "HKPD\\x"},
       "HKPD\\x: error: a key's name begins with HKLM, HKCU, HKU, HKCR or HKCC\n"},
      {{"show", In("none")}, In("none") + ": error: cannot be read: there is no such folder\n"},
      {{"show", In("empty")},
       In("empty") + ": error: no machine: its registry tells of no Windows\n"},
      {{"show", In("broken"), "HKLM\\SOFTWARE\\x"},
       "HKLM\\SOFTWARE\\x: error: its hive is damaged\n"},
  };
  for (const auto& example : kCases) {
    const ToolResult shown = Machine(example.arguments);
    EXPECT_EQ(shown.exitCode, 1);
    EXPECT_EQ(shown.err, example.problem);
    EXPECT_EQ(shown.out, "");
  }
  EXPECT_FALSE(fs::exists(In("none")));
  EXPECT_TRUE(fs::is_empty(In("empty")));
}

TEST(MachineHelpTest, EveryWayLeadsToHelp) {
  EXPECT_EQ(Tlx({"machine", "--help"}).exitCode, 0);
  EXPECT_EQ(Tlx({"machine"}).exitCode, 2);
  EXPECT_TRUE(
      Tlx({"machine", "mend"}).err.starts_with("tlx: error: unknown command 'machine mend'\n"));
  const ToolResult help = Tlx({"machine", "show", "--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_TRUE(help.out.starts_with("Usage: tlx machine show DIR [KEY]\n")) << help.out;
}

}  // namespace
}  // namespace tlx::test
