// Commands that read and change the registry, always in its native view.
#include <optional>
#include <utility>
#include <vector>

#include "commands/common/families.h"
#include "commands/system/registry_values.h"
#include "engine/command_declaration.h"
#include "engine/variable_store.h"
#include "platform/registry.h"
#include "trace/trace.h"

namespace tessel {
namespace {

namespace registry = platform::registry;
using platform::Code;
using platform::kSuccess;
using registry::Key;
using registry::Root;

// What %p shows of a root: the predefined key's value in the width of a pointer.
std::int64_t Shown(Root root) { return static_cast<std::int32_t>(root); }

// A command on a key, which is expanded each time; its root is not.
template <typename Base>
struct OnKey : Base {
  Root root;
  cvn::String key;
};

constexpr Word<Root> kRoots[] = {
    {u"HKEY_LOCAL_MACHINE", Root::LocalMachine},   {u"HKEY_CURRENT_USER", Root::CurrentUser},
    {u"HKEY_CLASSES_ROOT", Root::ClassesRoot},     {u"HKEY_USERS", Root::Users},
    {u"HKEY_CURRENT_CONFIG", Root::CurrentConfig},
};

template <typename Class>
constexpr AttributeDescription kRoot =
    Choice<&Class::root, kRoots>(u"root", u"The tree that the key belongs to.");

template <typename Class>
constexpr AttributeDescription kKey = Following(
    Expanded<&Class::key>(u"key", Presence::Required, u"The key's path from `root` on."), u"root");

template <typename Class, Use kUse>
constexpr AttributeDescription kNamedKey = Naming(kKey<Class>, Subject::RegistryKey, kUse);

template <typename Class, Use kUse>
constexpr AttributeDescription kValue = Naming(
    Following(Expanded<&Class::value>(u"value", Presence::Required,
                                      u"The value's name. Empty for the key's default value."),
              u"key"),
    Subject::RegistryValue, kUse);

constexpr FailureDescription kDenied = {u"5", u"access is denied"};
constexpr FailureDescription kOther = {u"", u"any other code of the system"};

// A key that can't be opened for reading counts as absent.
struct FunctionRegExistsKey : OnKey<FunctionRetBool> {
  void Execute() override {
    const cvn::String path = ExpandVariables(key, variables);
    TraceLine(u"regExistsKey function called for %p\\%s", Shown(root), path);
    Key opened;
    result = registry::OpenKey(Key(root), path, registry::kQueryValue, &opened) == kSuccess;
    TraceEnd(u"regExistsKey");
  }
};

constexpr AttributeDescription kRegExistsKeyAttributes[] = {
    kRoot<FunctionRegExistsKey>,
    kNamedKey<FunctionRegExistsKey, Use::Read>,
};

constexpr CommandDescription kRegExistsKey = {
    .purpose = u"Tells whether there is a key.",
    .attributes = kRegExistsKeyAttributes,
    .notes = u"A key that can't be read counts as missing.",
};

// Makes a key with all that is missing on the way; one that is there is left as it is.
struct FunctionRegCreateKey : OnKey<FunctionRetError> {
  void Execute() override {
    const cvn::String path = ExpandVariables(key, variables);
    TraceLine(u"regCreateKey function called for %p\\%s", Shown(root), path);
    Key created;
    ReportCode(registry::CreateKey(Key(root), path, isVolatile, 0, &created));
    TraceEnd(u"regCreateKey");
  }

  bool isVolatile;
};

constexpr AttributeDescription kRegCreateKeyAttributes[] = {
    kRoot<FunctionRegCreateKey>,
    Naming(Following(Expanded<&FunctionRegCreateKey::key>(
                         u"key", Presence::Required,
                         u"The key's path from `root` on. What is missing on the way is made too."),
                     u"root"),
           Subject::RegistryKey, Use::Create),
    Flag<&FunctionRegCreateKey::isVolatile>(
        u"volatile", u"Whether a key that is made lasts only until the system stops.", u"false"),
};

constexpr FailureDescription kRegCreateKeyFailures[] = {
    kDenied,
    {u"161", u"`key` begins with a backslash"},
    {u"1021", u"the key lies below a volatile one, and so has to be volatile too"},
    kOther,
};

constexpr CommandDescription kRegCreateKey = {
    .purpose = u"Makes a key. One that is there already stays as it is, and is a success.",
    .attributes = kRegCreateKeyAttributes,
    .failures = kRegCreateKeyFailures,
};

struct FunctionRegRead : OnKey<FunctionRetError> {
  void Execute() override;

