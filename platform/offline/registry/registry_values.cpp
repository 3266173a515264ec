#include "platform/offline/registry/registry_values.h"

#include "platform/offline/registry/registry.h"

namespace platform::posix {

Code ReadValue(registry::Root root, cvn::StringView path, cvn::StringView name, ValueData* value) {
  *value = {};
  const RegistryLook look;
  registry::Key key;
  const Code code = registry::OpenKey(registry::Key(root), path, registry::kQueryValue, &key);
  return code == kSuccess ? registry::QueryValue(key, name, &value->type, &value->bytes) : code;
}

Code ReadText(registry::Root root, cvn::StringView path, cvn::StringView name,
              std::optional<std::u16string>* text) {
  ValueData value;
  const Code code = ReadValue(root, path, name, &value);
  *text = code == kSuccess ? value.Text() : std::nullopt;
  return code == kFileNotFound ? kSuccess : code;
}

std::optional<std::u16string> ReadText(registry::Root root, cvn::StringView path,
                                       cvn::StringView name) {
  std::optional<std::u16string> text;
  IgnoreError(ReadText(root, path, name, &text));
  return text;
}

}  // namespace platform::posix
