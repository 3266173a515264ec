// A library of the management platform. Script: create, object, interface, initialize, start,
// integration, unconnected (how often the service can't be reached) and apply (what it gives then).
#include "tests/libraries/recorder.h"

namespace {

struct Integration {
  virtual void First() { recorder::Record("integration's first operation"); }
  virtual void Second() { recorder::Record("integration's second operation"); }
  virtual void Third() { recorder::Record("integration's third operation"); }
  virtual std::uint32_t Fourth(std::uint8_t flag) {
    recorder::Record("apply %u", static_cast<unsigned>(flag));
    return calls++ < recorder::Scripted("unconnected", 0) ? 2250 : recorder::Scripted("apply", 0);
  }

  std::uint32_t calls;
};

Integration integration;

struct Plugin {
  virtual void* First(const void* id) {
    const recorder::Hex asked(id);
    recorder::Record("plug-in asked for %s", asked.text);
    const bool isKnown = std::strcmp(asked.text, "2c43eb26f2c8f877929c71a865e116ed") == 0;
    return isKnown && recorder::Scripted("integration", 1) != 0 ? &integration : nullptr;
  }
  virtual std::uint32_t Second(std::uintptr_t value) {
    recorder::Record("initialize %llu", static_cast<unsigned long long>(value));
    return recorder::Scripted("initialize", 0);
  }
  virtual void Third() { recorder::Record("uninitialize"); }
  virtual std::uint32_t Fourth() {
    recorder::Record("start");
    return recorder::Scripted("start", 0);
  }
  virtual void Fifth() { recorder::Record("stop"); }
};

Plugin plugin;

void* Find(const char* id) {
  const bool isKnown = std::strcmp(id, "23234e41d00433987641887c5d8252e9") == 0;
  return isKnown && recorder::Scripted("interface", 1) != 0 ? &plugin : nullptr;
}

}  // namespace

#include "tests/libraries/object_exports.h"
