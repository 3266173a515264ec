// Commands on folders and on whole trees.
#include <utility>

#include "commands/common/families.h"
#include "commands/common/pattern_attribute.h"
#include "commands/system/file_helpers.h"
#include "commands/system/move.h"
#include "engine/command_declaration.h"
#include "engine/variable_store.h"
#include "files/delete_tree.h"
#include "files/listing.h"
#include "files/path_text.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "support/containers.h"
#include "trace/trace.h"

namespace tessel {
namespace {

namespace files = platform::files;
namespace paths = platform::paths;

bool IsFolder(cvn::StringView path) { return paths::Exists(path) && paths::IsDirectory(path); }

struct FunctionDirExists : FunctionRetBool {
  void Execute() override {
    const cvn::String folder = ExpandVariables(path, variables);
    TraceLine(u"dirExists function called for %s", folder);
    result = IsFolder(folder);
    TraceEnd(u"dirExists");
  }

  cvn::String path;
};

constexpr AttributeDescription kDirExistsAttributes[] = {
    Naming(
        Expanded<&FunctionDirExists::path>(u"path", Presence::NonEmpty, u"The folder to look for."),
        Subject::Folder, Use::Read),
};

constexpr CommandDescription kDirExists = {
    .purpose = u"Tells whether a path is that of a folder. A file isn't one.",
    .attributes = kDirExistsAttributes,
    .notes = u"Whatever keeps the path from being looked at makes the answer a no.",
};

struct FunctionDirCreate : FunctionRetError {
  void Execute() override {
    const cvn::String folder = ExpandVariables(path, variables);
    TraceLine(u"dirCreate function called for %s", folder);
    const platform::Code code = files::CreateDirectory(folder);
    ReportCode(code == platform::kAlreadyExists ? platform::kSuccess : code);
    TraceEnd(u"dirCreate");
  }

  cvn::String path;
};

constexpr AttributeDescription kDirCreateAttributes[] = {
    Naming(Expanded<&FunctionDirCreate::path>(
               u"path", Presence::NonEmpty,
               u"The folder to make. The one that it lies in must be there."),
           Subject::Folder, Use::Create),
};

constexpr FailureDescription kDirCreateFailures[] = {
    {u"3", u"the folder that it lies in is missing"},
    {u"5", u"access is denied"},
    {u"", u"any other code of the system"},
};

constexpr CommandDescription kDirCreate = {
    .purpose = u"Makes a folder.",
    .attributes = kDirCreateAttributes,
    .failures = kDirCreateFailures,
    .notes = u"That something of that name is there already is a success, even if it is a file.",
};

struct FunctionDirFind : FunctionWithFind {
  void Execute() override {
    const cvn::String folder = ExpandVariables(dir, variables);
    const cvn::String wanted = ExpandVariables(pattern, variables);
    TraceLine(u"DirFind from '%s\\%s' (depth %d)", folder, wanted, depth);
    Find(folder, wanted, files::kDirectory);
    TraceEnd(u"fileDirFind");
  }
};

constexpr CommandDescription kDirFind = {
    .purpose = u"Lists the folders that match, in a folder and below it.",
    .attributes = kFindAttributes<Subject::Folder>,
    .notes =
        u"Never fails: a folder that is missing has none. A pattern such as `*` also finds "
        u"`.` and `..` in each folder that is searched. Links to folders are followed. In "
        u"the trace, the line that ends the command names `fileDirFind`.",
};

// Copies a tree. Folders are made on the way to a file only; links are followed, except one that
// leads back to a folder of its own path: that counts as a missing folder, as Windows has it after
// 63 rounds.
struct FunctionDirCopyRecursive : FunctionWithCopy {
  void Execute() override;
  // False to pass over the file, or the folder with all below it. A folder's path ends in a
  // separator.
  bool IsAllowed(cvn::StringView path);
  WholeTextPattern::Outcome MatchFilter(WholeTextPattern* pattern, cvn::StringView path);

  WholeTextPattern include;
  WholeTextPattern exclude;
  bool gaveUpMatching = false;  // in this execution
};

// One copy of a tree. It recurses over a list of its own, and each path is kept once: so a tree may
// be as deep as paths are long.
class TreeCopy {
 public:
  // Both paths end in a separator.
  TreeCopy(cvn::String source, cvn::String target, FunctionDirCopyRecursive* command)
      : source_(std::move(source)),
        target_(std::move(target)),
        top_(source_.Length()),
        command_(command) {}

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
  platform::Code CopyToFree(const files::SearchEntry& entry);
  bool IsSkipped(const files::SearchEntry& entry, bool* isThere);
  void EnsureTarget();
  void Fail(platform::Code code);

