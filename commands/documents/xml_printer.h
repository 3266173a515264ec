// XML documents as text.
#pragma once

#include <tinyxml.h>

#include <string>

namespace tessel {

// The document in the forms of TinyXML's own printing to a file, in UTF-8 with LF at the ends of
// lines.
std::string PrintXml(const TiXmlDocument& document);

// The document without a character that isn't in its tree, for another parser to read into the same
// tree. In names kDeleteMark stands for U+007F.
std::string PrintXmlBare(const TiXmlDocument& document);

}  // namespace tessel
