#include "trust/caller.h"

#include <algorithm>
#include <set>

#include "logging/log.h"
#include "platform/catalogs.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "platform/signatures.h"
#include "platform/version_resource.h"
#include "support/format.h"
#include "support/numbers.h"
#include "trace/trace.h"
#include "trust/locations.h"

namespace process = platform::process;

namespace ProcessUtils {
namespace {

std::uint32_t IdOrCurrent(std::uint32_t pid) { return pid == 0 ? process::CurrentId() : pid; }

}  // namespace

std::uint32_t ProcessTool::GetParentPid(std::uint32_t pid) {
  constexpr const char16_t* kRoutine = u"ProcessUtils::ProcessTool::GetParentPid";
  cvn::List<process::Entry> entries;
  process::ListStep step{};
  const platform::Code code = process::List(&entries, &step);
  if (code != platform::kSuccess) {
    logging::WriteLine(logging::kFailure, kRoutine,
                       step == process::ListStep::Snapshot
                           ? u"error [0x%x] CreateToolhelp32Snapshot"
                           : u"error [0x%x] Process32First",
                       code);
    return 0;
  }
  const auto entry = std::find_if(
      entries.begin(), entries.end(),
      [id = IdOrCurrent(pid)](const process::Entry& candidate) { return candidate.id == id; });
  return entry == entries.end() ? 0 : entry->parentId;
}

platform::Code ProcessTool::GetPathFromPid(std::uint32_t pid, cvn::String* path) {
  constexpr const char16_t* kRoutine = u"ProcessUtils::ProcessTool::GetPathFromPid";
  process::ImageStep step{};
  const platform::Code code = process::ImagePath(pid, path, &step);
  if (code != platform::kSuccess && step == process::ImageStep::Open) {
    logging::WriteLine(logging::kDetail, kRoutine, u"failed open process %d [0x%x]", pid, code);
  } else if (code != platform::kSuccess) {
    logging::WriteLine(logging::kFailure, kRoutine, u"Failed to query for image path [%d]", code);
  }
  return code;
}

}  // namespace ProcessUtils

namespace tessel {
namespace {

using ProcessUtils::ProcessTool;

constexpr cvn::StringView kSystemSid = u"S-1-5-18";
constexpr cvn::StringView kUnknown = u"<n/a>";

// Every process descends from these, so they tell nothing about who started a run.
bool EndsChain(cvn::StringView name) {
  return name.empty() || cvn::EqualNoCase(name, u"explorer.exe") ||
         cvn::EqualNoCase(name, u"services.exe");
}

cvn::String GetSignerName(cvn::StringView path) {
  cvn::String signer = platform::signatures::SignerName(path);
  if (signer.Empty()) {
    const cvn::String catalog = platform::catalogs::FindSystemCatalog(path);
    signer = catalog.Empty() ? cvn::String() : platform::signatures::SignerName(catalog);
  }
  return signer.Empty() ? cvn::String(kUnknown) : signer;
}

}  // namespace

std::int32_t CheckRightsForInstallPath() {
  const std::uint32_t pid = process::CurrentId();
  const cvn::String sid = GetProcessUserSid(pid);
  TraceLine(u"Run by %s", sid);
  if (sid != kSystemSid) {
    return kUserNotSystem;
  }
  const std::uint32_t parent = ProcessTool::GetParentPid(pid);
  if (parent == 0) {
    TraceLine(u"Failed to get parent pid for pid %d", pid);
    return kCannotGetParent;
  }
  cvn::String parentPath;
  if (ProcessTool::GetPathFromPid(parent, &parentPath) != platform::kSuccess) {
    TraceLine(u"Failed to get path for pid %d", parent);
    return kCannotGetParent;
  }
  TraceLine(u"Parent path is %s", parentPath);
  cvn::String base;
  if (!IsPathInTrustedLocation(parentPath, &base)) {
    TraceLine(u"It is not run from installpath.");
    return kInvalidParent;
  }
  return kCallerAllowed;
}

cvn::String GetProcessUserSid(std::uint32_t pid) { return process::UserSid(pid); }

cvn::List<ParentProcess> CollectParentProcesses() {
  cvn::List<ParentProcess> parents;
  std::set<std::uint32_t> seen = {process::CurrentId()};
  std::uint32_t id = ProcessTool::GetParentPid(0);
  // Process numbers are used again, so the chain of parents can lead back to itself.
  while (id != 0 && seen.insert(id).second) {
    cvn::String path;
    if (ProcessTool::GetPathFromPid(id, &path) != platform::kSuccess) {
      break;
    }
    const cvn::StringView name = platform::paths::FindFileName(path);
    if (EndsChain(name)) {
      break;
    }
    cvn::String company;
    GetCompanyName(path, &company);
    parents.push_back({name, cvn::Format(u"%s::%s", company, GetSignerName(path))});
    id = ProcessTool::GetParentPid(id);
  }
  return parents;
}

void GetCompanyName(cvn::StringView path, cvn::String* text) {
  *text = kUnknown;
  cvn::String name;
  if (platform::QueryCompanyName(path, &name)) {
    *text = name;
  }
}

}  // namespace tessel
