// Objects of the suite's own libraries.
//
// A library exports CvnCreateObject and CvnDestroyObject, which make and destroy an object by its
// name; the object hands out interfaces by their identifiers. Objects and interfaces are called
// through tables of virtual operations, whose order the classes here only repeat: they have no
// virtual destructor, since that would take places in the table. Nothing that a library hands out
// outlives the binder.
#pragma once

#include <cstdint>

#include "platform/error.h"
#include "platform/libraries.h"
#include "support/string.h"

namespace tessel {

// An identifier as libraries compare it: 16 bytes, the first word at the lower address.
struct InterfaceId {
  std::uint64_t firstWord;
  std::uint64_t secondWord;
};

// What CvnCreateObject makes.
class IExportedObject {
 public:
  // Null when the object has no such interface.
  virtual void* QueryInterface(const InterfaceId* id) = 0;

 protected:
  ~IExportedObject() = default;
};

// A plug-in of the product. Operations with a status give 0 for success.
class IServPlugin {
 public:
  static constexpr InterfaceId kId{0x983304d0414e2323, 0xe952825d7c884176};

  virtual void* QueryInterface(const InterfaceId* id) = 0;
  virtual std::uint32_t Initialize(std::uintptr_t value) = 0;
  virtual void Uninitialize() = 0;
  virtual std::uint32_t Start() = 0;
  virtual void Stop() = 0;

 protected:
  ~IServPlugin() = default;
};

// What ExportedObject does for whatever interface.
class ObjectBinder {
 public:
  ObjectBinder() = default;
  ObjectBinder(const ObjectBinder&) = delete;
  ObjectBinder& operator=(const ObjectBinder&) = delete;
  virtual ~ObjectBinder() { Reset(); }

  // Destroys the object and unloads the library, as far as there are any.
  void Reset();

 protected:
  platform::Code BindInterface(cvn::StringView path, cvn::StringView objectName,
                               const InterfaceId& id);
  void* BoundInterface() const { return interface_; }

 private:
  using CreateFunction = std::uint32_t (*)(const char16_t* name, const InterfaceId* id,
                                           IExportedObject** object);
  using DestroyFunction = void (*)(const char16_t* name, IExportedObject* object);

  bool LoadLibrary(cvn::StringView path);
  bool FindExports();
  // Resets, and gives `code`, or 632 when that is none.
  platform::Code Fail(platform::Code code);

  platform::libraries::Library module_;
  IExportedObject* object_ = nullptr;
  void* interface_ = nullptr;
  DestroyFunction destroyObject_ = nullptr;
  CreateFunction createObject_ = nullptr;
  cvn::String objectName_;
};

// Owns one object of a library, through its interface T.
template <typename T>
class ExportedObject : public ObjectBinder {
 public:
  // Loads the library at `path` and gets T of a new object. A relative path is looked for in the
  // program's folder, then in that of the module that this code is in. Gives 0, the platform's code
  // for a library that can't be loaded or lacks an export, the status of CvnCreateObject, or 632
  // when the object hasn't the interface.
  platform::Code Bind(cvn::StringView path, cvn::StringView objectName) {
    return BindInterface(path, objectName, T::kId);
  }

  // Null until Bind succeeds, and after Reset.
  T* Get() const { return static_cast<T*>(BoundInterface()); }
};

// A plug-in that runs for as long as one of its interfaces is needed: that of Plugin's identifier,
// taken as an Interface.
template <typename Plugin, typename Interface>
class ExportedPlugin {
 public:
  ExportedPlugin() = default;
  ExportedPlugin(const ExportedPlugin&) = delete;
  ExportedPlugin& operator=(const ExportedPlugin&) = delete;
  virtual ~ExportedPlugin() { Close(); }

  // Binds the plug-in, initialises and starts it, and gets the interface. False when one of these
  // fails; what was done before is then undone.
  bool Open(cvn::StringView path, cvn::StringView objectName) {
    Close();
    if (object_.Bind(path, objectName) == platform::kSuccess &&
        object_.Get()->Initialize(0) == platform::kSuccess) {
      StartInitialized();
    }
    if (interface_ == nullptr) {
      object_.Reset();
    }
    return interface_ != nullptr;
  }

  // Stops the plug-in and unloads it, if it is open.
  void Close() {
    if (interface_ != nullptr) {
      interface_ = nullptr;
      object_.Get()->Stop();
      object_.Get()->Uninitialize();
      object_.Reset();
    }
  }

  // Null unless open.
  Interface* Get() const { return interface_; }

 private:
  // Leaves the plug-in uninitialised when there is no interface.
  void StartInitialized() {
    IServPlugin* plugin = object_.Get();
    if (plugin->Start() == platform::kSuccess) {
      interface_ = static_cast<Interface*>(plugin->QueryInterface(&Plugin::kId));
      if (interface_ != nullptr) {
        return;
      }
      plugin->Stop();
    }
    plugin->Uninitialize();
  }

  ExportedObject<IServPlugin> object_;
  Interface* interface_ = nullptr;
};

}  // namespace tessel
