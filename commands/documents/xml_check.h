// A second opinion on a document, by a parser that isn't TinyXML.
#pragma once

#include <tinyxml.h>

#include <string>

namespace tessel {

// Whether `text` (UTF-8) is well-formed and has all that is in the tree of `document`, and nothing
// else, apart from the blanks around texts and within them. Where a text holds a hexadecimal
// character reference, which the printer copies, the text itself isn't compared. The parser works
// in `text`: who needs it no more moves it here.
bool HasSameXml(std::string text, const TiXmlDocument& document);

// The same for one element.
bool HasSameXml(std::string text, const TiXmlElement& element);

}  // namespace tessel
