// A look at XML text before a recursive parser gets it.
#pragma once

#include <cstddef>
#include <string_view>

namespace cvn {

// Levels of elements that the system accepts in one document. Far more than any script needs, and
// little enough for parser, printer and destructor to recurse over on every platform's stack.
inline constexpr std::size_t kDeepestXml = 4096;

// False when elements nest deeper than kDeepestXml in `utf8Text`; `*badOffset` (optional) is then
// the offset of the first element that is too deep. Takes one pass without recursion. Text that is
// not well-formed is judged up to where TinyXML would give up at the latest; the tokens are cut
// just as TinyXML cuts them.
bool IsXmlNestingAllowed(std::string_view utf8Text, std::size_t* badOffset = nullptr);

}  // namespace cvn
