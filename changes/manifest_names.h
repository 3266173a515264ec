// The words of a manifest.
#pragma once

#include <algorithm>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

#include "changes/kept_set.h"

namespace tessel {

inline constexpr int kManifestVersion = 1;

template <typename T>
using Name = std::pair<T, const char*>;

inline constexpr Name<SetState> kStateNames[] = {{SetState::Rehearsed, "rehearsed"},
                                                 {SetState::Committed, "committed"},
                                                 {SetState::Undone, "undone"}};

inline constexpr Name<platform::machine::EntryKind> kKindNames[] = {
    {platform::machine::EntryKind::File, "file"},
    {platform::machine::EntryKind::Folder, "folder"},
    {platform::machine::EntryKind::Link, "link"}};

inline constexpr std::string_view kViewNames[] = {"overlay", "sharedCopy", "plainCopy"};

template <typename T, std::size_t count>
const char* NameOf(const Name<T> (&names)[count], T value) {
  return std::ranges::find(names, value, &Name<T>::first)->second;
}

template <typename T, std::size_t count>
std::optional<T> Named(const Name<T> (&names)[count], std::string_view text) {
  const auto* found = std::ranges::find(names, text, &Name<T>::second);
  return found == std::end(names) ? std::nullopt : std::optional(found->first);
}

}  // namespace tessel
