#include "trust/locations.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "files/path_text.h"
#include "platform/paths.h"
#include "platform/registry.h"
#include "trace/trace.h"
#include "trust/path_key.h"
#include "trust/product.h"

namespace tessel {
namespace {

namespace paths = platform::paths;
namespace registry = platform::registry;
namespace services = platform::services;

constexpr cvn::StringView kInstallLocation = u"InstallLocation";

// ERROR_FUNCTION_FAILED
constexpr platform::Code kNoBinaryPath = 1627;

// The text of a value as it is stored; nothing when it is no text, or a broken one.
std::optional<cvn::String> TextOf(std::uint32_t type, const std::vector<std::byte>& data) {
  if (type != registry::kTypeString && type != registry::kTypeExpandString) {
    return std::nullopt;
  }
  std::u16string text(data.size() / sizeof(char16_t), u'\0');
  if (data.size() % sizeof(char16_t) != 0) {
    return std::nullopt;
  }
  if (data.empty()) {
    return cvn::String();
  }
  std::memcpy(text.data(), data.data(), data.size());
  if (text.back() != u'\0') {
    return std::nullopt;
  }
  return cvn::String(cvn::StringView(text).substr(0, text.find(u'\0')));
}

std::optional<cvn::String> ReadInstallLocation() {
  registry::Key key;
  std::uint32_t type = 0;
  std::vector<std::byte> data;
  if (registry::OpenKey(registry::Key(registry::Root::LocalMachine), product::kUninstallKey,
                        registry::kQueryValue, &key) != platform::kSuccess ||
      registry::QueryValue(key, kInstallLocation, &type, &data) != platform::kSuccess) {
    return std::nullopt;
  }
  return TextOf(type, data);
}

platform::Code QueryService(const services::Handle& manager, cvn::StringView name) {
  services::Handle service;
  std::uint32_t state = 0;
  const platform::Code code = services::Open(manager, name, services::kAllAccess, &service);
  return code == platform::kSuccess ? services::QueryState(service, &state) : code;
}

// A relative path counts from the program's folder, whatever slashes it begins with.
cvn::String FromProgramFolder(cvn::StringView path) {
  if (path.empty() || !paths::IsRelative(path)) {
    return path;
  }
  cvn::String whole = GetExeFolder();
  whole.Append(path.substr(std::min(path.find_first_not_of(u"\\/"), path.size())));
  return whole;
}

}  // namespace

cvn::String GetInstallPath() {
  if (const std::optional<cvn::String> location = ReadInstallLocation()) {
    return *location;
  }
  services::Handle manager;
  cvn::String folder;
  if (services::OpenManager(services::kManagerAllAccess, &manager) != platform::kSuccess ||
      GetServiceImageFolder(manager, product::kMainService, &folder) != platform::kSuccess) {
    return {};
  }
  return folder;
}

bool GetServiceParams(const services::Handle& manager, cvn::StringView serviceName,
                      ServiceParams* params) {
  services::Handle service;
  services::Config config;
  if (services::Open(manager, serviceName, services::kQueryConfig, &service) !=
          platform::kSuccess ||
      services::QueryConfig(service, &config) != platform::kSuccess) {
    return false;
  }
  *params = {config.displayName, config.binaryPath, config.serviceType, config.startType};
  return true;
}

cvn::String GetServiceFolder(cvn::StringView serviceName) {
  services::Handle manager;
  platform::Code code = services::OpenManager(services::kManagerAllAccess, &manager);
  if (code == platform::kSuccess) {
    code = QueryService(manager, serviceName);
  }
  TraceLine(u"QueryService for %s returned %d", serviceName, code);
  if (code != platform::kSuccess) {
    return {};
  }
  ServiceParams params;
  if (!GetServiceParams(manager, serviceName, &params)) {
    TraceLine(u"GetServiceParams failed");
    return {};
  }
  cvn::String folder = params.binaryPath;
  paths::RemoveFileSpec(&folder);
  folder.RemovePrefix(std::min(folder.AsView().find_first_not_of(u'"'), folder.Length()));
  return folder;
}

platform::Code GetServiceImageFolder(const services::Handle& manager, cvn::StringView serviceName,
                                     cvn::String* folder) {
  services::Handle service;
  services::Config config;
  platform::Code code = services::Open(manager, serviceName, services::kQueryConfig, &service);
  if (code == platform::kSuccess) {
    code = services::QueryConfig(service, &config);
  }
  if (code != platform::kSuccess) {
    return code;
  }
  if (!config.hasBinaryPath) {
    return kNoBinaryPath;
  }
  cvn::StringView path = config.binaryPath;
  path.remove_prefix(path.starts_with(u'"') ? 1 : 0);
  path.remove_suffix(path.ends_with(u'"') ? 1 : 0);
  *folder = path.substr(0, path.rfind(u'\\') + 1);
  return platform::kSuccess;
}

bool IsPathUnder(cvn::StringView fileKey, cvn::StringView folder) {
  TraceLine(u"compare with: %s", folder);
  const cvn::String folderKey = NormalizePathKey(folder);
  TraceLine(u"normalized: %s", folderKey);
  return !folderKey.Empty() && !fileKey.empty() && fileKey.starts_with(folderKey.AsView());
}

bool IsPathInTrustedLocation(cvn::StringView path, cvn::String* matchedBase) {
  matchedBase->Clear();
  const cvn::String install = GetInstallPath();
  TraceLine(u"install path: %s", install);
  const cvn::String file = FromProgramFolder(path);
  if (!paths::Exists(file)) {
    TraceLine(u"Input file not existing...");
    return false;
  }
  const cvn::String fileKey = NormalizePathKey(file);
  TraceLine(u"normalized file path: %s", fileKey);
  if (fileKey.Empty()) {
    return false;
  }
  if (IsPathUnder(fileKey, install)) {
    TraceLine(u"compare with install path passed");
    *matchedBase = install;
    return true;
  }
  TraceLine(u"compare with install path failed");
  const cvn::String service = GetServiceFolder(product::kUpdateService);
  TraceLine(u"AmUpdateServicePath %s", service);
  if (IsPathUnder(fileKey, service)) {
    TraceLine(u"compare with service path passed");
    *matchedBase = service;
    return true;
  }
  TraceLine(u"compare with service path failed");
  return false;
}

cvn::String MakeRelativeToBase(cvn::StringView path, cvn::StringView base) {
  cvn::String key = NormalizePathKey(path);
  const cvn::String baseKey = NormalizePathKey(base);
  if (!baseKey.Empty() && key.AsView().starts_with(baseKey.AsView())) {
    key.RemovePrefix(baseKey.Length());
  }
  return key;
}

}  // namespace tessel
