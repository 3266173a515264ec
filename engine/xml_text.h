// XML text as the system reads it into TinyXML, which works on UTF-8.
#pragma once

#include <tinyxml.h>

#include <string>
#include <string_view>

#include "support/string.h"

namespace tessel {

// Parses wide text into `document`. False when it is empty, not well-formed, or nests deeper than
// TinyXML's recursive parser may be trusted with; in the last case the trace says so.
// Only with `keepsPlaces` do the nodes know their lines and columns afterwards: following them
// costs more than parsing.
bool ParseXmlText(cvn::StringView text, TiXmlDocument* document, bool keepsPlaces = false);
// The same for text as TinyXML takes it.
bool ParseXmlUtf8(const std::string& utf8, TiXmlDocument* document, bool keepsPlaces = false);

// A text of a tree as wide text. A reference to half of a surrogate pair gives that half.
cvn::String XmlToWide(std::string_view text);

// The value of an attribute as wide text, empty when it is missing.
cvn::String XmlAttributeText(const TiXmlElement& element, const std::string& name);

}  // namespace tessel
