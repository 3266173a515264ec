// A logging library. Script: nothing but its presence.
#include "tests/libraries/recorder.h"

extern "C" {

// A printf of wide texts, for %s and for 32-bit numbers.
std::int32_t LogWrite(std::int16_t step, const std::uint32_t* level, const void* module,
                      const char16_t* function, const char16_t* format, ...) {
  char line[1024] = {};
  const recorder::Narrow narrow(format);
  std::va_list arguments;
  va_start(arguments, format);
  for (const char* at = narrow.text; *at != '\0';) {
    char piece[64] = {};
    const std::size_t size = *at == '%' ? std::strcspn(at, "sduxX") + 1 : std::strcspn(at, "%");
    std::snprintf(piece, sizeof(piece), "%.*s", static_cast<int>(size), at);
    char* const end = line + std::strlen(line);
    const auto room = static_cast<std::size_t>(line + sizeof(line) - end);
    if (*at != '%') {
      std::snprintf(end, room, "%.*s", static_cast<int>(size), at);
    } else if (at[size - 1] == 's') {
      const recorder::Narrow text(va_arg(arguments, const char16_t*));
      std::snprintf(end, room, "%s", text.text);
    } else {
      std::snprintf(end, room, piece, va_arg(arguments, std::uint32_t));
    }
    at += size;
  }
  va_end(arguments);
  // An image has one of these marks at its start.
  const bool isImage = std::memcmp(module, "\177ELF", 4) == 0 || std::memcmp(module, "MZ", 2) == 0;
  recorder::Record("%+d %u %s %s: %s", static_cast<int>(step), static_cast<unsigned>(*level),
                   isImage ? "program" : "?", recorder::Narrow(function).text, line);
  return 0;
}

void LogInit() { recorder::Record("LogInit"); }
void LogDeinit() { recorder::Record("LogDeinit"); }
void LogUninitDeskMetrics() { recorder::Record("LogUninitDeskMetrics"); }
void LogRemoveModule(const char* who) { recorder::Record("LogRemoveModule %s", who); }
}

__attribute__((constructor)) static void Loaded() { recorder::Record("loaded"); }
__attribute__((destructor)) static void Unloaded() { recorder::Record("unloaded"); }
