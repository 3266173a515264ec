#include <algorithm>
#include <iterator>
#include <optional>

#include "platform/machine.h"
#include "platform/registry.h"
#include "platform/streams.h"
#include "support/format.h"
#include "support/numbers.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/machine_facts.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/messages.h"
#include "trust/product.h"

namespace tlx {
namespace {

namespace registry = platform::registry;
using platform::Code;
using platform::kSuccess;
using registry::Key;
using registry::Root;

constexpr OperandSpec kOperands[] = {
    {u"DIR", true, u"The machine's folder"},
    {u"HKEY", false, u"A key to list, like HKLM\\SOFTWARE\\Microsoft"},
};

struct NamedRoot {
  cvn::StringView name;
  cvn::StringView shortName;
  Root root;
};

constexpr NamedRoot kRoots[] = {
    {u"HKEY_CLASSES_ROOT", u"HKCR", Root::ClassesRoot},
    {u"HKEY_CURRENT_USER", u"HKCU", Root::CurrentUser},
    {u"HKEY_LOCAL_MACHINE", u"HKLM", Root::LocalMachine},
    {u"HKEY_USERS", u"HKU", Root::Users},
    {u"HKEY_CURRENT_CONFIG", u"HKCC", Root::CurrentConfig},
};

// Longer names there are none of, with their closing zero.
constexpr std::size_t kKeyNameCapacity = 256;
constexpr std::size_t kValueNameCapacity = 16384;

constexpr cvn::StringView kEnvironmentKey =
    u"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";
constexpr cvn::StringView kTrustedRootsKey =
    u"SOFTWARE\\Microsoft\\SystemCertificates\\ROOT\\Certificates";

void WriteLine(cvn::StringView line) {
  platform::streams::WriteLine(platform::streams::Output::Out, line);
}

int FailOnKey(cvn::StringView key, Code code) {
  switch (code) {
    case platform::kFileNotFound:
      return FailOnFile(key, u"there is no such key");
    case platform::kBadDatabase:
      return FailOnFile(key, u"its hive is damaged");
    default:
      return FailToRead(key, code);
  }
}

std::uint32_t CountTrustedRoots() {
  Key key;
  std::uint32_t count = 0;
  std::uint32_t longest = 0;
  if (registry::OpenKey(Key(Root::LocalMachine), kTrustedRootsKey, registry::kQueryValue, &key) ==
      kSuccess) {
    // The summary shows no roots where they can't be counted.
    platform::IgnoreError(registry::QueryInfo(key, &count, &longest));
  }
  return count;
}

int ShowSummary(cvn::StringView folder) {
  if (const Code code = platform::machine::CheckRegistry(); code != kSuccess) {
    return FailToRead(folder, code);
  }
  Key key;
  const Code code =
      registry::OpenKey(Key(Root::LocalMachine), kVersionKey, registry::kQueryValue, &key);
  if (code != kSuccess) {
    return code == platform::kFileNotFound
               ? FailOnFile(folder, u"no machine: its registry tells of no Windows")
               : FailOnKey(cvn::Format(u"HKLM\\%s", kVersionKey), code);
  }
  const auto row = [](cvn::StringView title, cvn::StringView text) {
    WriteLine(cvn::Format(u"%-16s%s", title, text));
  };
  row(u"Product:", MachineText(kVersionKey, u"ProductName"));
  row(u"Version:", VersionText());
  row(u"Build:", MachineText(kVersionKey, u"CurrentBuild"));
  row(u"Edition:", MachineText(kVersionKey, u"EditionID"));
  row(u"Architecture:", ArchitectureName(MachineText(kEnvironmentKey, u"PROCESSOR_ARCHITECTURE")));
  row(u"Install folder:", MachineText(tessel::product::kUninstallKey, u"InstallLocation"));
  row(u"Trusted roots:", cvn::Format(u"%u", CountTrustedRoots()));
  const cvn::List<cvn::String> moves = PendingMoves();
  row(u"After reboot:", moves.empty() ? cvn::StringView(u"nothing") : cvn::StringView());
  for (const cvn::String& move : moves) {
    WriteLine(cvn::Format(u"  %s", move));
  }
  return kExitDone;
}

// Lists the names of subkeys; the code that ends it.
Code ListSubKeys(const Key& key) {
  cvn::String name;
  for (std::uint32_t index = 0;; ++index) {
    const Code code = registry::EnumerateKey(key, index, kKeyNameCapacity, &name);
    if (code != kSuccess) {
      return code;
    }
    WriteLine(cvn::Format(u"  %s\\", Printable(name)));
  }
}

Code ListValues(const Key& key) {
  cvn::String name;
  for (std::uint32_t index = 0;; ++index) {
    StoredValue value;
    Code code = registry::EnumerateValue(key, index, kValueNameCapacity, &name);
    if (code == kSuccess) {
      code = registry::QueryValue(key, name, &value.type, &value.data);
    }
    if (code != kSuccess) {
      return code;
    }
    const cvn::List<cvn::String> lines = DescribeValue(value.type, value.data);
    WriteLine(cvn::Format(u"  %s: %s", name.Empty() ? cvn::String(u"(default)") : Printable(name),
                          lines.front()));
    for (const cvn::String& line : std::span(lines).subspan(1)) {
      WriteLine(cvn::Format(u"    %s", line));
    }
  }
}

int ShowKey(cvn::StringView name) {
  const cvn::StringView rootName = name.substr(0, name.find(u'\\'));
  const auto* root = std::ranges::find_if(kRoots, [rootName](const NamedRoot& one) {
    return cvn::EqualNoCase(rootName, one.name) || cvn::EqualNoCase(rootName, one.shortName);
  });
  if (root == std::end(kRoots)) {
    return FailOnFile(name, u"a key's name begins with HKLM, HKCU, HKU, HKCR or HKCC");
  }
  const cvn::StringView path = name.substr(std::min(rootName.size() + 1, name.size()));
  Key key;
  Code code = registry::OpenKey(Key(root->root), path,
                                registry::kQueryValue + registry::kEnumerateSubKeys, &key);
  if (code == kSuccess) {
    code = ListSubKeys(key);
  }
  if (code == platform::kNoMoreItems) {
    code = ListValues(key);
  }
  return code == platform::kNoMoreItems ? kExitDone : FailOnKey(name, code);
}

int ShowMachine(const Options& options) {
  const cvn::StringView folder = options.Operand(0);
  switch (const Code code = platform::machine::Use(folder)) {
    case kSuccess:
      break;
    case platform::kNotSupported:
      return FailOnFile(folder, kNoMachinesHere);
    default:
      return FailToRead(folder, code);
  }
  const cvn::StringView key = options.Operand(1);
  return key.empty() ? ShowSummary(folder) : ShowKey(key);
}

}  // namespace

const CommandSpec kMachineShowCommand = {
    u"machine show",
    u"Show what a machine is, or a key of its registry",
    u"Tells which Windows a machine folder holds, and what the next boot would do to its files. "
    u"With "
    u"KEY, lists the\n"
    u"subkeys and values of that key.\n",
    {},
    ShowMachine,
    kOperands,
};

}  // namespace tlx
