#include "platform/offline/registry/registry_space.h"

#include <unistd.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "platform/environment.h"
#include "platform/formats/names.h"
#include "platform/offline/environment/environment.h"
#include "platform/offline/registry/registry.h"
#include "platform/offline/registry/registry_values.h"
#include "platform/offline/volume/volume.h"
#include "support/format.h"

namespace platform::posix {
namespace {

constexpr int kMostLinks = 64;  // more are a circle
constexpr cvn::StringView kSystemSid = u"S-1-5-18";

struct MachineHive {
  cvn::StringView name;
  Mount::Kind kind;
  cvn::StringView path;
};

constexpr MachineHive kMachineHives[] = {
    {u"SAM", Mount::Kind::Plain, u"C:\\Windows\\System32\\config\\SAM"},
    {u"SECURITY", Mount::Kind::Plain, u"C:\\Windows\\System32\\config\\SECURITY"},
    {u"SOFTWARE", Mount::Kind::Plain, u"C:\\Windows\\System32\\config\\SOFTWARE"},
    {u"SYSTEM", Mount::Kind::System, u"C:\\Windows\\System32\\config\\SYSTEM"},
};
constexpr cvn::StringView kDefaultUser = u"C:\\Windows\\System32\\config\\DEFAULT";

std::u16string Joined(cvn::StringView left, cvn::StringView right) {
  return std::u16string(left).append(right);
}

// A value without a type when there is none.
ValueData Read(KeyNode& key, cvn::StringView name) {
  ValueData value;
  const Code code = key.hive->Query(key, name, &value.type, &value.bytes);
  return code == kSuccess ? value : ValueData();
}

// Where a hive file is, with symbolic links resolved: its successor takes the place of the file.
// Nothing when there is none.
std::optional<HostPath> FindHive(cvn::StringView machinePath) {
  HostPath host;
  Code code = Resolve(machinePath, &host);
  if (code == kFileNotFound || code == kPathNotFound) {
    return std::nullopt;
  }
  if (code == kSuccess) {
    IgnoreError(FollowLink(&host));  // what can't be opened is told when the hive is read
  }
  return host;
}

}  // namespace

std::vector<cvn::StringView> NamesOf(cvn::StringView path) {
  std::vector<cvn::StringView> names;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find(u'\\'), path.size());
    if (end != 0) {
      names.push_back(path.substr(0, end));
    }
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return names;
}

namespace {

// Not destroyed at the end: keys may be used, and flushed, until then.
RegistrySpace*& SpaceOfProcess() {
  static RegistrySpace* space = nullptr;
  return space;
}

}  // namespace

RegistrySpace& RegistrySpace::Get() {
  RegistrySpace*& space = SpaceOfProcess();
  if (space == nullptr) {
    space = new RegistrySpace();
  }
  return *space;
}

void RegistrySpace::Close() { delete std::exchange(SpaceOfProcess(), nullptr); }

void CloseRegistry() { RegistrySpace::Close(); }

RegistrySpace::RegistrySpace() : state_(Machine::Get().State()) {
  // These can't fail: they are the first keys of a hive in memory.
  IgnoreError(space_.Root(&root_));
  IgnoreError(space_.AddSystemKey(*root_, u"Machine", &machine_));
  IgnoreError(space_.AddSystemKey(*root_, u"User", &users_));
  KeyPtr hardware;
  IgnoreError(space_.AddSystemKey(*machine_, u"HARDWARE", &hardware));
  for (const MachineHive& hive : kMachineHives) {
    AddHive(*machine_, hive.name, hive.kind, hive.path);
  }
  default_ = AddHive(*users_, u".DEFAULT", Mount::Kind::Plain, kDefaultUser);
  KeyPtr system;
  if (default_ != nullptr && space_.AddSystemKey(*users_, kSystemSid, &system) == kSuccess) {
    system->mount = default_->mount;
  }
}

KeyPtr RegistrySpace::AddHive(KeyNode& parent, cvn::StringView name, Mount::Kind kind,
                              cvn::StringView machinePath) {
  const std::optional<HostPath> file = FindHive(machinePath);
  KeyPtr key;
  if (file && space_.AddSystemKey(parent, name, &key) == kSuccess) {
    key->mount = &mounts_.emplace_back(*file, kind);
  }
  return key;
}

