#include "platform/version_resource.h"

#include <cstring>

#include "platform/windows/wide.h"
#include "support/format.h"

namespace platform {
namespace {

// A part of a version resource: `size` is in bytes, or in characters for a string.
const void* QueryPart(const std::vector<std::byte>& resource, const cvn::PathString& part,
                      UINT* size) {
  void* value = nullptr;
  return ::VerQueryValueW(resource.data(), windows::Wide(part), &value, size) != 0 && *size != 0
             ? value
             : nullptr;
}

std::vector<std::byte> ReadResource(const cvn::PathString& path) {
  DWORD ignored = 0;
  std::vector<std::byte> resource(::GetFileVersionInfoSizeW(windows::Wide(path), &ignored));
  if (!resource.empty() &&
      ::GetFileVersionInfoW(windows::Wide(path), 0, static_cast<DWORD>(resource.size()),
                            resource.data()) == 0) {
    resource.clear();
  }
  return resource;
}

}  // namespace

bool QueryCompanyName(cvn::StringView path, cvn::String* name) {
  windows::LastErrorKeeper lastError;
  const std::vector<std::byte> resource = ReadResource(windows::PathForCall(path));
  if (resource.empty()) {
    return false;
  }
  UINT size = 0;
  const void* translations =
      QueryPart(resource, cvn::PathString(u"\\VarFileInfo\\Translation"), &size);
  std::uint16_t first[2];  // the language and the code page
  if (translations == nullptr || size < sizeof first) {
    return false;
  }
  std::memcpy(first, translations, sizeof first);
  const auto* company = static_cast<const wchar_t*>(QueryPart(
      resource,
      cvn::PathString(cvn::Format(u"\\StringFileInfo\\%04x%04x\\CompanyName", first[0], first[1])),
      &size));
  if (company == nullptr) {
    return false;
  }
  *name = windows::ViewOf(company, ::wcsnlen(company, size));
  return true;
}

}  // namespace platform
