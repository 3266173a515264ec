#include "commands/system/directories.h"

#include <algorithm>

#include "engine/variable_store.h"
#include "files/delete_tree.h"
#include "files/listing.h"
#include "files/path_text.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "trace/trace.h"

namespace tessel {
namespace {

namespace files = platform::files;
namespace paths = platform::paths;

// ERROR_IMPLEMENTATION_LIMIT: a filter's match took too many steps.
constexpr platform::Code kImplementationLimit = 1292;

bool IsFolder(cvn::StringView path) { return paths::Exists(path) && paths::IsDirectory(path); }

// One copy of a tree. It recurses over a list of its own, and each path is kept once: so a tree may
// be as deep as paths are long.
class TreeCopy {
 public:
  // Both paths end in a separator.
  TreeCopy(cvn::String source, cvn::String target, const TreeCopyOptions& options,
           IAllowFile* filter)
      : source_(std::move(source)),
        target_(std::move(target)),
        top_(source_.Length()),
        options_(options),
        filter_(filter) {}

  // Gives the code of the first failure.
  platform::Code Run();

 private:
  struct Level {
    std::size_t sourceLength;  // of the folder's path
    std::size_t targetLength;
    Listing content;
    bool isTargetThere = false;
    bool isNextFree = false;  // the target's name for the next file probably is
    bool isAllWell = true;
  };

  void OpenLevel();
  void CloseLevel();
  void Take(const files::SearchEntry& entry);
  void EnterFolder(const files::SearchEntry& entry);
  void CopyFile(const files::SearchEntry& entry);
  bool CopyToFree();
  bool IsSkipped(const files::SearchEntry& entry, bool* isThere);
  void EnsureTarget();
  void Fail(platform::Code code);

