#include <algorithm>
#include <iterator>

#include "platform/machine.h"
#include "support/format.h"
#include "tools/tlx/certificate_file.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/messages.h"
#include "trust/product.h"

namespace tlx {
namespace {

constexpr OperandSpec kOperands[] = {
    {u"DIR", true, u"The folder; it is missing, or empty"},
};

constexpr OptionSpec kOptions[] = {
    {u"--install-dir", u"PATH", false, u"The product's folder (C:\\Program Files\\Ambry Shield)"},
    {u"--trust", u"CA.pem", false, u"Certificates of roots that the machine trusts", true},
    {u"--windows", u"7|8|8.1|10|11|server2016|server2019|server2022", false,
     u"Which Windows it is (10)"},
    {u"--edition", u"NAME", false, u"The edition, as Windows calls it (Professional)"},
    {u"--arch", u"x64|x86|arm64", false, u"The processor (x64)"},
};

struct Release {
  cvn::StringView name;
  cvn::StringView product;  // without the edition
  cvn::StringView edition;  // of the usual machine
  std::uint32_t majorVersion;
  std::uint32_t minorVersion;
  std::uint32_t build;
  bool isServer;
};

constexpr Release kReleases[] = {
    {u"7", u"Windows 7", u"Professional", 6, 1, 7601, false},
    {u"8", u"Windows 8", u"Professional", 6, 2, 9200, false},
    {u"8.1", u"Windows 8.1", u"Professional", 6, 3, 9600, false},
    {u"10", u"Windows 10", u"Professional", 10, 0, 19045, false},
    // Windows 11 goes on calling itself 10 in its registry.
    {u"11", u"Windows 10", u"Professional", 10, 0, 26100, false},
    {u"server2016", u"Windows Server 2016", u"ServerStandard", 10, 0, 14393, true},
    {u"server2019", u"Windows Server 2019", u"ServerStandard", 10, 0, 17763, true},
    {u"server2022", u"Windows Server 2022", u"ServerStandard", 10, 0, 20348, true},
};

const Release& ReleaseNamed(cvn::StringView name) {
  return *std::ranges::find(kReleases, name.empty() ? cvn::StringView(u"10") : name,
                            &Release::name);
}

// What a product's name makes of its edition.
cvn::StringView EditionInProduct(const Release& release, cvn::StringView edition) {
  constexpr cvn::StringView kServer = u"Server";
  if (release.isServer && edition.starts_with(kServer)) {
    return edition.substr(kServer.size());
  }
  if (edition == u"Professional" && release.name != u"7") {
    return u"Pro";
  }
  return edition == u"Core" ? cvn::StringView(u"Home") : edition;
}

platform::machine::Description Describe(const Options& options) {
  const Release& release = ReleaseNamed(options.Value(u"--windows"));
  platform::machine::Description description;
  description.product =
      tessel::product::InstalledIn(options.Has(u"--install-dir") ? options.Value(u"--install-dir")
                                                                 : tessel::product::kInstallFolder);
  description.edition = options.Has(u"--edition") ? options.Value(u"--edition") : release.edition;
  description.windowsName =
      cvn::Format(u"%s %s", release.product, EditionInProduct(release, description.edition));
  if (options.Has(u"--arch")) {
    description.architecture = EnvironmentArchitecture(options.Value(u"--arch"));
  }
  description.majorVersion = release.majorVersion;
  description.minorVersion = release.minorVersion;
  description.build = release.build;
  description.server = release.isServer;
  return description;
}

// Of the form C:\..., for it is a path of the machine and not of the host.
bool IsOnDrive(cvn::StringView path) {
  const auto isLetter = [](char16_t c) { return (c | 0x20) >= u'a' && (c | 0x20) <= u'z'; };
  return path.size() >= 3 && isLetter(path[0]) && path.substr(1, 2) == u":\\";
}

int CreateMachine(const Options& options) {
  const cvn::StringView folder = options.Operand(0);
  platform::machine::Description description = Describe(options);
  const cvn::String& installFolder = description.product->installFolder;
  if (!IsOnDrive(installFolder)) {
    return FailOnFile(installFolder,
                      u"the product's folder is a path on the machine, like C:\\Program Files\\X");
  }
  for (const cvn::String& file : options.Values(u"--trust")) {
    const int exitCode = ReadCertificates(file, &description.trustedRoots);
    if (exitCode != kExitDone) {
      return exitCode;
    }
  }
  switch (const platform::Code code = platform::machine::Create(folder, description)) {
    case platform::kSuccess:
      return kExitDone;
    case platform::kDirNotEmpty:
      return FailOnFile(folder, u"the folder is not empty; a machine needs one of its own");
    case platform::kNotSupported:
      return FailOnFile(folder, kNoMachinesHere);
    default:
      return FailToWrite(folder, code);
  }
}

}  // namespace

const CommandSpec kMachineCreateCommand = {
    u"machine create",
    u"Make a machine folder to try patches on",
    u"Makes a folder that is a Windows system volume: its folders, its registry hives, the "
    u"product's uninstall key\n"
    u"and services, and the roots that it trusts. TESSEL_MACHINE=DIR tessel ... runs a patch on "
    u"it.\n",
    kOptions,
    CreateMachine,
    kOperands,
};

}  // namespace tlx
