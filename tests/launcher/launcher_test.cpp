#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "launcher/command_line.h"
#include "launcher/patch_container.h"
#include "launcher/patch_metadata.h"
#include "launcher/process_environment.h"
#include "patch_key.h"
#include "platform/environment.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "support/format.h"
#include "support/utf.h"
#include "trace/trace.h"

namespace tessel {
namespace {

std::string Joined(const cvn::List<cvn::String>& texts) {
  std::string all;
  for (const cvn::String& text : texts) {
    all += cvn::WideToUtf8(text) + "|";
  }
  return all;
}

TEST(CommandLine, ReadsItsKeys) {
  const struct {
    std::vector<const char16_t*> arguments;
    bool understood;
    const char* path;  // "-" for none
    const char* options;
    const char* variables;  // key=value, in order of the keys
    const char* error;
  } kCases[] = {
      {{}, true, "-", "", "", ""},
      {{u"/encfile", u"x"}, true, "x", "", "", ""},
      {{u"-ENCFILE", u"x"}, true, "x", "", "", ""},
      {{u"encfile", u"x", u"/EncFile", u"y"}, true, "y", "", "", ""},
      {{u"/encfile", u"/detach"}, true, "/detach", "", "", ""},
      {{u"/detach", u"/SKIPinstancecheck", u"-detach"},
       true,
       "-",
       "detach|skipInstanceCheck|detach|",
       "",
       ""},
      {{u"/var", u"a", u"/detach"}, true, "-", "var(a:/detach)|", "a=/detach|", ""},
      {{u"/var", u"a", u"b", u"/var", u"a", u"c"}, true, "-", "var(a:b)|var(a:c)|", "a=c|", ""},
      {{u"/var", u"b", u"1", u"/var", u"B", u"2"}, true, "-", "var(b:1)|var(B:2)|", "B=2|b=1|", ""},
      {{u"/var", u"a"}, true, "-", "var(a:)|", "a=|", ""},
      {{u"/var"}, true, "-", "var(:)|", "=|", ""},
      {{u"/encfile"},
       false,
       "-",
       "",
       "",
       "Argument key '/encfile' does not have the required value\n"},
      {{u"//encfile", u"x"}, false, "-", "", "", "Unknown argument key: '//encfile'\n"},
      {{u"/debug"}, false, "-", "", "", "Unknown argument key: '/debug'\n"},
      {{u"x.tlx"}, false, "-", "", "", "Unknown argument key: 'x.tlx'\n"},
      {{u""}, false, "-", "", "", "Unknown argument key: ''\n"},
      {{u"/var", u"a", u"b", u"/detach", u"?"},
       false,
       "-",
       "var(a:b)|detach|",
       "a=b|",
       "Unknown argument key: '?'\n"},
  };
  for (const auto& testCase : kCases) {
    cvn::List<cvn::String> arguments{u"tessel"};
    arguments.insert(arguments.end(), testCase.arguments.begin(), testCase.arguments.end());
    LaunchSettings settings;
    cvn::String error;
    cvn::List<cvn::String> options;
    EXPECT_EQ(ParseCommandLine(arguments, &settings, &error, &options), testCase.understood);
    EXPECT_EQ(settings.patchFilePath == nullptr ? "-" : cvn::WideToUtf8(*settings.patchFilePath),
              testCase.path);
    EXPECT_EQ(Joined(options), testCase.options);
    cvn::List<cvn::String> variables;
    for (const auto& [key, value] : settings.scriptVariables) {
      variables.push_back(cvn::Format(u"%s=%s", key, value));
    }
    EXPECT_EQ(Joined(variables), testCase.variables);
    EXPECT_EQ(cvn::WideToUtf8(error), testCase.error);
  }
}

TEST(PatchContainer, RefusesWhatTheKeyDidNotMake) {
  for (const std::size_t size : {1U, 255U, 256U, 257U, 512U}) {
    const std::vector<std::byte> junk(size, std::byte{0x5A});
    std::string text = "kept";
    EXPECT_EQ(DecryptPatch(junk, &text), kBadPatch) << size;
    EXPECT_EQ(text, "kept");
  }
  std::vector<unsigned char> plain;
  const std::vector<std::byte> block(kPatchBlockSize);
  EXPECT_EQ(RsaPublicDecryptBlock(block, "no key", &plain), kBadPatchBlock);
}

TEST(PatchContainer, TheKeyDoesNotStandInTheProgram) {
  std::string key;
  for (const unsigned char scrambled : launcher::kScrambledPatchKey) {
    key.push_back(launcher::UnscramblePatchKeyByte(scrambled, key.size()));
  }
  ASSERT_TRUE(key.starts_with("-----BEGIN PUBLIC KEY-----\n")) << key;
  platform::files::File file;
  ASSERT_EQ(platform::files::Open(platform::paths::ModuleFileName(), platform::files::Access::Read,
                                  platform::files::Share::ReadWrite,
                                  platform::files::Disposition::OpenExisting, &file),
            platform::kSuccess);
  std::uint64_t size = 0;
  ASSERT_EQ(file.Size(&size), platform::kSuccess);
  std::string program(size, '\0');
  std::size_t count = 0;
  ASSERT_EQ(file.Read(std::as_writable_bytes(std::span(program)), &count), platform::kSuccess);
  ASSERT_EQ(count, size);
  // The first line's text is the same for every key of this kind, the others are this key's own.
  for (std::size_t at = key.find('\n', 40) + 1; at + 12 < key.size(); at += 12) {
    EXPECT_EQ(program.find(key.substr(at, 12)), std::string::npos) << at;
  }
}

TEST(PatchMetaData, ReadsTheHeader) {
  PatchMetaData meta;
  meta.content =
      u"<patch><header><property name='id' value='1'/><property name='ID' value='2'/><other/>"
      u"<property name='tags' value='a b'/><property name='id' value='3'/><property/>"
      u"<property name='tags' value='c'/><property name='patchType'/></header>"
      u"<header><property name='id' value='4'/></header></patch>";
  ExtractPatchMetaData(&meta);
  EXPECT_EQ(meta.id, u"3");
  EXPECT_EQ(meta.patchType, u"");
  EXPECT_EQ(Joined(meta.tags), "a b|c|");
  for (const char16_t* content : {u"", u"<patch", u"<!-- no root -->", u"<patch/>"}) {
    PatchMetaData empty;
    empty.content = content;
    ExtractPatchMetaData(&empty);
    EXPECT_EQ(empty.id, u"");
  }
}

TEST(ProcessEnvironment, KeepsTheFirstPathOfAChain) {
  namespace environment = platform::environment;
  EXPECT_EQ(environment::Set(u"CVN_AMS_OLD_PATH", u""), platform::kSuccess);
  EXPECT_EQ(environment::Set(u"PATH", u"first"), platform::kSuccess);
  ApplyProcessEnvironment();
  EXPECT_EQ(environment::Get(u"CVN_AMS_OLD_PATH"), cvn::String(u"first"));
  const cvn::String path = environment::Get(u"PATH").value_or(cvn::String());
  cvn::String folder = platform::paths::ModuleFileName();
  platform::paths::RemoveFileSpec(&folder);
  EXPECT_EQ(path, cvn::Format(u"%s;%s", folder, platform::paths::SystemDirectory()));
  ApplyProcessEnvironment();
  EXPECT_EQ(environment::Get(u"CVN_AMS_OLD_PATH"), cvn::String(u"first"))
      << "a nested run keeps it";
}

TEST(Trace, RoundsMillisecondsWithoutACarry) {
  const struct {
    std::int64_t ticks;
    int milliseconds;
  } kCases[] = {{0, 0},           {4'990, 0},     {5'000, 1},     {1'230'000, 123},
                {9'994'990, 999}, {9'995'000, 0}, {9'996'000, 0}, {20'009'996'000, 0}};
  for (const auto& testCase : kCases) {
    EXPECT_EQ(StampMilliseconds(testCase.ticks), testCase.milliseconds) << testCase.ticks;
  }
}

}  // namespace
}  // namespace tessel
