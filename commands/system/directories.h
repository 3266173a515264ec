// Commands on folders and on whole trees.
#pragma once

#include "commands/common/whole_text_pattern.h"
#include "commands/system/file_helpers.h"

namespace tessel {

class FunctionDirExists : public FunctionRetBool {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String path_;
};

class FunctionDirCreate : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String path_;
};

class FunctionDirFind : public FunctionWithFind {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

// What a recursive copy asks about each file and folder.
class IAllowFile {
 public:
  virtual ~IAllowFile() = default;
  // False to pass over the file, or the folder with all below it. A folder's path ends in a
  // separator.
  virtual bool IsAllowed(cvn::StringView path) = 0;
};

struct TreeCopyOptions {
  bool failIfExists = true;
  bool ignoreErrors = false;
  bool diffLWTOnly = false;
};

// Copies a tree. Folders are made on the way to a file only; links are followed, except one that
// leads back to a folder of its own path: that counts as a missing folder, as Windows has it after
// 63 rounds.
class FunctionDirCopyRecursive : public FunctionRetError, public IAllowFile {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;
  bool IsAllowed(cvn::StringView path) override;

 private:
  WholeTextPattern::Outcome MatchFilter(WholeTextPattern* pattern, cvn::StringView path);

  cvn::String src_;
  cvn::String dest_;
  TreeCopyOptions options_;
  cvn::String include_;
  cvn::String exclude_;
  WholeTextPattern includeRegex_;
  WholeTextPattern excludeRegex_;
  bool gaveUpMatching_ = false;  // in this execution
};

// Deletes a tree. A link to a folder goes itself, what it leads to stays; so does one at the top.
class FunctionDirDeleteRecursive : public FunctionWithDelete {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

}  // namespace tessel
