// A hive: a tree of keys over a hive's files, or one that lives in memory only.
//
// A key that someone has open is a node, and two who have it open share it. The nodes of keys that
// stand in the files hold no more than their names: what a key has is looked up in the files' bytes
// each time. When others have changed those, each node finds its key again by its path; one whose
// key is gone is deleted. Volatile keys, and their values, are in the nodes.
//
// What is looked at stays as it is until Leave; what is changed reaches the log by Commit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ext/pb_ds/assoc_container.hpp>
#include <ext/pb_ds/tree_policy.hpp>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/formats/hive_image.h"
#include "platform/offline/registry/hive_store.h"
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

// What a key has in memory: its volatile subkeys, by their folded names, and if it is volatile
// itself, its values.
struct KeyMemory {
  struct Value {
    std::u16string name;
    std::uint32_t type = 0;
    std::vector<std::byte> data;
  };
  OrderedTable<std::u16string, KeyPtr> subKeys;
  OrderedTable<std::uint64_t, Value> values;               // by age
  std::unordered_map<std::u16string, std::uint64_t> ages;  // by the folded name
  std::uint64_t nextAge = 0;
};

struct KeyNode : std::enable_shared_from_this<KeyNode> {
  KeyNode() = default;
  KeyNode(const KeyNode&) = delete;
  KeyNode& operator=(const KeyNode&) = delete;
  ~KeyNode();

  Hive* hive = nullptr;
  KeyPtr parent;  // null for a root, and when the key was deleted
  std::u16string name;
  std::size_t depth = 1;  // how many keys lead to it in its hive, itself included
  HiveImage::Cell cell = HiveImage::kNoCell;
  std::uint64_t version = 0;  // of the hive, for which the cell is right
  Mount* mount = nullptr;     // whose root stands in the place of this key
  bool isVolatile = false;
  bool isLink = false;   // opens as what its value names
  bool isFixed = false;  // the system's own, which can't be deleted
  bool isDeleted = false;
  std::map<std::u16string, std::weak_ptr<KeyNode>> known;  // subkeys in the files, by folded names
  std::unique_ptr<KeyMemory> memory;                       // null until needed
};

// A hive in memory has a root that is volatile.
class Hive {
 public:
  // A hive in memory.
  Hive();
  // The hive in this file, which is no link and is read when it is first asked for.
  explicit Hive(HostPath place);
  Hive(const Hive&) = delete;
  Hive& operator=(const Hive&) = delete;
  ~Hive();

  // All below give 1009 for what is damaged, 170 when others have the hive for too long, and 1018
  // for a key that is deleted.

  Code Root(KeyPtr* root);
  // Whether the key is still there. `isChange`: so as to change it, after Reserve.
  Code Confirm(KeyNode& key, bool isChange) {
    const Code code = isChange && !key.isVolatile ? Reserve() : kSuccess;
    return code == kSuccess ? Use(key) : code;
  }
  // 2 when there is no such subkey.
  Code Find(KeyNode& key, cvn::StringView name, KeyPtr* found);
  // In the order of the folded names; 259 after the last.
  Code SubKeyNameAt(KeyNode& key, std::uint32_t index, std::u16string* name);
  Code CountSubKeys(KeyNode& key, std::uint32_t* count);
  // 2 when there is no such value.
  Code Query(KeyNode& key, cvn::StringView name, std::uint32_t* type, std::vector<std::byte>* data);
  bool HasValue(KeyNode& key, cvn::StringView name);
  // In the order in which they were added; 259 after the last.
  Code ValueNameAt(KeyNode& key, std::uint32_t index, std::u16string* name);
  Code LinkTarget(KeyNode& link, std::u16string* target);

  // 0, or why the hive can't be changed: 5 when it is read-only, 1009 when its last changes are in
  // a log that is missing or damaged.
  Code Writability() const { return isInMemory_ ? kSuccess : store_.Writability(); }
  // Another number whenever a key in the hive may have other subkeys.
  std::uint64_t Changes() const { return changes_ + version_; }

  // A key of the system's own, in memory only, and one that opens as another. 183 when the hive has
  // a key of the name.
  Code AddSystemKey(KeyNode& parent, cvn::StringView name, KeyPtr* added);
  Code AddSystemLink(KeyNode& parent, cvn::StringView name, cvn::StringView target);

  // Changes; also what Writability gives. A key that is there already is the one that was added.
  Code Add(KeyNode& parent, cvn::StringView name, bool isVolatile, KeyPtr* added);
  // 5 when the key has subkeys.
  Code Remove(KeyNode& key);
  Code SetValue(KeyNode& key, cvn::StringView name, std::uint32_t type,
                std::span<const std::byte> data);
  Code DeleteValue(KeyNode& key, cvn::StringView name);

  // From here to the next Leave no one else changes the hive.
  Code Reserve() { return isInMemory_ ? kSuccess : Look(true); }
  bool IsReserved() const { return store_.IsAlone(); }
  bool IsEntered() const { return store_.IsEntered(); }
  // Logs what was changed. After a failure nothing was.
  Code Commit() { return isInMemory_ ? kSuccess : store_.Commit(); }
  // Lets others change the hive, and drops what wasn't logged. 30 when a part of the hive couldn't
  // be read, so that what was found may be wrong.
  Code Leave();

  // As HiveStore has them.
  Code Sync() { return isInMemory_ ? kSuccess : store_.Sync(); }
  Code Settle() { return isInMemory_ ? kSuccess : store_.Settle(); }

 private:
  Code Look(bool alone);
  Code Use(KeyNode& key);
  Code Locate(KeyNode& key);
  Code BeginChange(KeyNode& key);
  KeyMemory& MemoryOf(KeyNode& key);
  KeyPtr NewNode(KeyNode& parent, cvn::StringView name);
  Code NodeAt(KeyNode& parent, HiveImage::Cell cell, KeyPtr* found);
  Code AddInMemory(KeyNode& parent, cvn::StringView name, KeyPtr* added);
  Code RankOf(KeyNode& key, std::uint32_t count, const std::u16string& folded,
              std::uint32_t* rank) const;
  Code StoredNameAt(KeyNode& key, std::uint32_t index, std::u16string* name) const;
  static void SetInMemory(KeyMemory* memory, cvn::StringView name, std::uint32_t type,
                          std::span<const std::byte> data);

  const bool isInMemory_;
  HiveStore store_;
  std::optional<HiveImage> image_;
  std::uint64_t seen_ = 0;     // the store's version that image_ is of
  std::uint64_t version_ = 1;  // what nodes have to be of
  std::uint64_t changes_ = 0;
  KeyPtr root_;
  std::vector<std::weak_ptr<KeyNode>> holders_;  // of memory
};

}  // namespace platform::posix
