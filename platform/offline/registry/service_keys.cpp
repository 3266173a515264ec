#include "platform/offline/registry/service_keys.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>
#include <utility>

#include "platform/environment.h"
#include "platform/formats/names.h"
#include "platform/offline/registry/registry_values.h"

namespace platform::posix {
namespace {

using registry::Key;
using services::Config;

constexpr cvn::StringView kServicesKey = u"SYSTEM\\CurrentControlSet\\Services";
constexpr cvn::StringView kDeleteFlag = u"DeleteFlag";

std::optional<ValueData> Read(const Key& key, cvn::StringView name) {
  ValueData value;
  return registry::QueryValue(key, name, &value.type, &value.bytes) == kSuccess
             ? std::optional(std::move(value))
             : std::nullopt;
}

std::optional<std::uint32_t> ReadNumber(const Key& key, cvn::StringView name) {
  const std::optional<ValueData> value = Read(key, name);
  return value ? value->Number() : std::nullopt;
}

std::u16string ReadText(const Key& key, cvn::StringView name) {
  const std::optional<ValueData> value = Read(key, name);
  return (value ? value->Text() : std::nullopt).value_or(std::u16string());
}

std::vector<std::u16string> Split(cvn::StringView list) {
  std::vector<std::u16string> names;
  while (!list.empty() && list.front() != u'\0') {
    names.emplace_back(UpToZero(list));
    list.remove_prefix(std::min(names.back().size() + 1, list.size()));
  }
  return names;
}

std::vector<std::u16string> ReadNames(const Key& key, cvn::StringView name) {
  const std::optional<ValueData> value = Read(key, name);
  if (!value || value->type != registry::kTypeMultiString) {
    return {};
  }
  std::u16string list(value->bytes.size() / sizeof(char16_t), u'\0');
  if (!list.empty()) {
    std::memcpy(list.data(), value->bytes.data(), list.size() * sizeof(char16_t));
  }
  return Split(list);
}

// A driver's image is named as the kernel knows it, and a path on a drive isn't known to it.
cvn::String StoredPath(const Config& config) {
  const cvn::StringView path = config.binaryPath;
  if (!IsDriverType(config.serviceType)) {
    return path;
  }
  cvn::String root = environment::Get(u"SystemRoot").value_or(u"");
  root.Append(u'\\');
  for (const cvn::StringView start : {root.AsView(), cvn::StringView(u"%SystemRoot%\\")}) {
    if (Folded(path.substr(0, start.size())) == Folded(start)) {
      cvn::String stored(u"\\SystemRoot\\");
      stored.Append(path.substr(start.size()));
      return stored;
    }
  }
  cvn::String stored(path.size() > 2 && path.substr(1, 2) == u":\\" ? u"\\??\\" : u"");
  stored.Append(path);
  return stored;
}

// Writes the values of a service. The first failure is kept, and nothing written after it.
class Writer {
 public:
  explicit Writer(const Key& key) : key_(key) {}

  void Number(cvn::StringView name, std::uint32_t number) {
    Write(name, registry::kTypeDword, std::as_bytes(std::span(&number, 1)));
  }
  // An empty text leaves no value.
  void Text(cvn::StringView name, cvn::StringView text,
            std::uint32_t type = registry::kTypeString) {
    const std::u16string ended(text);
    if (text.empty()) {
      Remove(name);
    } else {
      Write(name, type, std::as_bytes(std::span(ended.c_str(), ended.size() + 1)));
    }
  }
  void Names(cvn::StringView name, const std::vector<std::u16string>& names) {
    std::u16string list;
    for (const std::u16string& each : names) {
      list.append(each).push_back(u'\0');
    }
    Text(name, list, registry::kTypeMultiString);
  }
  Code Outcome() const { return code_; }

 private:
  void Write(cvn::StringView name, std::uint32_t type, std::span<const std::byte> data) {
    if (code_ == kSuccess) {
      code_ = registry::SetValue(key_, name, type, data);
    }
  }
  void Remove(cvn::StringView name) {
    const Code code = code_ == kSuccess ? registry::DeleteValue(key_, name) : kFileNotFound;
    if (code != kFileNotFound) {
      code_ = code;
    }
  }

