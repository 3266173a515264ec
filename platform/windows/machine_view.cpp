// Windows has no copy-on-write view of itself.
#include "platform/machine_view.h"

namespace platform::machine {
namespace {

class NoBytes : public ChangeBytes {
 public:
  Code Open(const FileChange& /*change*/, Side /*side*/, files::File* /*file*/) override {
    return kFileNotFound;
  }
};

}  // namespace

struct View::State {
  cvn::String folder;
  NoBytes bytes;
};

Code View::Prepare(const ViewOptions& /*options*/, std::unique_ptr<View>* view) {
  view->reset();
  SetLastError(kNoViews);
  return kNoViews;
}

View::View(std::unique_ptr<State> state) : state_(std::move(state)) {}
View::~View() = default;
ViewKind View::Kind() const { return ViewKind::PlainCopy; }
const cvn::String& View::Folder() const { return state_->folder; }

Code View::Run(const std::function<int()>& /*task*/, const ViewLimits& /*limits*/,
               const std::function<void(const ViewUse&)>& /*progress*/, ViewEnd* /*end*/,
               int* /*exitCode*/) {
  return kNoViews;
}

Code View::CollectChanges(ChangeSet* /*changes*/) { return kNoViews; }

ChangeBytes& View::Bytes() { return state_->bytes; }

std::span<std::byte> View::SharedMemory() { return {}; }

}  // namespace platform::machine
