#include <fcntl.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/tlx/run_tool.h"
#include "version.h"

namespace tlx::test {
namespace {

namespace fs = std::filesystem;

using Lines = std::vector<std::string>;

Lines NamesIn(const fs::path& folder) {
  Lines names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

class TlxTest : public FolderTest {
 protected:
  static void SetUpTestSuite() {
    for (const char* name : {"one", "two"}) {
      const ToolResult made = Tlx({"keygen", "--private", Key(name), "--public", PublicKey(name)});
      ASSERT_EQ(made.exitCode, 0) << made.err;
    }
  }
  static void TearDownTestSuite() { fs::remove_all(kKeys); }

  static std::string Key(const std::string& name) { return kKeys / (name + ".pem"); }
  static std::string PublicKey(const std::string& name) { return kKeys / (name + ".pub.pem"); }

  ToolResult Pack(std::string_view script, std::vector<std::string> more = {}) const {
    WriteFile(In("s.xml"), script);
    std::vector<std::string> arguments = {"pack",      "--key", Key("one"), "--in",
                                          In("s.xml"), "--out", In("p.tlx")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Tlx(arguments);
  }
  ToolResult Unpack(const std::string& publicKey) const {
    return Tlx({"unpack", "--key", publicKey, "--in", In("p.tlx"), "--out", In("back.xml")});
  }

  static inline const fs::path kKeys = MakeFolder();
};

constexpr char kScript[] = "<patch version='1.0'><script/></patch>";

TEST_F(TlxTest, PackAndUnpackGiveEveryByteBack) {
  for (const std::size_t size : {1, 244, 245, 246, 490, 491, 5000}) {
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
      text.push_back(static_cast<char>(i * 7));
    }
    ASSERT_EQ(Pack(text, {"--force"}).exitCode, 0) << size;
    EXPECT_EQ(fs::file_size(In("p.tlx")), (size + 244) / 245 * 256);
    EXPECT_EQ(Unpack(PublicKey("one")).exitCode, 0) << size;
    EXPECT_EQ(ReadFile(In("back.xml")), text);
  }
}

// What the runner loads is packed; what it refuses is told.
TEST_F(TlxTest, PackJudgesTheScript) {
  std::string deep = "<r version='1.0'>\n";
  for (std::size_t i = 0; i < 100'000; ++i) {
    deep += "<a>";
  }
  const std::pair<std::string, std::string> cases[] = {
      {std::string("\xEF\xBB\xBF") + kScript, ""},
      {"<?xml version='1.0'?>\r\n<!-- c --><r version=' 1.9junk'>\r\n<script/></r>", ""},
      {"<r version='1'><script><x>\xC3\xA9\xF0\x9F\x98\x80</x></script></r>", ""},
      {"", ":1: error: the file is empty"},
      {" \n\n", ":3:1: error: not well-formed XML: Error document empty."},
      {std::string("<a>\n b\0</a>", 11),
       ":2:3: error: there is a zero byte; the runner stops reading at it"},
      {"<a>\r\n\xC3\xA9\xFF</a>", ":2:2: error: the text is not UTF-8 here"},
      {deep, ":2:12286: error: elements nest deeper than 4096 levels"},
      {"<a>\n  <b></c>\n</a>", ":2:6: error: not well-formed XML: Error reading end tag."},
      {"<!-- nothing -->", ":1: error: there is no root element"},
      {"<?xml version='1.0'?>\n  <r version='1.0'>\n<Script/></r>",
       ":2:3: error: there is no element 'script' under the root element 'r'"},
      {"\n<r><script/></r>", ":2:1: error: the root element 'r' has no version"},
      {"<r version='2.0'><script/></r>",
       ":1:1: error: the runner refuses version '2.0': the number before the point must be 1"},
  };
  for (const auto& [script, error] : cases) {
    const ToolResult result = Pack(script);
    EXPECT_EQ(std::to_string(result.exitCode) + result.out, error.empty() ? "0" : "1");
    EXPECT_TRUE(error.empty() ||
                result.err == In("s.xml") + error + " (--force packs it all the same)\n")
        << result.err;
    EXPECT_EQ(fs::remove(In("p.tlx")), error.empty());
  }
}

TEST_F(TlxTest, APatchIsBoundToItsKeyAndItsBytes) {
  ASSERT_EQ(Pack(std::string(600, 'x'), {"--force"}).exitCode, 0);
  const std::string patch = ReadFile(In("p.tlx"));
  std::string flipped = patch;
  flipped[256 + 100] = static_cast<char>(flipped[256 + 100] ^ 1);
  const auto expect = [&](const std::string& key, const std::string& bytes,
                          const std::string& error) {
    WriteFile(In("p.tlx"), bytes);
    WriteFile(In("back.xml"), "old");
    const ToolResult result = Unpack(key);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, error + "\n");
    EXPECT_EQ(ReadFile(In("back.xml")), "old");
  };
  const std::string foreign = " was not made with this pair of keys";
  expect(PublicKey("two"), patch, In("p.tlx") + ": error: the block at offset 0" + foreign);
  expect(PublicKey("one"), flipped, In("p.tlx") + ": error: the block at offset 256" + foreign);
  expect(PublicKey("one"), "", In("p.tlx") + ": error: the file is empty");
  expect(
      PublicKey("one"), patch.substr(0, 700),
      In("p.tlx") + ": error: no patch, or a part of one: its 700 bytes are not a multiple of 256");
  expect(Key("one"), patch, Key("one") + ": error: there is no public key in PEM form in it");
}

void WritePrivatePem(const std::string& path, EVP_PKEY* key, const EVP_CIPHER* cipher = nullptr) {
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> owner(key, EVP_PKEY_free);
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "wb"),
                                                             std::fclose);
  char words[] = "pass phrase";
  ASSERT_EQ(PEM_write_PrivateKey(file.get(), key, cipher, nullptr, 0, nullptr, words), 1);
}

