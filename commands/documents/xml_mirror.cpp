#include "commands/documents/xml_mirror.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <pugixml.hpp>
#include <unordered_map>
#include <vector>

#include "commands/documents/xml_marks.h"
#include "commands/documents/xml_printer.h"
#include "platform/memory.h"

namespace tessel {
namespace {

// Only what the bare print uses: no line ends are changed and no blanks dropped, since both were
// settled before.
constexpr unsigned kParseOptions =
    pugi::parse_escapes | pugi::parse_comments | pugi::parse_ws_pcdata;

pugi::xml_node CopyOf(const TiXmlElement& element) {
  return pugi::xml_node(
      static_cast<pugi::xml_node_struct*>(const_cast<void*>(element.GetUserData())));
}

// The element that follows in document order, of those below `root`.
TiXmlElement* NextElement(TiXmlElement* element, const TiXmlNode* root) {
  if (TiXmlElement* child = element->FirstChildElement()) {
    return child;
  }
  for (TiXmlNode* at = element; at != nullptr && at != root; at = at->Parent()) {
    if (TiXmlElement* next = at->NextSiblingElement()) {
      return next;
    }
  }
  return nullptr;
}

// A name in the text that the copy was parsed from gets back what no name should have.
void RestoreName(const char* name) {
  for (char* at = const_cast<char*>(name); (at = std::strchr(at, kDeleteMark)) != nullptr;) {
    *at = '\x7F';
  }
}

void RestoreNames(pugi::xml_node node) {
  RestoreName(node.name());
  for (const pugi::xml_attribute attribute : node.attributes()) {
    RestoreName(attribute.name());
  }
}

// Adds a text behind the children of `parent`; there are no empty ones.
void AppendText(const std::string& text, pugi::xml_node parent) {
  if (!text.empty()) {
    parent.append_child(pugi::node_pcdata).set_value(text.c_str());
  }
}

// Expressions come again and again from the same commands.
class QueryCache {
 public:
  // Null when the expression isn't valid.
  const pugi::xpath_query* Get(const std::string& xpath) {
    const auto found = queries_.find(xpath);
    if (found != queries_.end()) {
      return found->second.get();
    }
    if (queries_.size() == kMost) {
      queries_.clear();
    }
    return queries_.emplace(xpath, Compile(xpath)).first->second.get();
  }

 private:
  static constexpr std::size_t kMost = 256;

  static std::unique_ptr<pugi::xpath_query> Compile(const std::string& xpath) {
    try {
      return std::make_unique<pugi::xpath_query>(xpath.c_str());
    } catch (const std::exception&) {
      return nullptr;
    }
  }

  std::unordered_map<std::string, std::unique_ptr<pugi::xpath_query>> queries_;
};

const pugi::xpath_query* Query(const std::string& xpath) {
  static QueryCache cache;
  return cache.Get(xpath);
}

}  // namespace

struct XPathMirror::Copy {
  struct Place {
    std::ptrdiff_t offset;  // of the element's name in the parsed text
    TiXmlElement* element;
  };

  // Elements of the parsed text are found by their place in it, which ascends in document order;
  // what came later has none.
  TiXmlElement* OriginalOf(pugi::xml_node node) const {
    const std::ptrdiff_t offset = node.offset_debug();
    if (offset < 0) {
      const auto found = added.find(node.internal_object());
      return found == added.end() ? nullptr : found->second;
    }
    const auto place =
        std::lower_bound(places.begin(), places.end(), offset,
                         [](const Place& at, std::ptrdiff_t key) { return at.offset < key; });
    return place != places.end() && place->offset == offset ? place->element : nullptr;
  }

  // Walks both trees at once; false when they differ.
  bool Pair(TiXmlDocument* document, bool hasMarks) {
    TiXmlElement* element = document->FirstChildElement();
    struct Pairing : pugi::xml_tree_walker {
      bool for_each(pugi::xml_node& node) override {
        if (node.type() == pugi::node_element) {
          if (hasMarks) {
            RestoreNames(node);
          }
          if (next == nullptr || next->ValueStr() != node.name()) {
            return false;
          }
          next->SetUserData(node.internal_object());
          places->push_back({node.offset_debug(), next});
          next = NextElement(next, nullptr);
        }
        return true;
      }
      TiXmlElement* next = nullptr;
      std::vector<Place>* places = nullptr;
      bool hasMarks = false;
    } pairing;
    pairing.hasMarks = hasMarks;
    pairing.next = element;
    pairing.places = &places;
    return tree.traverse(pairing) && pairing.next == nullptr;
  }

  void CopyInto(TiXmlElement* original, pugi::xml_node node) {
    node.set_name(original->Value());
    original->SetUserData(node.internal_object());
    added[node.internal_object()] = original;
    for (const TiXmlAttribute* at = original->FirstAttribute(); at != nullptr; at = at->Next()) {
      node.append_attribute(at->Name()).set_value(WithoutXmlMarks(at->ValueStr()).c_str());
    }
    CopyChildren(original, node);
  }

