#include "telemetry/event_spool.h"

#include <ios>
#include <span>
#include <string>

#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/uuid.h"
#include "support/format.h"
#include "telemetry/event_envelope.h"
#include "trust/locations.h"

namespace tessel {
namespace {

namespace files = platform::files;
using platform::kSuccess;

// Statuses of the spool's own, numbered as the system errors that they resemble.
constexpr std::int32_t kNoTarget = 3;          // ERROR_PATH_NOT_FOUND
constexpr std::int32_t kNoText = 13;           // ERROR_INVALID_DATA
constexpr std::int32_t kNoDocument = 87;       // ERROR_INVALID_PARAMETER
constexpr std::int32_t kNameTaken = 183;       // ERROR_ALREADY_EXISTS
constexpr std::int32_t kNoName = 680;          // ERROR_PNP_REBOOT_REQUIRED
constexpr std::int32_t kCannotOpen = 1006;     // ERROR_FILE_INVALID
constexpr std::int32_t kNoSpoolFolder = 1359;  // ERROR_INTERNAL_ERROR

constexpr std::int64_t kTicksPerMillisecond = platform::clock::kTicksPerSecond / 1000;

bool MakeFolder(cvn::StringView folder) {
  return platform::paths::Exists(folder) || files::CreateDirectoryRecursive(folder) == kSuccess;
}

// A name that no other event has; empty when the platform can't make one.
cvn::String MakeEventName() {
  platform::Uuid uuid;
  const std::int32_t status = platform::CreateUuid(&uuid);
  if (status != platform::kUuidCreated && status != platform::kUuidLocalOnly) {
    return {};
  }
  std::uint64_t last = 0;  // the bytes as a little-endian number
  for (std::size_t i = 0; i < uuid.data4.size(); ++i) {
    last |= std::uint64_t{uuid.data4[i]} << (8 * i);
  }
  return cvn::Format(u"%08llx-%04llx-%04llx-%04llx-%012llx", std::uint64_t{uuid.data1},
                     std::uint64_t{uuid.data2}, std::uint64_t{uuid.data3}, last >> 48,
                     last & 0xFFFF'FFFF'FFFF);
}

// Writes a new file's text. Throws as SpoolEvent says.
std::int32_t WriteText(cvn::StringView path, const std::string& text) {
  files::File file;
  if (files::Open(path, files::Access::Write, files::Share::Read, files::Disposition::CreateAlways,
                  &file) != kSuccess) {
    return kCannotOpen;
  }
  if (text.size() <= 1) {
    return kNoText;
  }
  if (file.Write(std::as_bytes(std::span(text))) != kSuccess) {
    throw std::ios_base::failure("ios_base::failbit set");
  }
  return 0;
}

// Sets the write time to now and flushes the file to the disk.
std::int32_t Settle(cvn::StringView path) {
  files::File file;
  platform::Code code = files::Open(path, files::Access::Write, files::Share::Read,
                                    files::Disposition::OpenExisting, &file);
  if (code == kSuccess) {
    // The event is complete without it: writing has stamped the file a moment ago.
    platform::IgnoreError(file.SetLastWriteTime(static_cast<std::uint64_t>(
        platform::clock::NowTicks() + platform::clock::kTicksFrom1601To1970)));
    code = file.Flush();
  }
  return static_cast<std::int32_t>(code);
}

std::int32_t WriteEnvelope(const NotificationEnvelope& envelope, cvn::StringView path) {
  if (platform::paths::Exists(path)) {
    return kNameTaken;
  }
  Json::Value document;
  if (!BuildDocument(envelope, &document)) {
    return kNoDocument;
  }
  const std::string text = PrintLine(document);
  if (text.empty()) {
    return kNoText;
  }
  const std::int32_t status = WriteText(path, text);
  return status == 0 ? Settle(path) : status;
}

std::int32_t Spool(NotificationBody body) {
  cvn::String folder = GetEventsFolder();
  if (folder.Empty() || !MakeFolder(folder)) {
    return kNoSpoolFolder;
  }
  folder = GetEventsFolder();
  if (folder.Empty()) {
    return kNoTarget;
  }
  const cvn::String name = MakeEventName();
  if (name.Empty()) {
    return kNoName;
  }
  const cvn::String path = cvn::Format(u"%s\\%s", folder, name);
  const cvn::String temporaryPath = cvn::Format(u"%s.tmp", path);
  StampEvent(platform::clock::NowTicks() / kTicksPerMillisecond, &body);
  NotificationEnvelope envelope;
  if (!BuildEnvelope(body, &envelope)) {
    return kNoText;
  }
  const std::int32_t status = WriteEnvelope(envelope, temporaryPath);
  if (status != 0) {
    return status;
  }
  const platform::Code code =
      files::Move(temporaryPath, path, files::kMoveReplaceExisting | files::kMoveCopyAllowed);
  return static_cast<std::int32_t>(code == kSuccess ? files::FlushFolder(folder) : code);
}

}  // namespace

cvn::String GetEventsFolder() {
  cvn::String folder = GetInstallPath();
  if (!folder.Empty()) {
    const char16_t last = folder.AsView().back();
    folder.Append(last == u'\\' || last == u'/' ? u"matrix\\events" : u"\\matrix\\events");
  }
  return folder;
}

std::int32_t SpoolEvent(const EventSink& sink, const Json::Value& event) {
  struct Bring {
    const Json::Value& event;
    std::int32_t operator()(IEventReceiver* receiver) const { return receiver->Receive(event, 0); }
    std::int32_t operator()(FileSpool) const {
      return Spool(BasicNotification{.fields = event, .ignoreCloudSettings = false});
    }
  };
  return std::visit(Bring{event}, sink);
}

}  // namespace tessel