TEST_F(TlxTest, ABadFileGetsAClearLine) {
  WritePrivatePem(In("short.pem"), EVP_RSA_gen(1024));
  WritePrivatePem(In("ec.pem"), EVP_EC_gen("P-256"));
  WritePrivatePem(In("locked.pem"), EVP_EC_gen("P-256"), EVP_aes_128_cbc());
  WriteFile(In("s.xml"), kScript);
  WriteFile(In("old.pem"), "old");
  const std::pair<std::string, std::string> keys[] = {
      {In("short.pem"), "the key must be an RSA key of 2048 bits; it has 1024"},
      {In("ec.pem"), "the key must be an RSA key of 2048 bits; it is of another kind"},
      {In("locked.pem"), "the key is locked with a passphrase; tlx takes a key without one"},
      {PublicKey("one"), "there is no private key in PEM form in it"},
      {In("none.pem"), "cannot be read: there is no such file"},
      {folder_, "cannot be read: access is denied, or it is a folder"},
  };
  const auto expect = [](const std::vector<std::string>& arguments, const std::string& error) {
    const ToolResult result = Tlx(arguments);
    EXPECT_EQ(std::to_string(result.exitCode) + result.out + result.err, "1" + error + "\n");
  };
  const Lines before = NamesIn(folder_);
  for (const auto& [key, error] : keys) {
    expect({"pack", "--key", key, "--in", In("s.xml"), "--out", In("n.tlx")},
           key + ": error: " + error);
  }
  expect({"keygen", "--private", In("new.pem"), "--public", In("none/p.pem")},
         In("none/p.pem") + ": error: cannot be written: there is no such folder");
  expect({"keygen", "--private", In("old.pem"), "--public", In("new.pem")},
         In("old.pem") + ": error: is there already; --force replaces it");
  EXPECT_EQ(NamesIn(folder_), before);
  EXPECT_EQ(ReadFile(In("old.pem")), "old");
}

