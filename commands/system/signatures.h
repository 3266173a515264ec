// Commands on signatures.
#pragma once

#include "engine/function_base.h"

namespace tessel {

// Whether a file is signed at all, by a signature in it or by a catalog of the system.
class FunctionFileIsSigned : public FunctionRetBool {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String path_;
};

}  // namespace tessel
