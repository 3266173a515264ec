// What the rewritten sources of a build of scripts/mutants call; included ahead of each of them.
//
// TESSEL_MUTANT       the number of the one mutant that is switched on
// TESSEL_MUTANT_HITS  the file that gets the number of each mutant that is reached, a line each
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <type_traits>

inline constexpr int kMostTesselMutants = 65536;

inline int TesselMutantNumber() {
  static const int number = [] {
    const char* text = std::getenv("TESSEL_MUTANT");
    return text != nullptr ? std::atoi(text) : -1;
  }();
  return number;
}

inline const char* TesselMutantHits() {
  static const char* const path = [] {
    const char* text = std::getenv("TESSEL_MUTANT_HITS");
    return text != nullptr ? (new std::string(text))->c_str() : nullptr;
  }();
  return path;
}

inline std::array<std::atomic<bool>, kMostTesselMutants> tesselReachedMutants;

// Code that is being tested may look at errno next.
inline void TellTesselMutant(int number) {
  const int error = errno;
  const int file = open(TesselMutantHits(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (file >= 0) {
    const std::string line = std::to_string(number) + "\n";
    [[maybe_unused]] const ssize_t written = write(file, line.data(), line.size());
    close(file);
  }
  errno = error;
}

// Whether the mutant is switched on.
inline bool TesselMutant(int number) {
  if (TesselMutantHits() != nullptr && !tesselReachedMutants[number].exchange(true)) {
    TellTesselMutant(number);
  }
  return TesselMutantNumber() == number;
}

// `a` < `b` when `isStrict` and the mutant is off, or neither; a <= b otherwise.
template <typename A, typename B>
bool TesselMutantLess(int number, const A& a, const B& b, bool isStrict) {
  return TesselMutant(number) == isStrict ? a <= b : a < b;
}

// The constant, or the next one of its type.
template <typename T>
T TesselMutantOther(int number, T constant) {
  static_assert(std::is_enum_v<T> || std::is_integral_v<T>);
  return TesselMutant(number) ? static_cast<T>(static_cast<long long>(constant) + 1) : constant;
}
