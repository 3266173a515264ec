// A runlevel library. Script: create, object, interface, start, stop, and a component's name for
// what its start and its stop give.
#include "tests/libraries/recorder.h"

namespace {

struct Broker {
  virtual void* First() {
    recorder::Record("broker's first operation");
    return nullptr;
  }
  virtual std::uint32_t Second(const char16_t* name, std::int32_t wait) {
    const recorder::Narrow component(name);
    recorder::Record("start '%s' %d", component.text, static_cast<int>(wait));
    return recorder::Scripted(component.text, recorder::Scripted("start", 0));
  }
  virtual std::uint32_t Third(const char16_t* name, std::int32_t wait) {
    const recorder::Narrow component(name);
    recorder::Record("stop '%s' %d", component.text, static_cast<int>(wait));
    return recorder::Scripted(component.text, recorder::Scripted("stop", 0));
  }
};

Broker broker;

void* Find(const char* id) {
  const bool isKnown = std::strcmp(id, "18d34db3b905b4883f4b8d20b1d5d159") == 0;
  return isKnown && recorder::Scripted("interface", 1) != 0 ? &broker : nullptr;
}

}  // namespace

#include "tests/libraries/object_exports.h"
