#include "platform/offline/changes/moves.h"

#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/file_digest.h"

namespace platform::posix {
namespace {

using machine::EntryKind;
using machine::EntryState;
using machine::FileChange;

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

// What is compared of something that is gone, or new.
struct Item {
  std::size_t folder = kNone;  // that is gone, or new, with it
  std::size_t size = 1;        // how many changes it is, with all that is in it
  std::string content;         // equal for what has the same bytes, names and structure
  bool hasBytes = false;
  bool isPaired = false;
};

class MoveFinder {
 public:
  explicit MoveFinder(cvn::List<FileChange>* changes)
      : changes_(*changes), items_(changes->size()) {}

  void Run() {
    FindFolders();
    Describe();
    Pair(EntryKind::Folder);
    Pair(EntryKind::File);
    DropPaired();
  }

 private:
  bool IsGone(std::size_t i) const { return changes_[i].before && !changes_[i].after; }
  bool IsNew(std::size_t i) const { return changes_[i].after && !changes_[i].before; }
  const EntryState& StateOf(std::size_t i) const {
    return changes_[i].after ? *changes_[i].after : *changes_[i].before;
  }

  // What is in a folder follows it.
  void FindFolders() {
    std::vector<std::size_t> way;
    for (std::size_t i = 0; i < changes_.size(); ++i) {
      const cvn::StringView path = changes_[i].path;
      while (!way.empty() && !IsIn(path, changes_[way.back()].path)) {
        way.pop_back();
      }
      if (!IsGone(i) && !IsNew(i)) {
        continue;
      }
      items_[i].folder = way.empty() ? kNone : way.back();
      if (StateOf(i).kind == EntryKind::Folder) {
        way.push_back(i);
      }
    }
  }

  static bool IsIn(cvn::StringView path, cvn::StringView folder) {
    return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == u'\\';
  }

  // What is in a folder is described before it, and in the same order wherever that lies.
  void Describe() {
    for (std::size_t i = changes_.size(); i-- > 0;) {
      if (!IsGone(i) && !IsNew(i)) {
        continue;
      }
      Item& item = items_[i];
      const EntryState& state = StateOf(i);
      switch (state.kind) {
        case EntryKind::File:
          item.content = "file " + std::to_string(state.size) + ' ' + state.digest;
          item.hasBytes = state.size != 0;
          break;
        case EntryKind::Link:
          item.content = "link " + state.target;
          break;
        case EntryKind::Folder: {
          const Bytes digest = Digest(std::as_bytes(std::span(item.content)), EVP_sha256());
          item.content.assign("folder ").append(reinterpret_cast<const char*>(digest.data()),
                                                digest.size());
          break;
        }
      }
      if (item.folder != kNone) {
        AddTo(&items_[item.folder], item, changes_[i].path);
      }
    }
  }

  static void AddTo(Item* folder, const Item& item, cvn::StringView path) {
    const cvn::StringView name = path.substr(path.rfind(u'\\') + 1);
    for (const std::size_t length : {name.size(), item.content.size()}) {
      folder->content += std::to_string(length) + ' ';
    }
    const auto bytes = std::as_bytes(std::span(name));
    folder->content.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    folder->content += item.content;
    folder->size += item.size;
    folder->hasBytes = folder->hasBytes || item.hasBytes;
  }

  // Makes moves of those that are the only ones of their content, from the outermost on.
  void Pair(EntryKind kind) {
    struct Places {
      std::size_t gone = 0;  // how many
      std::size_t added = 0;
      std::size_t from = kNone;  // the last one
      std::size_t to = kNone;
    };
    std::unordered_map<std::string_view, Places> contents;
    const auto isMeant = [&](std::size_t i) {
      return (IsGone(i) || IsNew(i)) && items_[i].hasBytes && !items_[i].isPaired &&
             StateOf(i).kind == kind;
    };
    for (std::size_t i = 0; i < changes_.size(); ++i) {
      if (isMeant(i)) {
        Places& places = contents[items_[i].content];
        ++(IsGone(i) ? places.gone : places.added);
        (IsGone(i) ? places.from : places.to) = i;
      }
    }
    for (std::size_t i = 0; i < changes_.size(); ++i) {
      if (!isMeant(i) || !IsGone(i)) {
        continue;
      }
      const Places& places = contents[items_[i].content];
      if (places.gone == 1 && places.added == 1 && !items_[places.to].isPaired) {
        Join(places.from, places.to);
      }
    }
  }

  void Join(std::size_t from, std::size_t to) {
    for (std::size_t i = 0; i < items_[from].size; ++i) {
      changes_[to + i].movedFrom = changes_[from + i].path;
      pairs_.emplace_back(from + i, to + i);
      items_[from + i].isPaired = true;
      items_[to + i].isPaired = true;
    }
  }

  void DropPaired() {
    std::vector<bool> isDropped(changes_.size());
    for (const auto& [from, to] : pairs_) {
      changes_[to].before = std::move(changes_[from].before);
      isDropped[from] = true;
    }
    std::size_t kept = 0;
    for (std::size_t i = 0; i < changes_.size(); ++i) {
      if (isDropped[i]) {
        continue;
      }
      if (kept != i) {
        changes_[kept] = std::move(changes_[i]);
      }
      ++kept;
    }
    changes_.resize(kept);
  }

  cvn::List<FileChange>& changes_;
  std::vector<Item> items_;  // of the changes
  std::vector<std::pair<std::size_t, std::size_t>> pairs_;
};

}  // namespace

void FindMoves(cvn::List<FileChange>* changes) { MoveFinder(changes).Run(); }

}  // namespace platform::posix
