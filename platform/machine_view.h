// A copy-on-write view of a machine: what runs in it sees the view in the machine's place, and
// changes the view alone. On Windows there is none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "platform/error.h"
#include "platform/machine_changes.h"
#include "support/string.h"

namespace platform::machine {

// How the view is made: by an overlay mount; where the host has none, by a copy that shares its
// blocks with the machine, or by a plain one.
enum class ViewKind { Overlay, SharedCopy, PlainCopy };

struct ViewOptions {
  // The machine's, as the host names it; empty for the one that the environment names.
  cvn::StringView folder;
  // Whether the rest of the host can only be read, devices can't be used, and there is no network.
  bool isSealed = true;
  // Asked before a plain copy is made, with the bytes that it takes. None: there may be no copy.
  std::function<bool(std::uint64_t bytes)> mayCopy;
  // Told every now and then how much of the copy is there.
  std::function<void(std::uint64_t bytes)> copied;
};

// ERROR_CALL_NOT_IMPLEMENTED: there are no views on Windows.
inline constexpr Code kNoViews = 120;

// What a task may use. All of it counts for the programs that it starts as well.
struct ViewLimits {
  std::uint32_t seconds = 600;
  std::uint64_t bytes = std::uint64_t{4} << 30;  // that it writes
  std::uint32_t processes = 64;                  // at a time, beside its own
};

struct ViewUse {
  std::uint32_t seconds = 0;
  std::uint64_t bytes = 0;
  std::uint32_t processes = 0;
};

enum class ViewEnd { Ended, TimeOut, TooMuchWritten, TooManyProcesses, Crashed };

// One view. Nothing of it outlives this object, nor the process, even when that is killed: another
// process, the keeper, then removes all. What is left when both are killed at once, the next view
// and the next run remove.
class View {
 public:
  // Makes what a view of a machine needs; nothing walks the machine unless it has to be copied. 3
  // and 267 as Use gives them; kNoViews; 50 when the host allows no namespaces for mounts,
  // something is mounted within the machine's folder, or that is the host's root; 1223 when the
  // copy is refused by `mayCopy`; 1338 (files::kNotPrivate) when there is no place that others can
  // be kept out of. The process may have no other thread, and must not have opened the machine's
  // registry.
  static Code Prepare(const ViewOptions& options, std::unique_ptr<View>* view);
  ~View();
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  ViewKind Kind() const;
  // The machine's folder, as the host names it.
  const cvn::String& Folder() const;

  // Runs `task` in a process of its own, in which the machine that the environment names is the
  // view, at the machine's own path, and no machine is open yet. Waits for that process, and for
  // the programs that it started; `progress`, if there is one, is called every second. `*exitCode`
  // is what the task returned, unless it crashed or had to be killed; one that goes beyond its
  // limits is asked to stop first (stop_request.h). What a task leaves in the view the next one
  // finds there.
  Code Run(const std::function<int()>& task, const ViewLimits& limits,
           const std::function<void(const ViewUse&)>& progress, ViewEnd* end, int* exitCode);

  // Tells what the tasks have changed, and has the bytes of it. From then on the machine itself is
  // open in this process, and Run is over. Codes as for ViewDifference
  // (platform/offline/changes/changes.h), and those of Use.
  Code CollectChanges(ChangeSet* changes);
  // Good after that has succeeded, while this lives.
  ChangeBytes& Bytes();

  // Memory that tasks and the caller share. All zeroes before the first task.
  std::span<std::byte> SharedMemory();

 private:
  struct State;
  explicit View(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;
};

}  // namespace platform::machine