// By none of its names, whatever the command.
TEST_F(TlxTest, WhatIsReadIsNotWrittenOver) {
  ASSERT_EQ(Pack(kScript).exitCode, 0);
  fs::copy(Key("one"), In("key"));
  fs::copy(PublicKey("one"), In("public"));
  for (const std::string name : {"key", "public", "s.xml", "p.tlx"}) {
    fs::create_hard_link(In(name), In(name + ".hard"));
    fs::create_symlink(name, In(name + ".soft"));
  }
  fs::create_symlink("nowhere", In("dangling"));
  fs::create_directory(In("d"));
  fs::create_hard_link(In("p.tlx"), In("d/p.tlx"));
  const Lines pack = {"pack", "--key", In("key"), "--in", In("s.xml"), "--out"};
  const Lines unpack = {"unpack", "--key", In("public"), "--in", In("p.tlx"), "--out"};
  const Lines keygen = {"keygen", "--force", "--private", In("key"), "--public"};
  const std::pair<Lines, Lines> cases[] = {
      {pack, {"key", "key.hard", "key.soft", "s.xml", "s.xml.hard", "s.xml.soft"}},
      {unpack, {"public", "public.hard", "public.soft", "p.tlx", "p.tlx.hard", "p.tlx.soft"}},
      {{"graph", In("s.xml"), "--out"}, {"s.xml", "s.xml.hard", "s.xml.soft"}},
      {{"catalog", "--dir", In("d"), "--unsigned"}, {"p.tlx.soft", "d/p.tlx"}},
      {keygen, {"key.hard", "key.soft"}},
      {{"keygen", "--force", "--private", In("nowhere"), "--public"}, {"dangling"}},
  };
  const auto contents = [&] {
    Lines all = NamesIn(folder_);
    for (const char* name : {"key", "public", "s.xml", "p.tlx"}) {
      all.push_back(ReadFile(In(name)));
      all.push_back(ReadFile(In(name + std::string(".hard"))));
      all.push_back(std::to_string(fs::is_symlink(In(name + std::string(".soft")))));
    }
    return all;
  };
  const Lines before = contents();
  for (const auto& [command, outputs] : cases) {
    for (const std::string& output : outputs) {
      Lines words = command;
      words.push_back(In(output));
      const ToolResult result = Tlx(words);
      EXPECT_EQ(result.exitCode, 1) << output;
      EXPECT_TRUE(result.err.starts_with(In(output) + ": error: ")) << result.err;
      EXPECT_EQ(contents(), before) << words.front() << output;
    }
  }
}

TEST_F(TlxTest, ADashIsAStandardStream) {
  const auto from = [](const std::string& input, const Lines& words) {
    const int kept = dup(STDIN_FILENO);
    const int file = open(input.c_str(), O_RDONLY);
    dup2(file, STDIN_FILENO);
    const ToolResult result = Tlx(words);
    dup2(kept, STDIN_FILENO);
    close(file);
    close(kept);
    return std::to_string(result.exitCode) + result.out + result.err;
  };
  WriteFile(In("s.xml"), kScript);
  const std::string patch =
      from(In("s.xml"), {"pack", "--key", Key("one"), "--in", "-", "--out", "-"});
  WriteFile(In("p.tlx"), patch.substr(1));
  for (const std::string out : {"-", "/dev/stdout"}) {
    EXPECT_EQ(from(In("p.tlx"), {"unpack", "--key", PublicKey("one"), "--in", "-", "--out", out}),
              std::string("0") + kScript);
  }
  const std::string taken = from(In("s.xml"), {"graph", "-", "--out", In("s.xml")});
  EXPECT_EQ(taken,
            "1" + In("s.xml") + ": error: it is a file that was read, and isn't written over\n");
  EXPECT_NE(from(In("s.xml"), {"inspect", "-"}).find("0-\n  Kind:        a script"),
            std::string::npos);
  EXPECT_EQ(from(Key("one"), {"unpack", "--key", "-", "--in", "-", "--out", "-"})[0], '1');
  EXPECT_EQ(from("/dev/null", {"keygen", "--private", "-", "--public", "-"}),
            "1-: error: the two keys can't share a file\n");
}

