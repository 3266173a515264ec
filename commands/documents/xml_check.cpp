#include "commands/documents/xml_check.h"

#include <algorithm>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "commands/documents/xml_marks.h"
#include "commands/documents/xml_name.h"

namespace tessel {
namespace {

// Everything becomes a node, and nothing is changed but references. Blanks alone are no text.
constexpr unsigned kParseOptions = pugi::parse_fragment | pugi::parse_escapes |
                                   pugi::parse_comments | pugi::parse_cdata | pugi::parse_pi |
                                   pugi::parse_doctype | pugi::parse_declaration;

// Without blanks at both ends, and with one for several in a row.
std::string Condensed(std::string_view text) {
  std::string condensed;
  for (const char c : text) {
    if (!IsXmlBlank(c)) {
      condensed.append(1, c);
    } else if (!condensed.empty() && condensed.back() != ' ') {
      condensed.append(1, ' ');
    }
  }
  if (condensed.ends_with(' ')) {
    condensed.pop_back();
  }
  return condensed;
}

// `stored` is from TinyXML's tree. A text that was read still has its marks on both sides.
bool IsSameText(std::string_view stored, std::string_view read, bool isCondensed) {
  if (stored == read || stored.find("&#x") != std::string_view::npos) {
    return true;
  }
  const std::string plainStored = WithoutXmlMarks(stored);
  const std::string plainRead = WithoutXmlMarks(read);
  return isCondensed ? Condensed(plainStored) == Condensed(plainRead) : plainStored == plainRead;
}

bool IsSameName(std::string_view stored, std::string_view read) {
  return stored == read || stored == WithoutXmlMarks(read);
}

bool IsPlainText(const TiXmlNode* node) {
  return node != nullptr && node->ToText() != nullptr && !node->ToText()->CDATA();
}

// Both trees are walked at once, with the places to go on at in a list: they may be deep.
class Comparison {
 public:
  bool Documents(const TiXmlDocument& stored, pugi::xml_node read) {
    places_.push_back({stored.FirstChild(), read.first_child()});
    return Run();
  }

  bool Elements(const TiXmlElement& stored, pugi::xml_node read) {
    return Element(stored, read) && Run();
  }

 private:
  struct Place {
    const TiXmlNode* left;
    pugi::xml_node right;
  };

  bool Run() {
    while (!places_.empty()) {
      Place& place = places_.back();
      if (place.left == nullptr && !place.right) {
        places_.pop_back();
        continue;
      }
      const bool isText = IsPlainText(place.left) || place.right.type() == pugi::node_pcdata;
      if (isText ? !Texts(&place) : !Nodes(&place)) {
        return false;
      }
    }
    return true;
  }

  // All but the children, which it leaves to Run.
  bool Element(const TiXmlElement& stored, pugi::xml_node read) {
    const TiXmlAttribute* left = stored.FirstAttribute();
    pugi::xml_attribute right = read.first_attribute();
    for (; left != nullptr && right; left = left->Next(), right = right.next_attribute()) {
      if (!IsSameName(left->NameTStr(), right.name()) ||
          !IsSameText(left->ValueStr(), right.value(), false)) {
        return false;
      }
    }
    places_.push_back({stored.FirstChild(), read.first_child()});
    return left == nullptr && !right && read.type() == pugi::node_element &&
           IsSameName(stored.ValueStr(), read.name());
  }

  // Texts side by side are printed as one, and empty ones not at all.
  static bool Texts(Place* place) {
    std::string stored;
    for (; IsPlainText(place->left); place->left = place->left->NextSibling()) {
      stored += place->left->ValueStr();
    }
    std::string_view read;
    if (place->right.type() == pugi::node_pcdata) {
      read = place->right.value();
      place->right = place->right.next_sibling();
    }
    return IsSameText(stored, read, true);
  }

  bool Nodes(Place* place) {
    if (place->left == nullptr || !place->right) {
      return false;
    }
    const TiXmlNode& stored = *place->left;
    const pugi::xml_node read = place->right;
    place->left = stored.NextSibling();
    place->right = read.next_sibling();
    if (const TiXmlElement* element = stored.ToElement()) {
      return Element(*element, read);
    }
    if (stored.ToText() != nullptr) {
      return Sections(stored.ValueStr(), read, &place->right);
    }
    if (stored.ToComment() != nullptr) {
      return read.type() == pugi::node_comment && IsSameName(stored.ValueStr(), read.value());
    }
    if (const TiXmlDeclaration* declaration = stored.ToDeclaration()) {
      return Declarations(*declaration, read);
    }
    // As written, where the other parser has a target and the rest.
    const std::string& words = stored.ValueStr();
    return words.starts_with('?')
               ? read.type() == pugi::node_pi &&
                     std::string_view(words).substr(1).starts_with(read.name()) &&
                     words.ends_with(read.value() + std::string("?"))
               : read.type() == pugi::node_doctype && words.ends_with(read.value());
  }

  static bool Sections(const std::string& stored, pugi::xml_node read, pugi::xml_node* right) {
    std::string text = read.value();
    // In what TinyXML read too, several are one.
    const bool isOne = text.find(kSectionMark) != std::string_view::npos;
    for (auto more = isOne ? 0 : std::ranges::count(stored, kSectionMark); more != 0; --more) {
      if (right->type() != pugi::node_cdata) {
        return false;
      }
      text += right->value();
      *right = right->next_sibling();
    }
    return read.type() == pugi::node_cdata && WithoutXmlMarks(stored) == WithoutXmlMarks(text);
  }

  static bool Declarations(const TiXmlDeclaration& stored, pugi::xml_node read) {
    const std::pair<const char*, const char*> parts[] = {{"version", stored.Version()},
                                                         {"encoding", stored.Encoding()},
                                                         {"standalone", stored.Standalone()}};
    pugi::xml_attribute right = read.first_attribute();
    for (const auto& [name, value] : parts) {
      if (*value == '\0') {
        continue;
      }
      if (std::string_view(right.name()) != name || std::string_view(right.value()) != value) {
        return false;
      }
      right = right.next_attribute();
    }
    return read.type() == pugi::node_declaration && !right;
  }

  std::vector<Place> places_;
};

// What is parsed stands in `text`.
bool Parse(std::string* text, pugi::xml_document* parsed) {
  return static_cast<bool>(
      parsed->load_buffer_inplace(text->data(), text->size(), kParseOptions, pugi::encoding_utf8));
}

}  // namespace

bool HasSameXml(std::string text, const TiXmlDocument& document) {
  pugi::xml_document parsed;
  return Parse(&text, &parsed) && Comparison().Documents(document, parsed);
}

bool HasSameXml(std::string text, const TiXmlElement& element) {
  pugi::xml_document parsed;
  return Parse(&text, &parsed) && Comparison().Elements(element, parsed.document_element());
}

}  // namespace tessel
