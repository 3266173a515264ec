#include <git2/diff.h>
#include <git2/global.h>
#include <git2/patch.h>

#include <algorithm>
#include <memory>

#include "changes/content_diff.h"
#include "support/utf.h"

namespace tessel {
namespace {

struct FreePatch {
  void operator()(git_patch* patch) const { git_patch_free(patch); }
};

// A line for each that the library gives, without its end.
DiffLine LineOf(const git_diff_line& line) {
  std::string_view content(line.content, line.content_len);
  for (const char end : {'\n', '\r'}) {
    content.remove_suffix(content.ends_with(end) ? 1 : 0);
  }
  DiffLine made{line.origin, std::string(content)};
  cvn::RepairUtf8(&made.text);
  return made;
}

bool IsOfText(char origin) { return origin == ' ' || origin == '-' || origin == '+'; }

// False when the library fails.
bool AddPart(git_patch* patch, std::size_t part, cvn::List<DiffLine>* lines) {
  const git_diff_hunk* hunk = nullptr;
  std::size_t count = 0;
  if (git_patch_get_hunk(&hunk, &count, patch, part) != 0) {
    return false;
  }
  std::string_view header(hunk->header, hunk->header_len);
  // Behind the numbers it has a line that is taken for a function's head.
  header = header.substr(0, header.find("@@", 2));
  lines->push_back({'@', std::string(header) + "@@"});
  for (std::size_t i = 0; i < count; ++i) {
    const git_diff_line* line = nullptr;
    if (git_patch_get_line_in_hunk(&line, patch, part, i) != 0) {
      return false;
    }
    if (IsOfText(line->origin)) {
      lines->push_back(LineOf(*line));
    }
  }
  return true;
}

}  // namespace

std::optional<cvn::List<DiffLine>> DiffLines(std::string_view before, std::string_view after) {
  static const bool isReady = git_libgit2_init() > 0;
  git_diff_options options{};
  const bool isSet = git_diff_options_init(&options, GIT_DIFF_OPTIONS_VERSION) == 0;
  options.flags = GIT_DIFF_FORCE_TEXT;
  git_patch* made = nullptr;
  if (!isReady || !isSet ||
      git_patch_from_buffers(&made, before.data(), before.size(), nullptr, after.data(),
                             after.size(), nullptr, &options) != 0) {
    return std::nullopt;
  }
  const std::unique_ptr<git_patch, FreePatch> patch(made);
  cvn::List<DiffLine> lines;
  for (std::size_t part = 0; part < git_patch_num_hunks(patch.get()); ++part) {
    if (!AddPart(patch.get(), part, &lines)) {
      return std::nullopt;
    }
  }
  return lines;
}

}  // namespace tessel
