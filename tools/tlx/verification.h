// What 'tlx verify' found out of a patch, and how it tells that.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>

#include "launcher/examination.h"
#include "launcher/patch_metadata.h"
#include "platform/error.h"
#include "support/containers.h"
#include "support/string.h"

namespace tlx {

struct Verification {
  cvn::String patch;  // its full path
  tessel::Examination examination;
  std::optional<tessel::PatchMetaData> header;  // once the patch was deciphered
  std::optional<std::int64_t> expiresAt;        // in seconds since 1970 UTC, once it is known
  std::int32_t exitCode = 0;                    // of a run, unless its script is started
  std::string reason;                           // of that end, in the report on the run
  bool raisesEvents = false;                    // whether a run would report that
  // What keeps the script from being started: sentences, the gravest first.
  cvn::List<cvn::String> obstacles;

  bool Starts() const { return exitCode == 0; }
};

// Why a patch can't be judged on a machine.
struct MachineProblem {
  cvn::String place;
  cvn::StringView text;
};

// Opens the machine of that folder, or without one that which tessel takes; never makes one.
// `*opened` is the code of that, for JudgePatch. A problem when there is no machine to judge on.
std::optional<MachineProblem> OpenMachineToJudge(cvn::StringView folder, Verification* verification,
                                                 platform::Code* opened);
// Judges the patch `verification->patch`, and fills in all but that, as far as a run would come.
void JudgePatch(platform::Code machineOpened, Verification* verification);

// For people, in lines.
cvn::List<cvn::String> DescribeVerification(const Verification& verification);
// Its signatures and files, a row or two for each.
void AddCatalogInShort(const tessel::CatalogJudgement& catalog, cvn::List<cvn::String>* lines);
// As docs/verify.schema.json describes it.
Json::Value VerificationJson(const Verification& verification);

// What is wrong with a script that the runner refuses to load, with lines and columns.
void ListScriptFaults(cvn::StringView script, cvn::List<cvn::String>* sentences);

// A moment in UTC as RFC 3339 writes it: "2026-01-31T08:00:00Z".
cvn::String UtcText(std::int64_t seconds);

// What the outputs call the state of a listed file.
cvn::StringView NameOf(tessel::FileState state);

}  // namespace tlx
