// Patch text to the end of its run, on a scratch machine. script_commands.cpp has the commands of
// these scripts.
#include <string>

#include "engine/script_engine.h"
#include "fuzz/counting_trace.h"
#include "fuzz/input.h"
#include "fuzz/scratch_machine.h"
#include "fuzz/script_commands.h"
#include "platform/registry.h"
#include "support/format.h"
#include "support/utf.h"

namespace tessel::fuzz {
namespace {

namespace registry = platform::registry;

constexpr std::size_t kMostLines = 2'000;
constexpr std::size_t kMostCharacters = 1'000'000;

constexpr std::string_view kXmlFile =
    "\xEF\xBB\xBF<r a=\"1\"><i n=\"1\">one</i><i n=\"2\"><k/>two<k/></i><!-- c "
    "--><![CDATA[d]]></r>";
constexpr std::string_view kJsonFile =
    R"({"a": [1, {"b": "two", "c": [true, null]}, 3], "d": {"e": -1.5}, "s": "text"})";
constexpr std::string_view kIniFile = "; c\r\n[one]\r\nkey=value\r\n[two]\r\nkey=\"2\"\r\n";

// Each run finds the same.
void PrepareMachine() {
  for (int file = 0; file < 8; ++file) {
    WriteScratchFile(std::to_string(file) + ".txt",
                     file < 3 ? kXmlFile : (file < 6 ? kJsonFile : kIniFile));
  }
  registry::Key root(registry::Root::LocalMachine);
  registry::Key key;
  Require(registry::CreateKey(root, u"SOFTWARE\\Fuzz\\Kept", false, registry::kSetValue, &key) ==
              platform::kSuccess,
          "the scratch key can be made");
}

void RemoveKeys(const cvn::String& path) {
  const registry::Key root(registry::Root::LocalMachine);
  {
    registry::Key key;
    cvn::String name;
    while (registry::OpenKey(root, path, registry::kEnumerateSubKeys, &key) == platform::kSuccess &&
           registry::EnumerateKey(key, 0, 256, &name) == platform::kSuccess) {
      RemoveKeys(cvn::Format(u"%s\\%s", path, name));
    }
  }
  const platform::Code code = registry::DeleteKey(root, path);
  Require(code == platform::kSuccess || code == platform::kFileNotFound,
          "a key without subkeys can go");
}

void LoadAndRun(cvn::StringView text) {
  ScriptEngine engine;
  if (!engine.ParseText(text)) {
    return;
  }
  ConfineScript(&engine);
  if (engine.Load({{u"given", u"from the command line"}}, [] { return false; }) == kLoadSuccess) {
    PrepareMachine();
    LimitTrace(kMostLines, kMostCharacters);
    try {
      engine.Run();
    } catch (const RunIsTooLong&) {
    }
    LimitTrace(0, 0);
    RemoveKeys(u"SOFTWARE\\Fuzz");
  }
  engine.Reset();
}

}  // namespace
}  // namespace tessel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tessel::fuzz::LoadAndRun(cvn::Utf8ToWide(tessel::fuzz::Input(data, size).Rest()));
  return 0;
}
