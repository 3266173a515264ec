// Commands on single files and on the files that a pattern matches.
#pragma once

#include "commands/system/file_helpers.h"

namespace tessel {

class FunctionFileExists : public FunctionRetBool {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String path_;
};

class FunctionFileCopySingle : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String src_;
  cvn::String dest_;
  bool failIfExists_ = true;
  bool diffLWTOnly_ = false;
};

class FunctionFileDownload : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String file_;
  cvn::String url_;
};

// Both fileMove and dirMove.
class FunctionFileMoveSingle : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  platform::Code Move(cvn::StringView src, cvn::StringView dest) const;

  cvn::String src_;
  cvn::String dest_;
  bool failIfExists_ = true;
  bool afterReboot_ = false;
};

class FunctionFileCopyPattern : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  // Both give the code of the first failure.
  platform::Code CopyMatches(const cvn::String& src, cvn::StringView dest) const;
  platform::Code CopyMatch(const platform::files::SearchEntry& entry, cvn::StringView folder,
                           cvn::StringView dest) const;

  cvn::String src_;
  cvn::String dest_;
  bool failIfExists_ = true;
  bool ignoreErrors_ = false;
  bool diffLWTOnly_ = false;
};

class FunctionFileDeletePattern : public FunctionWithDelete {
 public:
  static const CommandDescription kDescription;

  void Execute() override;

 private:
  // Gives the code of the first failure.
  platform::Code DeleteMatches(const cvn::String& path) const;
};

class FunctionFileCreate : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String path_;
};

class FunctionFileFind : public FunctionWithFind {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

}  // namespace tessel
