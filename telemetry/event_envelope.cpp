#include "telemetry/event_envelope.h"

#include <json/writer.h>

#include <array>
#include <exception>

// The library's oldest writer gives the form that the product's reader of events knows.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace tessel {
namespace {

constexpr const char* kEventTime = "event_time";
constexpr std::array<const char*, 3> kTypeNames = {"unknown", "basicNotification",
                                                   "filteredNotification"};

Json::Value DataOf(const BasicNotification& body) {
  Json::Value data(Json::objectValue);
  data["fields"] = body.fields;
  data["ignoreCloudSettings"] = body.ignoreCloudSettings;
  return data;
}

Json::Value DataOf(const FilteredNotification& body) {
  Json::Value data(Json::objectValue);
  data["filterKey"] = body.filterKey;
  data["filterValue"] = body.filterValue;
  data["extraData"] = body.extraData;
  data["duration"] = static_cast<Json::Int64>(body.duration);
  return data;
}

Json::Value* EventOf(NotificationBody* body) {
  auto* basic = std::get_if<BasicNotification>(body);
  return basic != nullptr ? &basic->fields : &std::get<FilteredNotification>(*body).extraData;
}

}  // namespace

void StampEvent(std::int64_t milliseconds, NotificationBody* body) {
  Json::Value& event = *EventOf(body);
  if (!event.isMember(kEventTime) || !event[kEventTime].isNumeric()) {
    event[kEventTime] = static_cast<Json::Int64>(milliseconds);
  }
}

bool BuildEnvelope(const NotificationBody& body, NotificationEnvelope* envelope) {
  try {
    envelope->type = static_cast<std::int32_t>(body.index()) + 1;
    envelope->data = std::visit([](const auto& one) { return DataOf(one); }, body);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

bool BuildDocument(const NotificationEnvelope& envelope, Json::Value* document) {
  try {
    *document = Json::Value(Json::objectValue);
    (*document)["version"] = envelope.version;
    (*document)["type"] = kTypeNames[static_cast<std::size_t>(envelope.type)];
    (*document)["data"] = envelope.data;
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

std::string PrintLine(const Json::Value& value) {
  try {
    return Json::FastWriter().write(value);
  } catch (const std::exception&) {
    return {};
  }
}

}  // namespace tessel
