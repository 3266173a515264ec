#include "platform/offline/registry/hive.h"
#include "platform/linux/descriptor.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

#include "platform/formats/names.h"
#include "platform/linux/error_map.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {
namespace {

// What a link names, in the form "\Registry\Machine\...".
constexpr cvn::StringView kLinkValue = u"SymbolicLinkValue";
constexpr std::uint32_t kLinkType = 6;

bool IsSameFile(const struct stat& left, const struct stat& right) {
  return left.st_dev == right.st_dev && left.st_ino == right.st_ino &&
         left.st_size == right.st_size && left.st_mtim.tv_sec == right.st_mtim.tv_sec &&
         left.st_mtim.tv_nsec == right.st_mtim.tv_nsec;
}

std::string FolderOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

Code LastHostError() { return CodeOf(errno, kWriteFault); }

Code WriteAll(int to, std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(to, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) {
      return LastHostError();
    }
    bytes = bytes.subspan(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
  }
  return fsync(to) == 0 ? kSuccess : LastHostError();
}

// A key's name in the table of its siblings. A damaged or foreign file may have two of a name: the
// first is found, and the others are kept.
std::u16string IndexOf(const std::u16string& name, std::size_t position, bool isTaken) {
  std::u16string index = Folded(name);
  if (isTaken) {
    index.append({u'\0', static_cast<char16_t>(position >> 16), static_cast<char16_t>(position)});
  }
  return index;
}

}  // namespace

Code Hive::Lock::Take(const std::string& path, const struct stat& expected) {
  descriptor_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor_ < 0) {
    return LastHostError();
  }
  struct stat entry {};
  // A file system that has no locks lets everything pass.
  const bool isBusy = flock(descriptor_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  if (isBusy || fstat(descriptor_, &entry) != 0 || !IsSameFile(entry, expected)) {
    Release();
    return kSharingViolation;
  }
  return kSuccess;
}

void Hive::Lock::Release() {
  if (descriptor_ >= 0) {
    close(descriptor_);
    descriptor_ = -1;
  }
}

Hive::Hive() : root_(MakeRoot()) { root_->isVolatile = true; }

Hive::Hive(std::string path, HiveFile content)
    : path_(std::move(path)), isNew_(true), file_(std::move(content)), isUnwritten_(true) {
  root_ = MakeRoot();
  root_->cell = file_.Root();
}

// Keys hold their subkeys; taking them down one by one keeps a deep tree off the stack.
Hive::~Hive() {
  std::vector<KeyPtr> pending = {std::move(root_)};
  while (!pending.empty()) {
    const KeyPtr key = std::move(pending.back());
    pending.pop_back();
    if (key != nullptr && key->subKeys != nullptr) {
      for (auto& [name, subKey] : *key->subKeys) {
        pending.push_back(std::move(subKey));
      }
      key->subKeys.reset();
    }
  }
}

KeyPtr Hive::MakeRoot() {
  auto root = std::make_shared<KeyNode>();
  root->hive = this;
  root->isFixed = true;
  return root;
}

Code Hive::Root(KeyPtr* root) {
  if (root_ == nullptr) {
    const Code code = Load();
    if (code != kSuccess) {
      return code;
    }
  }
  *root = root_;
  return kSuccess;
}

Code Hive::Load() {
  std::vector<std::byte> content;
  Code code = ReadFile(&content);
  if (code == kSuccess) {
    code = file_.Load(std::move(content));
  }
  if (code != kSuccess) {
    return code;
  }
  // Even root is bound by what the file's mode says, as SYSTEM is by READONLY on Windows. Windows
  // would write what stands in a log over our changes.
  isReadOnly_ = (loaded_.st_mode & 0222) == 0 || access(path_.c_str(), W_OK) != 0 ||
                access(FolderOf(path_).c_str(), W_OK) != 0 || (file_.IsInterrupted() && HasLog());
  root_ = MakeRoot();
  root_->cell = file_.Root();
  return kSuccess;
}

Code Hive::ReadFile(std::vector<std::byte>* content) {
  const Descriptor file(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.Get() < 0 || fstat(file.Get(), &loaded_) != 0) {
    return CodeOf(errno, kReadFault);
  }
  if (!S_ISREG(loaded_.st_mode)) {
    return kBadDatabase;
  }
  content->resize(static_cast<std::size_t>(loaded_.st_size));
  std::size_t at = 0;
  while (at < content->size()) {
    const ssize_t got = read(file.Get(), content->data() + at, content->size() - at);
    if (got == 0) {
      break;
    }
    if (got < 0 && errno != EINTR) {
      return CodeOf(errno, kReadFault);
    }
    at += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
  }
  content->resize(at);
  return kSuccess;
}

