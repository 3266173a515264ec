// Commands over XML documents.
#pragma once

#include <string>

#include "commands/documents/document_commands.h"

namespace tessel {

class FunctionXmlOpen : public FunctionOnPath {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

class FunctionXmlClose : public FunctionCloseDocument {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

class FunctionXmlSave : public FunctionOnPath {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

class FunctionXmlAddChild : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  std::uint32_t AddChild(const cvn::String& data, const std::string& xpath,
                         const std::string& before, const std::string& after,
                         const std::string& cdata);

  cvn::String handle_;
  cvn::String xpath_;
  cvn::String insertBefore_;
  cvn::String insertAfter_;
  cvn::String data_;
  cvn::String cdata_;
};

class FunctionXmlRemoveChild : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String handle_;
  cvn::String xpath_;
};

class FunctionXmlSetValue : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 protected:
  cvn::String handle_;
  cvn::String xpath_;
  cvn::String value_;
};

// Despite its name it sets plain text too. It says in words what went wrong, and forgets an earlier
// failure.
class FunctionXmlSetCDataValue : public FunctionXmlSetValue {
 public:
  static const CommandDescription kDescription;

  void Execute() override;

 private:
  void Fail(cvn::StringView words);
};

class FunctionXmlGetValue : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String handle_;
  cvn::String xpath_;
  cvn::String var_;
};

class FunctionXmlGetElement : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String handle_;
  cvn::String xpath_;
  cvn::String destHandle_;
};

}  // namespace tessel
