#include "kit/machine.h"

#include <windows.h>
// Behind it.
#include <sddl.h>
#include <shlobj.h>
#include <wincrypt.h>

#include <algorithm>
#include <functional>

#include "kit/registry.h"

namespace kit {
namespace {

constexpr wchar_t kMark[] = L"SOFTWARE\\TesselKit";
constexpr wchar_t kRoot[] = L"Root";  // in it: the digest of the certificate that was put in
constexpr wchar_t kProduct[] =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Ambry Shield";
constexpr wchar_t kServices[] = L"SYSTEM\\CurrentControlSet\\Services";
constexpr wchar_t kMoves[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr wchar_t kWine[] = L"Software\\Wine\\AppDefaults\\tessel.exe";
// What the tests call that which they make.
constexpr const wchar_t* kNames[] = {L"tessel", L"example"};
constexpr wchar_t kTestRoot[] = L"Maker's root";

struct Place {
  HKEY root;
  const wchar_t* path;
};
const Place kPlaces[] = {
    {HKEY_LOCAL_MACHINE, L"SOFTWARE"},
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Classes"},
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\IniFileMapping"},
    {HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Control"},
    {HKEY_CURRENT_USER, L"Software"},
    {HKEY_CURRENT_USER, L"Software\\Classes"},
};

bool HasOwnName(const std::wstring& name) {
  return std::any_of(std::begin(kNames), std::end(kNames),
                     [&](const wchar_t* start) { return BeginsWith(name, start); });
}

std::wstring KnownFolder(int which) {
  wchar_t path[MAX_PATH] = L"";
  ::SHGetFolderPathW(nullptr, which, nullptr, SHGFP_TYPE_CURRENT, path);
  return path;
}

// What to do with each thing that is found: tell of it, or remove it.
using Visit = std::function<void(const std::string& what, const std::function<void()>& remove)>;

void VisitFolders(const Visit& visit) {
  std::vector<std::wstring> paths = {InstallFolder(), ProgramData() + L"\\Tessera"};
  for (const std::wstring& name : NamesIn(ProgramData(), L"*")) {
    if (HasOwnName(name)) {
      paths.push_back(ProgramData() + L"\\" + name);
    }
  }
  for (const std::wstring& path : paths) {
    if (Exists(path)) {
      visit(Utf8(path), [&] { RemoveTree(path); });
    }
  }
}

void RemoveService(const std::wstring& name) {
  const SC_HANDLE manager = ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  const SC_HANDLE service = ::OpenServiceW(manager, name.c_str(), DELETE | SERVICE_STOP);
  if (service != nullptr) {
    SERVICE_STATUS status;
    ::ControlService(service, SERVICE_CONTROL_STOP, &status);
    ::DeleteService(service);
    ::CloseServiceHandle(service);
  }
  ::CloseServiceHandle(manager);
}

void VisitServices(const Visit& visit) {
  for (const std::wstring& name : Key(HKEY_LOCAL_MACHINE, kServices, KEY_READ).Subkeys()) {
    if (HasOwnName(name)) {
      visit("the service " + Utf8(name), [&] { RemoveService(name); });
    }
  }
}

void RemoveKey(HKEY root, const std::wstring& path) { ::RegDeleteTreeW(root, path.c_str()); }

void VisitKeys(const Visit& visit) {
  if (Key(HKEY_LOCAL_MACHINE, kHiveKey, KEY_READ)) {
    visit("HKLM\\" + Utf8(kHiveKey), [] { UnloadHive(); });
  }
  if (Key(HKEY_LOCAL_MACHINE, kProduct, KEY_READ)) {
    visit("HKLM\\" + Utf8(kProduct), [] { RemoveKey(HKEY_LOCAL_MACHINE, kProduct); });
  }
  if (Key(HKEY_CURRENT_USER, kWine, KEY_READ)) {
    visit("HKCU\\" + Utf8(kWine), [] { RemoveKey(HKEY_CURRENT_USER, kWine); });
  }
  for (const Place& place : kPlaces) {
    for (const std::wstring& name : Key(place.root, place.path, KEY_READ).Subkeys()) {
      const std::wstring path = std::wstring(place.path) + L"\\" + name;
      if (HasOwnName(name) && path != kMark) {
        visit((place.root == HKEY_LOCAL_MACHINE ? "HKLM\\" : "HKCU\\") + Utf8(path),
              [&] { RemoveKey(place.root, path); });
      }
    }
  }
}

std::string DigestOf(PCCERT_CONTEXT certificate) {
  std::string digest(20, '\0');
  auto size = static_cast<DWORD>(digest.size());
  ::CertGetCertificateContextProperty(certificate, CERT_SHA1_HASH_PROP_ID, digest.data(), &size);
  return Hex(digest);
}

std::wstring NameOf(PCCERT_CONTEXT certificate) {
  wchar_t name[256] = L"";
  ::CertGetNameStringW(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, name, 256);
  return name;
}

HCERTSTORE OpenRoots() {
  return ::CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0,
                         CERT_SYSTEM_STORE_LOCAL_MACHINE | CERT_STORE_OPEN_EXISTING_FLAG, L"ROOT");
}

void VisitRoots(const Visit& visit) {
  const std::string own = Key(HKEY_LOCAL_MACHINE, kMark, KEY_READ).Data(kRoot).value_or("");
  const HCERTSTORE roots = OpenRoots();
  std::vector<PCCERT_CONTEXT> found;
  for (PCCERT_CONTEXT each = nullptr;
       roots != nullptr && (each = ::CertEnumCertificatesInStore(roots, each)) != nullptr;) {
    const std::wstring digest = Wide(DigestOf(each));
    const std::string bytes(reinterpret_cast<const char*>(digest.c_str()), (digest.size() + 1) * 2);
    if (bytes == own || NameOf(each) == kTestRoot) {
      found.push_back(::CertDuplicateCertificateContext(each));
    }
  }
  for (PCCERT_CONTEXT certificate : found) {
    bool isRemoved = false;
    visit("the trusted root '" + Utf8(NameOf(certificate)) + "' " + DigestOf(certificate), [&] {
      ::CertDeleteCertificateFromStore(certificate);
      isRemoved = true;
    });
    if (!isRemoved) {
      ::CertFreeCertificateContext(certificate);
    }
  }
  if (roots != nullptr) {
    ::CertCloseStore(roots, 0);
  }
}

// The moves that Windows would make when it starts, which come in pairs; and among them the kit's.
void VisitMoves(const Visit& visit) {
  constexpr wchar_t kValue[] = L"PendingFileRenameOperations";
  const Key key(HKEY_LOCAL_MACHINE, kMoves, KEY_READ | KEY_SET_VALUE);
  const std::string data = key ? key.Data(kValue).value_or("") : "";
  const std::wstring all(reinterpret_cast<const wchar_t*>(data.data()), data.size() / 2);
  std::wstring kept;
  std::size_t own = 0;
  for (std::size_t at = 0; at < all.size() && all[at] != L'\0';) {
    const std::size_t middle = std::min(all.find(L'\0', at), all.size() - 1) + 1;
    const std::size_t end = std::min(all.find(L'\0', middle), all.size() - 1) + 1;
    const bool isOwn = BeginsWith(std::wstring_view(all).substr(at), L"\\??\\" + WorkFolder());
    own += isOwn ? 1 : 0;
    kept += isOwn ? L"" : all.substr(at, end - at);
    at = end;
  }
  if (own != 0) {
    visit(std::to_string(own) + " pending moves of files", [&] {
      kept += L'\0';
      kept.size() == 1 ? ::RegDeleteValueW(key.Handle(), kValue)
                       : ::RegSetValueExW(key.Handle(), kValue, 0, REG_MULTI_SZ,
                                          reinterpret_cast<const BYTE*>(kept.data()),
                                          static_cast<DWORD>(kept.size() * 2));
    });
  }
}

void VisitAll(const Visit& visit) {
  VisitRoots(visit);
  VisitServices(visit);
  VisitKeys(visit);
  VisitMoves(visit);
  VisitFolders(visit);
}

// For administrators and the system alone: programs that other accounts could plant there would run
// as an administrator.
bool MakeWorkFolder() {
  SECURITY_ATTRIBUTES attributes{sizeof attributes, nullptr, FALSE};
  if (::ConvertStringSecurityDescriptorToSecurityDescriptorW(
          L"D:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)", SDDL_REVISION_1, &attributes.lpSecurityDescriptor,
          nullptr) == 0) {
    return false;
  }
  const bool isMade = ::CreateDirectoryW(WorkFolder().c_str(), &attributes) != 0;
  ::LocalFree(attributes.lpSecurityDescriptor);
  return isMade;
}

bool TrustRoot(const std::wstring& file, std::string* fault) {
  const std::string text = ReadFile(file).value_or("");
  std::string der(text.size(), '\0');
  auto size = static_cast<DWORD>(der.size());
  if (::CryptStringToBinaryA(text.data(), static_cast<DWORD>(text.size()),
                             CRYPT_STRING_BASE64HEADER, reinterpret_cast<BYTE*>(der.data()), &size,
                             nullptr, nullptr) == 0) {
    *fault = Utf8(file) + " is no certificate";
    return false;
  }
  const PCCERT_CONTEXT certificate = ::CertCreateCertificateContext(
      X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(der.data()), size);
  const HCERTSTORE roots = OpenRoots();
  // The mark names it before it is there.
  const bool isDone =
      certificate != nullptr && roots != nullptr &&
      SetText(HKEY_LOCAL_MACHINE, kMark, kRoot, Wide(DigestOf(certificate))) == ERROR_SUCCESS &&
      ::CertAddCertificateContextToStore(roots, certificate, CERT_STORE_ADD_REPLACE_EXISTING,
                                         nullptr) != 0;
  if (!isDone) {
    *fault = "the test's root can't be added to the trusted ones: error " +
             std::to_string(::GetLastError());
  }
  ::CertFreeCertificateContext(certificate);
  ::CertCloseStore(roots, 0);
  return isDone;
}

}  // namespace

bool IsAdministrator() { return ::IsUserAnAdmin() != 0; }

std::string WindowsVersion() {
  using GetVersion = LONG(WINAPI*)(RTL_OSVERSIONINFOW*);
  const auto getVersion = reinterpret_cast<GetVersion>(
      reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
  RTL_OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof version;
  getVersion(&version);
  return std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion) +
         "." + std::to_string(version.dwBuildNumber);
}

std::wstring ProgramData() { return KnownFolder(CSIDL_COMMON_APPDATA); }
std::wstring WorkFolder() { return ProgramData() + L"\\TesselKit"; }
std::wstring InstallFolder() { return KnownFolder(CSIDL_PROGRAM_FILES) + L"\\Ambry Shield"; }
std::wstring SystemFolder() { return KnownFolder(CSIDL_SYSTEM); }

Lines FindTraces() {
  Lines found;
  VisitAll([&](const std::string& what, const std::function<void()>&) { found.push_back(what); });
  return found;
}

bool IsMarked() { return static_cast<bool>(Key(HKEY_LOCAL_MACHINE, kMark, KEY_READ)); }

bool Prepare(const std::wstring& rootCertificate, std::string* fault) {
  // The mark is on the disk before anything else is.
  if (SetText(HKEY_LOCAL_MACHINE, kMark, L"What", L"undone by check.cmd /undo") != ERROR_SUCCESS ||
      ::RegFlushKey(Key(HKEY_LOCAL_MACHINE, kMark, KEY_READ).Handle()) != ERROR_SUCCESS ||
      SetText(HKEY_LOCAL_MACHINE, kProduct, L"InstallLocation", InstallFolder()) != ERROR_SUCCESS ||
      !MakeWorkFolder()) {
    *fault =
        "the kit's own keys and folders can't be made: error " + std::to_string(::GetLastError());
    return false;
  }
  return TrustRoot(rootCertificate, fault);
}

void HideCatalogsUnderWine(bool areHidden) {
  if (areHidden) {
    SetText(HKEY_CURRENT_USER, std::wstring(kWine) + L"\\DllOverrides", L"wintrust", L"");
  } else {
    RemoveKey(HKEY_CURRENT_USER, kWine);
  }
}

Lines Undo() {
  VisitAll([](const std::string&, const std::function<void()>& remove) { remove(); });
  Lines left = FindTraces();
  if (left.empty()) {
    RemoveKey(HKEY_LOCAL_MACHINE, kMark);
  }
  return left;
}

}  // namespace kit