bool Hive::HasLog() const {
  for (const char* ending : {".LOG", ".LOG1", ".LOG2"}) {
    struct stat entry {};
    if (stat((path_ + ending).c_str(), &entry) == 0 && entry.st_size != 0) {
      return true;
    }
  }
  return false;
}

Code Hive::SubKeys(KeyNode& key, SubKeyTable** subKeys) {
  if (key.subKeys == nullptr) {
    auto fresh = std::make_unique<SubKeyTable>();
    const Code code = key.cell == HiveFile::kNoCell ? kSuccess : LoadSubKeys(key, fresh.get());
    if (code != kSuccess) {
      return code;
    }
    key.subKeys = std::move(fresh);
  }
  *subKeys = key.subKeys.get();
  return kSuccess;
}

// A key names its parent, and here has to name the right one: then no key is met twice, and none is
// its own ancestor.
Code Hive::LoadSubKeys(KeyNode& key, SubKeyTable* subKeys) {
  std::vector<HiveFile::Cell> cells;
  Code code = file_.ReadSubKeys(key.cell, &cells);
  for (std::size_t i = 0; code == kSuccess && i < cells.size(); ++i) {
    HiveFile::KeyRecord record;
    code = file_.ReadKey(cells[i], &record);
    if (code != kSuccess || record.parent != key.cell || cells[i] == file_.Root()) {
      return kBadDatabase;
    }
    const auto same = subKeys->find(Folded(record.name));
    if (same != subKeys->end() && same->second->cell == cells[i]) {
      return kBadDatabase;
    }
    auto node = std::make_shared<KeyNode>();
    node->hive = this;
    node->parent = &key;
    node->cell = cells[i];
    node->isLink = record.isLink;
    node->name = std::move(record.name);
    subKeys->insert({IndexOf(node->name, i, same != subKeys->end()), node});
  }
  return code;
}

Code Hive::Values(KeyNode& key, ValueTable** values) {
  if (key.values == nullptr) {
    auto fresh = std::make_unique<ValueTable>();
    const Code code = key.cell == HiveFile::kNoCell ? kSuccess : LoadValues(key, fresh.get());
    if (code != kSuccess) {
      return code;
    }
    key.values = std::move(fresh);
  }
  *values = key.values.get();
  return kSuccess;
}

Code Hive::LoadValues(KeyNode& key, ValueTable* values) const {
  std::vector<HiveFile::ValueRecord> records;
  const Code code = file_.ReadValues(key.cell, &records);
  for (HiveFile::ValueRecord& record : records) {
    const auto [same, isFirst] = values->ages.try_emplace(Folded(record.name), values->nextAge);
    if (!isFirst && values->byAge.find(same->second)->second.cell == record.cell) {
      return kBadDatabase;
    }
    values->byAge.insert(
        {values->nextAge++, KeyValue{std::move(record.name), record.type, record.cell, {}}});
  }
  return code;
}

Code Hive::Query(KeyNode& key, cvn::StringView name, std::uint32_t* type,
                 std::vector<std::byte>* data) {
  ValueTable* values = nullptr;
  const Code code = Values(key, &values);
  if (code != kSuccess) {
    return code;
  }
  const auto age = values->ages.find(Folded(name));
  if (age == values->ages.end()) {
    return kFileNotFound;
  }
  const KeyValue& value = values->byAge.find(age->second)->second;
  *type = value.type;
  if (value.cell != HiveFile::kNoCell) {
    return file_.ReadData(value.cell, data);
  }
  *data = value.data;
  return kSuccess;
}

Code Hive::BeginChange(bool isVolatile) {
  if (broken_ != kSuccess || isReadOnly_) {
    return isReadOnly_ ? kAccessDenied : broken_;
  }
  if (isVolatile || isNew_ || lock_.IsHeld()) {
    return kSuccess;
  }
  const Code code = lock_.Take(path_, loaded_);
  return code == kSuccess ? file_.PrepareToChange() : code;
}