TEST_F(TlxTest, PatchesAndScriptsAreInspected) {
  ASSERT_EQ(Pack(kScript).exitCode, 0);
  const std::string patch = ReadFile(In("p.tlx"));
  std::string flipped = patch;
  flipped[100] = static_cast<char>(flipped[100] ^ 1);
  std::string text = patch;
  text[0] = '<';  // as a block may begin
  const struct {
    std::string bytes;
    Lines options;
    std::string told;  // of what is printed, or the error
  } cases[] = {
      {kScript, {}, "a script as it is, not packed\n  Size:        38 bytes\n"},
      {std::string("\xEF\xBB\xBF\r\n ") + kScript, {}, "a script as it is, not packed\n"},
      {patch, {"--key", PublicKey("one")}, "a patch (blocks: 1)\n  Size:        256 bytes\n"},
      {patch,
       {},
       "it isn't a patch for this program: neither a script, nor made with the private "},
      {patch, {"--key", PublicKey("two")}, "the block at offset 0 was not made with this pair"},
      {flipped, {"--key", PublicKey("one")}, "the block at offset 0 was not made with this pair"},
      {text, {}, "it isn't a patch for this program"},
      {patch.substr(1), {}, "no patch, or a part of one: its 255 bytes are not a multiple of 256"},
      {"", {}, ":1: error: the file is empty"},
      {"<p version='1'>\n <script></p>", {}, ":2:10: error: not well-formed XML"},
  };
  for (const auto& row : cases) {
    WriteFile(In("i"), row.bytes);
    Lines words = {"inspect", In("i")};
    words.insert(words.end(), row.options.begin(), row.options.end());
    const ToolResult result = Tlx(words);
    const bool isTold = row.told.starts_with("a ");
    EXPECT_EQ(result.exitCode, isTold ? 0 : 1) << result.err;
    EXPECT_EQ(isTold ? result.err : result.out, "");
    EXPECT_NE((result.out + result.err).find(row.told), std::string::npos)
        << result.out << result.err;
  }
}

TEST_F(TlxTest, EventsAreOneObjectInOneLine) {
  const std::string event =
      R"({"data":{"fields":{"event_name":"n\\\"-","event_time":1,"exit_code":-10,"x":[-1.5e+300]}}})";
  for (const std::string& good : {event, event + "\n"}) {
    WriteFile(In("e"), good);
    EXPECT_EQ(Tlx({"events", "--json", folder_}).out, event + "\n");
  }
  const std::string bad[] = {event + "\n\n",
                             event + "\n" + event + "\n",
                             event + " x",
                             event + event,
                             "// c\n" + event,
                             event + std::string("\0x", 2),
                             "\xEF\xBB\xBF" + event,
                             R"({"data":{"fields":{"event_name":"n","exit_code":01}}})",
                             R"({"data":{"fields":{"event_name":"n","exit_code":1.e}}})",
                             R"({"data":{"fields":{"event_name":"a","event_name":"b"}}})",
                             "{\"data\":{\"fields\":{\"event_name\":\"\xFF\"}}}"};
  for (const std::string& text : bad) {
    WriteFile(In("e"), text);
    const ToolResult result = Tlx({"events", "--json", folder_});
    EXPECT_EQ(result.exitCode, 1) << text;
    EXPECT_EQ(result.out, "") << text;
  }
}

TEST_F(TlxTest, OnlyItsOwnerReadsAPrivateKey) {
  WriteFile(In("old.pem"), "old");
  ASSERT_EQ(
      Tlx({"keygen", "--force", "--private", In("old.pem"), "--public", In("new.pem")}).exitCode,
      0);
  EXPECT_EQ(NamesIn(folder_), (Lines{"new.pem", "old.pem"}));
  for (const std::string& path : {Key("one"), In("old.pem")}) {
    EXPECT_EQ(fs::status(path).permissions() & fs::perms::mask,
              fs::perms::owner_read | fs::perms::owner_write);
  }
}

