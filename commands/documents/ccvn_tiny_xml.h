// Open XML documents, and the handles to their elements.
#pragma once

#include <tinyxml.h>

#include <memory>
#include <string>
#include <unordered_map>

#include "commands/documents/xml_mirror.h"
#include "platform/error.h"
#include "support/string.h"

namespace tessel {

inline constexpr platform::Code kInvalidData = 13;  // ERROR_INVALID_DATA

class CCVNTinyXml;

// What an element handle holds: an element as long as it and its document exist.
class XmlElementHandle {
 public:
  XmlElementHandle(std::weak_ptr<CCVNTinyXml> document, TiXmlElement* element)
      : document_(std::move(document)), element_(element) {}
  XmlElementHandle(const XmlElementHandle&) = delete;
  XmlElementHandle& operator=(const XmlElementHandle&) = delete;
  ~XmlElementHandle();

  // The document that keeps the element alive, and the element; both null when either is gone.
  std::shared_ptr<CCVNTinyXml> Document() const;
  TiXmlElement* Element() const { return element_; }

 private:
  friend class CCVNTinyXml;
  std::weak_ptr<CCVNTinyXml> document_;
  TiXmlElement* element_;
};

// An XML document with its file forms, XPath, and the changes that scripts make. Text is UTF-8
// inside.
class CCVNTinyXml : public std::enable_shared_from_this<CCVNTinyXml> {
 public:
  CCVNTinyXml() = default;
  CCVNTinyXml(const CCVNTinyXml&) = delete;
  CCVNTinyXml& operator=(const CCVNTinyXml&) = delete;
  virtual ~CCVNTinyXml() = default;

  // Reads a file in UTF-8 or, by its byte-order mark, in UTF-16 of either order. False with the
  // platform's last error, or with none when the text isn't well-formed, nests deeper than
  // cvn::kDeepestXml, or has what the tree can't hold. What isn't in that encoding becomes U+FFFD,
  // and such a document can't be saved.
  virtual bool Load(cvn::StringView path);
  // Writes UTF-8 with a byte-order mark and CR LF; the old file stays whole until the new one is.
  // False with the last error: kInvalidData when the new text wouldn't be well-formed, or wouldn't
  // have all that is in the tree.
  virtual bool Save(cvn::StringView path);

  // Null when the document has none.
  TiXmlElement* GetRootElement() { return document_.RootElement(); }

  // The element that is the first node of `xpath`, seen from `context`; null for anything else.
  TiXmlElement* FindElement(TiXmlElement* context, const std::string& xpath);
  // The result of `xpath` as a text. False when it isn't valid.
  bool EvaluateText(TiXmlElement* context, const std::string& xpath, std::string* result) {
    return mirror_.EvaluateText(context, xpath, result);
  }

  // Parses one element in a text of a script; what stands behind it doesn't matter. Null when it is
  // none, or has what the tree can't hold.
  static TiXmlElement* ParseElement(cvn::StringView text, TiXmlDocument* document);

  // Sets what `xpath` selects: the only text of an element (all its children go), or an attribute,
  // which is made when its element is there. An empty path means the context itself. False when
  // there is nothing to set.
  bool SetValue(TiXmlElement* context, const std::string& xpath, const std::string& value);

  // Whether a child of `parent` may be `element`: no document nests deeper than cvn::kDeepestXml.
  static bool FitsBelow(const TiXmlElement& parent, const TiXmlElement& element);

  // Adds a copy of `element` before or behind one of the parent's children (the first that isn't
  // null counts), or as its last child. Nothing happens when the named one is no child of the
  // parent.
  void AddChild(TiXmlElement* parent, const TiXmlElement& element, TiXmlElement* before,
                TiXmlElement* after);

  // Removes an element that has a parent element or document, with all handles into it.
  void Remove(TiXmlElement* element);

  // A handle to one of the document's elements.
  std::shared_ptr<XmlElementHandle> HandleTo(TiXmlElement* element);

 private:
  friend class XmlElementHandle;

  // Whether `text`, in which the document was printed, has one root and all of the tree.
  bool IsWholeDocument(std::string text) const;
  void SetText(TiXmlElement* element, const std::string& text);
  bool SetAttribute(TiXmlElement* element, const std::string& name, const std::string& value);
  // Makes the handles dead that lead to `node` or into it.
  void Forget(const TiXmlNode& node, bool itself);

  TiXmlDocument document_;
  std::size_t loadedSize_ = 0;  // of the file, in bytes
  bool isRepaired_ = false;     // not all that the file had is in the text that was parsed
  XPathMirror mirror_{&document_};
  std::unordered_map<const TiXmlNode*, std::weak_ptr<XmlElementHandle>> handles_;
};

}  // namespace tessel
