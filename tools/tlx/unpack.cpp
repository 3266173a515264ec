#include "tools/tlx/commands.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/patch_input.h"

namespace tlx {
namespace {

constexpr OptionSpec kOptions[] = {
    {u"--key", u"PUB.pem", true, u"The public key"},
    {u"--in", u"PATCH.tlx", true, u"The patch"},
    {u"--out", u"SCRIPT.xml", true, u"The script to write"},
};

int Unpack(const Options& options) {
  const cvn::StringView patchPath = options.Value(u"--in");
  std::string patch;
  const platform::Code code = ReadInput(patchPath, &patch);
  if (code != platform::kSuccess) {
    return FailToRead(patchPath, code);
  }
  if (patch.empty()) {
    return FailOnFile(patchPath, u"the file is empty");
  }
  std::string script;
  const int exitCode = DecipherWith(options.Value(u"--key"), patchPath, patch, &script);
  return exitCode == kExitDone ? WriteWholeFile(options.Value(u"--out"), script) : exitCode;
}

}  // namespace

const CommandSpec kUnpackCommand = {
    u"unpack",
    u"Get the script back from a patch",
    u"Deciphers a patch with the public key and writes the script that it was packed from.\n",
    kOptions,
    Unpack,
};

}  // namespace tlx
