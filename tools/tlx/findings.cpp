#include "tools/tlx/findings.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace tlx {

cvn::List<Finding> Findings::Take() {
  std::ranges::stable_sort(findings_, {}, [](const Finding& finding) {
    return std::tuple(finding.position.line, finding.position.column);
  });
  return std::exchange(findings_, {});
}

void Findings::Add(const TiXmlBase& where, bool isError, cvn::StringView text) {
  findings_.push_back(
      {{static_cast<std::size_t>(where.Row()), static_cast<std::size_t>(where.Column())},
       isError,
       text});
}

}  // namespace tlx
