// What the XML and the JSON commands share.
#pragma once

#include "engine/function_base.h"
#include "engine/object_store.h"

namespace tessel {

// A command that takes a path, of a file or in a tree, and a handle.
class FunctionOnPath : public FunctionRetError {
 public:
  bool Parse() override {
    return ReadNonEmpty(u"path", &path_) && ReadNonEmpty(u"handle", &handle_);
  }

 protected:
  cvn::String path_;
  cvn::String handle_;
};

// A command that closes a handle, whatever it holds. An unknown one is no error.
class FunctionCloseDocument : public FunctionBase {
 public:
  bool Parse() override { return ReadNonEmpty(u"handle", &handle_); }

 protected:
  void CloseHandle() { SetObject(handle_, nullptr, ObjectType::XmlDocument, objects); }

  cvn::String handle_;
};

}  // namespace tessel
