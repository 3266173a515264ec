#include <algorithm>
#include <set>

#include "files/path_text.h"
#include "platform/draft.h"
#include "platform/paths.h"
#include "support/format.h"
#include "tools/tlx/catalog_signature.h"
#include "tools/tlx/certificate_file.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/der_writer.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/folder_listing.h"
#include "tools/tlx/foreign_signature.h"
#include "tools/tlx/key_file.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/publisher_check.h"
#include "tools/tlx/time_stamp.h"
#include "tools/tlx/trust_list.h"

namespace tlx {
namespace {

using platform::OpenSsl;

constexpr OptionSpec kOptions[] = {
    {u"--dir", u"DIR", true, u"The folder with the patch and its files"},
    {u"--cert", u"CERT.pem", false, u"The publisher's certificate; others behind it go along"},
    {u"--key", u"KEY", false,
     u"Its private key, RSA: a file in PEM form, or pkcs11:..., one on a token"},
    {u"--pin-file", u"FILE", false, u"The token's PIN, in the first line"},
    {u"--chain", u"CA.pem", false, u"Certificates of authorities to go along"},
    {u"--timestamp", u"URL", false, u"Have an authority stamp the time (RFC 3161)"},
    {u"--unsigned", u"FILE", false, u"Write what is to be signed, and no catalog"},
    {u"--form", u"content|catalog", false,
     u"Of --unsigned: the list for 'openssl cms', or an unsigned catalog"},
    {u"--attach", u"SIGNATURE", false, u"Take a signature that was made elsewhere"},
    {u"--list", u"FILE", false, u"What it signs, for a detached one: the file of --unsigned"},
    {u"--force", u"", false, u"Sign in spite of names and an expired certificate"},
};

cvn::String FaultOf(const Options& options) {
  const auto conflict = [&options](cvn::StringView mode,
                                   std::initializer_list<cvn::StringView> others) {
    for (const cvn::StringView other : others) {
      if (options.Has(mode) && options.Has(other)) {
        return cvn::Format(u"option '%s' has no place beside '%s'", other, mode);
      }
    }
    return cvn::String();
  };
  for (const cvn::String& fault :
       {conflict(u"--unsigned", {u"--cert", u"--key", u"--pin-file", u"--chain", u"--timestamp",
                                 u"--attach", u"--list"}),
        conflict(u"--attach", {u"--key", u"--pin-file", u"--form"})}) {
    if (!fault.Empty()) {
      return fault;
    }
  }
  for (const auto& [option, mode] :
       {std::pair(u"--form", u"--unsigned"), {u"--list", u"--attach"}}) {
    if (options.Has(option) && !options.Has(mode)) {
      return cvn::Format(u"option '%s' goes with '%s' only", option, mode);
    }
  }
  for (const cvn::StringView option : {u"--cert", u"--key"}) {
    if (!options.Has(u"--unsigned") && !options.Has(u"--attach") && !options.Has(option)) {
      return cvn::Format(u"option '%s' is missing", option);
    }
  }
  return {};
}

// A catalog on its way.
struct Draft {
  std::string list;           // an element
  Certificates certificates;  // the publisher's first, unless the signature was made elsewhere
  CatalogSignature signature;
  OpenSsl<X509> signer;
};

cvn::String Folder(const Options& options) {
  return platform::paths::OfCaller(options.Value(u"--dir"));
}

cvn::String CatalogPath(const Options& options) {
  return tessel::JoinPath(Folder(options), kCatalogName);
}

int ReadCertificateOptions(const Options& options, Certificates* certificates) {
  for (const cvn::StringView option : {u"--cert", u"--chain"}) {
    const int exitCode =
        options.Has(option) ? ReadCertificates(options.Value(option), certificates) : kExitDone;
    if (exitCode != kExitDone) {
      return exitCode;
    }
  }
  return kExitDone;
}

int CheckSigner(const Options& options, cvn::StringView path, const Draft& draft) {
  return CheckPublisher(draft.signer.get(), {.path = path,
                                             .isForced = options.Has(u"--force"),
                                             .isStamped = options.Has(u"--timestamp") ||
                                                          HasTimeStamp(draft.signature)});
}

// --- The list

int MakeList(const Options& options, std::string* list) {
  // What is left of a catalog that was never finished is none of its files.
  platform::files::RemoveAbandonedDrafts(CatalogPath(options));
  std::vector<ListedFile> files;
  const int exitCode = ListPatchFolder(Folder(options), options.Has(u"--force"), &files);
  if (exitCode != kExitDone) {
    return exitCode;
  }
  const std::optional<ListOrigin> origin = MakeOrigin();
  if (!origin) {
    return FailOnFile(CatalogPath(options), u"the system gives no random bytes");
  }
  *list = BuildTrustList({*origin, EncodeEntries(files)});
  return kExitDone;
}

// Whether the folder is as a list has it. Tells of each file that isn't.
int CompareFolder(const Options& options, std::string_view content) {
  std::vector<ListedFile> files;
  const cvn::String folder = Folder(options);
  const int exitCode = ListPatchFolder(folder, options.Has(u"--force"), &files);
  if (exitCode != kExitDone) {
    return exitCode;
  }
  const std::optional<TrustList> listed = ParseTrustList(content);
  if (!listed) {
    return FailOnFile(options.Value(u"--attach"), u"what it signs is no list of files");
  }
  const TrustList present = {listed->origin, EncodeEntries(files)};
  if (der::ContentOf(BuildTrustList(present)) == content) {
    return kExitDone;
  }
  const std::set<std::string_view> entries(listed->entries.begin(), listed->entries.end());
  std::size_t found = 0;
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (entries.contains(present.entries[i])) {
      ++found;
    } else {
      FailOnFile(tessel::JoinPath(folder, files[i].name),
                 u"it is not as it was when the list was made, or wasn't there");
    }
  }
  return found < files.size()
             ? kExitBadInput
             : FailOnFile(folder,
                          u"the list has files that aren't there any more, or is not one "
                          u"that tlx made");
}

// --- The signature

int SignHere(const Options& options, Draft* draft) {
  int exitCode = ReadCertificateOptions(options, &draft->certificates);
  if (exitCode != kExitDone) {
    return exitCode;
  }
  cvn::String problem;
  const KeyPlace place = {options.Value(u"--key"), options.Value(u"--pin-file")};
  const OpenSsl<EVP_PKEY> key = ReadPrivateKey(place, KeyLength::AtLeast, &problem);
  if (key == nullptr) {
    return FailOnFile(ShownPlace(place), problem);
  }
  draft->signer = platform::Decoded<d2i_X509>(draft->certificates.front());
  if (draft->signer == nullptr || X509_check_private_key(draft->signer.get(), key.get()) != 1) {
    return FailOnFile(
        ShownPlace(place),
        cvn::Format(u"the key doesn't belong to the certificate in %s", options.Value(u"--cert")));
  }
  exitCode = CheckSigner(options, options.Value(u"--cert"), *draft);
  if (exitCode == kExitDone) {
    exitCode = MakeList(options, &draft->list);
  }
  if (exitCode != kExitDone) {
    return exitCode;
  }
  auto signature = SignList(draft->list, draft->certificates.front(), key.get());
  if (!signature) {
    return FailOnFile(ShownPlace(place), u"the key doesn't sign");
  }
  draft->signature = std::move(*signature);
  return kExitDone;
}

// The content of the list that a signature is about: its own, or that in the file of --list.
int TakeContent(const Options& options, std::optional<std::string> own, std::string* content) {
  const cvn::StringView listPath = options.Value(u"--list");
  if (!listPath.empty()) {
    const platform::Code code = ReadInput(listPath, content);
    if (code != platform::kSuccess) {
      return FailToRead(listPath, code);
    }
  } else if (own) {
    *content = *own;
  } else {
    return FailOnFile(options.Value(u"--attach"),
                      u"it doesn't bring along what it signs; --list names the file of --unsigned");
  }
  return own && *own != *content
             ? FailOnFile(options.Value(u"--attach"), u"it brings another list along than --list")
             : kExitDone;
}

int TakeSignature(const Options& options, Draft* draft) {
  const cvn::StringView path = options.Value(u"--attach");
  std::string bytes;
  const platform::Code code = ReadInput(path, &bytes);
  if (code != platform::kSuccess) {
    return FailToRead(path, code);
  }
  cvn::String problem;
  std::optional<ForeignSignature> foreign = ParseForeignSignature(bytes, &problem);
  if (!foreign) {
    return FailOnFile(path, problem);
  }
  std::string content;
  int exitCode = TakeContent(options, std::move(foreign->content), &content);
  draft->certificates = std::move(foreign->certificates);
  if (exitCode == kExitDone) {
    exitCode = ReadCertificateOptions(options, &draft->certificates);
  }
  if (exitCode == kExitDone) {
    exitCode = CompareFolder(options, content);
  }
  if (exitCode != kExitDone) {
    return exitCode;
  }
  draft->signer =
      VerifyForeignSignature(foreign->signature, content, draft->certificates, &problem);
  if (draft->signer == nullptr) {
    return FailOnFile(path, problem);
  }
  draft->list = der::Element(der::Tag::Sequence, content);
  draft->signature = std::move(foreign->signature);
  return CheckSigner(options, path, *draft);
}

int Stamp(const Options& options, Draft* draft) {
  const cvn::StringView url = options.Value(u"--timestamp");
  cvn::String problem;
  const std::optional<TimeStamp> stamp = FetchTimeStamp(url, draft->signature.signature, &problem);
  if (!stamp) {
    return FailOnFile(url, problem);
  }
  if (ASN1_TIME_compare(stamp->time.get(), X509_get0_notBefore(draft->signer.get())) < 0 ||
      ASN1_TIME_compare(stamp->time.get(), X509_get0_notAfter(draft->signer.get())) > 0) {
    return FailOnFile(url, u"the certificate isn't valid at the time that the stamp tells");
  }
  AddTimeStamp(stamp->token, &draft->signature);
  return kExitDone;
}

int Catalog(const Options& options) {
  if (options.Has(u"--unsigned")) {
    std::string list;
    int exitCode = RefuseWithin(options.Value(u"--unsigned"), options.Value(u"--dir"));
    exitCode = exitCode == kExitDone ? MakeList(options, &list) : exitCode;
    const bool isCatalog = options.Value(u"--form") == u"catalog";
    return exitCode != kExitDone ? exitCode
                                 : WriteWholeFile(options.Value(u"--unsigned"),
                                                  isCatalog ? EncodeCatalog(list, {}, nullptr)
                                                            : std::string(der::ContentOf(list)));
  }
  Draft draft;
  int exitCode =
      options.Has(u"--attach") ? TakeSignature(options, &draft) : SignHere(options, &draft);
  if (exitCode == kExitDone && options.Has(u"--timestamp")) {
    exitCode = Stamp(options, &draft);
  }
  return exitCode != kExitDone
             ? exitCode
             : WriteWholeFile(CatalogPath(options),
                              EncodeCatalog(draft.list, draft.certificates, &draft.signature));
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
    u"expires soon.\n"
    u"\n"
    u"The signature is made with --cert and --key. Where neither key nor token is at hand, "
    u"--unsigned writes what is\n"
    u"to be signed, and --attach makes the catalog from the signature: signed data in the form of "
    u"PKCS #7 or CMS, or\n"
    u"a signed catalog. It is refused when the folder has changed since. With --timestamp the "
    u"catalog "
    u"stays good after\n"
    u"its certificate has expired. A failure leaves the old catalog as it is.\n",
    kOptions,
    Catalog,
    {},
    FaultOf,
};

}  // namespace tlx
