// What differs between this process's machine and a view of it.
#pragma once

#include <ctime>
#include <memory>
#include <optional>

#include "platform/error.h"
#include "platform/linux/descriptor.h"
#include "platform/machine_changes.h"

namespace platform::posix {

// Where a view's files are.
struct ViewFolder {
  std::shared_ptr<const Descriptor> folder;
  // The extended attribute by which an overlay mount over the machine's folder marks those folders
  // in its upper one, `folder`, that hide the ones below. That has what is new and changed, without
  // redirections and files of metadata alone. No name for a copy of the whole machine, with times,
  // permissions and extended attributes.
  const char* hidingMark = nullptr;
  bool IsLayer() const { return hidingMark != nullptr; }
  // Of a copy: the host's time (of the last change, as stat tells it) of a file that was made when
  // the copy was complete. What hasn't been changed since then needn't be read.
  std::optional<timespec> completedAt;
};

// Tells what differs, and has the bytes of it. The process has opened the machine, which stands for
// the side before, and nobody changes either of the two meanwhile.
class ViewDifference final : public machine::ChangeBytes {
 public:
  explicit ViewDifference(ViewFolder view);

  // Nothing of the machine is looked at but what the layer has something over; of a copy, all is.
  //
  // The hives of the registry are compared by their keys, recovered from their logs; one that can't
  // be read is a file like any other. A file that is gone and one that is new, of the same bytes
  // and the only ones, are one that was moved, and so are folders with all that is in them.
  //
  // 123 for a changed file whose name can't be said as a path (it has a backslash), 206 when a
  // folder lies too deep for the host to name it, 8 for more than a million changes; else the
  // host's code for what can't be read.
  Code Collect(machine::ChangeSet* changes) const;

  Code Open(const machine::FileChange& change, machine::Side side, files::File* file) override;

 private:
  Code TakeOverMoved(cvn::List<machine::FileChange>* changes) const;

  ViewFolder view_;
};

}  // namespace platform::posix