  // Texts side by side become one, as when the whole document is read.
  void CopyChildren(TiXmlElement* original, pugi::xml_node node) {
    std::string words;
    TiXmlNode* child = original->FirstChild();
    for (; child != nullptr; child = child->NextSibling()) {
      TiXmlElement* element = child->ToElement();
      if (child->ToText() != nullptr) {
        words += WithoutXmlMarks(child->ValueStr());
      } else if (element != nullptr || child->ToComment() != nullptr) {
        AppendText(words, node);
        words.clear();
        if (element != nullptr) {
          CopyInto(element, node.append_child(pugi::node_element));
        } else {
          node.append_child(pugi::node_comment).set_value(child->Value());
        }
      }
    }
    AppendText(words, node);
  }

  pugi::xml_document tree;
  std::string text;  // the tree's names and values stand in it
  std::vector<Place> places;
  std::unordered_map<const pugi::xml_node_struct*, TiXmlElement*> added;
};

XPathKind KindOfXPath(const std::string& xpath) {
  const pugi::xpath_query* query = Query(xpath);
  if (query == nullptr) {
    return XPathKind::Invalid;
  }
  return query->return_type() == pugi::xpath_type_node_set ? XPathKind::Nodes : XPathKind::Value;
}

XPathMirror::XPathMirror(TiXmlDocument* document) : document_(document) {}
XPathMirror::~XPathMirror() = default;

bool XPathMirror::Refresh() {
  if (copy_ != nullptr) {
    return true;
  }
  auto copy = std::make_unique<Copy>();
  copy->text = PrintXmlBare(*document_);
  const bool hasMarks = copy->text.find(kDeleteMark) != std::string::npos;
  const auto parsed = copy->tree.load_buffer_inplace(copy->text.data(), copy->text.size(),
                                                     kParseOptions, pugi::encoding_utf8);
  if (!parsed || !copy->Pair(document_, hasMarks)) {
    return false;
  }
  copy_ = std::move(copy);
  return true;
}

XPathMatch XPathMirror::FindFirst(TiXmlElement* context, const std::string& xpath) {
  const pugi::xpath_query* query = Query(xpath);
  if (query == nullptr || !Refresh()) {
    return {XPathMatch::Kind::Error, nullptr, {}};
  }
  try {
    const pugi::xpath_node found = query->evaluate_node(CopyOf(*context));
    if (found.attribute()) {
      return {XPathMatch::Kind::Attribute, copy_->OriginalOf(found.parent()),
              found.attribute().name()};
    }
    if (found.node().type() == pugi::node_element) {
      return {XPathMatch::Kind::Element, copy_->OriginalOf(found.node()), {}};
    }
    return {found ? XPathMatch::Kind::Other : XPathMatch::Kind::Nothing, nullptr, {}};
  } catch (const std::exception&) {
    return {XPathMatch::Kind::Error, nullptr, {}};
  }
}

bool XPathMirror::EvaluateText(TiXmlElement* context, const std::string& xpath,
                               std::string* result) {
  const pugi::xpath_query* query = Query(xpath);
  if (query == nullptr || !Refresh()) {
    return false;
  }
  try {
    *result = query->evaluate_string(CopyOf(*context));
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

void XPathMirror::TextSet(const TiXmlElement& element, const std::string& text) {
  if (copy_ != nullptr) {
    pugi::xml_node node = CopyOf(element);
    node.remove_children();
    AppendText(text, node);
  }
}

void XPathMirror::AttributeSet(const TiXmlElement& element, const std::string& name,
                               const std::string& value) {
  if (copy_ != nullptr) {
    pugi::xml_node node = CopyOf(element);
    pugi::xml_attribute attribute = node.attribute(name.c_str());
    if (!attribute) {
      attribute = node.append_attribute(name.c_str());
    }
    attribute.set_value(value.c_str());
  }
}

void XPathMirror::Added(TiXmlElement* element) {
  if (copy_ == nullptr) {
    return;
  }
  // New elements are put beside others, or at the end.
  const TiXmlNode* behind = element->NextSibling();
  pugi::xml_node parent = CopyOf(*element->Parent()->ToElement());
  if (behind == nullptr) {
    copy_->CopyInto(element, parent.append_child(pugi::node_element));
  } else if (behind->ToElement() != nullptr) {
    copy_->CopyInto(element,
                    parent.insert_child_before(pugi::node_element, CopyOf(*behind->ToElement())));
  } else {
    const TiXmlElement* before = element->PreviousSibling()->ToElement();
    copy_->CopyInto(element, parent.insert_child_after(pugi::node_element, CopyOf(*before)));
  }
}

void XPathMirror::Removing(const TiXmlElement& element) {
  if (copy_ == nullptr) {
    return;
  }
  pugi::xml_node node = CopyOf(element);
  pugi::xml_node before = node.previous_sibling();
  const pugi::xml_node behind = node.next_sibling();
  if (before.type() == pugi::node_pcdata && behind.type() == pugi::node_pcdata) {
    before.set_value((std::string(before.value()) + behind.value()).c_str());
    node.parent().remove_child(behind);
  }
  node.parent().remove_child(node);
}

void XPathMirror::GiveWay() {
  if (copy_ != nullptr && copy_->text.size() >= kLargeXml) {
    copy_.reset();
    platform::GiveBackMemory();
  }
}

}  // namespace tessel
