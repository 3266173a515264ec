#include "commands/documents/xml_entities.h"

#include <algorithm>

#include "commands/documents/xml_name.h"

namespace tessel {

void XmlEntities::Declare(std::string_view type) {
  const std::size_t subset = std::min(type.find('['), type.size());
  const std::string_view head = type.substr(0, std::min(type.find_first_of("\"'"), subset));
  isOpen_ = head.find("SYSTEM") != std::string_view::npos ||
            head.find("PUBLIC") != std::string_view::npos;
  std::size_t at = subset;
  while ((at = type.find_first_of("<%", at)) != std::string_view::npos) {
    if (type[at] == '%') {
      isOpen_ = isOpen_ || (at + 1 < type.size() && StartsXmlName(type[at + 1]));
      ++at;
    } else if (type.substr(at).starts_with("<!--")) {
      at = std::min(type.find("-->", at), type.size());
    } else if (type.substr(at).starts_with("<!ENTITY")) {
      at = AddName(type, at + 8);
    } else {
      ++at;
    }
  }
}

std::size_t XmlEntities::AddName(std::string_view type, std::size_t at) {
  const std::size_t start = std::min(type.find_first_not_of(kXmlBlanks, at), type.size());
  std::size_t end = start;
  while (end < type.size() && IsInXmlName(type[end])) {
    ++end;
  }
  names_.emplace(type.substr(start, end - start));
  return end;
}

}  // namespace tessel
