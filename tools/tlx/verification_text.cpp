#include <algorithm>
#include <chrono>

#include "platform/paths.h"
#include "platform/signatures.h"
#include "support/format.h"
#include "support/utf.h"
#include "telemetry/reason_names.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/text_rows.h"
#include "tools/tlx/verification.h"

namespace tlx {
namespace {

namespace signatures = platform::signatures;
using Lines = cvn::List<cvn::String>;

void AddFileCount(const tessel::CatalogJudgement& catalog, Lines* lines) {
  const auto genuine = std::ranges::count(catalog.files, tessel::FileState::Genuine,
                                          &tessel::CatalogJudgement::ListedFile::state);
  AddRow(u"Files:", cvn::Format(u"%u listed, %u of them genuine", catalog.files.size(), genuine),
         lines);
}

void AddVerdict(const tessel::SignatureFinding& finding, Lines* lines) {
  const cvn::String problem = tessel::WhatIsWrong(finding);
  AddRow(u"Signature:",
         problem.Empty() ? cvn::String(u"good, and the publisher's")
                         : cvn::Format(u"refused: %s", problem),
         lines);
}

void AddGoodUntil(const tessel::SignatureFinding& finding, Lines* lines) {
  if (tessel::WhatIsWrong(finding).Empty()) {
    AddRow(u"  good until",
           finding.signer.goodUntil ? UtcText(*finding.signer.goodUntil)
                                    : cvn::String(u"no end: the time stamp keeps it good"),
           lines);
  }
}

void AddSignature(const tessel::SignatureFinding& finding, Lines* lines) {
  AddVerdict(finding, lines);
  if (!finding.signer.certificates.empty()) {
    const signatures::Certificate& signer = finding.signer.certificates.front();
    AddRow(u"  signer", signer.subject, lines);
    AddRow(u"  issuer", signer.issuer, lines);
    AddRow(u"  serial", tessel::SerialText(signer), lines);
    AddRow(u"  valid",
           cvn::Format(u"%s to %s", UtcText(signer.validFrom), UtcText(signer.validUntil)), lines);
    cvn::StringView title = u"  way up";
    for (std::size_t i = 1; i < finding.signer.certificates.size(); ++i) {
      AddRow(title, finding.signer.certificates[i].subject, lines);
      title = u"";
    }
  }
  if (finding.stampedAt != 0) {
    AddRow(u"  stamped",
           finding.stamper.certificates.empty()
               ? UtcText(finding.stampedAt)
               : cvn::Format(u"%s by %s", UtcText(finding.stampedAt),
                             finding.stamper.certificates.front().subject),
           lines);
  } else if (!finding.signer.certificates.empty()) {
    AddRow(u"  stamped", u"no", lines);
  }
  AddGoodUntil(finding, lines);
}

void AddCatalog(const tessel::CatalogJudgement& catalog, Lines* lines) {
  for (const tessel::SignatureFinding& finding : catalog.signatures) {
    AddSignature(finding, lines);
  }
  if (catalog.files.empty()) {
    return;
  }
  AddFileCount(catalog, lines);
  for (const tessel::CatalogJudgement::ListedFile& file : catalog.files) {
    AddRow(cvn::Format(u"  %s", NameOf(file.state)),
           file.isPatch ? cvn::Format(u"%s (the patch)", file.name) : file.name, lines);
  }
  if (catalog.answer == tessel::kCatalogPassed) {
    AddRow(
        u"Protected:",
        catalog.isProtected
            ? cvn::String(u"yes, the run works on copies that no other account can change")
            : cvn::Format(u"no, the run works in the patch's folder: %s", catalog.whyUnprotected),
        lines);
  }
}

void AddHeader(const Verification& verification, Lines* lines) {
  const tessel::PatchMetaData& header = *verification.header;
  AddRow(u"Patch:", cvn::Format(u"id '%s', type '%s'", header.id, header.patchType), lines);
  if (verification.expiresAt) {
    AddRow(u"Expires:",
           cvn::Format(verification.examination.way == tessel::GateWay::Install
                           ? u"%s, which doesn't matter where it lies"
                           : u"%s",
                       UtcText(*verification.expiresAt)),
           lines);
  }
}

void AddWay(const tessel::Examination& examination, Lines* lines) {
  switch (*examination.way) {
    case tessel::GateWay::External:
      AddRow(u"Judged by:", u"its catalog; any account may start it", lines);
      break;
    case tessel::GateWay::Install:
      AddRow(u"Judged by:",
             cvn::Format(u"who starts it: only the system's account may, by a program in a trusted "
                         u"location (as '%s', where it lies)",
                         examination.trustedFolder),
             lines);
      break;
    case tessel::GateWay::Unchecked:
      AddRow(u"Judged by:", u"nothing: the machine's Windows is older than 8", lines);
      break;
  }
}

}  // namespace

void AddCatalogInShort(const tessel::CatalogJudgement& catalog, Lines* lines) {
  for (const tessel::SignatureFinding& finding : catalog.signatures) {
    AddVerdict(finding, lines);
    AddGoodUntil(finding, lines);
  }
  if (!catalog.files.empty()) {
    AddFileCount(catalog, lines);
  }
}

Lines DescribeVerification(const Verification& verification) {
  const tessel::Examination& examination = verification.examination;
  const cvn::StringView name = platform::paths::FindFileName(verification.patch);
  Lines lines = {cvn::Format(verification.Starts() ? u"%s would run." : u"%s would not run.",
                             Printable(name))};
  if (!examination.machineFolder.Empty()) {
    AddRow(u"Machine:", examination.machineFolder, &lines);
  }
  if (verification.header) {
    AddHeader(verification, &lines);
  }
  if (examination.way) {
    AddWay(examination, &lines);
  }
  if (examination.catalog) {
    AddCatalog(*examination.catalog, &lines);
  }
  if (verification.Starts()) {
    return lines;
  }
  AddRow(u"Exit code:", cvn::Format(u"%d", verification.exitCode), &lines);
  if (verification.raisesEvents && examination.criticalReason != 0) {
    AddRow(u"Event:",
           cvn::Format(u"m_critical_issue_occurred %s",
                       cvn::Utf8ToWide(tessel::CriticalReasonName(examination.criticalReason))),
           &lines);
  }
  if (verification.raisesEvents) {
    AddRow(u"Event:", cvn::Format(u"m_tool_ran %s", cvn::Utf8ToWide(verification.reason)), &lines);
  }
  cvn::StringView title = u"In the way:";
  for (const cvn::String& obstacle : verification.obstacles) {
    AddRow(title, obstacle, &lines);
    title = u"";
  }
  return lines;
}

cvn::String UtcText(std::int64_t seconds) {
  const std::chrono::sys_seconds moment{std::chrono::seconds(seconds)};
  const auto day = std::chrono::floor<std::chrono::days>(moment);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss time(moment - day);
  return cvn::Format(u"%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     static_cast<int>(time.hours().count()),
                     static_cast<int>(time.minutes().count()),
                     static_cast<int>(time.seconds().count()));
}

cvn::StringView NameOf(tessel::FileState state) {
  switch (state) {
    case tessel::FileState::Genuine:
      return u"genuine";
    case tessel::FileState::Missing:
      return u"missing";
    case tessel::FileState::NoFile:
      return u"irregular";
    case tessel::FileState::ManyAlike:
      return u"ambiguous";
    case tessel::FileState::Unreadable:
      return u"unreadable";
    case tessel::FileState::HasChanged:
      break;
  }
  return u"changed";
}

}  // namespace tlx
