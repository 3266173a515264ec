// What there is to say of a script, place by place.
#pragma once

#include <tinyxml.h>

#include "support/containers.h"
#include "support/string.h"
#include "tools/tlx/messages.h"

namespace tlx {

struct Finding {
  TextPosition position;
  bool isError;  // the runner refuses the script
  cvn::String text;
};

class Findings {
 public:
  void Error(const TiXmlBase& where, cvn::StringView text) { Add(where, true, text); }
  void Warn(const TiXmlBase& where, cvn::StringView text) { Add(where, false, text); }

  // In the order of their places.
  cvn::List<Finding> Take();

 private:
  void Add(const TiXmlBase& where, bool isError, cvn::StringView text);

  cvn::List<Finding> findings_;
};

}  // namespace tlx
