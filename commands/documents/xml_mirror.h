// XPath over TinyXML documents.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <memory>
#include <string>

namespace tessel {

// In bytes. What stands beside the tree of a larger document gives way to what else needs memory;
// of others it isn't worth to make it anew.
inline constexpr std::size_t kLargeXml = std::size_t{16} << 20;

// What an expression gave.
struct XPathMatch {
  enum class Kind {
    Error,      // the expression isn't valid, or gives no nodes
    Nothing,    // no node
    Element,    // `element` is the first node
    Attribute,  // the first node is the attribute of `element` that `attribute` names
    Other,      // the first node is a text or the like
  };
  Kind kind = Kind::Nothing;
  TiXmlElement* element = nullptr;
  std::string attribute;
};

enum class XPathKind {
  Invalid,
  Nodes,  // a path, which may lead to elements or attributes
  Value,  // a text, a number or a yes or no
};
XPathKind KindOfXPath(const std::string& xpath);

// Answers XPath 1.0 expressions over one document, by a copy of it in the library that evaluates
// them. The copy is made by the first question; changes of the document are reported to it, so that
// it stays the same. Uses the user data of the document's elements.
class XPathMirror {
 public:
  explicit XPathMirror(TiXmlDocument* document);
  ~XPathMirror();

  // The first node, in document order, that `xpath` gives from `context`.
  XPathMatch FindFirst(TiXmlElement* context, const std::string& xpath);
  // The result of `xpath` as a text. False when the expression isn't valid.
  bool EvaluateText(TiXmlElement* context, const std::string& xpath, std::string* result);

  // After all children of an element were replaced by one text.
  void TextSet(const TiXmlElement& element, const std::string& text);
  void AttributeSet(const TiXmlElement& element, const std::string& name, const std::string& value);
  void Added(TiXmlElement* element);
  // Before an element goes.
  void Removing(const TiXmlElement& element);

  // Gives the memory of a large copy back before something else needs as much; the next question
  // makes it anew.
  void GiveWay();

 private:
  struct Copy;
  bool Refresh();

  TiXmlDocument* document_;
  std::unique_ptr<Copy> copy_;
};

}  // namespace tessel
