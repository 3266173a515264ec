#include "changes/json_input.h"

#include <json/reader.h>

#include <exception>
#include <memory>

namespace tessel {

std::optional<Json::Value> ReadJsonObject(std::string_view text) {
  Json::CharReaderBuilder rules;
  Json::CharReaderBuilder::strictMode(&rules.settings_);
  try {
    const std::unique_ptr<Json::CharReader> reader(rules.newCharReader());
    Json::Value value;
    const bool isRead = reader->parse(text.data(), text.data() + text.size(), &value, nullptr);
    return isRead && value.isObject() ? std::optional(std::move(value)) : std::nullopt;
  } catch (const std::exception&) {  // nests too deep
    return std::nullopt;
  }
}

}  // namespace tessel
