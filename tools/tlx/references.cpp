#include "tools/tlx/references.h"

#include <algorithm>

#include "engine/variable_store.h"

namespace tlx {
namespace {

bool StartsName(char16_t c) {
  return c == u'_' || (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

// Parentheses as in "ProgramFiles(x86)".
bool ContinuesName(char16_t c) {
  return StartsName(c) || (c >= u'0' && c <= u'9') || c == u'.' || c == u'(' || c == u')';
}

bool LooksLikeName(cvn::StringView name) {
  name = ElementName(name).name;
  return !name.empty() && StartsName(name.front()) && std::ranges::all_of(name, ContinuesName);
}

}  // namespace

cvn::StringView FindReference(cvn::StringView text) {
  cvn::StringView first;
  tessel::VisitReferences(text, [&first](cvn::StringView name) {
    const bool isName = LooksLikeName(name);
    if (isName && first.empty()) {
      first = {name.data() - 1, name.size() + 2};
    }
    return isName;
  });
  return first;
}

cvn::List<cvn::StringView> NamesIn(cvn::StringView text,
                                   const std::function<bool(cvn::StringView name)>& isKnown) {
  struct Piece {
    cvn::StringView text;
    int depth;  // of the index that it is
  };
  cvn::List<cvn::StringView> names;
  cvn::List<Piece> pieces = {{text, 0}};
  while (!pieces.empty()) {
    const Piece piece = pieces.back();
    pieces.pop_back();
    tessel::VisitReferences(piece.text, [&](cvn::StringView name) {
      const bool isName = LooksLikeName(name) || isKnown(name);
      if (isName) {
        names.push_back(name);
        const cvn::StringView index = ElementName(name).index;
        if (!index.empty() && piece.depth < tessel::VariableStore::kDeepestReference) {
          pieces.push_back({index, piece.depth + 1});
        }
      }
      return isName;
    });
  }
  return names;
}

VariableName ElementName(cvn::StringView name) {
  const std::size_t bracket = name.find(u'[');
  const bool hasIndex = bracket != cvn::StringView::npos && bracket > 0 && name.ends_with(u']') &&
                        bracket + 2 < name.size();
  return hasIndex ? VariableName{name.substr(0, bracket),
                                 name.substr(bracket + 1, name.size() - bracket - 2)}
                  : VariableName{name, {}};
}

}  // namespace tlx
