#include "tools/tlx/moment.h"

#include <algorithm>
#include <chrono>

#include "platform/clock.h"
#include "support/format.h"
#include "support/numbers.h"

namespace tlx {
namespace {

using std::chrono::milliseconds;
using std::chrono::sys_seconds;
using Seconds = std::chrono::seconds;

// A text that is read from its front.
class Reader {
 public:
  explicit Reader(cvn::StringView text) : rest_(text) {}

  bool IsAtEnd() const { return rest_.empty(); }

  bool Skip(cvn::StringView choices) {
    const bool isThere = !rest_.empty() && choices.find(rest_.front()) != cvn::StringView::npos;
    last_ = isThere ? rest_.front() : u'\0';
    rest_.remove_prefix(isThere ? 1 : 0);
    return isThere;
  }
  // What Skip has skipped at last.
  char16_t Last() const { return last_; }

  // From `fewest` to `most` digits; nothing when there are fewer, or when it is more than
  // `largest`.
  std::optional<int> Number(std::size_t fewest, std::size_t most, int largest) {
    std::size_t length = 0;
    while (length < std::min(most, rest_.size()) && rest_[length] >= u'0' &&
           rest_[length] <= u'9') {
      ++length;
    }
    const int number = length < fewest ? -1 : cvn::ReadInt32(rest_.substr(0, length));
    rest_.remove_prefix(length);
    return number < 0 || number > largest ? std::nullopt : std::optional(number);
  }

