#include "files/path_text.h"
#include "platform/openssl.h"
#include "support/format.h"
#include "tools/tlx/certificate_file.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/key_file.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/patch_folder.h"
#include "tools/tlx/publisher_check.h"
#include "tools/tlx/trust_list.h"

namespace tlx {
namespace {

using platform::OpenSsl;

constexpr OptionSpec kOptions[] = {
    {u"--cert", u"CERT.pem", true, u"The publisher's certificate; others behind it go along"},
    {u"--key", u"KEY", true,
     u"Its private key, RSA: a file in PEM form, or pkcs11:..., one on a token"},
    {u"--pin-file", u"FILE", false, u"The token's PIN, in the first line"},
    {u"--chain", u"CA.pem", false, u"Certificates of authorities to go along"},
    {u"--dir", u"DIR", true, u"The folder with the patch and its files"},
    {u"--force", u"", false, u"Sign in spite of names and an expired certificate"},
};

// --- The signer

struct Signer {
  cvn::List<platform::Bytes> certificates;  // the publisher's first
  platform::OpenSsl<EVP_PKEY> key;
};

KeyPlace KeyPlaceOf(const Options& options) {
  return {options.Value(u"--key"), options.Value(u"--pin-file")};
}

int CheckSigner(const Options& options, const Signer& signer) {
  const auto certificate = platform::Decoded<d2i_X509>(signer.certificates.front());
  if (certificate == nullptr || X509_check_private_key(certificate.get(), signer.key.get()) != 1) {
    return FailOnFile(
        ShownPlace(KeyPlaceOf(options)),
        cvn::Format(u"the key doesn't belong to the certificate in %s", options.Value(u"--cert")));
  }
  return CheckPublisher(certificate.get(),
                        {.path = options.Value(u"--cert"), .isForced = options.Has(u"--force")});
}

int ReadSigner(const Options& options, Signer* signer) {
  int exitCode = ReadCertificates(options.Value(u"--cert"), &signer->certificates);
  if (exitCode == kExitDone && options.Has(u"--chain")) {
    exitCode = ReadCertificates(options.Value(u"--chain"), &signer->certificates);
  }
  if (exitCode != kExitDone) {
    return exitCode;
  }
  cvn::String problem;
  const KeyPlace place = KeyPlaceOf(options);
  signer->key = ReadPrivateKey(place, KeyLength::AtLeast, &problem);
  if (signer->key == nullptr) {
    return FailOnFile(ShownPlace(place), problem);
  }
  return CheckSigner(options, *signer);
}

int Catalog(const Options& options) {
  Signer signer;
  std::vector<ListedFile> files;
  const cvn::StringView folder = options.Value(u"--dir");
  int exitCode = ReadSigner(options, &signer);
  if (exitCode == kExitDone) {
    exitCode = ListPatchFolder(folder, options.Has(u"--force"), &files);
  }
  if (exitCode != kExitDone) {
    return exitCode;
  }
  const cvn::String path = tessel::JoinPath(folder, kCatalogName);
  const std::string list = BuildTrustList(files);
  const std::string catalog =
      list.empty() ? list : SignTrustList(list, signer.certificates, signer.key.get());
  if (catalog.empty()) {
    return FailOnFile(path, u"cannot be signed");
  }
  return WriteWholeFile(path, catalog);
}

}  // namespace

const CommandSpec kCatalogCommand = {
    u"catalog",
    u"Sign the files of a patch's folder",
    u"Writes DIR/patch.cat, a signed catalog of every other file below DIR: the patch and what it "
    u"brings along.\n"
    u"An external patch runs only with a catalog that lists it and all these files as they are.\n"
    u"What no run would take is refused, each file in a line of its own: links, what is no regular "
    u"file, names that\n"
    u"Windows can't have, and names that only differ in case. So is a certificate that isn't valid "
    u"now. There is a\n"
    u"warning of a certificate that isn't the publisher's, counts as lost, isn't for code signing "
    u"or "
    u"expires soon.\n",
    kOptions,
    Catalog,
};

}  // namespace tlx