  cvn::String source_;
  cvn::String target_;
  const std::size_t top_;
  FunctionDirCopyRecursive* const command_;
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
    if (first_ != platform::kSuccess && !command_->ignoreErrors) {
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
  if (!command_->IsAllowed(source_)) {
    return;
  }
  if (entry.IsLink() && (!IsFolder(source_) || LeadsBack(source_, top_))) {
    Fail(platform::kPathNotFound);
    return;
  }
  OpenLevel();
}

void TreeCopy::CopyFile(const files::SearchEntry& entry) {
  if (!command_->IsAllowed(source_)) {
    return;
  }
  platform::Code code = CopyToFree(entry);
  if (code != platform::kSuccess) {
    bool isThere = false;
    if (IsSkipped(entry, &isThere)) {
      return;
    }
    EnsureTarget();
    code = files::Copy(source_, target_, command_->failIfExists);
    levels_.back().isNextFree = code == platform::kSuccess && !isThere;
    levels_.back().isAllWell = levels_.back().isAllWell && code == platform::kSuccess;
  }
  // Once a copy in this folder has failed, all that follow count as failed.
  const bool isAllWell = levels_.back().isAllWell;
  TraceLine(u"File '%s' copied to '%s' with %s (%d)", source_, target_,
            isAllWell ? u"SUCCESS" : u"ERROR", code);
  if (!isAllWell) {
    Fail(code);
  }
}

// Copies without looking for what is at the target before: in a new tree nothing is, and the copy
// itself would tell. A failure is as if it had not been tried.
platform::Code TreeCopy::CopyToFree(const files::SearchEntry& entry) {
  Level& level = levels_.back();
  const platform::Code code =
      level.isNextFree ? files::Copy(entry, source_, target_, true) : platform::kAlreadyExists;
  level.isNextFree = code == platform::kSuccess;
  return code;
}

// Also makes an existing target writable.
bool TreeCopy::IsSkipped(const files::SearchEntry& entry, bool* isThere) {
  const Listing existing(target_);
  *isThere = existing.HasEntry();
  if (!*isThere || command_->failIfExists) {
    return false;
  }
  if (command_->diffLWTOnly && existing.Entry().LastWriteTime() == entry.LastWriteTime()) {
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

void FunctionDirCopyRecursive::Execute() {
  // ERROR_IMPLEMENTATION_LIMIT: a filter's match took too many steps.
  constexpr platform::Code kImplementationLimit = 1292;
  cvn::String from = ExpandVariables(src, variables);
  cvn::String to = ExpandVariables(dest, variables);
  paths::AddBackslash(&from);
  paths::AddBackslash(&to);
  TraceLine(u"dirCopyRec from '%s' to '%s'. FailIfExists: %d. SkipErrors: %d", from, to,
            failIfExists, ignoreErrors);
  gaveUpMatching = false;
  const platform::Code code = TreeCopy(std::move(from), std::move(to), this).Run();
  ReportCode(code == platform::kSuccess && gaveUpMatching ? kImplementationLimit : code);
  TraceEnd(u"dirCopyRec");
}

bool FunctionDirCopyRecursive::IsAllowed(cvn::StringView path) {
  using Outcome = WholeTextPattern::Outcome;
  // A match that was given up says nothing of what the filter lets through: copy nothing more.
  if (gaveUpMatching) {
    return false;
  }
  if (!exclude.Source().Empty() && MatchFilter(&exclude, path) != Outcome::NoMatch) {
    return false;
  }
  return include.Source().Empty() || MatchFilter(&include, path) == Outcome::Match;
}

WholeTextPattern::Outcome FunctionDirCopyRecursive::MatchFilter(WholeTextPattern* pattern,
                                                                cvn::StringView path) {
  const WholeTextPattern::Outcome outcome = pattern->Match(path);
  if (outcome == WholeTextPattern::Outcome::GivenUp) {
    gaveUpMatching = true;
    TraceLine(u"The match was given up: the pattern %s takes too many steps for '%s'.",
              pattern->Source(), path);
  }
  return outcome;
}

constexpr AttributeDescription kDirCopyRecAttributes[] = {
    Naming(Expanded<&FunctionDirCopyRecursive::src>(u"src", Presence::NonEmpty,
                                                    u"The folder whose content is copied."),
           Subject::Tree, Use::Read),
    Naming(
        Expanded<&FunctionDirCopyRecursive::dest>(
            u"dest", Presence::NonEmpty,
            u"The folder that takes the content. It is made with its parents, when a file comes to "
            u"it."),
        Subject::Tree, Use::Change),
    kFailIfExists,
    kIgnoreErrors<FunctionDirCopyRecursive>,
    kDiffLWTOnly,
    Pattern<&FunctionDirCopyRecursive::include>(
        u"include", Presence::Optional,
        u"A pattern of whole paths: what doesn't match is left out, a folder with all below it. "
        u"Empty for no such filter."),
    Pattern<&FunctionDirCopyRecursive::exclude>(u"exclude", Presence::Optional,
                                                u"A pattern of whole paths: what matches is left "
                                                u"out, whatever `include` says. Empty for no "
                                                u"such filter."),
};

constexpr FailureDescription kDirCopyRecFailures[] = {
    {u"3", u"`src` is missing or a file, or a link below it leads nowhere or back on its own path"},
    {u"5", u"access is denied"},
    {u"32", u"another program uses a file"},
    {u"80", u"a file is at the target, and `failIfExists` is on"},
    {u"112", u"the disk is full"},
    {u"1292", u"a pattern took too many steps; the copy ended there"},
    {u"", u"any other code of the system"},
};

constexpr CommandDescription kDirCopyRec = {
    .purpose = u"Copies the content of a folder with all that is below it.",
    .attributes = kDirCopyRecAttributes,
    .failures = kDirCopyRecFailures,
    .notes =
        u"Folders are made on the way to a file only: empty ones are not copied. The path of "
        u"a folder ends in a backslash when a pattern is tried on it, so an `include` without "
        u"`|.*\\\\` copies the top folder only; `.*\\\\logs\\\\` as `exclude` leaves out each "
        u"folder of that name. Patterns tell upper from lower case. With `failIfExists` off, "
        u"read-only files are replaced too. Once a copy failed under `ignoreErrors`, the trace "
        u"has `ERROR` for all later ones of that folder.",
};

// Deletes a tree. A link to a folder goes itself, what it leads to stays; so does one at the top.
struct FunctionDirDeleteRecursive : FunctionWithDelete {
  void Execute() override {
    const cvn::String folder = ExpandVariables(path, variables);
    TraceLine(u"dirDeleteRec from '%s'. SkipErrors: %d, afterReboot: %d", folder, ignoreErrors,
              afterRebootIfFails);
    ReportCode(DeleteTree(folder, ignoreErrors, Fallbacks()));
    TraceEnd(u"dirDeleteRec");
  }
};

constexpr AttributeDescription kDirDeleteRecAttributes[] = {
    Naming(Expanded<&FunctionDirDeleteRecursive::path>(u"path", Presence::NonEmpty,
                                                       u"The folder to delete."),
           Subject::Tree, Use::Remove),
    kIgnoreErrors<FunctionDirDeleteRecursive>,
    kRenameIfFails,
    kAfterRebootIfFails,
};

constexpr FailureDescription kDirDeleteRecFailures[] = {
    {u"5", u"access to a file is denied"},
    {u"32", u"another program uses a file"},
    {u"", u"any other code of the system"},
};

constexpr CommandDescription kDirDeleteRec = {
    .purpose = u"Deletes a folder with all that is in it, read-only files too.",
    .attributes = kDirDeleteRecAttributes,
    .failures = kDirDeleteRecFailures,
    .notes =
        u"A `path` that is missing or a file is a success, and nothing is done. That a folder "
        u"couldn't be removed is never a failure, as long as its files could: look with "
        u"`dirExists`. Links to folders are removed, what they lead to stays.",
};

constexpr CommandRecord kCommands[] = {
    Command<FunctionDirExists>(u"dirExists", kDirExists),
    Command<FunctionDirCreate>(u"dirCreate", kDirCreate),
    Command<FunctionMove>(u"dirMove", kMove),
    Command<FunctionDirFind>(u"dirFind", kDirFind),
    Command<FunctionDirCopyRecursive>(u"dirCopyRec", kDirCopyRec),
    Command<FunctionDirDeleteRecursive>(u"dirDeleteRec", kDirDeleteRec),
};

}  // namespace

constinit const CommandFamily kFoldersFamily = {
    .title = u"Folders",
    .introduction =
        uR"md(
Links to folders are followed by a copy and by a search, but never by `dirDeleteRec`. A tree may be as deep as paths can
be long.
)md",
    .commands = kCommands,
};

}  // namespace tessel