void Hive::Touch(KeyNode& key, bool* aspect) {
  if (!key.hasNewSubKeys && !key.hasNewValues) {
    touched_.push_back(key.shared_from_this());
  }
  *aspect = true;
}

Code Hive::Add(KeyNode& parent, cvn::StringView name, bool isVolatile, KeyPtr* added) {
  SubKeyTable* subKeys = nullptr;
  Code code = SubKeys(parent, &subKeys);
  if (code == kSuccess) {
    code = BeginChange(isVolatile);
  }
  if (code != kSuccess) {
    return code;
  }
  *added = Insert(parent, name, isVolatile);
  if (!isVolatile) {
    Touch(parent, &parent.hasNewSubKeys);
  }
  return kSuccess;
}

KeyPtr Hive::Insert(KeyNode& parent, cvn::StringView name, bool isVolatile) {
  auto key = std::make_shared<KeyNode>();
  key->hive = this;
  key->parent = &parent;
  key->name = name;
  key->isVolatile = isVolatile;
  parent.subKeys->insert({Folded(name), key});
  ++parent.subKeyChanges;
  return key;
}

Code Hive::AddSystemKey(KeyNode& parent, cvn::StringView name, KeyPtr* added) {
  SubKeyTable* subKeys = nullptr;
  const Code code = SubKeys(parent, &subKeys);
  if (code != kSuccess) {
    return code;
  }
  const auto known = subKeys->find(Folded(name));
  if (known != subKeys->end()) {
    return kAlreadyExists;
  }
  *added = Insert(parent, name, true);
  (*added)->isFixed = true;
  return kSuccess;
}

Code Hive::AddSystemLink(KeyNode& parent, cvn::StringView name, cvn::StringView target) {
  KeyPtr link;
  const Code code = AddSystemKey(parent, name, &link);
  if (code == kSuccess) {
    link->isLink = true;
    ValueTable* values = nullptr;
    Values(*link, &values);
    const auto bytes = std::as_bytes(std::span(target));
    values->ages.emplace(Folded(kLinkValue), 0);
    values->byAge.insert({values->nextAge++, KeyValue{std::u16string(kLinkValue),
                                                      kLinkType,
                                                      HiveFile::kNoCell,
                                                      {bytes.begin(), bytes.end()}}});
  }
  return code;
}

Code Hive::LinkTarget(KeyNode& link, std::u16string* target) {
  std::uint32_t type = 0;
  std::vector<std::byte> data;
  const Code code = Query(link, kLinkValue, &type, &data);
  target->resize(data.size() / sizeof(char16_t));
  if (!target->empty()) {
    std::memcpy(target->data(), data.data(), target->size() * sizeof(char16_t));
  }
  return code == kSuccess && type != kLinkType ? kFileNotFound : code;
}

Code Hive::Remove(KeyNode& key) {
  const Code code = BeginChange(key.isVolatile);
  if (code != kSuccess) {
    return code;
  }
  const KeyPtr keeper = key.shared_from_this();
  KeyNode& parent = *key.parent;
  if (key.cell != HiveFile::kNoCell) {
    removed_.push_back(key.cell);
  }
  if (!key.isVolatile) {
    Touch(parent, &parent.hasNewSubKeys);
  }
  parent.subKeys->erase(Folded(key.name));
  ++parent.subKeyChanges;
  key.isDeleted = true;
  key.parent = nullptr;
  return kSuccess;
}

Code Hive::SetValue(KeyNode& key, cvn::StringView name, std::uint32_t type,
                    std::span<const std::byte> data) {
  ValueTable* values = nullptr;
  Code code = Values(key, &values);
  if (code == kSuccess) {
    code = BeginChange(key.isVolatile);
  }
  if (code != kSuccess) {
    return code;
  }
  const auto [known, isNew] = values->ages.try_emplace(Folded(name), values->nextAge);
  KeyValue& value = values->byAge[known->second];
  if (isNew) {
    value.name = name;
    ++values->nextAge;
  } else if (value.cell != HiveFile::kNoCell) {
    values->dropped.push_back(std::exchange(value.cell, HiveFile::kNoCell));
  }
  value.type = type;
  value.data.assign(data.begin(), data.end());
  if (!key.isVolatile) {
    Touch(key, &key.hasNewValues);
  }
  return kSuccess;
}

