#include "commands/system/exported_object.h"

#include <bit>

#include "files/path_text.h"
#include "platform/paths.h"

namespace tessel {
namespace {

namespace libraries = platform::libraries;
namespace paths = platform::paths;
using platform::Code;
using platform::kSuccess;

static_assert(std::endian::native == std::endian::little && sizeof(InterfaceId) == 16,
              "libraries compare identifiers as memory has them");

constexpr InterfaceId kObjectId{0xbc90fca366551ab3, 0x514be292f7c5425f};
constexpr Code kNoInterface = 632;

template <typename Function>
Function FindExport(const libraries::Library& library, const char* name) {
  return reinterpret_cast<Function>(libraries::FindSymbol(library, name));
}

}  // namespace

void ObjectBinder::Reset() {
  if (object_ != nullptr && destroyObject_ != nullptr) {
    destroyObject_(objectName_.CStr(), object_);
  }
  object_ = nullptr;
  interface_ = nullptr;
  destroyObject_ = nullptr;
  createObject_ = nullptr;
  module_.Free();
  objectName_.Clear();
}

Code ObjectBinder::BindInterface(cvn::StringView path, cvn::StringView objectName,
                                 const InterfaceId& id) {
  Reset();
  objectName_ = objectName;
  if (!LoadLibrary(path) || !FindExports()) {
    return Fail(platform::LastError());
  }
  const Code code = createObject_(objectName_.CStr(), &kObjectId, &object_);
  if (code != kSuccess) {
    return Fail(code);
  }
  interface_ = object_ == nullptr ? nullptr : object_->QueryInterface(&id);
  return interface_ == nullptr ? Fail(kNoInterface) : kSuccess;
}

bool ObjectBinder::LoadLibrary(cvn::StringView path) {
  const std::uint32_t flags = libraries::CanNarrowSearch()
                                  ? libraries::kSearchLibraryFolderAndDefaults
                                  : libraries::kAlteredSearchPath;
  if (!paths::IsRelative(path)) {
    return libraries::Load(path, flags, &module_) == kSuccess;
  }
  const cvn::String besideProgram = JoinPath(GetExeFolder(), path);
  if (libraries::Load(besideProgram, flags, &module_) == kSuccess) {
    return true;
  }
  const cvn::String besideThis = JoinPath(GetParentFolder(libraries::FileNameOf(&kObjectId)), path);
  return libraries::Load(besideThis, flags, &module_) == kSuccess;
}

bool ObjectBinder::FindExports() {
  createObject_ = FindExport<CreateFunction>(module_, "CvnCreateObject");
  destroyObject_ = FindExport<DestroyFunction>(module_, "CvnDestroyObject");
  return createObject_ != nullptr && destroyObject_ != nullptr;
}

Code ObjectBinder::Fail(Code code) {
  Reset();
  return code == kSuccess ? kNoInterface : code;
}

}  // namespace tessel
