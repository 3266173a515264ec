// Diagnostic lines for the suite's logging library, "journal.dll", which lies beside the program,
// or doesn't: then all of this has no effect. It has nothing to do with the trace of a run.
//
// The library is in the process only while somebody holds a reference, as the reader of signatures
// does while it reads. A line on its own never loads it: without a holder, writing one costs the
// reading of a number.
//
//   logging::LogRef log;
//   log.Attach();                     // gives it back at the end of its life
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

// The library with its exports. Texts reach it as zero-ended UTF-16 in both homes, and what a
// format asks for as C passes it.
class CLogDLL {
 public:
  // Takes the copy that is in the process already, or loads the one beside the program.
  CLogDLL();
  CLogDLL(const CLogDLL&) = delete;
  CLogDLL& operator=(const CLogDLL&) = delete;
  ~CLogDLL();

  // Hands a line to the library, and gives its status: 0x80004002 when there is no library.
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

// References to the library: the first of all that are held loads it, the last unloads it. Any
// thread may attach and release.
class LogRef {
 public:
  LogRef() = default;
  LogRef(const LogRef&) = delete;
  LogRef& operator=(const LogRef&) = delete;
  ~LogRef() { Release(); }

  // Gets one more reference.
  void Attach();
  // Gives back all that this value holds.
  void Release();
  // Null until Attach, and after Release.
  const CLogDLL* Instance() const { return instance_; }

 private:
  const CLogDLL* instance_ = nullptr;
  std::atomic<std::int32_t> count_ = 0;
};

// Whether somebody holds a reference, so that a line goes somewhere.
bool IsHeld();

namespace internal {

// Holds the library for one line.
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
inline const char16_t* PassedAs(const char16_t* text) { return text; }
template <std::size_t N>
const char16_t* PassedAs(const cvn::StringT<char16_t, N>& text) {
  return text.CStr();
}

template <typename... Args>
void WriteStep(std::int16_t step, Level level, const char16_t* function, const char16_t* format,
               const Args&... args) {
  const Line line;
  // Braces: from left to right, and kept until the line is written.
  const std::tuple<decltype(ValueOf(args))...> values{ValueOf(args)...};
  std::apply(
      [&](const auto&... value) { line.Write(step, level, function, format, PassedAs(value)...); },
      values);
}

}  // namespace internal

// Writes a line of the routine `function`, while somebody holds the library. An argument is a
// number, a zero-ended text, or something callable without arguments that gives one: it is called
// only for a line that is written, when the library is held, and the arguments in their order. So
// an error code is passed as `platform::LastError` itself, which must be what the caller last did.
template <typename... Args>
void WriteLine(Level level, const char16_t* function, const char16_t* format, const Args&... args) {
  if (IsHeld()) {
    internal::WriteStep(kSameStep, level, function, format, args...);
  }
}

// Writes that a routine is entered, and at the end of its life that it is left, with the
// milliseconds in between.
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