  cvn::String var;
  cvn::String value;
};

void FunctionRegRead::Execute() {
  const cvn::String path = ExpandVariables(key, variables);
  const cvn::String valueName = ExpandVariables(value, variables);
  TraceLine(u"RegRead function called for %p\\%s\\%s store to %s", Shown(root), path, valueName,
            var);
  Key opened;
  std::uint32_t type = 0;
  RegistryBytes data;
  std::optional<cvn::String> text;
  Code code = registry::OpenKey(Key(root), path, registry::kQueryValue, &opened);
  if (code == kSuccess) {
    code = registry::QueryValue(opened, valueName, &type, &data);
  }
  if (code == kSuccess) {
    code = TextOfValue(type, std::move(data), &text);
  }
  // A binary value is a failure, and yet the variable receives its digits.
  if (text) {
    SetVariable(var, std::move(*text), variables);
  }
  ReportCode(code);
  TraceEnd(u"RegRead");
}

constexpr AttributeDescription kRegReadAttributes[] = {
    Variable<&FunctionRegRead::var>(u"var", Presence::NonEmpty, u"Receives the value as text."),
    kRoot<FunctionRegRead>,
    kKey<FunctionRegRead>,
    kValue<FunctionRegRead, Use::Read>,
};

constexpr FailureDescription kRegReadFailures[] = {
    {u"2", u"there is no such key or value"},
    kDenied,
    {u"1630", u"the value is of a type that has no text, or of `REG_BINARY`"},
    kOther,
};

constexpr CommandDescription kRegRead = {
    .purpose = u"Reads a value as text.",
    .attributes = kRegReadAttributes,
    .failures = kRegReadFailures,
    .notes =
        u"A `REG_BINARY` value fails with `1630`, and yet the variable receives its digits: "
        u"go on in an `onerrorspec` for `1630`. After any other failure the variable keeps "
        u"what it had. In the trace the command goes by `RegRead`.",
};

// Writes a value of a key that is there.
struct FunctionRegWrite : OnKey<FunctionRetError> {
  void Execute() override;

  cvn::String value;
  cvn::String data;
  std::uint32_t type;
};

void FunctionRegWrite::Execute() {
  const cvn::String path = ExpandVariables(key, variables);
  const cvn::String valueName = ExpandVariables(value, variables);
  const cvn::String text = ExpandVariables(data, variables);
  TraceLine(u"RegWrite function called for %p\\%s\\%s. Data:'%s', type=%d", Shown(root), path,
            valueName, text, type);
  Key opened;
  RegistryBytes bytes;
  Code code = registry::OpenKey(Key(root), path, registry::kSetValue, &opened);
  if (code == kSuccess) {
    code = BytesOfText(type, text, &bytes);
  }
  if (code == kSuccess) {
    code = registry::SetValue(opened, valueName, type, bytes);
  }
  ReportCode(code);
  TraceEnd(u"RegWrite");
}

constexpr Word<std::uint32_t> kTypes[] = {
    {u"REG_SZ", registry::kTypeString},
    {u"REG_EXPAND_SZ", registry::kTypeExpandString},
    {u"REG_MULTI_SZ", registry::kTypeMultiString},
    {u"REG_DWORD", registry::kTypeDword},
    {u"REG_QWORD", registry::kTypeQword},
    {u"REG_BINARY", registry::kTypeBinary},
};

constexpr AttributeDescription kRegWriteAttributes[] = {
    kRoot<FunctionRegWrite>,
    kKey<FunctionRegWrite>,
    kValue<FunctionRegWrite, Use::Change>,
    Expanded<&FunctionRegWrite::data>(
        u"data", Presence::Required,
        u"The text that the value is made of, as `type` says. It shows in the trace."),
    Choice<&FunctionRegWrite::type, kTypes>(u"type", u"What the value becomes."),
};

constexpr FailureDescription kRegWriteFailures[] = {
    {u"2", u"there is no such key; make it with `regCreateKey`"},
    kDenied,
    {u"111", u"`data` of a `REG_BINARY` isn't hexadecimal"},
    kOther,
};

constexpr CommandDescription kRegWrite = {
    .purpose = u"Writes a value of a key that is there.",
    .attributes = kRegWriteAttributes,
    .failures = kRegWriteFailures,
    .notes =
        u"Numbers are decimal and signed: `0x10` is 0, and one out of range becomes the "
        u"nearest that fits. In the trace the command goes by `RegWrite`.",
};

// Characters, the closing zero included, of the longest name that a walk expects.
constexpr std::size_t kNameCapacity = 256;

Code KeyNameAt(const Key& key, std::uint32_t index, cvn::String* name) {
  return registry::EnumerateKey(key, index, kNameCapacity, name);
}

// A name that just doesn't fit is asked for again, with room for one character more.
Code ValueNameAt(const Key& key, std::uint32_t index, cvn::String* name) {
  const Code code = registry::EnumerateValue(key, index, kNameCapacity, name);
  return code == platform::kMoreData ? registry::EnumerateValue(key, index, kNameCapacity + 1, name)
                                     : code;
}

// A walk over names, which the variable receives with the delimiter behind each; after a failure it
// keeps what it had.
struct FunctionRegGetNames : OnKey<FunctionRetError> {
  using NameAt = Code (*)(const Key& key, std::uint32_t index, cvn::String* name);
  void GatherNames(cvn::StringView word, std::uint32_t access, NameAt nameAt);

