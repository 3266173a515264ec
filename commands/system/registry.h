// Commands that read and change the registry, always in its native view.
#pragma once

#include "engine/function_base.h"
#include "platform/registry.h"

namespace tessel {

// What every command here has: a root, which stands fast from the load on, and a key below it.
struct RegistryPlace {
  platform::registry::Root root = platform::registry::Root::LocalMachine;
  cvn::String key;

  // False when an attribute is missing, or the root is none that a script may name.
  bool Read(const AttributeMap& attributes);
};

// Gives a variable the text of a value. A binary value is a failure (1630) even though the variable
// receives its hexadecimal digits.
class FunctionRegRead : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String var_;
  RegistryPlace place_;
  cvn::String value_;
};

// What regGetKeys and regGetValues share: a walk over names, which the variable receives with the
// delimiter behind each; after a failure it keeps what it had.
class FunctionRegGetNames : public FunctionRetError {
 public:
  bool Parse() override;

 protected:
  using NameAt = platform::Code (*)(const platform::registry::Key& key, std::uint32_t index,
                                    cvn::String* name);
  void GatherNames(cvn::StringView word, std::uint32_t access, NameAt nameAt);

 private:
  cvn::String var_;
  RegistryPlace place_;
  cvn::String delim_;
};

class FunctionRegGetKeys : public FunctionRegGetNames {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

class FunctionRegGetValues : public FunctionRegGetNames {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

// Writes a value of a key that is there.
class FunctionRegWrite : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  RegistryPlace place_;
  std::uint32_t type_ = 0;
  cvn::String data_;
  cvn::String value_;
};

// A key that can't be opened for reading counts as absent.
class FunctionRegExistsKey : public FunctionRetBool {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  RegistryPlace place_;
};

// Makes a key with all that is missing on the way; one that is there is left as it is.
class FunctionRegCreateKey : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  RegistryPlace place_;
  bool isVolatile_ = false;
};

// Deletes a key with all below it, the deepest first, up to the first that resists.
class FunctionRegDeleteKey : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  RegistryPlace place_;
};

class FunctionRegDeleteValue : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  RegistryPlace place_;
  cvn::String value_;
};

}  // namespace tessel
