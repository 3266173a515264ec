// The entities that a document type declares.
#pragma once

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <string_view>

namespace tessel {

class XmlEntities {
 public:
  // Reads a document type from its "<!DOCTYPE" up to its '>'.
  void Declare(std::string_view type);

  // Whether the document may refer to this one: what lies in another file isn't read.
  bool MayHave(std::string_view name) const { return isOpen_ || names_.contains(name); }

 private:
  std::size_t AddName(std::string_view type, std::size_t at);

  bool isOpen_ = false;
  std::set<std::string, std::less<>> names_;
};

}  // namespace tessel