TEST_F(TlxTest, ScriptsAreCheckedAndDrawn) {
  const auto script = [&](const std::string& body) {
    return "<p version='1'><header><property name='patchType' value='update'/></header><script>" +
           body + "</script></p>";
  };
  const std::pair<std::string, std::string> cases[] = {
      // The codes of a check and of a strict one, and what both tell.
      {script("<exit/>"), "00"},
      {script("<sleep milisec='x'/><exit/>"),
       "01" + In("s.xml") + ":1:91: warning: 'milisec' is 'x', which counts as 0\n"},
      {script("<nope/><exit/>"), "11" + In("s.xml") + ":1:84: error: there is no command 'nope'\n"},
  };
  for (const auto& [text, told] : cases) {
    WriteFile(In("s.xml"), text);
    const ToolResult plain = Tlx({"lint", In("s.xml")});
    const int strict = Tlx({"lint", "--strict", In("s.xml")}).exitCode;
    EXPECT_EQ(std::to_string(plain.exitCode) + std::to_string(strict) + plain.out + plain.err,
              told);
  }
  EXPECT_EQ(
      Pack(script("<nope/><sleep milisec='x'/><exit/>")).err,
      In("s.xml") + ":1:84: warning: the runner refuses this script: there is no command 'nope'\n");
  const ToolResult drawn = Tlx({"graph", In("s.xml")});
  EXPECT_TRUE(drawn.out.starts_with("digraph script {\n")) << drawn.out;
  EXPECT_EQ(Tlx({"graph", In("s.xml"), "--out", In("s.dot")}).exitCode + drawn.exitCode, 0);
  EXPECT_EQ(ReadFile(In("s.dot")), drawn.out);
}

TEST_F(TlxTest, UsageGoesWhereItWasAskedFor) {
  const struct {
    int exitCode;
    Lines arguments;
    std::string start;
  } cases[] = {
      {2,
       {"pack", "--key", "k", "--in", "i"},
       "tlx: error: option '--out' is missing\nUsage: tlx "},
      {2, {"pack", "--key", "--in", "i"}, "tlx: error: option '--key' needs a value\n"},
      {2, {"pack", "--force", "--force"}, "tlx: error: option '--force' is given twice\n"},
      {2, {"pack", "--Key", "k"}, "tlx: error: unknown option '--Key'\n"},
      {2, {"pack", "s.xml"}, "tlx: error: unexpected argument 's.xml'\n"},
      {2, {"bake"}, "tlx: error: unknown command 'bake'\nUsage: tlx COMMAND"},
      {2, {"machine", "mend"}, "tlx: error: unknown command 'machine mend'\n"},
      {2, {"lint"}, "tlx: error: "},
      {2, {"completion", "csh"}, "tlx: error: 'csh' isn't one of bash|zsh|fish\n"},
      {2, {"verify", "-"}, "tlx: error: PATCH can't be standard input"},
      {2, {}, "Usage: tlx COMMAND"},
      {0, {"-h"}, "Usage: tlx COMMAND"},
      {0, {"--version"}, "tlx " TESSEL_VERSION_TEXT "\n"},
      {0, {"pack", "--key", "k", "--help"}, "Usage: tlx pack --"},
      {0, {"machine", "show", "--help"}, "Usage: tlx machine show DIR [HKEY]\n"},
  };
  for (const auto& row : cases) {
    const ToolResult result = Tlx(row.arguments);
    EXPECT_EQ(result.exitCode, row.exitCode);
    EXPECT_EQ(row.exitCode == 0 ? result.err : result.out, "");
    EXPECT_TRUE((result.out + result.err).starts_with(row.start)) << result.out + result.err;
  }
}

}  // namespace
}  // namespace tlx::test
