// The differences of two folders, file by file.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>

#include "platform/error.h"
#include "platform/files.h"
#include "platform/offline/changes/changes.h"

namespace platform::posix {

// Paths of the host below the machine's folder, without a slash at the start.
using Places = std::unordered_set<std::string>;

// The path on drive C: of such a path. False when it can't be said, because of a backslash.
bool ToMachinePath(std::string_view below, cvn::String* path);

// And back.
std::string PlaceOf(cvn::StringView machinePath);

// Whether an open folder of a view that is a layer hides the one below it. Only the overlay itself
// sets its mark: of one that is read by other means the volume may have the same attribute.
bool IsOpaque(int folder, const ViewFolder& view);

// What a volume with NTFS keeps in forms of its own isn't on a file that was copied from there to
// the view, and is none of what the view has changed: gives it to the state after.
void TakeOverLost(const files::File& before, const machine::EntryState& was,
                  const files::File& after, machine::EntryState* is);

// Appends what differs between the folder `before` and the view, without `leftOut`; in no order.
Code CompareTrees(int before, const ViewFolder& view, const Places& leftOut,
                  cvn::List<machine::FileChange>* changes);

}  // namespace platform::posix
