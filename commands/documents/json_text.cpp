#include "commands/documents/json_text.h"

#include <json/reader.h>
#include <json/writer.h>

#include <exception>

// The forms of files are those of these classes, which the library keeps beside its newer ones.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace tessel {

bool ParseJson(const std::string& text, JsonComments comments, Json::Value* value) {
  try {
    return Json::Reader().parse(text, *value, comments == JsonComments::Keep);
  } catch (const std::exception&) {
    return false;
  }
}

std::string PrintJson(const Json::Value& value) { return Json::StyledWriter().write(value); }

}  // namespace tessel
