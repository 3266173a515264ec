// The product's library of runlevels and that of its management platform, which ask for different
// interfaces. Script: create, object, interface, initialize, start, stop, a component's name for
// what its start and its stop give, integration, unconnected (how often the service can't be
// reached) and apply (what it gives then).
#include "tests/libraries/recorder.h"

namespace {

using recorder::Record;
using recorder::Scripted;

struct Broker {
  virtual void First() {}
  virtual std::uint32_t Second(const char16_t* name, std::int32_t wait) {
    return Tell("start", name, wait);
  }
  virtual std::uint32_t Third(const char16_t* name, std::int32_t wait) {
    return Tell("stop", name, wait);
  }

  static std::uint32_t Tell(const char* call, const char16_t* name, std::int32_t wait) {
    const recorder::Narrow component(name);
    Record("%s '%s' %d", call, component.text, static_cast<int>(wait));
    return Scripted(component.text, Scripted(call, 0));
  }
};

Broker broker;

struct Integration {
  virtual void First() {}
  virtual void Second() {}
  virtual void Third() {}
  virtual std::uint32_t Fourth(std::uint8_t flag) {
    Record("apply %u", static_cast<unsigned>(flag));
    return calls++ < Scripted("unconnected", 0) ? 2250 : Scripted("apply", 0);
  }

  std::uint32_t calls;
};

Integration integration;

struct Plugin {
  virtual void* First(const void* id) {
    const recorder::Hex asked(id);
    Record("plug-in asked for %s", asked.text);
    const bool isKnown = std::strcmp(asked.text, "2c43eb26f2c8f877929c71a865e116ed") == 0;
    return isKnown && Scripted("integration", 1) != 0 ? &integration : nullptr;
  }
  virtual std::uint32_t Second(std::uintptr_t value) {
    Record("initialize %llu", static_cast<unsigned long long>(value));
    return Scripted("initialize", 0);
  }
  virtual void Third() { Record("uninitialize"); }
  virtual std::uint32_t Fourth() {
    Record("start");
    return Scripted("start", 0);
  }
  virtual void Fifth() { Record("stop"); }
};

Plugin plugin;

struct Object {
  virtual void* QueryInterface(const void* id) {
    const recorder::Hex asked(id);
    Record("object asked for %s", asked.text);
    if (Scripted("interface", 1) == 0) {
      return nullptr;
    }
    return std::strcmp(asked.text, "18d34db3b905b4883f4b8d20b1d5d159") == 0
               ? static_cast<void*>(&broker)
           : std::strcmp(asked.text, "23234e41d00433987641887c5d8252e9") == 0 ? &plugin
                                                                              : nullptr;
  }
};

Object object;

}  // namespace

extern "C" std::uint32_t CvnCreateObject(const char16_t* name, const void* id, void** made) {
  Record("create '%s' %s", recorder::Narrow(name).text, recorder::Hex(id).text);
  const std::uint32_t status = Scripted("create", 0);
  if (status == 0) {
    *made = Scripted("object", 1) != 0 ? &object : nullptr;
  }
  return status;
}

extern "C" void CvnDestroyObject(const char16_t* name, void* made) {
  Record("destroy '%s'%s", recorder::Narrow(name).text, made == &object ? "" : ", another object");
}

__attribute__((constructor)) static void Loaded() { Record("loaded"); }
__attribute__((destructor)) static void Unloaded() { Record("unloaded"); }
