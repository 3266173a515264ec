// A check of XML text before a recursive parser reads it.
#pragma once

#include <cstddef>
#include <string_view>

namespace cvn {

// The deepest nesting of elements that is accepted. More than any script needs, and few enough for
// the recursion of parser, printer and destructor to fit the stack on both platforms.
inline constexpr std::size_t kDeepestXml = 4096;

// False when elements nest deeper than kDeepestXml in `utf8Text`; `*badOffset` (optional) is then
// the offset of the first element that is too deep. One pass, no recursion. Tokens are cut exactly
// as TinyXML cuts them, and text that isn't well-formed is judged up to the point where TinyXML
// gives up, or less far.
bool IsXmlNestingAllowed(std::string_view utf8Text, std::size_t* badOffset = nullptr);

}  // namespace cvn
