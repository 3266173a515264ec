// A hive: a tree of keys over a hive file, or one that lives in memory only.
//
// A key's subkeys and values are read from the file when they are first asked for, and from then on
// stand in indexes of their own, so that finding, adding and counting through them take logarithmic
// time. Changes stay in the tree until Flush.
//
// Of several programs with one hive file, one at a time may change it: from its first change until
// its Flush it holds a lock on the file. Another's change meanwhile, or one on top of a file that
// was replaced since it was read, is refused with 32, so that no change is ever lost.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <ext/pb_ds/assoc_container.hpp>
#include <ext/pb_ds/tree_policy.hpp>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/error.h"
#include "platform/formats/hive_file.h"
#include "platform/offline/volume/volume.h"
#include "support/string.h"

namespace platform::posix {

class Hive;
struct KeyNode;
struct Mount;
using KeyPtr = std::shared_ptr<KeyNode>;

// Also finds by position.
template <typename Key, typename Value>
using OrderedTable = __gnu_pbds::tree<Key, Value, std::less<Key>, __gnu_pbds::rb_tree_tag,
                                      __gnu_pbds::tree_order_statistics_node_update>;

using SubKeyTable = OrderedTable<std::u16string, KeyPtr>;  // by the folded name

struct KeyValue {
  std::u16string name;
  std::uint32_t type = 0;
  HiveFile::Cell cell = HiveFile::kNoCell;  // where the file has it, or none
  std::vector<std::byte> data;              // what the file doesn't have yet
};

struct ValueTable {
  OrderedTable<std::uint64_t, KeyValue> byAge;
  std::unordered_map<std::u16string, std::uint64_t> ages;  // by the folded name
  std::uint64_t nextAge = 0;
  std::vector<HiveFile::Cell> dropped;  // what the file has for values that are no more
};

struct KeyNode : std::enable_shared_from_this<KeyNode> {
  Hive* hive = nullptr;
  KeyNode* parent = nullptr;  // null for a root, and when the key was deleted
  std::u16string name;
  HiveFile::Cell cell = HiveFile::kNoCell;
  Mount* mount = nullptr;  // whose root stands in the place of this key
  bool isVolatile = false;
  bool isLink = false;   // opens as what its value names
  bool isFixed = false;  // the system's own, which can't be deleted
  bool isDeleted = false;
  bool hasNewSubKeys = false;  // the file has other subkeys
  bool hasNewValues = false;   // the file has other values
  std::uint64_t subKeyChanges = 0;
  std::unique_ptr<SubKeyTable> subKeys;  // null until needed
  std::unique_ptr<ValueTable> values;    // null until needed
};

class Hive {
 public:
  // A hive in memory.
  Hive();
  // The hive in this file, which is read when its root is first asked for.
  explicit Hive(HostPath place) : place_(std::move(place)) {}
  // A hive for this file, which Flush makes.
  Hive(HostPath place, HiveFile content);
  Hive(const Hive&) = delete;
  Hive& operator=(const Hive&) = delete;
  ~Hive();

  // All give 1009 for what is damaged.
  Code Root(KeyPtr* root);
  Code SubKeys(KeyNode& key, SubKeyTable** subKeys);
  Code Values(KeyNode& key, ValueTable** values);
  // 2 when there is no such value.
  Code Query(KeyNode& key, cvn::StringView name, std::uint32_t* type, std::vector<std::byte>* data);

  bool IsReadOnly() const { return isReadOnly_; }
  Code LinkTarget(KeyNode& link, std::u16string* target);

  // A key of the system's own, in memory only, and one that opens as another. 183 when the file has
  // a key of the name.
  Code AddSystemKey(KeyNode& parent, cvn::StringView name, KeyPtr* added);
  Code AddSystemLink(KeyNode& parent, cvn::StringView name, cvn::StringView target);

  // Changes: 5 in a hive that is read-only, 32 when another program has changed or is changing it.
  // What they are given was checked.
  Code Add(KeyNode& parent, cvn::StringView name, bool isVolatile, KeyPtr* added);
  Code Remove(KeyNode& key);
  Code SetValue(KeyNode& key, cvn::StringView name, std::uint32_t type,
                std::span<const std::byte> data);
  Code DeleteValue(KeyNode& key, cvn::StringView name);

  Code Flush();

 private:
  class Lock {
   public:
    Lock() = default;
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock() { Release(); }

    Code Take(const HostPath& place, const struct stat& expected);
    void Release();
    bool IsHeld() const { return descriptor_ >= 0; }
    int Descriptor() const { return descriptor_; }

   private:
    int descriptor_ = -1;
  };

  KeyPtr MakeRoot();
  KeyPtr Insert(KeyNode& parent, cvn::StringView name, bool isVolatile);
  Code Load();
  Code ReadFile(std::vector<std::byte>* content);
  bool HasLog() const;
  Code LoadSubKeys(KeyNode& key, SubKeyTable* subKeys);
  Code LoadValues(KeyNode& key, ValueTable* values) const;
  Code BeginChange(bool isVolatile);
  void Touch(KeyNode& key, bool* aspect);
  bool IsChanged() const { return isUnwritten_ || !touched_.empty() || !removed_.empty(); }
  Code Apply();
  Code ApplySubKeys(KeyNode& key);
  Code ApplyValues(KeyNode& key);
  Code Write();

  const HostPath place_;  // without a spelling in memory
  bool isNew_ = false;    // there is no file yet
  bool isReadOnly_ = false;
  Code broken_ = kSuccess;  // what kept changes from being brought into file_
  struct stat loaded_ = {};
  Lock lock_;
  HiveFile file_;
  KeyPtr root_;
  std::vector<KeyPtr> touched_;  // keys that differ from file_, each after its parent
  std::vector<HiveFile::Cell> removed_;
  bool isUnwritten_ = false;  // file_ differs from the file on the disk
};

}  // namespace platform::posix
