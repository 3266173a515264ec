#include "commands/system/registry.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "engine/variable_store.h"
#include "platform/environment.h"
#include "support/format.h"
#include "support/numbers.h"
#include "trace/trace.h"

namespace tessel {
namespace {

namespace registry = platform::registry;
using platform::Code;
using platform::kSuccess;
using registry::Key;
using registry::Root;

using Bytes = std::vector<std::byte>;

static_assert(std::endian::native == std::endian::little, "values are stored as memory has them");

// Characters, the closing zero included, of the longest name that a walk expects.
constexpr std::size_t kNameCapacity = 256;

struct NamedRoot {
  cvn::StringView name;
  Root root;
};

constexpr NamedRoot kRoots[] = {
    {u"HKEY_CLASSES_ROOT", Root::ClassesRoot},     {u"HKEY_CURRENT_USER", Root::CurrentUser},
    {u"HKEY_LOCAL_MACHINE", Root::LocalMachine},   {u"HKEY_USERS", Root::Users},
    {u"HKEY_CURRENT_CONFIG", Root::CurrentConfig},
};

struct NamedType {
  cvn::StringView name;
  std::uint32_t type;
};

constexpr NamedType kTypes[] = {
    {u"REG_SZ", registry::kTypeString},
    {u"REG_DWORD", registry::kTypeDword},
    {u"REG_QWORD", registry::kTypeQword},
    {u"REG_MULTI_SZ", registry::kTypeMultiString},
    {u"REG_EXPAND_SZ", registry::kTypeExpandString},
    {u"REG_BINARY", registry::kTypeBinary},
};

// What %p shows of a root: the predefined key's value in the width of a pointer.
std::int64_t Shown(Root root) { return static_cast<std::int32_t>(root); }

// The number at the start of stored bytes, which are at least as many.
template <typename Int>
Int NumberIn(const Bytes& data) {
  Int number = 0;
  std::memcpy(&number, data.data(), sizeof(number));
  return number;
}

template <typename Int>
void StoreNumber(Int number, Bytes* data) {
  data->resize(sizeof(number));
  std::memcpy(data->data(), &number, sizeof(number));
}

cvn::String HexText(std::span<const std::byte> data) {
  constexpr cvn::StringView kDigits = u"0123456789abcdef";
  cvn::String text;
  text.Reserve(2 * data.size());
  for (const std::byte byte : data) {
    text.Append(kDigits[std::to_integer<std::size_t>(byte >> 4)]);
    text.Append(kDigits[std::to_integer<std::size_t>(byte & std::byte{0xF})]);
  }
  return text;
}

std::optional<std::byte> HexDigit(char16_t c) {
  if (c >= u'0' && c <= u'9') {
    return static_cast<std::byte>(c - u'0');
  }
  const char16_t lower = c | 0x20;
  if (lower >= u'a' && lower <= u'f') {
    return static_cast<std::byte>(lower - u'a' + 10);
  }
  return std::nullopt;
}

// The strings of a list up to the first empty one, with bars between them.
cvn::String JoinedStrings(cvn::StringView list) {
  cvn::String joined;
  while (!list.empty() && list.front() != u'\0') {
    const cvn::StringView one = list.substr(0, list.find(u'\0'));
    joined.Append(one);
    joined.Append(u'|');
    list.remove_prefix(std::min(one.size() + 1, list.size()));
  }
  joined.Truncate(joined.AsView().find_last_not_of(u'|') + 1);
  return joined;
}

// The text that a stored value gives. For binary data there is both a text and a failure.
Code TextOfValue(std::uint32_t type, Bytes data, std::optional<cvn::String>* text) {
  const std::size_t size = data.size();
  // Ends texts that were stored without their zero, and fills up short numbers.
  data.resize(std::max(size + 4, sizeof(std::int64_t)));
  std::u16string characters(data.size() / sizeof(char16_t), u'\0');
  std::memcpy(characters.data(), data.data(), characters.size() * sizeof(char16_t));
  const cvn::StringView first = cvn::StringView(characters).substr(0, characters.find(u'\0'));
  switch (type) {
    case registry::kTypeString:
      *text = first;
      return kSuccess;
    case registry::kTypeExpandString:
      *text = platform::environment::Expand(first);
      return text->has_value() ? kSuccess : platform::LastError();
    case registry::kTypeDword:
      *text = cvn::Format(u"%d", NumberIn<std::int32_t>(data));
      return kSuccess;
    case registry::kTypeQword:
      *text = cvn::Format(u"%lld", NumberIn<std::int64_t>(data));
      return kSuccess;
    case registry::kTypeMultiString:
      *text = JoinedStrings(characters);
      return kSuccess;
    case registry::kTypeBinary:
      *text = HexText(std::span(data).first(size));
      return platform::kUnsupportedType;
    default:
      return platform::kUnsupportedType;
  }
}

void StoreText(cvn::StringView text, std::size_t zeros, Bytes* data) {
  std::u16string ended(text);
  ended.append(zeros, u'\0');
  data->resize(ended.size() * sizeof(char16_t));
  std::memcpy(data->data(), ended.data(), data->size());
}

void StoreStrings(cvn::StringView text, Bytes* data) {
  std::u16string list(text);
  std::replace(list.begin(), list.end(), u'|', u'\0');
  StoreText(list, list.empty() ? 1 : 2, data);
}

// An odd last digit counts for nothing.
Code StoreHex(cvn::StringView text, Bytes* data) {
  data->reserve(text.size() / 2);
  for (; text.size() >= 2; text.remove_prefix(2)) {
    const std::optional<std::byte> high = HexDigit(text[0]);
    const std::optional<std::byte> low = HexDigit(text[1]);
    if (!high || !low) {
      return platform::kBufferOverflow;
    }
    data->push_back((*high << 4) | *low);
  }
  return kSuccess;
}

// The bytes to store for the text that a script gives.
Code BytesOfText(std::uint32_t type, cvn::StringView text, Bytes* data) {
  switch (type) {
    case registry::kTypeString:
    case registry::kTypeExpandString:
      StoreText(text, 1, data);
      return kSuccess;
    case registry::kTypeDword:
      StoreNumber(cvn::ReadInt32(text), data);
      return kSuccess;
    case registry::kTypeQword:
      StoreNumber(cvn::ReadInt64(text), data);
      return kSuccess;
    case registry::kTypeMultiString:
      StoreStrings(text, data);
      return kSuccess;
    case registry::kTypeBinary:
      return StoreHex(text, data);
    default:
      return platform::kUnsupportedType;
  }
}

Code KeyNameAt(const Key& key, std::uint32_t index, cvn::String* name) {
  return registry::EnumerateKey(key, index, kNameCapacity, name);
}

// A name that just doesn't fit gets a second chance, with room for one character more.
Code ValueNameAt(const Key& key, std::uint32_t index, cvn::String* name) {
  const Code code = registry::EnumerateValue(key, index, kNameCapacity, name);
  return code == platform::kMoreData ? registry::EnumerateValue(key, index, kNameCapacity + 1, name)
                                     : code;
}

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
  const Code code = registry::OpenKey(
      parent, path, registry::kQueryValue | registry::kEnumerateSubKeys, &entered.key);
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
    if (registry::EnumerateKey(entered.key, index, longest + 1, &name) == kSuccess) {
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

}  // namespace

bool RegistryPlace::Read(const AttributeMap& attributes) {
  const cvn::String* rootName = attributes.Find(u"root");
  const cvn::String* keyPath = attributes.Find(u"key");
  if (rootName == nullptr || keyPath == nullptr) {
    return false;
  }
  const auto* named = std::ranges::find(kRoots, rootName->AsView(), &NamedRoot::name);
  if (named == std::end(kRoots)) {
    return false;
  }
  root = named->root;
  key = *keyPath;
  return true;
}

bool FunctionRegRead::Parse() {
  return ReadNonEmpty(u"var", &var_) && place_.Read(attributes) && ReadAttribute(u"value", &value_);
}

void FunctionRegRead::Execute() {
  const cvn::String path = ExpandVariables(place_.key, variables);
  const cvn::String valueName = ExpandVariables(value_, variables);
  TraceLine(u"RegRead function called for %p\\%s\\%s store to %s", Shown(place_.root), path,
            valueName, var_);
  Key key;
  std::uint32_t type = 0;
  Bytes data;
  std::optional<cvn::String> text;
  Code code = registry::OpenKey(Key(place_.root), path, registry::kQueryValue, &key);
  if (code == kSuccess) {
    code = registry::QueryValue(key, valueName, &type, &data);
  }
  if (code == kSuccess) {
    code = TextOfValue(type, std::move(data), &text);
  }
  if (text) {
    SetVariable(var_, std::move(*text), variables);
  }
  ReportCode(code);
  TraceEnd(u"RegRead");
}

bool FunctionRegGetNames::Parse() {
  return ReadNonEmpty(u"var", &var_) && place_.Read(attributes) && ReadAttribute(u"delim", &delim_);
}

void FunctionRegGetNames::GatherNames(cvn::StringView word, std::uint32_t access, NameAt nameAt) {
  const cvn::String path = ExpandVariables(place_.key, variables);
  TraceLine(u"%s function called for %p\\%s store to %s", word, Shown(place_.root), path, var_);
  Key key;
  cvn::String names;
  cvn::String one;
  Code code = registry::OpenKey(Key(place_.root), path, access, &key);
  for (std::uint32_t index = 0; code == kSuccess; ++index) {
    code = nameAt(key, index, &one);
    if (code == kSuccess) {
      names.Append(one);
      names.Append(delim_);
    }
  }
  if (code == platform::kNoMoreItems) {
    SetVariable(var_, std::move(names), variables);
    code = kSuccess;
  }
  ReportCode(code);
  TraceEnd(word);
}

void FunctionRegGetKeys::Execute() {
  GatherNames(u"regGetKeys", registry::kEnumerateSubKeys, KeyNameAt);
}

void FunctionRegGetValues::Execute() {
  GatherNames(u"regGetValues", registry::kQueryValue, ValueNameAt);
}

bool FunctionRegWrite::Parse() {
  cvn::String typeName;
  if (!place_.Read(attributes) || !ReadAttribute(u"value", &value_) ||
      !ReadAttribute(u"data", &data_) || !ReadAttribute(u"type", &typeName)) {
    return false;
  }
  const auto* named = std::ranges::find(kTypes, typeName.AsView(), &NamedType::name);
  if (named == std::end(kTypes)) {
    return false;
  }
  type_ = named->type;
  return true;
}

void FunctionRegWrite::Execute() {
  const cvn::String path = ExpandVariables(place_.key, variables);
  const cvn::String valueName = ExpandVariables(value_, variables);
  const cvn::String text = ExpandVariables(data_, variables);
  TraceLine(u"RegWrite function called for %p\\%s\\%s. Data:'%s', type=%d", Shown(place_.root),
            path, valueName, text, type_);
  Key key;
  Bytes data;
  Code code = registry::OpenKey(Key(place_.root), path, registry::kSetValue, &key);
  if (code == kSuccess) {
    code = BytesOfText(type_, text, &data);
  }
  if (code == kSuccess) {
    code = registry::SetValue(key, valueName, type_, data);
  }
  ReportCode(code);
  TraceEnd(u"RegWrite");
}

bool FunctionRegExistsKey::Parse() { return place_.Read(attributes); }

void FunctionRegExistsKey::Execute() {
  const cvn::String path = ExpandVariables(place_.key, variables);
  TraceLine(u"regExistsKey function called for %p\\%s", Shown(place_.root), path);
  Key key;
  result = registry::OpenKey(Key(place_.root), path, registry::kQueryValue, &key) == kSuccess;
  TraceEnd(u"regExistsKey");
}

bool FunctionRegCreateKey::Parse() {
  ReadFlag(u"volatile", &isVolatile_);
  return place_.Read(attributes);
}

void FunctionRegCreateKey::Execute() {
  const cvn::String path = ExpandVariables(place_.key, variables);
  TraceLine(u"regCreateKey function called for %p\\%s", Shown(place_.root), path);
  Key key;
  ReportCode(registry::CreateKey(Key(place_.root), path, isVolatile_, 0, &key));
  TraceEnd(u"regCreateKey");
}

bool FunctionRegDeleteKey::Parse() { return place_.Read(attributes); }

void FunctionRegDeleteKey::Execute() {
  const cvn::String path = ExpandVariables(place_.key, variables);
  TraceLine(u"regDeleteKey function called for %p\\%s", Shown(place_.root), path);
  ReportCode(DeleteTree(Key(place_.root), path));
  TraceEnd(u"regDeleteKey");
}

bool FunctionRegDeleteValue::Parse() {
  return place_.Read(attributes) && ReadAttribute(u"value", &value_);
}

void FunctionRegDeleteValue::Execute() {
  const cvn::String path = ExpandVariables(place_.key, variables);
  const cvn::String valueName = ExpandVariables(value_, variables);
  TraceLine(u"regDeleteValue function called for %p\\%s\\%s", Shown(place_.root), path, valueName);
  Key key;
  Code code = registry::OpenKey(Key(place_.root), path, registry::kSetValue, &key);
  if (code == kSuccess) {
    code = registry::DeleteValue(key, valueName);
  }
  ReportCode(code);
  TraceEnd(u"regDeleteValue");
}

}  // namespace tessel