Code RegistrySpace::Open(registry::Root root, KeyPair* keys) {
  if (state_ != kSuccess) {
    return state_;
  }
  switch (root) {
    case registry::Root::LocalMachine:
      keys->first = machine_;
      return kSuccess;
    case registry::Root::Users:
      keys->first = users_;
      return Enter(&keys->first);
    case registry::Root::CurrentUser:
      return OpenCurrentUser(&keys->first);
    case registry::Root::CurrentConfig:
      return Walk(machine_, u"SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current", &keys->first);
    case registry::Root::ClassesRoot:
      return OpenClasses(keys);
  }
  return kInvalidHandle;
}

Code RegistrySpace::OpenCurrentUser(KeyPtr* key) {
  if (geteuid() != 0) {
    if (const Code code = AddProfiles(); code != kSuccess) {
      return code;
    }
  }
  *key = currentUser_ == nullptr ? default_ : currentUser_;
  return *key == nullptr ? kFileNotFound : Enter(key);
}

Code RegistrySpace::OpenClasses(KeyPair* keys) {
  KeyPtr user;
  Code code = OpenCurrentUser(&user);
  if (code == kSuccess) {
    code = Walk(user, u"Software\\Classes", &keys->first);
  }
  if (code != kSuccess) {
    keys->first = nullptr;
  }
  const Code machineCode = Walk(machine_, u"SOFTWARE\\Classes", &keys->second);
  if (machineCode != kSuccess) {
    keys->second = nullptr;
  }
  if (code == kBusy || machineCode == kBusy) {
    return kBusy;
  }
  return keys->first != nullptr ? kSuccess : machineCode;
}

Code RegistrySpace::Walk(KeyPtr from, const std::vector<cvn::StringView>& names, KeyPtr* found,
                         std::size_t* count) {
  linksFollowed_ = 0;
  return Go(std::move(from), names, found, count);
}

Code RegistrySpace::Walk(const KeyPtr& from, cvn::StringView path, KeyPtr* found) {
  std::size_t count = 0;
  return Walk(from, NamesOf(path), found, &count);
}

Code RegistrySpace::Go(KeyPtr from, std::span<const cvn::StringView> names, KeyPtr* found,
                       std::size_t* count) {
  *found = std::move(from);
  *count = 0;
  Code code = Enter(found);
  while (code == kSuccess && *count < names.size()) {
    KeyPtr key;
    code = (*found)->hive->Find(**found, names[*count], &key);
    code = code == kSuccess ? Enter(&key) : code;
    if (code == kSuccess) {
      *found = std::move(key);
      ++*count;
    }
  }
  return code;
}

// Goes on to what stands in the place of a key.
Code RegistrySpace::Enter(KeyPtr* key) {
  if (*key == users_) {
    if (const Code code = AddProfiles(); code != kSuccess) {
      return code;
    }
  }
  if ((*key)->isLink) {
    return FollowLink(**key, key);
  }
  Mount* const mount = (*key)->mount;
  if (mount == nullptr) {
    return kSuccess;
  }
  const Code code = mount->hive.Root(key);
  if (code == kSuccess && !mount->isReady) {
    mount->isReady = true;
    AddLinks(*mount, *key);
  }
  return code;
}

Code RegistrySpace::FollowLink(KeyNode& link, KeyPtr* target) {
  std::u16string path;
  const Code code = link.hive->LinkTarget(link, &path);
  if (code != kSuccess) {
    return code;
  }
  const std::vector<cvn::StringView> names = NamesOf(path);
  if (++linksFollowed_ > kMostLinks || names.empty() || Folded(names[0]) != u"REGISTRY") {
    return kFileNotFound;
  }
  std::size_t count = 0;
  return Go(root_, std::span(names).subspan(1), target, &count);
}

// A link whose name is taken gives way to the key that the hive has there, and in a hive that can't
// be read there is nothing to link: the codes change nothing.
void RegistrySpace::AddLinks(const Mount& mount, const KeyPtr& root) {
  KeyPtr software;
  if (mount.kind == Mount::Kind::System) {
    AddControlSetLinks(root);
  } else if (!mount.sid.empty() && Walk(root, u"Software", &software) == kSuccess) {
    const std::u16string target = Joined(u"\\Registry\\User\\", mount.sid + u"_Classes");
    IgnoreError(software->hive->AddSystemLink(*software, u"Classes", target));
  }
}

