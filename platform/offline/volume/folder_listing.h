// The names in a folder that a pattern matches.
#pragma once

#include <dirent.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/error.h"
#include "platform/formats/wildcards.h"
#include "support/string.h"

namespace platform::posix {

// In the order in which Windows has them. All text stands in two buffers, so that a name costs no
// memory of its own.
class FolderListing {
 public:
  struct Item {
    std::string_view name;
    unsigned char type = DT_UNKNOWN;
  };
  struct Options {
    bool withDots = false;        // "." and ".." are listed, as they are but in a root
    bool withShortNames = false;  // a name counts when its short name matches, too
  };

  // Reads `folder`, a descriptor of any kind; once.
  Code Read(int folder, Options options, Pattern pattern);

  // The next item, whose name is valid as long as this is; nothing behind the last one.
  std::optional<Item> Next();
  // The one that comes after `count` others.
  std::optional<Item> Peek(std::size_t count) const;

 private:
  struct Stored {
    std::size_t name;
    std::size_t fold;
    std::uint64_t key;  // what follows the part that all names begin with, most significant first
    std::uint16_t nameLength;
    std::uint16_t foldLength;
    unsigned char type;
  };

  void ReadEntry(int folder, const dirent& entry, bool withShortNames, Pattern* pattern);
  cvn::StringView Fold(std::string_view name);
  void Add(std::string_view name, unsigned char type);
  std::string_view NameOf(const Stored& item) const;
  cvn::StringView FoldOf(const Stored& item) const;
  std::size_t CommonLength(std::size_t first) const;
  void Sort(std::size_t first);
  bool IsBefore(const Stored& left, const Stored& right) const;

  std::string names_;
  std::u16string folds_;
  std::size_t foldsUsed_ = 0;
  bool isAscii_ = true;
  std::vector<Stored> items_;
  std::size_t next_ = 0;
};

}  // namespace platform::posix