Code Hive::DeleteValue(KeyNode& key, cvn::StringView name) {
  ValueTable* values = nullptr;
  Code code = Values(key, &values);
  if (code != kSuccess) {
    return code;
  }
  const auto known = values->ages.find(Folded(name));
  if (known == values->ages.end()) {
    return kFileNotFound;
  }
  code = BeginChange(key.isVolatile);
  if (code != kSuccess) {
    return code;
  }
  const auto value = values->byAge.find(known->second);
  if (value->second.cell != HiveFile::kNoCell) {
    values->dropped.push_back(value->second.cell);
  }
  values->byAge.erase(known->second);
  values->ages.erase(known);
  if (!key.isVolatile) {
    Touch(key, &key.hasNewValues);
  }
  return kSuccess;
}

Code Hive::Flush() {
  if (broken_ != kSuccess) {
    return broken_;
  }
  Code code = kSuccess;
  if (IsChanged()) {
    try {
      code = Apply();
    } catch (const std::length_error&) {
      code = kDiskFull;
    } catch (const std::bad_alloc&) {
      code = kNotEnoughMemory;
    }
    if (code != kSuccess) {
      broken_ = code;
      return code;
    }
    code = Write();
  }
  if (code == kSuccess) {
    lock_.Release();
  }
  return code;
}

// Brings the changes from the tree into the content of the file.
Code Hive::Apply() {
  isUnwritten_ = true;
  for (const HiveFile::Cell cell : removed_) {
    file_.FreeKey(cell);
  }
  removed_.clear();
  for (const KeyPtr& key : touched_) {
    Code code = kSuccess;
    if (key->hasNewSubKeys && !key->isDeleted) {
      code = ApplySubKeys(*key);
    }
    if (code == kSuccess && key->hasNewValues && !key->isDeleted) {
      code = ApplyValues(*key);
    }
    if (code != kSuccess) {
      return code;
    }
    key->hasNewSubKeys = false;
    key->hasNewValues = false;
  }
  touched_.clear();
  return kSuccess;
}

Code Hive::ApplySubKeys(KeyNode& key) {
  std::vector<HiveFile::NamedKey> subKeys;
  subKeys.reserve(key.subKeys->size());
  for (const auto& [index, subKey] : *key.subKeys) {
    if (subKey->isVolatile) {
      continue;
    }
    if (subKey->cell == HiveFile::kNoCell) {
      subKey->cell = file_.AddKey(key.cell, subKey->name);
    }
    subKeys.push_back({subKey->cell, subKey->name});
  }
  return file_.SetSubKeys(key.cell, subKeys);
}

Code Hive::ApplyValues(KeyNode& key) {
  for (const HiveFile::Cell cell : key.values->dropped) {
    file_.FreeValue(cell);
  }
  key.values->dropped.clear();
  std::vector<HiveFile::Cell> cells;
  cells.reserve(key.values->byAge.size());
  for (auto& [age, value] : key.values->byAge) {
    if (value.cell == HiveFile::kNoCell) {
      value.cell = file_.AddValue(value.name, value.type, value.data);
      std::vector<std::byte>().swap(value.data);
    }
    cells.push_back(value.cell);
  }
  return file_.SetValues(key.cell, cells);
}

// The lock, which is held, makes the other file's name ours.
Code Hive::Write() {
  file_.Seal();
  const std::string fresh = path_ + ".tessel-new";
  unlink(fresh.c_str());
  const Descriptor to(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (to.Get() < 0) {
    return LastHostError();
  }
  Code code = kSuccess;
  if (isNew_) {
    fchmod(to.Get(), 0644);
  } else {
    code = CopyMetadata(lock_.Descriptor(), loaded_, to.Get());
  }
  if (code == kSuccess) {
    code = WriteAll(to.Get(), file_.Bytes());
  }
  struct stat entry {};
  if (code == kSuccess && !isNew_ &&
      (stat(path_.c_str(), &entry) != 0 || !IsSameFile(entry, loaded_))) {
    code = kSharingViolation;
  }
  if (code == kSuccess &&
      (fstat(to.Get(), &entry) != 0 || rename(fresh.c_str(), path_.c_str()) != 0)) {
    code = LastHostError();
  }
  if (code != kSuccess) {
    unlink(fresh.c_str());
    return code;
  }
  const Descriptor folder(open(FolderOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  fsync(folder.Get());
  loaded_ = entry;
  isNew_ = false;
  isUnwritten_ = false;
  return kSuccess;
}

}  // namespace platform::posix
