#include "tools/tlx/file_io.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <vector>

#include "platform/file_identity.h"
#include "platform/final_path.h"
#include "platform/paths.h"
#include "platform/standard_files.h"
#include "platform/streams.h"
#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/patch_operand.h"

namespace tlx {
namespace {

namespace files = platform::files;
using platform::StandardFile;

constexpr cvn::StringView kStream = u"-";

struct ReadFiles {
  std::vector<files::Identity> identities;
  bool hasReadStream = false;
};

ReadFiles& Remembered() {
  static ReadFiles files;
  return files;
}

bool IsOneFile(cvn::StringView path, const files::File& file) {
  files::Identity left;
  files::Identity right;
  return files::GetIdentity(path, &left) == platform::kSuccess &&
         files::GetIdentity(file, &right) == platform::kSuccess && left == right;
}

// A device such as /dev/stdout leads there too, and so does the file that it was sent to.
bool IsStandardOutput(cvn::StringView path) {
  files::File output;
  return path == kStream ||
         (platform::OpenStandardFile(StandardFile::Output, &output) == platform::kSuccess &&
          IsOneFile(platform::paths::OfCaller(path), output));
}

platform::Code ReadStream(std::string* bytes) {
  if (Remembered().hasReadStream) {
    return platform::kNoMoreItems;
  }
  files::File file;
  platform::Code code = platform::OpenStandardFile(StandardFile::Input, &file);
  if (code != platform::kSuccess) {
    return code;
  }
  Remembered().hasReadStream = true;
  RememberReadFile(file);
  std::array<std::byte, 65536> piece;
  std::size_t count = 0;
  while ((code = file.Read(piece, &count)) == platform::kSuccess && count != 0) {
    if (bytes->size() + count > platform::kLargestWholeFile) {
      return platform::kFileTooLarge;
    }
    bytes->append(reinterpret_cast<const char*>(piece.data()), count);
  }
  // On Windows a pipe ends like this.
  return code == platform::kBrokenPipe ? platform::kSuccess : code;
}

}  // namespace

void ForgetReadFiles() { Remembered() = {}; }

void RememberReadFile(const files::File& file) {
  files::Identity identity;
  if (files::GetIdentity(file, &identity) == platform::kSuccess) {
    Remembered().identities.push_back(identity);
  }
}

platform::Code ReadInput(cvn::StringView path, std::string* bytes) {
  bytes->clear();
  if (path == kStream) {
    return ReadStream(bytes);
  }
  files::File file;
  const platform::Code code =
      files::Open(platform::paths::OfCaller(path), files::Access::Read, files::Share::Read,
                  files::Disposition::OpenExisting, &file);
  if (code != platform::kSuccess) {
    return code;
  }
  RememberReadFile(file);
  return platform::ReadWholeFile(&file, bytes);
}

OutputPlace::OutputPlace(cvn::StringView path)
    : path_(path), file_(platform::paths::OfCaller(path)), isStream_(IsStandardOutput(path)) {}

bool OutputPlace::IsThere() const { return !isStream_ && platform::paths::Exists(file_.Path()); }

bool OutputPlace::IsSame(const OutputPlace& other) const {
  if (isStream_ || other.isStream_) {
    return isStream_ == other.isStream_;
  }
  files::Identity left;
  files::Identity right;
  return file_.Path() == other.file_.Path() ||
         (files::GetIdentity(file_.Path(), &left) == platform::kSuccess &&
          files::GetIdentity(other.file_.Path(), &right) == platform::kSuccess && left == right);
}

int OutputPlace::Prepare(std::string_view bytes, platform::OutputFile::Readers readers) {
  bytes_ = bytes;
  if (isStream_) {
    return kExitDone;
  }
  files::Identity identity;
  if (files::GetIdentity(file_.Path(), &identity) == platform::kSuccess &&
      std::ranges::count(Remembered().identities, identity) != 0) {
    return FailOnFile(path_, u"it is a file that was read, and isn't written over");
  }
  const platform::Code code = file_.Write(bytes, readers);
  return code == platform::kSuccess ? kExitDone : FailToWrite(path_, code);
}

int OutputPlace::Finish() {
  platform::Code code = platform::kSuccess;
  if (isStream_) {
    files::File output;
    code = platform::OpenStandardFile(StandardFile::Output, &output);
    if (code == platform::kSuccess) {
      code = output.Write(std::as_bytes(std::span(bytes_)));
    }
  } else {
    code = file_.Commit();
  }
  return code == platform::kSuccess ? kExitDone : FailToWrite(path_, code);
}

void OutputPlace::Undo() {
  if (!isStream_) {
    platform::IgnoreError(files::Delete(file_.Path()));
  }
}

int RefuseWithin(cvn::StringView path, cvn::StringView folder) {
  // On Windows too the user may have written either separator.
  const cvn::String whole = FullPathOf(path);
  const cvn::StringView parent = whole.AsView().substr(0, whole.AsView().find_last_of(u"/\\") + 1);
  cvn::String place;
  cvn::String around;
  platform::paths::VolumeName volume{};
  if (path.empty() || path == kStream ||
      platform::paths::GetFinalPath(parent, &place, &volume) != platform::kSuccess ||
      platform::paths::GetFinalPath(FullPathOf(folder), &around, &volume) != platform::kSuccess) {
    return kExitDone;  // a place that isn't there is told when it is written to
  }
  platform::paths::AddBackslash(&place);
  platform::paths::AddBackslash(&around);
  return place.AsView().starts_with(around)
             ? FailOnFile(path, cvn::Format(u"it would lie in %s, which has to stay as it is; name "
                                            u"a file outside of it",
                                            folder))
             : kExitDone;
}

int WriteWholeFile(cvn::StringView path, std::string_view bytes) {
  OutputPlace output(path);
  const int exitCode = output.Prepare(bytes, platform::OutputFile::Readers::Anybody);
  return exitCode == kExitDone ? output.Finish() : exitCode;
}

int WriteText(cvn::StringView path, std::string_view text) {
  if (!path.empty()) {
    return WriteWholeFile(path, text);
  }
  text.remove_suffix(1);  // the stream ends the last line in its own way
  platform::streams::WriteLine(platform::streams::Output::Out, cvn::Utf8ToWide(text));
  return kExitDone;
}

}  // namespace tlx