  cvn::String var;
  cvn::String delim;
};

void FunctionRegGetNames::GatherNames(cvn::StringView word, std::uint32_t access, NameAt nameAt) {
  const cvn::String path = ExpandVariables(key, variables);
  TraceLine(u"%s function called for %p\\%s store to %s", word, Shown(root), path, var);
  Key opened;
  cvn::String names;
  cvn::String one;
  Code code = registry::OpenKey(Key(root), path, access, &opened);
  for (std::uint32_t index = 0; code == kSuccess; ++index) {
    code = nameAt(opened, index, &one);
    if (code == kSuccess) {
      names.Append(one);
      names.Append(delim);
    }
  }
  if (code == platform::kNoMoreItems) {
    SetVariable(var, std::move(names), variables);
    code = kSuccess;
  }
  ReportCode(code);
  TraceEnd(word);
}

struct FunctionRegGetKeys : FunctionRegGetNames {
  void Execute() override { GatherNames(u"regGetKeys", registry::kEnumerateSubKeys, KeyNameAt); }
};

struct FunctionRegGetValues : FunctionRegGetNames {
  void Execute() override { GatherNames(u"regGetValues", registry::kQueryValue, ValueNameAt); }
};

constexpr AttributeDescription kRegGetNamesAttributes[] = {
    Variable<&FunctionRegGetNames::var>(
        u"var", Presence::NonEmpty,
        u"Receives the names; an empty text when there are none. After a failure it keeps what it "
        u"had."),
    kRoot<FunctionRegGetNames>,
    kNamedKey<FunctionRegGetNames, Use::Read>,
    Text<&FunctionRegGetNames::delim>(u"delim", Presence::Required,
                                      u"Stands behind each name, the last one too."),
};

constexpr FailureDescription kRegGetNamesFailures[] = {
    {u"2", u"there is no such key"},
    kDenied,
    {u"234", u"a name is longer than 255 characters, for values 256"},
    kOther,
};

constexpr CommandDescription kRegGetKeys = {
    .purpose = u"Lists the names of the keys right below a key.",
    .attributes = kRegGetNamesAttributes,
    .failures = kRegGetNamesFailures,
};

constexpr CommandDescription kRegGetValues = {
    .purpose = u"Lists the names of a key's values.",
    .attributes = kRegGetNamesAttributes,
    .failures = kRegGetNamesFailures,
    .notes =
        u"The default value's name is empty: where it is set, `delim` stands behind nothing. "
        u"When it comes first, a `for` over the list ends before its first round.",
};

// A key on the way to its deletion, which waits until all below it is gone.
struct DoomedKey {
  cvn::String path;  // from the key before it
  Key key;
  cvn::List<cvn::String> names;  // of its subkeys
  std::size_t next = 0;          // of them
};

DoomedKey EnterDoomedKey(const Key& parent, cvn::StringView path) {
  DoomedKey entered;
  entered.path = path;
  // A link is deleted itself, and not what it leads to.
  const Code code =
      registry::OpenKey(parent, path, registry::kQueryValue | registry::kEnumerateSubKeys,
                        &entered.key, registry::LinkAtEnd::Open);
  if (code != kSuccess) {
    TraceLine(u"Cannot enumerate registry keys for '%s'", path);
    return entered;
  }
  std::uint32_t count = 0;
  std::uint32_t longest = 0;
  if (registry::QueryInfo(entered.key, &count, &longest) != kSuccess) {
    return entered;
  }
  // All names before any deletion, which would shift the indexes. A name that can't be had is left
  // out; the deletion of its parent tells of it.
  for (std::uint32_t index = 0; index < count; ++index) {
    cvn::String name;
    // One with a zero in it would be taken for another key, or for its parent.
    if (registry::EnumerateKey(entered.key, index, longest + 1, &name) == kSuccess &&
        !name.Empty() && name.AsView().find(u'\0') == cvn::StringView::npos) {
      entered.names.push_back(std::move(name));
    }
  }
  return entered;
}

// Without recursion, for a hive may be nested deeper than the stack is. Keys whose subkey resists
// stay open, as Windows programs expect of this command.
Code DeleteTree(const Key& root, cvn::StringView path) {
  std::vector<DoomedKey> chain;
  chain.push_back(EnterDoomedKey(root, path));
  for (;;) {
    DoomedKey& last = chain.back();
    if (last.next < last.names.size()) {
      DoomedKey below = EnterDoomedKey(last.key, last.names[last.next]);
      ++last.next;
      chain.push_back(std::move(below));
      continue;
    }
    last.key.Close();
    TraceLine(u"Deleting subkey '%s'", last.path);
    const Key& parent = chain.size() == 1 ? root : chain[chain.size() - 2].key;
    const Code code = registry::DeleteKey(parent, last.path);
    chain.pop_back();
    if (code != kSuccess || chain.empty()) {
      for (DoomedKey& above : chain) {
        above.key.Leak();
      }
      return code;
    }
  }
}

// Deletes a key with all below it, the deepest first, up to the first that resists.
struct FunctionRegDeleteKey : OnKey<FunctionRetError> {
  void Execute() override {
    const cvn::String path = ExpandVariables(key, variables);
    TraceLine(u"regDeleteKey function called for %p\\%s", Shown(root), path);
    registry::Change change;
    Code code = change.Begin(Key(root), path);
    if (code == kSuccess) {
      const Code deleted = DeleteTree(Key(root), path);
      code = change.End();  // what is gone stays gone
      code = code == kSuccess ? deleted : code;
    }
    ReportCode(code);
    TraceEnd(u"regDeleteKey");
  }
};

constexpr AttributeDescription kRegDeleteKeyAttributes[] = {
    kRoot<FunctionRegDeleteKey>,
    kNamedKey<FunctionRegDeleteKey, Use::Remove>,
};

constexpr FailureDescription kRegDeleteKeyFailures[] = {
    {u"2", u"there is no such key"},
    kDenied,
    kOther,
};

constexpr CommandDescription kRegDeleteKey = {
    .purpose = u"Deletes a key with all below it.",
    .attributes = kRegDeleteKeyAttributes,
    .failures = kRegDeleteKeyFailures,
    .notes =
        u"The deepest keys go first, and the first one that resists ends the command: what is "
        u"gone by then stays gone.",
};

struct FunctionRegDeleteValue : OnKey<FunctionRetError> {
  void Execute() override;

