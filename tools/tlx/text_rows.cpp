#include "tools/tlx/text_rows.h"

#include "support/format.h"
#include "tools/tlx/machine_text.h"

namespace tlx {

void AddRow(cvn::StringView title, cvn::StringView text, cvn::List<cvn::String>* lines) {
  lines->push_back(cvn::Format(u"  %-13s%s", title, Printable(text)));
}

}  // namespace tlx
