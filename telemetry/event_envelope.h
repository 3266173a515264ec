// What an event is wrapped into on its way to the product.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <variant>

namespace tessel {

// An event for everybody.
struct BasicNotification {
  Json::Value fields;  // the event
  bool ignoreCloudSettings = false;
};

// An event that the product drops when it had one with the same filter a while ago.
struct FilteredNotification {
  Json::Value filterKey;
  Json::Value filterValue;
  Json::Value extraData;  // the event
  std::int64_t duration = 0;
};

// The index is the type of the notification, less one.
using NotificationBody = std::variant<BasicNotification, FilteredNotification>;

// Adds the time, in milliseconds since 1970 UTC, to the body's event as `event_time`. One that it
// has already, as a number, stays.
void StampEvent(std::int64_t milliseconds, NotificationBody* body);

struct NotificationEnvelope {
  std::int32_t version = 2;
  std::int32_t type = 0;  // 0 unknown, 1 basic, 2 filtered
  Json::Value data;
};

// Wraps a body. False when the library fails.
bool BuildEnvelope(const NotificationBody& body, NotificationEnvelope* envelope);

// The document of an envelope. False when the library fails.
bool BuildDocument(const NotificationEnvelope& envelope, Json::Value* document);

// A value as one line of text, with sorted keys and a line feed at its end; empty when the library
// fails.
std::string PrintLine(const Json::Value& value);

}  // namespace tessel
