#include "tools/tlx/patch_input.h"

#include <string_view>

#include "launcher/patch_file.h"
#include "platform/formats/patch_container.h"
#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/key_file.h"
#include "tools/tlx/messages.h"

namespace tlx {
namespace {

// A patch may begin as a text does, but hardly be one.
bool IsText(std::string_view bytes) {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  std::string_view text = bytes;
  if (text.starts_with(kMark)) {
    text.remove_prefix(kMark.size());
  }
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  std::size_t badOffset = 0;
  return first != std::string_view::npos && text[first] == '<' &&
         (bytes.size() % platform::kPatchBlockSize != 0 || cvn::IsValidUtf8(bytes, &badOffset));
}

// What the program's own key makes of a patch; else a sentence.
cvn::String DecipherWithOwnKey(std::string_view bytes, std::string* script) {
  if (tessel::DecryptPatch(bytes, script) == tessel::kPatchDecrypted) {
    return {};
  }
  const bool isOfOtherKey = tessel::DecryptPatch(bytes.substr(0, platform::kPatchBlockSize),
                                                 script) != tessel::kPatchDecrypted;
  return isOfOtherKey
             ? u"it isn't a patch for this program: neither a script, nor made with the private "
               u"half of its key. --key names another public key"
             : u"the patch is damaged: only its beginning was made with the private half of this "
               u"program's key";
}

// The exit code of a failure that it told.
int CheckPatchSize(cvn::StringView shownAs, std::size_t size) {
  return size % platform::kPatchBlockSize == 0
             ? kExitDone
             : FailOnFile(shownAs, cvn::Format(u"no patch, or a part of one: its %u bytes are not "
                                               u"a multiple of %u",
                                               size, platform::kPatchBlockSize));
}

}  // namespace

int DecipherWith(cvn::StringView keyFile, cvn::StringView shownAs, std::string_view bytes,
                 std::string* script) {
  if (const int exitCode = CheckPatchSize(shownAs, bytes.size()); exitCode != kExitDone) {
    return exitCode;
  }
  cvn::String problem;
  const platform::OpenSsl<RSA> key = ReadPublicKey(keyFile, &problem);
  if (key == nullptr) {
    return FailOnFile(keyFile, problem);
  }
  std::size_t badOffset = 0;
  return platform::DecipherPatch(key.get(), bytes, script, &badOffset)
             ? kExitDone
             : FailOnFile(shownAs,
                          cvn::Format(u"the block at offset %u was not made with this pair of keys",
                                      badOffset));
}

int ReadPatchInput(cvn::StringView path, cvn::StringView shownAs, cvn::StringView keyFile,
                   PatchInput* input) {
  std::string bytes;
  // By its name as a run does: a pipe that nobody writes to isn't waited for.
  const platform::Code code =
      path == u"-" ? ReadInput(path, &bytes) : tessel::ReadPatchFile(path, &bytes);
  if (code != platform::kSuccess && code != tessel::kInvalidScriptFile) {
    return FailToRead(shownAs, code);
  }
  input->size = bytes.size();
  input->digest = tessel::PatchContentHash(bytes);
  if (bytes.empty() || IsText(bytes)) {
    input->script = std::move(bytes);  // an empty one is told of with the faults of scripts
    return kExitDone;
  }
  input->blocks = bytes.size() / platform::kPatchBlockSize;
  if (!keyFile.empty()) {
    return DecipherWith(keyFile, shownAs, bytes, &input->script);
  }
  const int exitCode = CheckPatchSize(shownAs, bytes.size());
  const cvn::String problem =
      exitCode == kExitDone ? DecipherWithOwnKey(bytes, &input->script) : cvn::String();
  return problem.Empty() ? exitCode : FailOnFile(shownAs, problem);
}

}  // namespace tlx
