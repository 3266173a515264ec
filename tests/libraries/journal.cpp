// A logging library. Script: nothing but its presence. JOURNAL_WRITES and JOURNAL_HAS_MORE tell
// whether it exports LogWrite, and whether it exports others.
#include "tests/libraries/recorder.h"

namespace {

struct Text {
  void Add(const char* more) {
    const std::size_t room = sizeof(text) - length - 1;
    const std::size_t count = std::strlen(more) < room ? std::strlen(more) : room;
    std::memcpy(text + length, more, count);
    length += count;
    text[length] = '\0';
  }
  char text[1024] = {};
  std::size_t length = 0;
};

// What a printf of wide texts makes of %s and of 32-bit numbers.
[[maybe_unused]] void Fill(const char* format, std::va_list arguments, Text* out) {
  while (*format != '\0') {
    char piece[64] = {};
    const std::size_t plain = std::strcspn(format, "%");
    const std::size_t conversion =
        format[plain] == '\0' ? 0 : std::strcspn(format + plain, "sduxX");
    if (plain != 0 || conversion == 0) {
      const std::size_t count = plain < sizeof(piece) ? plain : sizeof(piece) - 1;
      std::memcpy(piece, format, count);
      out->Add(piece);
      format += count;
      continue;
    }
    std::memcpy(piece, format, conversion + 1);
    format += conversion + 1;
    if (piece[conversion] == 's') {
      out->Add(recorder::Narrow(va_arg(arguments, const char16_t*)).text);
    } else {
      char number[64];
      std::snprintf(number, sizeof(number), piece, va_arg(arguments, std::uint32_t));
      out->Add(number);
    }
  }
}

// What the first bytes of the module that writes are: a program's image has a mark there.
[[maybe_unused]] const char* KindOf(const void* module) {
  const bool isImage = std::memcmp(module,
                                   "\x7F"
                                   "ELF",
                                   4) == 0 ||
                       std::memcmp(module, "MZ", 2) == 0;
  return isImage ? "program" : "?";
}

}  // namespace

#ifdef JOURNAL_WRITES
extern "C" std::int32_t LogWrite(std::int16_t step, const std::uint32_t* level, const void* module,
                                 const char16_t* function, const char16_t* format, ...) {
  Text line;
  std::va_list arguments;
  va_start(arguments, format);
  Fill(recorder::Narrow(format).text, arguments, &line);
  va_end(arguments);
  recorder::Record("%+d %u %s %s: %s", static_cast<int>(step), static_cast<unsigned>(*level),
                   KindOf(module), recorder::Narrow(function).text, line.text);
  return 0;
}
#endif

#ifdef JOURNAL_HAS_MORE
extern "C" void LogInit() { recorder::Record("LogInit"); }
extern "C" void LogDeinit() { recorder::Record("LogDeinit"); }
extern "C" void LogUninitDeskMetrics() { recorder::Record("LogUninitDeskMetrics"); }
extern "C" void LogRemoveModule(const char* who) { recorder::Record("LogRemoveModule %s", who); }
#endif

__attribute__((constructor)) static void Loaded() { recorder::Record("loaded"); }
__attribute__((destructor)) static void Unloaded() { recorder::Record("unloaded"); }
