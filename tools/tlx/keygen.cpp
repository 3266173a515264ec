#include <string>
#include <utility>

#include "tools/tlx/commands.h"
#include "tools/tlx/file_io.h"
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
  OutputPlace privateFile(options.Value(u"--private"));
  OutputPlace publicFile(options.Value(u"--public"));
  constexpr cvn::StringView kShared = u"the two keys can't share a file";
  if (privateFile.IsSame(publicFile)) {
    return FailOnFile(options.Value(u"--public"), kShared);
  }
  for (const auto& [file, option] :
       {std::pair(&privateFile, u"--private"), {&publicFile, u"--public"}}) {
    if (!options.Has(u"--force") && file->IsThere()) {
      return FailOnFile(options.Value(option), u"is there already; --force replaces it");
    }
  }
  SecretBytes privatePem;
  std::string publicPem;
  if (!MakeKeyPair(&privatePem, &publicPem)) {
    return FailOnFile(options.Value(u"--private"), u"the system gave no key");
  }
  // Neither name changes before both texts are safely on the disk.
  int exitCode = privateFile.Prepare(privatePem.bytes, platform::OutputFile::Readers::OwnerOnly);
  if (exitCode == kExitDone) {
    exitCode = publicFile.Prepare(publicPem, platform::OutputFile::Readers::Anybody);
  }
  if (exitCode == kExitDone) {
    exitCode = privateFile.Finish();
  }
  if (exitCode != kExitDone) {
    return exitCode;
  }
  // Names of a file that wasn't there yet: in another case, or a link that led nowhere.
  if (privateFile.IsSame(publicFile)) {
    privateFile.Undo();
    return FailOnFile(options.Value(u"--public"), kShared);
  }
  return publicFile.Finish();
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