 private:
  cvn::StringView rest_;
  char16_t last_ = u'\0';
};

std::optional<Seconds> ReadDuration(cvn::StringView text) {
  constexpr int kMost = 999'999'999;
  Reader reader(text);
  Seconds sum(0);
  do {
    const std::optional<int> count = reader.Number(1, 9, kMost);
    if (!count || !reader.Skip(u"smhdw")) {
      return std::nullopt;
    }
    constexpr std::int64_t kMinute = 60;
    constexpr std::int64_t kHour = 60 * kMinute;
    constexpr std::int64_t kDay = 24 * kHour;
    const char16_t unit = reader.Last();
    sum += Seconds(*count * (unit == u's'   ? 1
                             : unit == u'm' ? kMinute
                             : unit == u'h' ? kHour
                             : unit == u'd' ? kDay
                                            : 7 * kDay));
  } while (!reader.IsAtEnd());
  return sum;
}

// How far local time is ahead of UTC at a moment.
Seconds OffsetAt(sys_seconds moment) {
  const platform::clock::LocalTime local =
      platform::clock::ToLocalTime(moment.time_since_epoch().count());
  const std::chrono::year_month_day date(std::chrono::year(local.year),
                                         std::chrono::month(static_cast<unsigned>(local.month)),
                                         std::chrono::day(static_cast<unsigned>(local.day)));
  const std::chrono::sys_days day(date);
  return sys_seconds(day) + std::chrono::hours(local.hour) + std::chrono::minutes(local.minute) +
         Seconds(local.second) - moment;
}

// The moment at which local clocks show what UTC's show at `shown`.
sys_seconds FromLocal(sys_seconds shown) {
  // Zones are less than a day away, and don't change twice within two.
  const sys_seconds before = shown - OffsetAt(shown - std::chrono::days(1));
  const sys_seconds after = shown - OffsetAt(shown + std::chrono::days(1));
  const bool isAfter = before + OffsetAt(before) != shown && after + OffsetAt(after) == shown;
  return isAfter ? after : before;
}

// The zone at the end of a time, as what it is ahead of UTC; nothing for none.
bool ReadZone(Reader* reader, std::optional<Seconds>* zone) {
  if (reader->Skip(u"Zz")) {
    *zone = Seconds(0);
  } else if (reader->Skip(u"+-")) {
    const int sign = reader->Last() == u'-' ? -1 : 1;
    const std::optional<int> hours = reader->Number(2, 2, 23);
    const bool hasMinutes = reader->Skip(u":") || !reader->IsAtEnd();
    const std::optional<int> minutes = hasMinutes ? reader->Number(2, 2, 59) : 0;
    if (!hours || !minutes) {
      return false;
    }
    *zone = sign * (std::chrono::hours(*hours) + std::chrono::minutes(*minutes));
  }
  return reader->IsAtEnd();
}

// The digits behind the point of a second.
std::optional<milliseconds> ReadFraction(Reader* reader) {
  milliseconds fraction(0);
  int digits = 0;
  for (int weight = 100; reader->Skip(u"0123456789"); weight /= 10) {
    fraction += milliseconds((reader->Last() - u'0') * weight);
    ++digits;
  }
  return digits == 0 ? std::nullopt : std::optional(fraction);
}

struct TimeOfDay {
  Seconds seconds{0};
  milliseconds fraction{0};
};

std::optional<TimeOfDay> ReadTimeOfDay(Reader* reader) {
  const std::optional<int> hours = reader->Number(2, 2, 23);
  const std::optional<int> minutes = reader->Skip(u":") ? reader->Number(2, 2, 59) : std::nullopt;
  if (!hours || !minutes) {
    return std::nullopt;
  }
  TimeOfDay time{std::chrono::hours(*hours) + std::chrono::minutes(*minutes)};
  if (reader->Skip(u":")) {
    const std::optional<int> seconds = reader->Number(2, 2, 60);
    const std::optional<milliseconds> fraction =
        reader->Skip(u".,") ? ReadFraction(reader) : milliseconds(0);
    if (!seconds || !fraction) {
      return std::nullopt;
    }
    time.seconds += Seconds(*seconds);
    time.fraction = *fraction;
  }
  return time;
}

std::optional<std::int64_t> ReadTime(cvn::StringView text) {
  Reader reader(text);
  const std::optional<int> year = reader.Number(4, 4, 9999);
  const std::optional<int> month = reader.Skip(u"-") ? reader.Number(2, 2, 12) : std::nullopt;
  const std::optional<int> day = reader.Skip(u"-") ? reader.Number(2, 2, 31) : std::nullopt;
  if (!year || !month || !day) {
    return std::nullopt;
  }
  const std::chrono::year_month_day date(std::chrono::year(*year),
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day)));
  std::optional<TimeOfDay> time = TimeOfDay();
  std::optional<Seconds> zone;
  if (reader.Skip(u"Tt ")) {
    time = ReadTimeOfDay(&reader);
    if (!time || !ReadZone(&reader, &zone)) {
      return std::nullopt;
    }
  }
  if (!date.ok() || !reader.IsAtEnd()) {
    return std::nullopt;
  }
  const sys_seconds shown = sys_seconds(std::chrono::sys_days(date)) + time->seconds;
  const sys_seconds moment = zone ? shown - *zone : FromLocal(shown);
  return (milliseconds(moment.time_since_epoch()) + time->fraction).count();
}

}  // namespace

std::optional<std::int64_t> ReadMoment(cvn::StringView text, std::int64_t now) {
  const std::optional<Seconds> duration = ReadDuration(text);
  return duration ? std::optional(now - milliseconds(*duration).count()) : ReadTime(text);
}

cvn::String IsoText(std::int64_t moment) {
  constexpr std::int64_t kEnd = 253'402'300'800'000;  // of the year 9999
  if (moment < 0 || moment >= kEnd) {
    return {};
  }
  const std::chrono::sys_time<milliseconds> time{milliseconds(moment)};
  const auto days = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(days);
  const std::chrono::hh_mm_ss clock(time - days);
  return cvn::Format(u"%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     clock.hours().count(), clock.minutes().count(), clock.seconds().count(),
                     clock.subseconds().count());
}

cvn::String LocalText(std::int64_t moment) {
  const platform::clock::LocalTime time = platform::clock::ToLocalTime(moment / 1000);
  return cvn::Format(u"%04d-%02d-%02d %02d:%02d:%02d", time.year, time.month, time.day, time.hour,
                     time.minute, time.second);
}

}  // namespace tlx
