#include "platform/offline/machine/new_registry.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <span>
#include <vector>

#include "platform/offline/registry/registry.h"
#include "platform/registry.h"
#include "support/format.h"

namespace platform::posix {
namespace {

using machine::Description;
using machine::Product;
using registry::kTypeBinary;
using registry::kTypeDword;
using registry::kTypeExpandString;
using registry::kTypeString;

// A value; of a number when it is a kTypeDword, else of text. One without a type is just a key.
struct Entry {
  cvn::StringView key;
  cvn::StringView name = {};
  std::uint32_t type = registry::kTypeNone;
  cvn::StringView text = {};
  std::uint32_t number = 0;
};

#define WINDOWS_NT u"Microsoft\\Windows NT\\CurrentVersion"
#define WINDOWS u"Microsoft\\Windows\\CurrentVersion"
#define CONTROL u"ControlSet001\\Control"

// What a Windows has after its setup, as far as programs ask for it.
constexpr Entry kSoftware[] = {
    {WINDOWS_NT, u"SystemRoot", kTypeString, u"C:\\Windows"},
    {WINDOWS_NT, u"PathName", kTypeString, u"C:\\Windows"},
    {WINDOWS_NT, u"RegisteredOwner", kTypeString, u"Owner"},
    {WINDOWS_NT, u"RegisteredOrganization", kTypeString, u""},
    {WINDOWS_NT u"\\ProfileList", u"ProfilesDirectory", kTypeExpandString, u"%SystemDrive%\\Users"},
    {WINDOWS_NT u"\\ProfileList", u"ProgramData", kTypeExpandString, u"%SystemDrive%\\ProgramData"},
    {WINDOWS_NT u"\\ProfileList", u"Default", kTypeExpandString, u"%SystemDrive%\\Users\\Default"},
    {WINDOWS_NT u"\\ProfileList", u"Public", kTypeExpandString, u"%SystemDrive%\\Users\\Public"},
    {WINDOWS_NT u"\\ProfileList\\S-1-5-18", u"ProfileImagePath", kTypeExpandString,
     u"%systemroot%\\system32\\config\\systemprofile"},
    {WINDOWS_NT u"\\ProfileList\\S-1-5-18", u"Flags", kTypeDword, {}, 12},
    {WINDOWS_NT u"\\ProfileList\\S-1-5-18", u"State", kTypeDword},
    {WINDOWS, u"ProgramFilesDir", kTypeString, u"C:\\Program Files"},
    {WINDOWS, u"ProgramFilesDir (x86)", kTypeString, u"C:\\Program Files (x86)"},
    {WINDOWS, u"ProgramFilesPath", kTypeExpandString, u"%ProgramFiles%"},
    {WINDOWS, u"ProgramW6432Dir", kTypeString, u"C:\\Program Files"},
    {WINDOWS, u"CommonFilesDir", kTypeString, u"C:\\Program Files\\Common Files"},
    {WINDOWS, u"CommonFilesDir (x86)", kTypeString, u"C:\\Program Files (x86)\\Common Files"},
    {WINDOWS, u"CommonW6432Dir", kTypeString, u"C:\\Program Files\\Common Files"},
    {WINDOWS, u"DevicePath", kTypeExpandString, u"%SystemRoot%\\inf"},
    {WINDOWS u"\\Run"},
    {WINDOWS u"\\RunOnce"},
    {WINDOWS u"\\Uninstall"},
    {u"Microsoft\\SystemCertificates\\ROOT\\Certificates"},
    {u"Classes\\.txt", u"", kTypeString, u"txtfile"},
    {u"Classes\\.exe", u"", kTypeString, u"exefile"},
    {u"Classes\\txtfile", u"", kTypeString, u"Text Document"},
    {u"Classes\\exefile", u"", kTypeString, u"Application"},
    {u"Classes\\exefile\\shell\\open\\command", u"", kTypeString, u"\"%1\" %*"},
    {u"Classes\\CLSID"},
    {u"Policies"},
    {u"WOW6432Node"},
};

constexpr Entry kSystem[] = {
    {u"Select", u"Current", kTypeDword, {}, 1},
    {u"Select", u"Default", kTypeDword, {}, 1},
    {u"Select", u"Failed", kTypeDword, {}, 0},
    {u"Select", u"LastKnownGood", kTypeDword, {}, 1},
    {u"Setup", u"SystemSetupInProgress", kTypeDword, {}, 0},
    {CONTROL, u"CurrentUser", kTypeString, u"USERNAME"},
    {CONTROL u"\\ComputerName\\ComputerName", u"ComputerName", kTypeString, u"TESSEL"},
    {CONTROL u"\\IDConfigDB", u"CurrentConfig", kTypeDword, {}, 1},
    {CONTROL u"\\IDConfigDB\\Hardware Profiles\\0001", u"FriendlyName", kTypeString,
     u"New Hardware Profile"},
    {CONTROL u"\\Nls\\CodePage", u"ACP", kTypeString, u"1252"},
    {CONTROL u"\\Nls\\CodePage", u"OEMCP", kTypeString, u"437"},
    {CONTROL u"\\Session Manager", u"ProtectionMode", kTypeDword, {}, 1},
    {CONTROL u"\\Session Manager\\Environment", u"ComSpec", kTypeExpandString,
     u"%SystemRoot%\\system32\\cmd.exe"},
    {CONTROL u"\\Session Manager\\Environment", u"DriverData", kTypeString,
     u"C:\\Windows\\System32\\Drivers\\DriverData"},
    {CONTROL u"\\Session Manager\\Environment", u"NUMBER_OF_PROCESSORS", kTypeString, u"1"},
    {CONTROL u"\\Session Manager\\Environment", u"OS", kTypeString, u"Windows_NT"},
    {CONTROL u"\\Session Manager\\Environment", u"Path", kTypeExpandString,
     u"%SystemRoot%\\system32;%SystemRoot%;%SystemRoot%\\System32\\Wbem"},
    {CONTROL u"\\Session Manager\\Environment", u"PATHEXT", kTypeString,
     u".COM;.EXE;.BAT;.CMD;.VBS;.VBE;.JS;.JSE;.WSF;.WSH;.MSC"},
    {CONTROL u"\\Session Manager\\Environment", u"TEMP", kTypeExpandString, u"%SystemRoot%\\TEMP"},
    {CONTROL u"\\Session Manager\\Environment", u"TMP", kTypeExpandString, u"%SystemRoot%\\TEMP"},
    {CONTROL u"\\Session Manager\\Environment", u"windir", kTypeExpandString, u"%SystemRoot%"},
    {CONTROL u"\\Windows", u"Directory", kTypeExpandString, u"%SystemRoot%"},
    {CONTROL u"\\Windows", u"SystemDirectory", kTypeExpandString, u"%SystemRoot%\\system32"},
    {u"ControlSet001\\Enum"},
    {u"ControlSet001\\Hardware Profiles\\0001\\Software"},
    {u"ControlSet001\\Hardware Profiles\\0001\\System"},
    {u"ControlSet001\\Services"},
};

constexpr Entry kDefault[] = {
    {u"Environment", u"TEMP", kTypeExpandString, u"%USERPROFILE%\\AppData\\Local\\Temp"},
    {u"Environment", u"TMP", kTypeExpandString, u"%USERPROFILE%\\AppData\\Local\\Temp"},
    {u"Control Panel\\International", u"LocaleName", kTypeString, u"en-US"},
    {u"Software\\Classes"},
    {u"Software\\Microsoft\\Windows\\CurrentVersion"},
};

constexpr Entry kSam[] = {{u"SAM\\Domains"}};
constexpr Entry kSecurity[] = {{u"Policy"}};

constexpr cvn::StringView kWindowsNt = WINDOWS_NT;
constexpr cvn::StringView kUninstall = WINDOWS u"\\Uninstall\\";
constexpr cvn::StringView kRoots = u"Microsoft\\SystemCertificates\\ROOT\\Certificates\\";
constexpr cvn::StringView kEnvironment = CONTROL u"\\Session Manager\\Environment";
constexpr cvn::StringView kProductOptions = CONTROL u"\\ProductOptions";

#undef WINDOWS_NT
#undef WINDOWS
#undef CONTROL

// Releases of Windows 10, 11 and Server by the names that their registry has.
struct Release {
  std::uint32_t build;  // the first one
  cvn::StringView name;
};

constexpr Release kReleases[] = {
    {10240, u"1507"}, {10586, u"1511"}, {14393, u"1607"}, {15063, u"1703"}, {16299, u"1709"},
    {17134, u"1803"}, {17763, u"1809"}, {18362, u"1903"}, {18363, u"1909"}, {19041, u"2004"},
    {19042, u"20H2"}, {19043, u"21H1"}, {19044, u"21H2"}, {19045, u"22H2"}, {20348, u"21H2"},
    {22621, u"22H2"}, {22631, u"23H2"}, {26100, u"24H2"},
};

void SetRelease(std::uint32_t build, NewHive* software) {
  const auto after = std::find_if(std::begin(kReleases), std::end(kReleases),
                                  [build](const Release& other) { return other.build > build; });
  if (after == std::begin(kReleases)) {
    return;
  }
  const cvn::StringView name = std::prev(after)->name;
  // From 20H2 on, the old name of a release stands still.
  constexpr std::uint32_t kFirstWithDisplayVersion = 19042;
  const bool isNew = build >= kFirstWithDisplayVersion;
  software->SetText(kWindowsNt, u"ReleaseId", isNew ? cvn::StringView(u"2009") : name);
  if (isNew) {
    software->SetText(kWindowsNt, u"DisplayVersion", name);
  }
}

void SetVersion(const Description& description, NewHive* software) {
  const cvn::String build = cvn::Format(u"%u", description.build);
  software->SetText(kWindowsNt, u"ProductName", description.windowsName);
  software->SetText(kWindowsNt, u"EditionID", description.edition);
  software->SetText(kWindowsNt, u"InstallationType",
                    description.server ? cvn::StringView(u"Server") : u"Client");
  software->SetText(kWindowsNt, u"CurrentBuild", build);
  software->SetText(kWindowsNt, u"CurrentBuildNumber", build);
  if (description.majorVersion < 10) {
    software->SetText(kWindowsNt, u"CurrentVersion",
                      cvn::Format(u"%u.%u", description.majorVersion, description.minorVersion));
    return;
  }
  software->SetText(kWindowsNt, u"CurrentVersion", u"6.3");  // as it was before numbers came
  software->SetNumber(kWindowsNt, u"CurrentMajorVersionNumber", description.majorVersion);
  software->SetNumber(kWindowsNt, u"CurrentMinorVersionNumber", description.minorVersion);
  SetRelease(description.build, software);
}

// A property in a serialized store: its identifier, the number 1, the size, the data.
void AppendProperty(std::uint32_t id, std::span<const std::byte> data,
                    std::vector<std::byte>* blob) {
  const std::uint32_t header[] = {id, 1, static_cast<std::uint32_t>(data.size())};
  const auto bytes = std::as_bytes(std::span(header));
  blob->insert(blob->end(), bytes.begin(), bytes.end());
  blob->insert(blob->end(), data.begin(), data.end());
}

// A certificate as a store of the system keeps it: its properties in a row, the last of them being
// the certificate itself.
Code AddTrustedRoot(std::span<const std::byte> certificate, NewHive* software) {
  constexpr std::uint32_t kSha1Property = 3;          // CERT_SHA1_HASH_PROP_ID
  constexpr std::uint32_t kCertificateProperty = 32;  // CERT_CERT_PROP_ID
  std::array<unsigned char, 20> hash{};
  if (EVP_Digest(certificate.data(), certificate.size(), hash.data(), nullptr, EVP_sha1(),
                 nullptr) != 1) {
    return kGenFailure;
  }
  cvn::String key(kRoots);
  for (const unsigned char byte : hash) {
    key.Append(cvn::Format(u"%02X", byte));
  }
  std::vector<std::byte> blob;
  AppendProperty(kSha1Property, std::as_bytes(std::span(hash)), &blob);
  AppendProperty(kCertificateProperty, certificate, &blob);
  software->Set(key, u"Blob", kTypeBinary, blob);
  return kSuccess;
}

// The services run as the system, and start with it.
void SetServices(const Product& product, NewHive* system) {
  constexpr std::uint32_t kOwnProcess = 0x10;  // SERVICE_WIN32_OWN_PROCESS
  constexpr std::uint32_t kAutoStart = 2;      // SERVICE_AUTO_START
  constexpr std::uint32_t kNormalError = 1;    // SERVICE_ERROR_NORMAL
  const cvn::StringView install = product.installFolder;
  const cvn::StringView folder = install.substr(0, install.find_last_not_of(u'\\') + 1);
  for (const Product::Service& service : product.services) {
    const cvn::String key = cvn::Format(u"ControlSet001\\Services\\%s", service.name);
    system->SetNumber(key, u"Type", kOwnProcess);
    system->SetNumber(key, u"Start", kAutoStart);
    system->SetNumber(key, u"ErrorControl", kNormalError);
    system->SetText(key, u"ImagePath", cvn::Format(u"\"%s\\%s.exe\"", folder, service.name),
                    kTypeExpandString);
    system->SetText(key, u"DisplayName", service.displayName);
    system->SetText(key, u"ObjectName", u"LocalSystem");
  }
}

void SetUninstall(const Product& product, NewHive* software) {
  const cvn::String key = cvn::Format(u"%s%s", kUninstall, product.name);
  software->SetText(key, u"DisplayName", product.name);
  software->SetText(key, u"Publisher", product.publisher);
  software->SetText(key, u"InstallLocation", product.installFolder);
}

void SetAll(std::span<const Entry> entries, NewHive* hive) {
  for (const Entry& entry : entries) {
    if (entry.type == registry::kTypeNone) {
      hive->AddKey(entry.key);
    } else if (entry.type == kTypeDword) {
      hive->SetNumber(entry.key, entry.name, entry.number);
    } else {
      hive->SetText(entry.key, entry.name, entry.text, entry.type);
    }
  }
}

Code WriteSoftware(const std::string& folder, const Description& description) {
  NewHive software(folder, u"SOFTWARE", HiveImage::Readers::All);
  SetAll(kSoftware, &software);
  SetVersion(description, &software);
  if (description.product) {
    SetUninstall(*description.product, &software);
  }
  for (const std::vector<std::byte>& certificate : description.trustedRoots) {
    const Code code = AddTrustedRoot(certificate, &software);
    if (code != kSuccess) {
      return code;
    }
  }
  return software.Write();
}

Code WriteSystem(const std::string& folder, const Description& description) {
  NewHive system(folder, u"SYSTEM", HiveImage::Readers::All);
  SetAll(kSystem, &system);
  system.SetText(kEnvironment, u"PROCESSOR_ARCHITECTURE", description.architecture);
  system.SetText(kProductOptions, u"ProductType",
                 description.server ? cvn::StringView(u"ServerNT") : u"WinNT");
  if (description.product) {
    SetServices(*description.product, &system);
  }
  return system.Write();
}

}  // namespace

Code WriteNewRegistry(const std::string& folder, const Description& description) {
  const struct {
    cvn::StringView name;
    HiveImage::Readers readers;
    std::span<const Entry> entries;
  } kPlain[] = {
      {u"DEFAULT", HiveImage::Readers::All, kDefault},
      {u"SAM", HiveImage::Readers::Privileged, kSam},
      {u"SECURITY", HiveImage::Readers::Privileged, kSecurity},
  };
  Code code = WriteSoftware(folder, description);
  if (code == kSuccess) {
    code = WriteSystem(folder, description);
  }
  for (const auto& plain : kPlain) {
    if (code == kSuccess) {
      NewHive hive(folder, plain.name, plain.readers);
      SetAll(plain.entries, &hive);
      code = hive.Write();
    }
  }
  return code;
}

}  // namespace platform::posix
