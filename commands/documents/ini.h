// Commands over INI files.
#pragma once

#include "engine/function_base.h"

namespace tessel {

// Gives the default where the file, the section or the key is missing, and never fails.
class FunctionIniGetValue : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String path_;
  cvn::String section_;
  cvn::String key_;
  cvn::String var_;
  cvn::String default_;
};

// Sets a value, which may be empty: neither a key nor a section can be removed.
class FunctionIniSetValue : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String path_;
  cvn::String section_;
  cvn::String key_;
  cvn::String value_;
};

}  // namespace tessel
