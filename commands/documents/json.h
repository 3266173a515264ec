// Commands over JSON documents.
#pragma once

#include "commands/documents/document_commands.h"

namespace tessel {

class FunctionJsonOpen : public FunctionOnPath {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

class FunctionJsonClose : public FunctionCloseDocument {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

class FunctionJsonSave : public FunctionOnPath {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

// Puts a JSON text's value at a place, in place of what stands there.
class FunctionJsonAddChild : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String handle_;
  cvn::String path_;
  cvn::String data_;
};

class FunctionJsonRemoveChild : public FunctionOnPath {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

// What the three setters share; they differ in what they make of the text.
class FunctionJsonSetValue : public FunctionRetError {
 public:
  bool Parse() override;

 protected:
  cvn::String handle_;
  cvn::String path_;
  cvn::String value_;
};

class FunctionJsonSetStringValue : public FunctionJsonSetValue {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

class FunctionJsonSetIntValue : public FunctionJsonSetValue {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

class FunctionJsonSetBoolValue : public FunctionJsonSetValue {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

class FunctionJsonGetValue : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String handle_;
  cvn::String path_;
  cvn::String var_;
};

// Gives a value a handle, or, with `enumStep`, walks the elements of an array. There is one such
// walk in the process.
class FunctionJsonGetElement : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String handle_;
  cvn::String path_;
  cvn::String destHandle_;
  cvn::String enumStep_;
};

}  // namespace tessel
