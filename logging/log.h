// Diagnostic lines for the suite's logging library, "journal.dll", in the program's folder. Without
// that file nothing here has an effect. The trace of a run is another thing (trace/trace.h).
//
// The library is loaded only while a reference is held, as the reader of signatures does while it
// reads. Writing a line never loads it: without a reference, it costs the reading of an atomic
// number.
//
//   logging::LogRef log;
//   log.Attach();                     // released at the end of its life
//   const logging::ScopeTrace scope(u"Crypt::Reader::Open");
//   logging::WriteLine(logging::kFailure, u"Crypt::Reader::Open", u"Failed with error %d.",
//                      platform::LastError);
#pragma once

#include <array>
#include <atomic>
#include <concepts>
#include <cstdint>
#include <tuple>
#include <type_traits>

#include "platform/libraries.h"
#include "support/string.h"

namespace logging {

using Level = std::uint32_t;
inline constexpr Level kFailure = 4;
inline constexpr Level kNotice = 16;
inline constexpr Level kDetail = 32;

// How a line changes the nesting of those that follow.
inline constexpr std::int16_t kSameStep = 0;
inline constexpr std::int16_t kEntryStep = 1;
inline constexpr std::int16_t kExitStep = -1;

// The library with its exports. On both platforms it takes zero-ended UTF-16, and the arguments of
// a format as C passes them.
class CLogDLL {
 public:
  // Takes the copy that is in the process already, or loads the one beside the program.
  CLogDLL();
  CLogDLL(const CLogDLL&) = delete;
  CLogDLL& operator=(const CLogDLL&) = delete;
  ~CLogDLL();

  // Returns the library's status: 0x80004002 (E_NOINTERFACE) when there is no library.
  template <typename... Args>
  std::int32_t Write(std::int16_t step, Level* level, const void* module, const char16_t* function,
                     const char16_t* format, Args... args) const {
    return logWrite_(step, level, module, function, format, args...);
  }

 private:
  using PlainFunction = void (*)();
  using WriteFunction = std::int32_t (*)(std::int16_t step, Level* level, const void* module,
                                         const char16_t* function, const char16_t* format, ...);
  using RemoveFunction = void (*)(const char* who);

  void ResolveExports();

  platform::libraries::Library library_;
  platform::libraries::Address logApplySettings_ = nullptr;
  platform::libraries::Address logSetSettingsFile_ = nullptr;
  platform::libraries::Address logEnable_ = nullptr;
  platform::libraries::Address logSetLevel_ = nullptr;
  platform::libraries::Address logSetPath_ = nullptr;
  platform::libraries::Address logSetType_ = nullptr;
  platform::libraries::Address logSetMode_ = nullptr;
  platform::libraries::Address logSetMaxSize_ = nullptr;
  platform::libraries::Address logSetDepth_ = nullptr;
  WriteFunction logWrite_ = nullptr;
  platform::libraries::Address logIsEnabled_ = nullptr;
  platform::libraries::Address logMonitorSettings_ = nullptr;
  PlainFunction logUninitDeskMetrics_ = nullptr;
  platform::libraries::Address logTrackEvent_ = nullptr;
  platform::libraries::Address logTrackEventData_ = nullptr;
  RemoveFunction logRemoveModule_ = nullptr;
  platform::libraries::Address logGetLevel_ = nullptr;
};

// References to the library: the first one loads it, the last one unloads it. Any thread may attach
// and release.
class LogRef {
 public:
  LogRef() = default;
  LogRef(const LogRef&) = delete;
  LogRef& operator=(const LogRef&) = delete;
  ~LogRef() { Release(); }

  // Adds one reference.
  void Attach();
  // Releases all references of this object.
  void Release();
  // Null until Attach, and after Release.
  const CLogDLL* Instance() const { return instance_; }

 private:
  const CLogDLL* instance_ = nullptr;
  std::atomic<std::int32_t> count_ = 0;
};

// True while any reference is held, and a line reaches the library.
bool IsHeld();

namespace internal {

// Keeps the library loaded for one line.
class Line {
 public:
  Line();
  template <typename... Args>
  void Write(std::int16_t step, Level level, const char16_t* function, const char16_t* format,
             Args... args) const {
    log_.Instance()->Write(step, &level, platform::libraries::ProgramModule(), function, format,
                           args...);
  }

 private:
  LogRef log_;
};

template <typename Arg>
decltype(auto) ValueOf(const Arg& arg) {
  if constexpr (std::is_invocable_v<const Arg&>) {
    return arg();
  } else {
    return (arg);
  }
}

// A value as C passes it behind a format.
template <std::integral T>
auto PassedAs(T value) {
  static_assert(sizeof(T) <= sizeof(std::int64_t));
  return +value;
}
inline std::uint32_t PassedAs(platform::Code code) { return code; }
inline const char16_t* PassedAs(const char16_t* text) { return text; }
template <std::size_t N>
const char16_t* PassedAs(const cvn::StringT<char16_t, N>& text) {
  return text.CStr();
}

template <typename... Args>
void WriteStep(std::int16_t step, Level level, const char16_t* function, const char16_t* format,
               const Args&... args) {
  const Line line;
  // Braces fix the order, left to right; the tuple keeps the values until the line is written.
  const std::tuple<decltype(ValueOf(args))...> values{ValueOf(args)...};
  std::apply(
      [&](const auto&... value) { line.Write(step, level, function, format, PassedAs(value)...); },
      values);
}

}  // namespace internal

// Writes a line of the routine `function` while the library is held. An argument is a number, a
// zero-ended text, or a callable without arguments that returns one; it is called only for a line
// that is written, in the order of the arguments. An error code is therefore passed as the function
// `platform::LastError`, with no other call between the failure and this one.
template <typename... Args>
void WriteLine(Level level, const char16_t* function, const char16_t* format, const Args&... args) {
  if (IsHeld()) {
    internal::WriteStep(kSameStep, level, function, format, args...);
  }
}

// Writes a line on entering a routine, and at the end of its life one on leaving it, with the
// milliseconds between.
class ScopeTrace {
 public:
  explicit ScopeTrace(cvn::StringView function);
  ScopeTrace(const ScopeTrace&) = delete;
  ScopeTrace& operator=(const ScopeTrace&) = delete;
  ~ScopeTrace();

 private:
  using Name = std::array<char16_t, 260>;

  std::uint32_t start_;
  Name displayName_;  // with "()" behind it
  Name function_;
};

}  // namespace logging
