#include "platform/formats/patch_container.h"
#include "support/format.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/key_file.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/script_check.h"
#include "tools/tlx/script_lint.h"

namespace tlx {
namespace {

constexpr OptionSpec kOptions[] = {
    {u"--key", u"KEY", true,
     u"The private key: a file in PEM form, or pkcs11:..., a key on a token"},
    {u"--pin-file", u"FILE", false, u"The token's PIN, in the first line"},
    {u"--in", u"SCRIPT.xml", true, u"The script, in UTF-8"},
    {u"--out", u"PATCH.tlx", true, u"The patch to write"},
    {u"--force", u"", false, u"Pack the bytes as they are, without a check"},
};

void WarnOfCommands(cvn::StringView path, const TiXmlDocument& document) {
  for (const Finding& finding : LintScript(document)) {
    if (finding.isError) {
      WarnAt(path, finding.position,
             cvn::Format(u"the runner refuses this script: %s", finding.text));
    }
  }
}

int Pack(const Options& options) {
  const cvn::StringView scriptPath = options.Value(u"--in");
  std::string script;
  const platform::Code code = ReadInput(scriptPath, &script);
  if (code != platform::kSuccess) {
    return FailToRead(scriptPath, code);
  }
  if (!options.Has(u"--force")) {
    TiXmlDocument document;
    if (const auto fault = CheckScript(script, &document)) {
      return FailAt(scriptPath, fault->position,
                    cvn::Format(u"%s (--force packs it all the same)", fault->text));
    }
    WarnOfCommands(scriptPath, document);
  }
  cvn::String problem;
  const KeyPlace place = {options.Value(u"--key"), options.Value(u"--pin-file")};
  const platform::OpenSsl<EVP_PKEY> key = ReadPrivateKey(place, KeyLength::Exactly, &problem);
  if (key == nullptr) {
    return FailOnFile(ShownPlace(place), problem);
  }
  std::string patch;
  if (!platform::EncipherPatch(key.get(), script, &patch)) {
    return FailOnFile(ShownPlace(place),
                      u"the key does not encipher: its token refuses, or its "
                      u"parts don't belong together");
  }
  return WriteWholeFile(options.Value(u"--out"), patch);
}

}  // namespace

const CommandSpec kPackCommand = {
    u"pack",
    u"Make a patch from a script",
    u"Enciphers a script as a patch. Text that is not UTF-8 or not well-formed XML, without a "
    u"'script' under the\n"
    u"root element or of a version other than 1.x is refused, with the line in question. Of "
    u"commands that the\n"
    u"runner would refuse there is only a warning; 'tlx lint' tells more.\n"
    u"The PIN of a token that needs one comes from --pin-file or the URI's pin-source, or is asked "
    u"for on the\n"
    u"terminal. The URI's module-path, or PKCS11_MODULE_PATH, names the token's library.\n",
    kOptions,
    Pack,
};

}  // namespace tlx
