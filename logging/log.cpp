#include "logging/log.h"

#include <algorithm>
#include <memory>

#include "platform/clock.h"
#include "platform/paths.h"

namespace logging {
namespace {

namespace libraries = platform::libraries;

constexpr cvn::StringView kFileName = u"journal.dll";

struct SharedState {
  std::unique_ptr<CLogDLL> instance;
  std::atomic<std::int32_t> count = 0;
  std::atomic<std::int32_t> lockWord = 0;
};

// Never destroyed: a static object may release its reference after main has returned.
SharedState& State() {
  static SharedState& state = *new SharedState;
  return state;
}

class SpinLock {
 public:
  explicit SpinLock(std::atomic<std::int32_t>* word) : word_(word) {
    while (word_->exchange(1) != 0) {
      platform::clock::Sleep(1);
    }
  }
  SpinLock(const SpinLock&) = delete;
  SpinLock& operator=(const SpinLock&) = delete;
  ~SpinLock() { word_->exchange(0); }

 private:
  std::atomic<std::int32_t>* word_;
};

std::int32_t WriteNothing(std::int16_t /*step*/, Level* /*level*/, const void* /*module*/,
                          const char16_t* /*function*/, const char16_t* /*format*/, ...) {
  constexpr std::uint32_t kNoInterface = 0x80004002;
  return static_cast<std::int32_t>(kNoInterface);
}

template <typename Function>
void Resolve(const libraries::Library& library, const char* name, Function* function) {
  *function = reinterpret_cast<Function>(libraries::FindSymbol(library, name));
}

void CallIfPresent(const libraries::Library& library, const char* name) {
  const libraries::Address function = libraries::FindSymbol(library, name);
  if (function != nullptr) {
    function();
  }
}

void LoadBesideProgram(libraries::Library* library) {
  cvn::String path = platform::paths::ModuleFileName();
  const std::size_t separator = path.AsView().rfind(u'\\');
  if (separator != cvn::StringView::npos) {
    path.Truncate(separator + 1);
    path.Append(kFileName);
    // The library is optional; the caller asks IsLoaded.
    platform::IgnoreError(libraries::Load(path, libraries::kDefaultSearch, library));
  }
}

// Copies what fits into `capacity` characters with a closing zero, and returns its length.
std::size_t CopyName(cvn::StringView name, std::size_t capacity, char16_t* out) {
  const std::size_t length = std::min(name.size(), capacity - 1);
  *std::copy_n(name.begin(), length, out) = u'\0';
  return length;
}

}  // namespace

CLogDLL::CLogDLL() {
  if (libraries::FindLoaded(kFileName, &library_) != platform::kSuccess) {
    LoadBesideProgram(&library_);
  }
  if (library_.IsLoaded()) {
    CallIfPresent(library_, "LogInit");
    ResolveExports();
  }
  if (logWrite_ == nullptr) {
    logWrite_ = &WriteNothing;
  }
}

CLogDLL::~CLogDLL() {
  if (!library_.IsLoaded()) {
    return;
  }
  CallIfPresent(library_, "LogDeinit");
  if (logUninitDeskMetrics_ != nullptr) {
    logUninitDeskMetrics_();
  }
  if (logRemoveModule_ != nullptr) {
    logRemoveModule_("logging::CLogDLL::~CLogDLL");
  }
}

void CLogDLL::ResolveExports() {
  Resolve(library_, "LogApplySettings", &logApplySettings_);
  Resolve(library_, "LogSetSettingsFile", &logSetSettingsFile_);
  Resolve(library_, "LogEnable", &logEnable_);
  Resolve(library_, "LogSetLevel", &logSetLevel_);
  Resolve(library_, "LogSetPath", &logSetPath_);
  Resolve(library_, "LogSetType", &logSetType_);
  Resolve(library_, "LogSetMode", &logSetMode_);
  Resolve(library_, "LogSetMaxSize", &logSetMaxSize_);
  Resolve(library_, "LogSetDepth", &logSetDepth_);
  Resolve(library_, "LogWrite", &logWrite_);
  Resolve(library_, "LogIsEnabled", &logIsEnabled_);
  Resolve(library_, "LogMonitorSettings", &logMonitorSettings_);
  Resolve(library_, "LogUninitDeskMetrics", &logUninitDeskMetrics_);
  Resolve(library_, "LogTrackEvent", &logTrackEvent_);
  Resolve(library_, "LogTrackEventData", &logTrackEventData_);
  Resolve(library_, "LogRemoveModule", &logRemoveModule_);
  Resolve(library_, "LogGetLevel", &logGetLevel_);
}

void LogRef::Attach() {
  SharedState& state = State();
  {
    const SpinLock lock(&state.lockWord);
    if (state.count == 0) {
      state.instance.reset();
      state.instance = std::make_unique<CLogDLL>();
    }
    ++state.count;
    instance_ = state.instance.get();
  }
  ++count_;
}

void LogRef::Release() {
  SharedState& state = State();
  instance_ = nullptr;
  for (std::int32_t held = count_.exchange(0); held > 0; --held) {
    const SpinLock lock(&state.lockWord);
    if (state.count > 0) {
      --state.count;
    }
    if (state.count == 0) {
      state.instance.reset();
    }
  }
}

bool IsHeld() { return State().count != 0; }

internal::Line::Line() {
  log_.Attach();
  if (log_.Instance() == nullptr) {
    log_.Attach();
  }
}

ScopeTrace::ScopeTrace(cvn::StringView function) : start_(platform::clock::TimerMilliseconds()) {
  constexpr cvn::StringView kParentheses = u"()";
  const std::size_t length =
      CopyName(function, displayName_.size() - kParentheses.size(), displayName_.data());
  CopyName(kParentheses, kParentheses.size() + 1, displayName_.data() + length);
  CopyName(function, function_.size(), function_.data());
  if (IsHeld()) {
    internal::WriteStep(kEntryStep, kDetail, function_.data(), u"-> %s", displayName_.data());
  }
}

ScopeTrace::~ScopeTrace() {
  if (IsHeld()) {
    const auto elapsed = [this] { return platform::clock::TimerMilliseconds() - start_; };
    internal::WriteStep(kExitStep, kDetail, function_.data(), u"<- %s [%d]", displayName_.data(),
                        elapsed);
  }
}

}  // namespace logging
