#include <gtest/gtest.h>

#include <string>

#include "launcher/command_line.h"
#include "launcher/patch_metadata.h"
#include "launcher/process_environment.h"
#include "platform/environment.h"
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

TEST(CommandLine, KeepsWhatItWasToldInOrder) {
  LaunchSettings settings;
  cvn::String error;
  cvn::List<cvn::String> options;
  EXPECT_TRUE(ParseCommandLine({u"tessel", u"/detach", u"/var", u"b", u"1", u"-SKIPinstancecheck",
                                u"var", u"B", u"/detach", u"/VAR", u"b", u"2", u"/var"},
                               &settings, &error, &options));
  EXPECT_EQ(Joined(options), "detach|var(b:1)|skipInstanceCheck|var(B:/detach)|var(b:2)|var(:)|");
  EXPECT_EQ(settings.scriptVariables,
            (cvn::Map<cvn::String, cvn::String>{{u"", u""}, {u"B", u"/detach"}, {u"b", u"2"}}));
}

TEST(PatchMetaData, ReadsTheFirstHeader) {
  PatchMetaData meta;
  meta.content =
      u"<patch><header><property name='tags' value='a b'/><other/><property/><property name='tags' "
      u"value='c'/></header><header><property name='tags' value='d'/></header></patch>";
  ExtractPatchMetaData(&meta);
  EXPECT_EQ(Joined(meta.tags), "a b|c|");
}

TEST(ProcessEnvironment, KeepsTheFirstPathOfAChain) {
  namespace environment = platform::environment;
  EXPECT_EQ(environment::Set(u"CVN_AMS_OLD_PATH", u""), platform::kSuccess);
  EXPECT_EQ(environment::Set(u"PATH", u"first"), platform::kSuccess);
  ApplyProcessEnvironment();
  const cvn::String path = environment::Get(u"PATH").value_or(cvn::String());
  cvn::String folder = platform::paths::ModuleFileName();
  platform::paths::RemoveFileSpec(&folder);
  EXPECT_EQ(path, cvn::Format(u"%s;%s", folder, platform::paths::SystemDirectory()));
  ApplyProcessEnvironment();
  EXPECT_EQ(environment::Get(u"CVN_AMS_OLD_PATH"), cvn::String(u"first"))
      << "a nested run keeps it";
}

TEST(Trace, RoundsMillisecondsWithoutACarry) {
  const std::pair<std::int64_t, int> kCases[] = {
      {4'990, 0}, {5'000, 1}, {9'994'990, 999}, {9'995'000, 0}, {20'009'996'000, 0}};
  for (const auto& [ticks, milliseconds] : kCases) {
    EXPECT_EQ(StampMilliseconds(ticks), milliseconds) << ticks;
  }
}

}  // namespace
}  // namespace tessel
