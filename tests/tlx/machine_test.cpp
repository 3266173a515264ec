// tlx machine, which has its own process for every machine that it looks at.
#include <openssl/pem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <memory>

#include "platform/machine.h"
#include "platform/registry.h"
#include "support/utf.h"
#include "tests/tlx/run_tool.h"

namespace tlx::test {
namespace {

namespace fs = std::filesystem;
namespace registry = platform::registry;
using Words = std::vector<std::string>;

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

class MachineTest : public FolderTest {
 protected:
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

  // tlx machine. Its exit code stands before all that it writes.
  std::string Machine(const Words& words) const {
    Words arguments = {"machine"};
    arguments.insert(arguments.end(), words.begin(), words.end());
    const ToolResult result = Alone([&] {
      const ToolResult inner = Tlx(arguments);
      std::fputs((inner.out + inner.err).c_str(), stdout);
      return inner.exitCode;
    });
    return std::to_string(result.exitCode) + ' ' + result.out;
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
    ASSERT_EQ(Alone([&] { return store() ? 0 : 1; }).exitCode, 0);
  }
};

TEST_F(MachineTest, CreateMakesWhatItIsAskedFor) {
  const std::string first = MakeCertificate();
  WriteFile(In("two.pem"), "subject: first\n" + first + "subject: second\n" + MakeCertificate());
  WriteFile(In("again.pem"), first);
  const std::string folder = "C:\\Program Files\\Ambry Shield";
  const struct {
    Words options;
    Words shown;  // line by line
  } kCases[] = {
      {{}, {"Windows 10 Pro", "10.0", "19045", "Professional", "x64", folder, "0"}},
      {{"--windows", "11", "--edition", "Core", "--arch", "arm64", "--install-dir", "D:\\Größe"},
       {"Windows 10 Home", "10.0", "26100", "Core", "arm64", "D:\\Größe", "0"}},
      {{"--windows", "7", "--arch", "x86", "--trust", In("two.pem"), "--trust", In("again.pem")},
       {"Windows 7 Professional", "6.1", "7601", "Professional", "x86", folder, "2"}},
      {{"--windows", "server2019", "--edition", "ServerDatacenter"},
       {"Windows Server 2019 Datacenter", "10.0", "17763", "ServerDatacenter", "x64", folder, "0"}},
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
            "\nTrusted roots:  " + example.shown[6] + "\nAfter reboot:   nothing\n");
  }
}

TEST_F(MachineTest, TellsWhatItCannotDo) {
  const std::string whole = MakeCertificate();
  std::string damaged = whole;
  damaged[100] = '!';
  fs::create_directories(In("full/x"));
  fs::create_directories(In("empty"));
  WriteFile(In("none.pem"), "-----BEGIN PUBLIC KEY-----\n");
  WriteFile(In("cut.pem"), "a\nb\n" + whole.substr(0, 500));
  WriteFile(In("damaged.pem"), "\n" + damaged);
  ASSERT_EQ(Machine({"create", In("good")}), "0 ");
  ASSERT_EQ(Machine({"create", In("broken")}), "0 ");
  WriteFile(In("broken/Windows/System32/config/SOFTWARE"), "no hive");
  const std::pair<Words, std::string> kCases[] = {
      {{"create", In("m"), "--trust", In("none.pem")},
       "1 " + In("none.pem") + ":1: error: there is no certificate in PEM form in it\n"},
      {{"create", In("m"), "--trust", In("cut.pem")},
       "1 " + In("cut.pem") + ":3: error: the certificate that begins here has no end\n"},
      {{"create", In("m"), "--trust", In("damaged.pem")},
       "1 " + In("damaged.pem") + ":2: error: the certificate that begins here is damaged\n"},
      {{"create", In("full")}, "1 " + In("full") + ": error: the folder is not empty; "},
      {{"create", In("m"), "--install-dir", "/opt/ambry"}, "1 /opt/ambry: error: "},
      {{"create"}, "2 tlx: error: DIR is missing\n"},
      {{"create", In("m"), In("m2")}, "2 tlx: error: unexpected argument"},
      {{"create", ""}, "2 tlx: error: DIR is empty\n"},
      {{"create", In("m"), "--windows", "95"},
       "2 tlx: error: option '--windows' takes 7|8|8.1|10|11|"},
      {{"create", In("m"), "--arch", "x"},
       "2 tlx: error: option '--arch' takes x64|x86|arm64, not 'x'\n"},
      {{"show", In("good"), "HKLM\\SOFTWARE\\None"},
       "1 HKLM\\SOFTWARE\\None: error: there is no such key\n"},
      {{"show", In("good"), "HKPD\\x"},
       "1 HKPD\\x: error: a key's name begins with HKLM, HKCU, HKU, HKCR or HKCC\n"},
      {{"show", In("none")},
       "1 " + In("none") + ": error: cannot be read: there is no such folder"},
      {{"show", In("empty")},
       "1 " + In("empty") + ": error: no machine: its registry tells of no Windows\n"},
      {{"show", In("broken"), "HKLM\\SOFTWARE\\x"},
       "1 HKLM\\SOFTWARE\\x: error: its hive is damaged\n"},
  };
  for (const auto& [words, told] : kCases) {
    EXPECT_EQ(Machine(words).substr(0, told.size()), told);
  }
  EXPECT_FALSE(fs::exists(In("m")) || fs::exists(In("none")));
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
      {u"unclean \x1B\n", 1, "\x1B\0[\0"sv},
      {u"number", 4, "\xFE\xFF\xFF\xFF"sv},
      {u"short number", 4, "\xFE\xFF"sv},
      {u"big", 11, "\x01\0\0\0\0\0\0\x80"sv},
      {u"list", 7, "a\0\0\0\0\0b\0c\0\0\0\0\0"sv},
      {u"bytes", 3, "0123456789abcdef0123456789abcdef!"sv},
      {u"odd", 77, "x"sv},
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
              "  unclean \\x1B\\x0A: REG_SZ \"\\x1B[\"\n"
              "  number: REG_DWORD 0xFFFFFFFE (4294967294)\n"
              "  short number: REG_DWORD fe ff (2 bytes)\n"
              "  big: REG_QWORD 0x8000000000000001 (9223372036854775809)\n"
              "  list: REG_MULTI_SZ of 3 strings\n    \"a\"\n    \"\"\n    \"bc\"\n"
              "  bytes: REG_BINARY 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 30 31 32 33 34 "
              "35 36 37 38 39 61 62 63 64 65 66 ... (33 bytes)\n"
              "  odd: type 0x4D 78 (1 byte)\n");
  }
  EXPECT_NE(Machine({"show", In("m"), "HKLM"}).find("  SOFTWARE\\\n"), std::string::npos);

  std::u16string moves;
  for (const cvn::StringView text : {u"\\??\\C:\\gone", u"", u"\\??\\C:\\a b", u"\\??\\C:\\c",
                                     u"\\??\\C:\\new", u"!\\??\\C:\\old", u"\\??\\C:\\cut"}) {
    moves.append(text).push_back(u'\0');
  }
  Store(u"SYSTEM\\CurrentControlSet\\Control\\Session Manager", u"PendingFileRenameOperations",
        registry::kTypeMultiString,
        std::string_view(reinterpret_cast<const char*>(moves.data()), 2 * moves.size()));
  EXPECT_TRUE(Machine({"show", In("m")})
                  .ends_with("After reboot:   \n"
                             "  delete C:\\gone\n"
                             "  move C:\\a b to C:\\c\n"
                             "  move C:\\new to C:\\old (replacing)\n"
                             "  delete C:\\cut\n"));
}

}  // namespace
}  // namespace tlx::test
