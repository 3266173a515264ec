#include "platform/formats/patch_container.h"
#include "support/format.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/key_file.h"
#include "tools/tlx/messages.h"

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
  if (patch.size() % platform::kPatchBlockSize != 0) {
    return FailOnFile(
        patchPath, cvn::Format(u"no patch, or a part of one: its %u bytes are not a multiple of %u",
                               patch.size(), platform::kPatchBlockSize));
  }
  cvn::String problem;
  const platform::OpenSsl<RSA> key = ReadPublicKey(options.Value(u"--key"), &problem);
  if (key == nullptr) {
    return FailOnFile(options.Value(u"--key"), problem);
  }
  std::string script;
  std::size_t badOffset = 0;
  if (!platform::DecipherPatch(key.get(), patch, &script, &badOffset)) {
    return FailOnFile(
        patchPath,
        cvn::Format(u"the block at offset %u was not made with this pair of keys", badOffset));
  }
  return WriteWholeFile(options.Value(u"--out"), script);
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
