// The two exports of a library with one kind of object. Included by the library's one source, after
// a function Find(identifier) that gives an interface, or null.
#pragma once

#include "tests/libraries/recorder.h"

namespace {

struct Object {
  virtual void* QueryInterface(const void* id) {
    recorder::Record("object asked for %s", recorder::Hex(id).text);
    return Find(recorder::Hex(id).text);
  }
};

Object object;

}  // namespace

extern "C" std::uint32_t CvnCreateObject(const char16_t* name, const void* id, void** made) {
  recorder::Record("create '%s' %s", recorder::Narrow(name).text, recorder::Hex(id).text);
  const std::uint32_t status = recorder::Scripted("create", 0);
  if (status == 0) {
    *made = recorder::Scripted("object", 1) != 0 ? &object : nullptr;
  }
  return status;
}

extern "C" void CvnDestroyObject(const char16_t* name, void* made) {
  recorder::Record("destroy '%s'%s", recorder::Narrow(name).text,
                   made == &object ? "" : ", another object");
}

__attribute__((constructor)) static void Loaded() { recorder::Record("loaded"); }
__attribute__((destructor)) static void Unloaded() { recorder::Record("unloaded"); }
