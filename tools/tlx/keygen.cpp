#include "platform/paths.h"
#include "platform/whole_file.h"
#include "support/format.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/key_file.h"
#include "tools/tlx/messages.h"

namespace tlx {
namespace {

constexpr OptionSpec kOptions[] = {
    {u"--private", u"KEY.pem", true, u"Where the private key goes; only its owner may read it"},
    {u"--public", u"PUB.pem", true, u"Where the public key goes"},
    {u"--force", u"", false, u"Replace files that are there"},
};

int Keygen(const Options& options) {
  platform::OutputFile privateFile(options.Value(u"--private"));
  platform::OutputFile publicFile(options.Value(u"--public"));
  if (privateFile.Path() == publicFile.Path()) {
    return FailOnFile(publicFile.Path(), u"the two keys can't share a file");
  }
  for (const platform::OutputFile* file : {&privateFile, &publicFile}) {
    if (!options.Has(u"--force") && platform::paths::Exists(file->Path())) {
      return FailOnFile(file->Path(), u"is there already; --force replaces it");
    }
  }
  SecretBytes privatePem;
  std::string publicPem;
  if (!MakeKeyPair(&privatePem, &publicPem)) {
    return FailOnFile(privateFile.Path(), u"the system gave no key");
  }
  // Neither name changes before both texts are safely on the disk.
  platform::Code code =
      privateFile.Write(privatePem.bytes, platform::OutputFile::Readers::OwnerOnly);
  if (code != platform::kSuccess) {
    return FailToWrite(privateFile.Path(), code);
  }
  code = publicFile.Write(publicPem, platform::OutputFile::Readers::Anybody);
  if (code != platform::kSuccess) {
    return FailToWrite(publicFile.Path(), code);
  }
  for (platform::OutputFile* file : {&privateFile, &publicFile}) {
    code = file->Commit();
    if (code != platform::kSuccess) {
      return FailToWrite(file->Path(), code);
    }
  }
  return kExitDone;
}

}  // namespace

const CommandSpec kKeygenCommand = {
    u"keygen",
    u"Make a pair of keys",
    u"Makes an RSA pair of 2048 bits. Patches are packed with the private key, and the runner is "
    u"built with the\n"
    u"public one.\n",
    kOptions,
    Keygen,
};

}  // namespace tlx
