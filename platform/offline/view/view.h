// What a view keeps.
#pragma once

#include <ctime>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/descriptor.h"
#include "platform/machine_view.h"
#include "platform/offline/changes/changes.h"
#include "platform/offline/view/keeper.h"
#include "platform/offline/view/spaces.h"

namespace platform::posix {

// Memory of this process and of its children to come. Pages that nobody writes to cost nothing.
class SharedPages {
 public:
  SharedPages() = default;
  SharedPages(const SharedPages&) = delete;
  SharedPages& operator=(const SharedPages&) = delete;
  ~SharedPages();
  Code Map(std::size_t size);
  std::span<std::byte> Bytes() const { return bytes_; }

 private:
  std::span<std::byte> bytes_;
};

}  // namespace platform::posix

namespace platform::machine {

struct View::State {
  Code Make(const ViewOptions& options);

  ViewKind kind = ViewKind::Overlay;
  cvn::String folder;
  posix::ViewFolders folders;
  posix::SharedPages shared;
  // What tasks see beside the machine: the upper folder of an overlay, or the copy.
  std::shared_ptr<const posix::Descriptor> changed;
  std::optional<timespec> copiedAt;
  std::optional<posix::ViewDifference> difference;
  posix::Keeper keeper{folders};  // ends first

 private:
  Code MakeOverlay();
  Code MakeCopy(const ViewOptions& options);
  Code NoteCopied();
};

}  // namespace platform::machine