  cvn::String value;
};

void FunctionRegDeleteValue::Execute() {
  const cvn::String path = ExpandVariables(key, variables);
  const cvn::String valueName = ExpandVariables(value, variables);
  TraceLine(u"regDeleteValue function called for %p\\%s\\%s", Shown(root), path, valueName);
  Key opened;
  Code code = registry::OpenKey(Key(root), path, registry::kSetValue, &opened);
  if (code == kSuccess) {
    code = registry::DeleteValue(opened, valueName);
  }
  ReportCode(code);
  TraceEnd(u"regDeleteValue");
}

constexpr AttributeDescription kRegDeleteValueAttributes[] = {
    kRoot<FunctionRegDeleteValue>,
    kKey<FunctionRegDeleteValue>,
    kValue<FunctionRegDeleteValue, Use::Remove>,
};

constexpr FailureDescription kRegDeleteValueFailures[] = {
    {u"2", u"there is no such key or value"},
    kDenied,
    kOther,
};

constexpr CommandDescription kRegDeleteValue = {
    .purpose = u"Deletes a value of a key.",
    .attributes = kRegDeleteValueAttributes,
    .failures = kRegDeleteValueFailures,
};

constexpr CommandRecord kCommands[] = {
    Command<FunctionRegExistsKey>(u"regExistsKey", kRegExistsKey),
    Command<FunctionRegCreateKey>(u"regCreateKey", kRegCreateKey),
    Command<FunctionRegRead>(u"regRead", kRegRead),
    Command<FunctionRegWrite>(u"regWrite", kRegWrite),
    Command<FunctionRegGetKeys>(u"regGetKeys", kRegGetKeys),
    Command<FunctionRegGetValues>(u"regGetValues", kRegGetValues),
    Command<FunctionRegDeleteKey>(u"regDeleteKey", kRegDeleteKey),
    Command<FunctionRegDeleteValue>(u"regDeleteValue", kRegDeleteValue),
};

}  // namespace

constinit const CommandFamily kRegistryFamily = {
    .title = u"Registry",
    .introduction =
        uR"md(
All keys are those of the system's 64-bit view. A key's path has backslashes between its names, and case doesn't count.

| `type` | `data`, and what `regRead` gives |
|---|---|
| `REG_SZ` | the text |
| `REG_EXPAND_SZ` | the text; references to the environment are expanded when it is read |
| `REG_DWORD`, `REG_QWORD` | a signed decimal number; one out of range is cut to the nearest that fits |
| `REG_MULTI_SZ` | texts with bars between them: `a\|b`; an empty one ends the list when it is read |
| `REG_BINARY` | hexadecimal digits; an odd last one counts for nothing |
)md",
    .commands = kCommands,
    .keepsToRegistry = true,
};

}  // namespace tessel
