#include "platform/whole_file.h"
#include "support/format.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/key_file.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/patch_container.h"
#include "tools/tlx/script_check.h"

namespace tlx {
namespace {

constexpr OptionSpec kOptions[] = {
    {u"--key", u"KEY.pem", true, u"The private key"},
    {u"--in", u"SCRIPT.xml", true, u"The script, in UTF-8"},
    {u"--out", u"PATCH.tlx", true, u"The patch to write"},
    {u"--force", u"", false, u"Pack the bytes as they are, without a check"},
};

int Pack(const Options& options) {
  const cvn::StringView scriptPath = options.Value(u"--in");
  std::string script;
  const platform::Code code = platform::ReadWholeFile(scriptPath, &script);
  if (code != platform::kSuccess) {
    return FailToRead(scriptPath, code);
  }
  if (!options.Has(u"--force")) {
    if (const auto fault = CheckScript(script)) {
      return FailAt(scriptPath, fault->position,
                    cvn::Format(u"%s (--force packs it all the same)", fault->text));
    }
  }
  cvn::String problem;
  const RsaKey key = ReadKeyFile(options.Value(u"--key"), KeyHalf::Private, &problem);
  if (key == nullptr) {
    return FailOnFile(options.Value(u"--key"), problem);
  }
  std::string patch;
  if (!EncipherPatch(key.get(), script, &patch)) {
    return FailOnFile(options.Value(u"--key"),
                      u"the key does not encipher; its parts don't belong together");
  }
  return WriteWholeFile(options.Value(u"--out"), patch);
}

}  // namespace

const CommandSpec kPackCommand = {
    u"pack",
    u"Make a patch from a script",
    u"Enciphers a script as a patch. A script that the runner would refuse to load is refused "
    u"here, with the\n"
    u"line in question: text that is not UTF-8 or not well-formed XML, no 'script' under the root "
    u"element, a\n"
    u"version other than 1.x. The commands in the script are not looked at.\n",
    kOptions,
    Pack,
};

}  // namespace tlx