  cvn::String source_;
  cvn::String target_;
  const std::size_t top_;
  const TreeCopyOptions& options_;
  IAllowFile* const filter_;
  cvn::List<Level> levels_;
  platform::Code first_ = platform::kSuccess;
};

platform::Code TreeCopy::Run() {
  if (!IsFolder(source_)) {
    return platform::kPathNotFound;
  }
  OpenLevel();
  while (!levels_.empty()) {
    const std::size_t level = levels_.size() - 1;
    if (!levels_[level].content.HasEntry()) {
      CloseLevel();
    } else {
      Take(levels_[level].content.Entry());
      levels_[level].content.Advance();
    }
    if (first_ != platform::kSuccess && !options_.ignoreErrors) {
      break;
    }
  }
  return first_;
}

void TreeCopy::OpenLevel() {
  levels_.push_back({source_.Length(), target_.Length(), Listing(JoinPath(source_, u"*.*"))});
}

void TreeCopy::CloseLevel() {
  const bool isAllWell = levels_.back().isAllWell;
  levels_.pop_back();
  if (!levels_.empty() && !isAllWell) {
    levels_.back().isAllWell = false;
  }
}

void TreeCopy::Take(const files::SearchEntry& entry) {
  if (entry.IsSelfOrParent()) {
    return;
  }
  source_.Truncate(levels_.back().sourceLength);
  target_.Truncate(levels_.back().targetLength);
  AppendName(&source_, entry.Name());
  AppendName(&target_, entry.Name());
  if (entry.IsDirectory()) {
    EnterFolder(entry);
  } else {
    CopyFile(entry);
  }
}

void TreeCopy::EnterFolder(const files::SearchEntry& entry) {
  paths::AddBackslash(&source_);
  paths::AddBackslash(&target_);
  if (!filter_->IsAllowed(source_)) {
    return;
  }
  if (entry.IsLink() && (!IsFolder(source_) || LeadsBack(source_, top_))) {
    Fail(platform::kPathNotFound);
    return;
  }
  OpenLevel();
}

void TreeCopy::CopyFile(const files::SearchEntry& entry) {
  if (!filter_->IsAllowed(source_)) {
    return;
  }
  if (!CopyToFree()) {
    bool isThere = false;
    if (IsSkipped(entry, &isThere)) {
      return;
    }
    EnsureTarget();
    const platform::Code code = files::Copy(source_, target_, options_.failIfExists);
    levels_.back().isNextFree = code == platform::kSuccess && !isThere;
    levels_.back().isAllWell = levels_.back().isAllWell && code == platform::kSuccess;
  }
  // The last error is told and kept whatever came of this copy, once one in this folder has failed.
  const platform::Code lastError = platform::LastError();
  const bool isAllWell = levels_.back().isAllWell;
  TraceLine(u"File '%s' copied to '%s' with %s (%d)", source_, target_,
            isAllWell ? u"SUCCESS" : u"ERROR", lastError);
  if (!isAllWell) {
    Fail(lastError);
  }
}

// Copies without looking for what is at the target before: in a new tree nothing is, and the copy
// itself would tell. False when it came to nothing, which is as if it had not been tried; else the
// last error is what that look would have left.
bool TreeCopy::CopyToFree() {
  Level& level = levels_.back();
  if (!level.isNextFree) {
    return false;
  }
  const platform::Code lastError = platform::LastError();
  platform::SetLastError(platform::kFileNotFound);
  level.isNextFree = files::Copy(source_, target_, true) == platform::kSuccess;
  if (!level.isNextFree) {
    platform::SetLastError(lastError);
  }
  return level.isNextFree;
}

// Also makes an existing target writable.
bool TreeCopy::IsSkipped(const files::SearchEntry& entry, bool* isThere) {
  const Listing existing(target_);
  *isThere = existing.HasEntry();
  if (!*isThere || options_.failIfExists) {
    return false;
  }
  if (options_.diffLWTOnly && existing.Entry().LastWriteTime() == entry.LastWriteTime()) {
    TraceLine(u"File '%s' skipped due to identical last write time", source_);
    return true;
  }
  ClearReadOnly(target_, existing.Entry().GetAttributes());
  return false;
}

void TreeCopy::EnsureTarget() {
  Level& level = levels_.back();
  if (!level.isTargetThere) {
    level.isTargetThere = EnsureDirectory(target_.AsView().substr(0, level.targetLength));
  }
}

void TreeCopy::Fail(platform::Code code) {
  levels_.back().isAllWell = false;
  first_ = first_ == platform::kSuccess ? code : first_;
}

}  // namespace

bool FunctionDirExists::Parse() { return ReadNonEmpty(u"path", &path_); }

void FunctionDirExists::Execute() {
  const cvn::String path = ExpandVariables(path_, variables);
  TraceLine(u"dirExists function called for %s", path);
  result = IsFolder(path);
  TraceEnd(u"dirExists");
}

bool FunctionDirCreate::Parse() { return ReadNonEmpty(u"path", &path_); }

void FunctionDirCreate::Execute() {
  const cvn::String path = ExpandVariables(path_, variables);
  TraceLine(u"dirCreate function called for %s", path);
  const platform::Code code = files::CreateDirectory(path);
  ReportCode(code == platform::kAlreadyExists ? platform::kSuccess : code);
  TraceEnd(u"dirCreate");
}

void FunctionDirFind::Execute() {
  const cvn::String dir = ExpandVariables(dir_, variables);
  const cvn::String pattern = ExpandVariables(pattern_, variables);
  TraceLine(u"DirFind from '%s\\%s' (depth %d)", dir, pattern, depth_);
  Find(dir, pattern, files::kDirectory);
  TraceEnd(u"fileDirFind");
}

bool FunctionDirCopyRecursive::Parse() {
  if (!ReadNonEmpty(u"src", &src_) || !ReadNonEmpty(u"dest", &dest_)) {
    return false;
  }
  ReadFlag(u"failIfExists", &options_.failIfExists);
  ReadFlag(u"ignoreErrors", &options_.ignoreErrors);
  ReadFlag(u"diffLWTOnly", &options_.diffLWTOnly);
  ReadAttribute(u"include", &include_);
  ReadAttribute(u"exclude", &exclude_);
  return (include_.Empty() || includeRegex_.Compile(include_)) &&
         (exclude_.Empty() || excludeRegex_.Compile(exclude_));
}

void FunctionDirCopyRecursive::Execute() {
  cvn::String src = ExpandVariables(src_, variables);
  cvn::String dest = ExpandVariables(dest_, variables);
  paths::AddBackslash(&src);
  paths::AddBackslash(&dest);
  TraceLine(u"dirCopyRec from '%s' to '%s'. FailIfExists: %d. SkipErrors: %d", src, dest,
            options_.failIfExists, options_.ignoreErrors);
  gaveUpMatching_ = false;
  const platform::Code code = TreeCopy(std::move(src), std::move(dest), options_, this).Run();
  ReportCode(code == platform::kSuccess && gaveUpMatching_ ? kImplementationLimit : code);
  TraceEnd(u"dirCopyRec");
}

bool FunctionDirCopyRecursive::IsAllowed(cvn::StringView path) {
  using Outcome = WholeTextPattern::Outcome;
  // Nobody knows what a filter lets through once its match was given up: nothing more is copied.
  if (gaveUpMatching_) {
    return false;
  }
  if (!exclude_.Empty() && MatchFilter(&excludeRegex_, path) != Outcome::NoMatch) {
    return false;
  }
  return include_.Empty() || MatchFilter(&includeRegex_, path) == Outcome::Match;
}

WholeTextPattern::Outcome FunctionDirCopyRecursive::MatchFilter(WholeTextPattern* pattern,
                                                                cvn::StringView path) {
  const WholeTextPattern::Outcome outcome = pattern->Match(path);
  gaveUpMatching_ = gaveUpMatching_ || outcome == WholeTextPattern::Outcome::GivenUp;
  return outcome;
}

void FunctionDirDeleteRecursive::Execute() {
  const cvn::String path = ExpandVariables(path_, variables);
  TraceLine(u"dirDeleteRec from '%s'. SkipErrors: %d, afterReboot: %d", path, ignoreErrors_,
            afterRebootIfFails_);
  ReportCode(DeleteTree(path, ignoreErrors_, Fallbacks()));
  TraceEnd(u"dirDeleteRec");
}

}  // namespace tessel
