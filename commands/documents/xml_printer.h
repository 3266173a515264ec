// XML documents as text.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <string>

namespace tessel {

// The document in the forms of TinyXML's own printing to a file, in UTF-8 with LF at the ends of
// lines. Memory for `size` bytes is taken at once: a large text that grows leaves its earlier
// places behind.
std::string PrintXml(const TiXmlDocument& document, std::size_t size = 0);

// The document without a character that isn't in its tree, for another parser to read into the same
// tree. In names kDeleteMark stands for U+007F.
std::string PrintXmlBare(const TiXmlDocument& document);

}  // namespace tessel
