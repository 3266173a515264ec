#include "tools/tlx/keep_rehearsal.h"

#include "engine/script_engine.h"
#include "launcher/patch_metadata.h"
#include "platform/clock.h"
#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/rehearsal_json.h"
#include "tools/tlx/rehearsal_text.h"

namespace tlx {

tessel::SetRecord RecordOf(const Rehearsal& rehearsal, const RunRequest& request,
                           tessel::SetState state) {
  tessel::PatchMetaData meta;
  if (!request.script && !rehearsal.script.empty()) {
    meta.content = cvn::Utf8ToWide(rehearsal.script);
    tessel::ExtractPatchMetaData(&meta);
  }
  // One that was killed could tell neither code nor reason.
  const bool isTold = !rehearsal.IsCutShort() || !rehearsal.reason.empty();
  return {
      .state = state,
      .time = rehearsal.startedAt * platform::clock::kTicksPerSecond +
              platform::clock::kTicksFrom1601To1970,
      .machineFolder = rehearsal.machineFolder,
      .patch = rehearsal.patch,
      .patchId = meta.id,
      .exitCode = isTold ? rehearsal.exitCode : tessel::kRunCancelled,
      .reason = isTold ? rehearsal.reason : cvn::WideToUtf8(WordsFor(rehearsal.end)),
      .view = ViewName(rehearsal.kind),
  };
}

int KeepRehearsal(cvn::StringView folder, const Rehearsal& rehearsal, const RunRequest& request,
                  platform::machine::ChangeBytes* bytes) {
  cvn::String problem;
  const platform::Code code =
      tessel::WriteSet(folder, RecordOf(rehearsal, request, tessel::SetState::Rehearsed),
                       rehearsal.changes, bytes, &problem);
  return code == platform::kSuccess
             ? kExitDone
             : FailOnFile(folder, cvn::Format(u"the change set can't be kept: %s: %s", problem,
                                              DescribeCode(code)));
}

}  // namespace tlx
