// Commands that compute with variables and text.
#pragma once

#include "commands/common/whole_text_pattern.h"
#include "engine/function_base.h"

namespace tessel {

class FunctionAssign : public FunctionBase {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String var_;
  cvn::String value_;
};

// Stores one group of a pattern that matches the whole value; an empty text when there is none.
class FunctionAssignToken : public FunctionBase {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String var_;
  cvn::String value_;
  cvn::String regexp_;
  cvn::String index_;
  WholeTextPattern pattern_;
};

// Adds a value that isn't empty to a variable.
class FunctionWithAddend : public FunctionBase {
 public:
  bool Parse() override;

 protected:
  cvn::String var_;
  cvn::String value_;
};

class FunctionAddInt : public FunctionWithAddend {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

class FunctionAddString : public FunctionWithAddend {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

// What stringGet takes and stringDelete removes: a piece of a text, of up to maxCount characters
// from fromIndex on, that ends before the first character of toAnyChar. Both numbers count as
// unsigned.
class FunctionWithPiece : public FunctionBase {
 protected:
  bool ReadPiece();
  // The piece of `text`; empty when fromIndex lies beyond its end.
  cvn::StringView PieceOf(cvn::StringView text) const;

  std::int32_t fromIndex_ = 0;
  std::int32_t maxCount_ = 0;
  cvn::String toAnyChar_;
};

class FunctionStringDelete : public FunctionWithPiece {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String var_;
};

class FunctionStringGet : public FunctionWithPiece {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String var_;
  cvn::String value_;
};

class FunctionStringTrim : public FunctionBase {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String var_;
  cvn::String chars_;
};

// The condition of the language.
class FunctionTest : public FunctionRetBool {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  enum class Operator { LessOrEqual = 0, Equal = 1, Less = 2 };
  enum class Type { String = 0, Number = 1 };

  cvn::String left_;
  cvn::String right_;
  Operator operator_ = Operator::LessOrEqual;
  Type type_ = Type::String;
};

}  // namespace tessel
