#include <json/value.h>

#include <chrono>

#include "platform/signatures.h"
#include "support/format.h"
#include "telemetry/reason_names.h"
#include "tools/tlx/json_output.h"
#include "tools/tlx/verification.h"

namespace tlx {
namespace {

namespace signatures = platform::signatures;

Json::Value CertificateJson(const signatures::Certificate& certificate) {
  Json::Value value(Json::objectValue);
  value["subject"] = JsonText(certificate.subject);
  value["issuer"] = JsonText(certificate.issuer);
  value["serial"] = JsonText(tessel::SerialText(certificate));
  value["validFrom"] = JsonText(UtcText(certificate.validFrom));
  value["validUntil"] = JsonText(UtcText(certificate.validUntil));
  return value;
}

Json::Value SignatureJson(const tessel::SignatureFinding& finding) {
  Json::Value value(Json::objectValue);
  const cvn::String problem = tessel::WhatIsWrong(finding);
  value["isGood"] = finding.status == signatures::kTrusted;
  value["isPublishers"] = problem.Empty();
  if (!problem.Empty()) {
    value["problem"] = JsonText(problem);
  }
  value["wayUp"] = Json::Value(Json::arrayValue);
  for (const signatures::Certificate& certificate : finding.signer.certificates) {
    value["wayUp"].append(CertificateJson(certificate));
  }
  if (problem.Empty() && finding.signer.goodUntil) {
    value["goodUntil"] = JsonText(UtcText(*finding.signer.goodUntil));
  }
  if (finding.stampedAt != 0) {
    value["stampedAt"] = JsonText(UtcText(finding.stampedAt));
  }
  if (!finding.stamper.certificates.empty()) {
    value["stampedBy"] = CertificateJson(finding.stamper.certificates.front());
  }
  return value;
}

Json::Value FileJson(const tessel::CatalogJudgement::ListedFile& file) {
  Json::Value value(Json::objectValue);
  value["name"] = JsonText(file.name);
  value["state"] = JsonText(NameOf(file.state));
  value["isPatch"] = file.isPatch;
  return value;
}

Json::Value HeaderJson(const Verification& verification) {
  const tessel::PatchMetaData& header = *verification.header;
  Json::Value value(Json::objectValue);
  value["id"] = JsonText(header.id);
  value["type"] = JsonText(header.patchType);
  value["tags"] = JsonTexts(header.tags);
  if (verification.expiresAt) {
    value["expires"] = JsonText(UtcText(*verification.expiresAt));
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
    value["whyUnprotected"] = JsonText(catalog.whyUnprotected);
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

Json::Value VerificationJson(const Verification& verification) {
  const tessel::Examination& examination = verification.examination;
  Json::Value document(Json::objectValue);
  document["version"] = 1;
  document["patch"] = JsonText(verification.patch);
  document["starts"] = verification.Starts();
  document["exitCode"] = verification.exitCode;
  document["events"] = EventsJson(verification);
  document["obstacles"] = JsonTexts(verification.obstacles);
  if (!examination.machineFolder.Empty()) {
    document["machine"] = JsonText(examination.machineFolder);
  }
  if (verification.header) {
    document["header"] = HeaderJson(verification);
  }
  if (examination.way) {
    document["judgedBy"] = NameOf(*examination.way);
  }
  if (!examination.trustedFolder.Empty()) {
    document["trustedFolder"] = JsonText(examination.trustedFolder);
  }
  if (examination.catalog) {
    AddCatalog(*examination.catalog, &document);
  }
  return document;
}

}  // namespace tlx