  const Key& key_;
  Code code_ = kSuccess;
};

// Deletes a key with all below it, the deepest first, up to the first that resists.
Code DeleteTree(const Key& services, cvn::StringView name) {
  struct Doomed {
    cvn::String name;
    Key key;
  };
  std::vector<Doomed> chain(1);
  chain.back().name = name;
  Code code = registry::OpenKey(services, name, registry::kEnumerateSubKeys, &chain.back().key);
  while (code == kSuccess && !chain.empty()) {
    Doomed below;
    if (registry::EnumerateKey(chain.back().key, 0, kLongestKeyName + 1, &below.name) == kSuccess &&
        !UpToZero(below.name).empty() &&
        registry::OpenKey(chain.back().key, below.name, registry::kEnumerateSubKeys, &below.key,
                          registry::LinkAtEnd::Open) == kSuccess) {
      chain.push_back(std::move(below));
      continue;
    }
    const cvn::String emptied = chain.back().name;
    chain.pop_back();
    code = registry::DeleteKey(chain.empty() ? services : chain.back().key, emptied);
  }
  return code;
}

}  // namespace

bool IsServiceName(cvn::StringView name) {
  return !name.empty() && name.size() <= kLongestServiceName &&
         name.find_first_of(u"/\\") == cvn::StringView::npos;
}

bool IsDriverType(std::uint32_t type) { return (type & 0xF) != 0; }

Code OpenServiceKeys(std::uint32_t access, Key* services) {
  const Code code =
      registry::OpenKey(Key(registry::Root::LocalMachine), kServicesKey, access, services);
  return code == kFileNotFound ? services::kDatabaseDoesNotExist : code;
}

Code OpenServiceKey(const Key& services, cvn::StringView name, Key* key) {
  constexpr std::uint32_t kAllTypes = 0x3F;
  const Code code = IsServiceName(name)
                        ? registry::OpenKey(services, name, registry::kQueryValue, key)
                        : kFileNotFound;
  if (code != kSuccess) {
    return code == kFileNotFound ? services::kDoesNotExist : code;
  }
  const bool isService = (ReadNumber(*key, u"Type").value_or(0) & kAllTypes) != 0 &&
                         ReadNumber(*key, u"Start") && ReadNumber(*key, u"ErrorControl");
  return isService ? kSuccess : services::kDoesNotExist;
}

Config ReadService(const Key& key, cvn::StringView name) {
  Config config;
  const std::u16string displayName = ReadDisplayName(key);
  config.displayName = displayName.empty() ? name : displayName;
  config.serviceType = ReadNumber(key, u"Type").value_or(0);
  config.startType = ReadStartType(key);
  config.errorControl = ReadNumber(key, u"ErrorControl").value_or(0);
  const std::optional<ValueData> path = Read(key, u"ImagePath");
  const std::optional<std::u16string> text = path ? path->Text() : std::nullopt;
  config.hasBinaryPath = text.has_value();
  if (text) {
    config.binaryPath.Assign(*text);
  }
  if (text && path->type == registry::kTypeExpandString) {
    config.binaryPath = environment::Expand(*text).value_or(config.binaryPath);
  }
  config.group.Assign(ReadText(key, u"Group"));
  config.dependencies = ServiceDependencies::Of(key).List();
  return config;
}

std::uint32_t ReadStartType(const Key& key) { return ReadNumber(key, u"Start").value_or(0); }

std::u16string ReadDisplayName(const Key& key) { return ReadText(key, u"DisplayName"); }

Code WriteService(const Key& services, const Config& config) {
  Key key;
  // What a marked service left would be deleted with the new one at the manager's next start.
  Code code = registry::OpenKey(services, config.name, registry::kQueryValue, &key);
  if (code == kSuccess && IsMarkedForDeletion(key)) {
    key.Close();
    code = DeleteService(services, config.name);
  }
  if (code == kSuccess || code == kFileNotFound) {
    code = registry::CreateKey(services, config.name, false, registry::kSetValue, &key);
  }
  if (code != kSuccess) {
    return code;
  }
  const auto dependencies = ServiceDependencies::In(config.dependencies);
  Writer writer(key);
  writer.Number(u"Type", config.serviceType);
  writer.Number(u"Start", config.startType);
  writer.Number(u"ErrorControl", config.errorControl);
  writer.Text(u"ImagePath", StoredPath(config), registry::kTypeExpandString);
  writer.Text(u"DisplayName", config.displayName);
  writer.Text(u"Group", config.group);
  writer.Names(u"DependOnService", dependencies.services);
  writer.Names(u"DependOnGroup", dependencies.groups);
  writer.Text(u"ObjectName", IsDriverType(config.serviceType) ? u"" : u"LocalSystem");
  return writer.Outcome();
}

bool IsMarkedForDeletion(const Key& key) { return ReadNumber(key, kDeleteFlag).value_or(0) != 0; }

Code MarkForDeletion(const Key& services, cvn::StringView name) {
  Key key;
  const Code code = registry::OpenKey(services, name, registry::kSetValue, &key);
  if (code != kSuccess) {
    return code;
  }
  Writer writer(key);
  writer.Number(kDeleteFlag, 1);
  return writer.Outcome();
}

Code DeleteService(const Key& services, cvn::StringView name) {
  registry::Change change;
  Code code = change.Begin(services, name);
  code = code == kSuccess ? DeleteTree(services, name) : code;
  return code == kSuccess ? change.End() : code;
}

ServiceDependencies ServiceDependencies::Of(const Key& key) {
  return {ReadNames(key, u"DependOnService"), ReadNames(key, u"DependOnGroup")};
}

ServiceDependencies ServiceDependencies::In(cvn::StringView list) {
  ServiceDependencies dependencies;
  for (const std::u16string& name : Split(list)) {
    if (name.starts_with(u'+')) {
      dependencies.groups.push_back(name.substr(1));
    } else {
      dependencies.services.push_back(name);
    }
  }
  return dependencies;
}

cvn::String ServiceDependencies::List() const {
  std::u16string list;
  for (const std::u16string& name : services) {
    list.append(name).push_back(u'\0');
  }
  for (const std::u16string& name : groups) {
    list.append(u"+").append(name).push_back(u'\0');
  }
  if (!list.empty()) {
    list.push_back(u'\0');
  }
  return cvn::String(list);
}

}  // namespace platform::posix
