// Moves, now or at the next start: the session manager keeps the latter as a value of the registry.
#include <algorithm>
#include <cstddef>
#include <vector>

#include "platform/files.h"
#include "platform/linux/error_map.h"
#include "platform/offline/volume/volume.h"
#include "platform/registry.h"

namespace platform::files {
namespace {

constexpr cvn::StringView kKey = u"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr cvn::StringView kValue = u"PendingFileRenameOperations";

constexpr cvn::StringView kNativePrefix = u"\\??\\";

// Text with a zero after it, in the registry's form.
void AppendText(cvn::StringView text, std::vector<std::byte>* data) {
  const auto append = [data](char16_t unit) {
    data->push_back(static_cast<std::byte>(unit & 0xFF));
    data->push_back(static_cast<std::byte>(unit >> 8));
  };
  for (const char16_t unit : text) {
    append(unit);
  }
  append(u'\0');
}

// The path as the session manager of the machine will understand it. It need not exist: what is
// there then counts.
Code NativePath(cvn::StringView path, cvn::String* native) {
  posix::HostPath host;
  const Code code = posix::Resolve(path, &host);
  const bool isPlace = code == kSuccess || code == kFileNotFound || code == kPathNotFound;
  if (!isPlace || host.spelling.empty()) {
    return code;
  }
  *native = kNativePrefix;
  native->Append(posix::ToMachinePath(host.spelling));
  return kSuccess;
}

// Cuts the empty text that ends a list; what is no list is dropped.
void CutEnd(bool isList, std::vector<std::byte>* data) {
  constexpr std::size_t kUnit = sizeof(char16_t);
  data->resize(isList ? data->size() / kUnit * kUnit : 0);
  const std::size_t tail = std::min(data->size(), 2 * kUnit);
  const auto isZero = [](std::byte byte) { return byte == std::byte{0}; };
  if (tail != 0 &&
      std::all_of(data->end() - static_cast<std::ptrdiff_t>(tail), data->end(), isZero)) {
    data->resize(data->size() - kUnit);
  }
}

// Windows, when it starts, has no drives but its own.
bool IsOnMachine(cvn::StringView native) {
  return native.substr(kNativePrefix.size()).starts_with(u"C:");
}

// Adds a pair to the session manager's list; an empty `to` deletes. 17 when a path is one of the
// host. A list ends with an empty text, but there are others in it too: each deletion is a path and
// an empty text.
Code AppendPair(cvn::StringView from, cvn::StringView to, bool replace = false) {
  if (!IsOnMachine(from) || !(to.empty() || IsOnMachine(to))) {
    return kNotSameDevice;
  }
  registry::Key key;
  registry::Change change;
  const registry::Key root(registry::Root::LocalMachine);
  Code code = change.Begin(root, kKey);
  if (code == kSuccess) {
    code =
        registry::CreateKey(root, kKey, false, registry::kQueryValue | registry::kSetValue, &key);
  }
  if (code != kSuccess) {
    return code;
  }
  std::uint32_t type = registry::kTypeNone;
  std::vector<std::byte> list;
  code = registry::QueryValue(key, kValue, &type, &list);
  if (code != kSuccess && code != kFileNotFound) {
    return code;
  }
  CutEnd(code == kSuccess && type == registry::kTypeMultiString, &list);
  AppendText(from, &list);
  cvn::String target(replace ? u"!" : u"");
  target.Append(to);
  AppendText(target, &list);
  AppendText(u"", &list);
  code = registry::SetValue(key, kValue, registry::kTypeMultiString, list);
  return code == kSuccess ? change.End() : code;
}

Code MoveAtNextStart(cvn::StringView from, cvn::StringView to, bool replace) {
  cvn::String source;
  Code code = NativePath(from, &source);
  cvn::String place;
  if (code == kSuccess) {
    code = NativePath(to, &place);
  }
  return code == kSuccess ? AppendPair(source, place, replace) : code;
}

}  // namespace

Code Move(cvn::StringView from, cvn::StringView to, std::uint32_t flags) {
  if ((flags & kMoveDelayUntilReboot) == 0) {
    return posix::Report(posix::MoveNow(from, to, flags));
  }
  if ((flags & kMoveCopyAllowed) != 0) {
    return posix::Report(kInvalidParameter);
  }
  const bool replace = (flags & kMoveReplaceExisting) != 0;
  return posix::Report(MoveAtNextStart(from, to, replace));
}

Code DeleteAtReboot(cvn::StringView path) {
  cvn::String native;
  const Code code = NativePath(path, &native);
  return posix::Report(code == kSuccess ? AppendPair(native, u"") : code);
}

}  // namespace platform::files
