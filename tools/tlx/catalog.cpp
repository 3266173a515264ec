#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <optional>

#include "files/listing.h"
#include "files/path_text.h"
#include "platform/file_digest.h"
#include "platform/paths.h"
#include "support/format.h"
#include "support/numbers.h"
#include "tools/tlx/certificate_file.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/key_file.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/trust_list.h"

namespace tlx {
namespace {

using platform::OpenSsl;

constexpr cvn::StringView kCatalogName = u"patch.cat";

constexpr OptionSpec kOptions[] = {
    {u"--cert", u"CERT.pem", true, u"The publisher's certificate; others behind it go along"},
    {u"--key", u"KEY.pem", true, u"The publisher's private key, RSA"},
    {u"--chain", u"CA.pem", false, u"Certificates of authorities to go along"},
    {u"--dir", u"DIR", true, u"The folder with the patch and its files"},
    {u"--force", u"", false, u"Sign the folder as it is, without a check"},
};

// --- The files

int DigestFile(cvn::StringView path, ListedFile* listed) {
  platform::files::File file;
  const platform::Code code =
      platform::files::Open(path, platform::files::Access::Read, platform::files::Share::Read,
                            platform::files::Disposition::OpenExisting, &file);
  if (code != platform::kSuccess) {
    return FailToRead(path, code);
  }
  const platform::ByteSource source(file);
  const std::optional<platform::PeImage> image = platform::ReadPeImage(source);
  if (!image && platform::IsBrokenPeImage(source)) {
    return FailToRead(path, platform::kBadExeFormat);  // no platform would hash it
  }
  const std::array<platform::Range, 1> everything = {{{0, source.Size()}}};
  const std::array<const EVP_MD*, 1> algorithms = {EVP_sha256()};
  auto digests = image ? platform::ImageDigest(source, *image, algorithms)
                       : platform::Digest(source, everything, algorithms);
  if (!digests) {
    return FailToRead(path, platform::kReadFault);
  }
  listed->digest = std::move(digests->front());
  listed->isImage = image.has_value();
  return kExitDone;
}

// Lists the files below a folder.
class FolderWalk {
 public:
  explicit FolderWalk(cvn::StringView root) : root_(root) {}

  // On failure tells the user; returns the exit code.
  int Run() {
    folders_.emplace_back();
    while (!folders_.empty()) {
      const cvn::String folder = std::move(folders_.back());
      folders_.pop_back();
      if (const int exitCode = ListFolder(folder); exitCode != kExitDone) {
        return exitCode;
      }
    }
    std::ranges::sort(files_, [](const ListedFile& left, const ListedFile& right) {
      const int order = cvn::CompareNoCase(left.name, right.name);
      return order != 0 ? order < 0 : left.name < right.name;
    });
    return kExitDone;
  }

  // In the order of their names, without digests.
  std::vector<ListedFile>& Files() { return files_; }

 private:
  int ListFolder(const cvn::String& folder) {
    const cvn::String path = tessel::JoinPath(root_, folder);
    tessel::Listing listing(tessel::JoinPath(path, u"*"));
    for (; listing.HasEntry(); listing.Advance()) {
      const platform::files::SearchEntry& entry = listing.Entry();
      if (entry.IsSelfOrParent()) {
        continue;
      }
      cvn::String name = folder;
      if (!name.Empty()) {
        name.Append(u'\\');
      }
      name.Append(entry.Name());
      if (entry.IsDirectory() && entry.IsLink()) {
        return FailOnFile(tessel::JoinPath(path, entry.Name()),
                          u"it is a link to a folder, which a patch would not take along");
      }
      if (entry.IsDirectory()) {
        folders_.push_back(std::move(name));
      } else if (!cvn::EqualNoCase(name, kCatalogName)) {
        files_.emplace_back().name = std::move(name);
      }
    }
    const platform::Code code = listing.Status();
    const bool isAtEnd = code == platform::kNoMoreFiles || code == platform::kFileNotFound;
    return isAtEnd ? kExitDone : FailToRead(path, code);
  }

  cvn::String root_;
  cvn::List<cvn::String> folders_;  // still to be listed, relative to the root
  std::vector<ListedFile> files_;
};

int ListFiles(cvn::StringView folder, bool isChecked, std::vector<ListedFile>* files) {
  if (!platform::paths::IsDirectory(folder)) {
    return FailOnFile(folder, u"there is no such folder");
  }
  FolderWalk walk(folder);
  if (const int exitCode = walk.Run(); exitCode != kExitDone) {
    return exitCode;
  }
  *files = std::move(walk.Files());
  if (files->empty()) {
    return FailOnFile(folder, u"there is no file in it for a catalog to list");
  }
  const auto same = [](const ListedFile& left, const ListedFile& right) {
    return cvn::EqualNoCase(left.name, right.name);
  };
  const auto pair = std::ranges::adjacent_find(*files, same);
  if (isChecked && pair != files->end()) {
    return FailOnFile(tessel::JoinPath(folder, pair->name),
                      cvn::Format(u"'%s' has the same name to Windows (--force lists both)",
                                  std::next(pair)->name));
  }
  for (ListedFile& file : *files) {
    const int exitCode = DigestFile(tessel::JoinPath(folder, file.name), &file);
    if (exitCode != kExitDone) {
      return exitCode;
    }
  }
  return kExitDone;
}

// --- The signer

struct Signer {
  cvn::List<std::vector<std::byte>> certificates;  // the publisher's first
  platform::OpenSsl<EVP_PKEY> key;
};

int CheckSigner(const Options& options, const Signer& signer) {
  const auto certificate = platform::Decoded<d2i_X509>(signer.certificates.front());
  if (certificate == nullptr || X509_check_private_key(certificate.get(), signer.key.get()) != 1) {
    return FailOnFile(
        options.Value(u"--key"),
        cvn::Format(u"the key doesn't belong to the certificate in %s", options.Value(u"--cert")));
  }
  if (!options.Has(u"--force")) {
    if (X509_cmp_current_time(X509_get0_notAfter(certificate.get())) < 0) {
      return FailOnFile(options.Value(u"--cert"),
                        u"the certificate has expired (--force signs all the same)");
    }
    if (X509_cmp_current_time(X509_get0_notBefore(certificate.get())) > 0) {
      return FailOnFile(options.Value(u"--cert"),
                        u"the certificate isn't valid yet (--force signs all the same)");
    }
  }
  if ((X509_get_extended_key_usage(certificate.get()) & XKU_CODE_SIGN) == 0) {
    WarnOfFile(options.Value(u"--cert"),
               u"the certificate isn't one for code signing, so that Windows will refuse the "
               u"catalog");
  }
  return kExitDone;
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
  signer->key = ReadSigningKey(options.Value(u"--key"), &problem);
  if (signer->key == nullptr) {
    return FailOnFile(options.Value(u"--key"), problem);
  }
  return CheckSigner(options, *signer);
}

int Catalog(const Options& options) {
  Signer signer;
  std::vector<ListedFile> files;
  const cvn::StringView folder = options.Value(u"--dir");
  int exitCode = ReadSigner(options, &signer);
  if (exitCode == kExitDone) {
    exitCode = ListFiles(folder, !options.Has(u"--force"), &files);
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
    u"An external patch runs only with a catalog that lists it and all these files as they are. "
    u"Folders that a\n"
    u"link leads to, and names that only differ in case, are refused, and so is a certificate that "
    u"isn't valid now.\n",
    kOptions,
    Catalog,
};

}  // namespace tlx
