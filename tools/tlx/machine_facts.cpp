#include "tools/tlx/machine_facts.h"

#include "platform/registry.h"
#include "support/format.h"
#include "tools/tlx/machine_text.h"

namespace tlx {
namespace {

namespace registry = platform::registry;

constexpr cvn::StringView kSessionManagerKey =
    u"SYSTEM\\CurrentControlSet\\Control\\Session Manager";

}  // namespace

std::optional<StoredValue> MachineValue(cvn::StringView path, cvn::StringView name) {
  registry::Key key;
  StoredValue value;
  if (registry::OpenKey(registry::Key(registry::Root::LocalMachine), path, registry::kQueryValue,
                        &key) != platform::kSuccess ||
      registry::QueryValue(key, name, &value.type, &value.data) != platform::kSuccess) {
    return std::nullopt;
  }
  return value;
}

cvn::String MachineText(cvn::StringView path, cvn::StringView name) {
  const std::optional<StoredValue> value = MachineValue(path, name);
  return value ? Printable(StoredText(value->data)) : cvn::String(u"unknown");
}

// 10.0 and later stand in two numbers, since the text stays at 6.3.
cvn::String VersionText() {
  const auto major = MachineValue(kVersionKey, u"CurrentMajorVersionNumber");
  const auto minor = MachineValue(kVersionKey, u"CurrentMinorVersionNumber");
  const auto isNumber = [](const std::optional<StoredValue>& value) {
    return value && value->type == registry::kTypeDword && !value->data.empty();
  };
  if (!isNumber(major) || !isNumber(minor)) {
    return MachineText(kVersionKey, u"CurrentVersion");
  }
  return cvn::Format(u"%u.%u", std::to_integer<unsigned>(major->data[0]),
                     std::to_integer<unsigned>(minor->data[0]));
}

cvn::List<cvn::String> PendingMoves() {
  const auto pending = MachineValue(kSessionManagerKey, u"PendingFileRenameOperations");
  return pending ? DescribePendingMoves(pending->data) : cvn::List<cvn::String>();
}

}  // namespace tlx
