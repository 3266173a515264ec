#include <algorithm>
#include <utility>

#include "platform/machine_commit.h"

namespace platform::machine {
namespace {

FileChange Reversed(const FileChange& change) {
  FileChange back = change;
  if (!change.movedFrom.Empty()) {
    std::swap(back.path, back.movedFrom);
  }
  std::swap(back.before, back.after);
  return back;
}

KeyChange Reversed(const KeyChange& change) {
  KeyChange back = change;
  std::swap(back.before, back.after);
  for (ValueChange& value : back.values) {
    std::swap(value.before, value.after);
  }
  return back;
}

class BytesBackwards : public ChangeBytes {
 public:
  explicit BytesBackwards(ChangeBytes& bytes) : bytes_(bytes) {}
  Code Open(const FileChange& change, Side side, files::File* file) override {
    return bytes_.Open(Reversed(change), side == Side::Before ? Side::After : Side::Before, file);
  }

 private:
  ChangeBytes& bytes_;
};

}  // namespace

ChangeSet Reversed(const ChangeSet& changes) {
  ChangeSet back;
  for (const FileChange& change : changes.files) {
    back.files.push_back(Reversed(change));
  }
  std::ranges::stable_sort(back.files, ComesBefore, &FileChange::path);
  for (const KeyChange& change : changes.keys) {
    back.keys.push_back(Reversed(change));
  }
  return back;
}

std::unique_ptr<ChangeBytes> ReversedBytes(ChangeBytes& bytes) {
  return std::make_unique<BytesBackwards>(bytes);
}

}  // namespace platform::machine
