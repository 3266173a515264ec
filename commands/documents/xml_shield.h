// What TinyXML's parser can't take of a well-formed text, kept out of its way and put back.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tessel {

// Of one element. TinyXML compares each with all before it.
inline constexpr std::size_t kMostXmlAttributes = 1000;

enum class XmlPart {
  Document,  // a file: nothing but comments and instructions may stand beside its elements
  Element,   // one element in a script; what stands behind it doesn't matter
};

// A text for TinyXML and the pieces that it doesn't see.
struct ShieldedXml {
  std::string text;               // has marks of xml_marks.h, and an instruction for each piece
  std::vector<std::string> kept;  // instructions and document types as written, without '<' and '>'
  std::size_t size = 0;           // of `text`, up to the end of the element of an XmlPart::Element
};

// Reads well-formed UTF-8 with LF at the ends of lines. False when something in it has no place in
// XML and would be lost: text outside of the elements, what isn't closed, a '&' that begins no
// reference, an entity that isn't declared, a character reference to no character. And false when
// an element has more than kMostXmlAttributes. That the text is well-formed otherwise is for the
// parsers to say.
bool ShieldXml(std::string text, XmlPart part, ShieldedXml* shielded);

// Whether ShieldXml would take `text`.
bool IsShieldableXml(std::string_view text, XmlPart part);

// Puts the pieces into the tree that the shielded text gave.
void RestoreKept(const ShieldedXml& shielded, TiXmlDocument* document);

// A text as it stands in CDATA sections: one can't hold its own end.
std::string SplitIntoSections(std::string_view text);

}  // namespace tessel