void RegistrySpace::AddControlSetLinks(const KeyPtr& root) {
  KeyPtr key;
  std::optional<std::uint32_t> number;
  if (Walk(root, u"Select", &key) == kSuccess) {
    number = Read(*key, u"Current").Number();
  }
  if (!number) {
    return;
  }
  const cvn::String name = cvn::Format(u"ControlSet%03u", *number);
  const std::u16string target = Joined(u"\\Registry\\Machine\\SYSTEM\\", name);
  IgnoreError(root->hive->AddSystemLink(*root, u"CurrentControlSet", target));
  if (Walk(root, Joined(name, u"\\Hardware Profiles"), &key) == kSuccess) {
    IgnoreError(key->hive->AddSystemLink(*key, u"Current", target + u"\\Hardware Profiles\\0001"));
  }
}

// 170 when others have the list of them for too long: whose a key is must not depend on that. A
// machine whose list is missing or damaged has none.
Code RegistrySpace::AddProfiles() {
  if (std::exchange(hasProfiles_, true)) {
    return kSuccess;
  }
  KeyPtr list;
  const Code code =
      Walk(machine_, u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList", &list);
  if (code != kSuccess) {
    hasProfiles_ = code != kBusy;
    return code == kBusy ? code : kSuccess;
  }
  std::u16string sid;
  for (std::uint32_t index = 0; list->hive->SubKeyNameAt(*list, index, &sid) == kSuccess; ++index) {
    KeyPtr profile;
    if (sid == kSystemSid || list->hive->Find(*list, sid, &profile) != kSuccess) {
      continue;
    }
    const std::optional<std::u16string> folder = Read(*profile, u"ProfileImagePath").Text();
    if (folder) {
      AddProfile(sid, environment::Expand(*folder).value_or(cvn::String()));
    }
  }
  return kSuccess;
}

void RegistrySpace::AddProfile(const std::u16string& sid, cvn::StringView folder) {
  const KeyPtr user = AddHive(*users_, sid, Mount::Kind::Plain, Joined(folder, u"\\NTUSER.DAT"));
  const KeyPtr classes =
      AddHive(*users_, sid + u"_Classes", Mount::Kind::Plain,
              Joined(folder, u"\\AppData\\Local\\Microsoft\\Windows\\UsrClass.dat"));
  if (user != nullptr && classes != nullptr) {
    user->mount->sid = sid;
  }
  const cvn::StringView name = folder.substr(folder.find_last_of(u'\\') + 1);
  if (user != nullptr && currentUser_ == nullptr && Folded(name) == Folded(UserName())) {
    currentUser_ = user;
  }
}

std::vector<std::string> RegistrySpace::Files() {
  IgnoreError(AddProfiles());
  // What can't be read has no profiles.
  IgnoreError(EndStep(kSuccess));
  std::vector<std::string> files;
  for (const Mount& mount : mounts_) {
    files.push_back(mount.file);
  }
  return files;
}

std::vector<std::string> HivesOfMachine() { return RegistrySpace::Get().Files(); }

Code RegistrySpace::EndStep(Code code) {
  for (Mount& mount : mounts_) {
    Hive& hive = mount.hive;
    if (!hive.IsEntered() || (hive.IsReserved() ? changes_ != 0 : looks_ != 0)) {
      continue;
    }
    const Code logged = code == kSuccess ? hive.Commit() : kSuccess;
    const Code left = hive.Leave();
    code = logged == kSuccess ? code : logged;
    code = left == kSuccess ? code : left;
  }
  return code;
}

Code RegistrySpace::EndChange(bool isKept) {
  --changes_;
  if (isKept) {
    return EndStep(kSuccess);
  }
  constexpr Code kDropped = kGenFailure;
  IgnoreError(EndStep(kDropped));
  return kSuccess;
}

Code RegistrySpace::EndLook() {
  --looks_;
  return EndStep(kSuccess);
}

Code RegistrySpace::Sync() { return WithAll(&Hive::Sync); }

Code RegistrySpace::Flush() { return WithAll(&Hive::Settle); }

Code RegistrySpace::WithAll(Code (Hive::*step)()) {
  Code first = kSuccess;
  for (Mount& mount : mounts_) {
    const Code code = (mount.hive.*step)();
    first = first == kSuccess ? code : first;
  }
  return first;
}

}  // namespace platform::posix
