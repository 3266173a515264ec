#include <json/value.h>

#include <chrono>

#include "platform/signatures.h"
#include "support/format.h"
#include "support/utf.h"
#include "telemetry/event_envelope.h"
#include "telemetry/reason_names.h"
#include "tools/tlx/verification.h"

namespace tlx {
namespace {

namespace signatures = platform::signatures;

Json::Value Text(cvn::StringView text) { return cvn::WideToUtf8(text); }

Json::Value CertificateJson(const signatures::Certificate& certificate) {
  Json::Value value(Json::objectValue);
  value["subject"] = Text(certificate.subject);
  value["issuer"] = Text(certificate.issuer);
  value["serial"] = Text(tessel::SerialText(certificate));
  value["validFrom"] = Text(UtcText(certificate.validFrom));
  value["validUntil"] = Text(UtcText(certificate.validUntil));
  return value;
}

Json::Value SignatureJson(const tessel::SignatureFinding& finding) {
  Json::Value value(Json::objectValue);
  const cvn::String problem = tessel::WhatIsWrong(finding);
  value["isGood"] = finding.status == signatures::kTrusted;
  value["isPublishers"] = problem.Empty();
  if (!problem.Empty()) {
    value["problem"] = Text(problem);
  }
  value["wayUp"] = Json::Value(Json::arrayValue);
  for (const signatures::Certificate& certificate : finding.signer.certificates) {
    value["wayUp"].append(CertificateJson(certificate));
  }
  if (problem.Empty() && finding.signer.goodUntil) {
    value["goodUntil"] = Text(UtcText(*finding.signer.goodUntil));
  }
  if (finding.stampedAt != 0) {
    value["stampedAt"] = Text(UtcText(finding.stampedAt));
  }
  if (!finding.stamper.certificates.empty()) {
    value["stampedBy"] = CertificateJson(finding.stamper.certificates.front());
  }
  return value;
}

Json::Value FileJson(const tessel::CatalogJudgement::ListedFile& file) {
  Json::Value value(Json::objectValue);
  value["name"] = Text(file.name);
  value["state"] = Text(NameOf(file.state));
  value["isPatch"] = file.isPatch;
  return value;
}

Json::Value HeaderJson(const Verification& verification) {
  const tessel::PatchMetaData& header = *verification.header;
  Json::Value value(Json::objectValue);
  value["id"] = Text(header.id);
  value["type"] = Text(header.patchType);
  value["tags"] = Json::Value(Json::arrayValue);
  for (const cvn::String& tag : header.tags) {
    value["tags"].append(Text(tag));
  }
  if (verification.expiresAt) {
    value["expires"] = Text(UtcText(*verification.expiresAt));
  }
  return value;
}

void AddCatalog(const tessel::CatalogJudgement& catalog, Json::Value* document) {
  Json::Value& value = (*document)["catalog"];
  value["signatures"] = Json::Value(Json::arrayValue);
  for (const tessel::SignatureFinding& finding : catalog.signatures) {
    value["signatures"].append(SignatureJson(finding));
  }
  value["files"] = Json::Value(Json::arrayValue);
  for (const tessel::CatalogJudgement::ListedFile& file : catalog.files) {
    value["files"].append(FileJson(file));
  }
  value["isProtected"] = catalog.isProtected;
  if (!catalog.whyUnprotected.Empty()) {
    value["whyUnprotected"] = Text(catalog.whyUnprotected);
  }
}

Json::Value EventsJson(const Verification& verification) {
  Json::Value events(Json::arrayValue);
  const auto add = [&events](const char* event, const std::string& reason) {
    Json::Value value(Json::objectValue);
    value["event"] = event;
    value["reason"] = reason;
    events.append(value);
  };
  if (!verification.raisesEvents) {
    return events;
  }
  if (verification.examination.criticalReason != 0) {
    add("m_critical_issue_occurred",
        tessel::CriticalReasonName(verification.examination.criticalReason));
  }
  add("m_tool_ran", verification.reason);
  return events;
}

const char* NameOf(tessel::GateWay way) {
  switch (way) {
    case tessel::GateWay::External:
      return "catalog";
    case tessel::GateWay::Install:
      return "caller";
    case tessel::GateWay::Unchecked:
      break;
  }
  return "nothing";
}

}  // namespace

std::string VerificationJson(const Verification& verification) {
  const tessel::Examination& examination = verification.examination;
  Json::Value document(Json::objectValue);
  document["version"] = 1;
  document["patch"] = Text(verification.patch);
  document["starts"] = verification.Starts();
  document["exitCode"] = verification.exitCode;
  document["events"] = EventsJson(verification);
  document["obstacles"] = Json::Value(Json::arrayValue);
  for (const cvn::String& obstacle : verification.obstacles) {
    document["obstacles"].append(Text(obstacle));
  }
  if (!examination.machineFolder.Empty()) {
    document["machine"] = Text(examination.machineFolder);
  }
  if (verification.header) {
    document["header"] = HeaderJson(verification);
  }
  if (examination.way) {
    document["judgedBy"] = NameOf(*examination.way);
  }
  if (!examination.trustedFolder.Empty()) {
    document["trustedFolder"] = Text(examination.trustedFolder);
  }
  if (examination.catalog) {
    AddCatalog(*examination.catalog, &document);
  }
  return tessel::PrintLine(document);
}

}  // namespace tlx
