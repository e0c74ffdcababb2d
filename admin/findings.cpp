// The collection of what a check has found, and the report made from it.
#include "admin/findings.h"

#include <algorithm>

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

const char* Name(Severity severity) {
  return severity == Severity::kError ? "error" : severity == Severity::kWarning ? "warning" : "note";
}

}  // namespace

void Findings::Add(const Kind& kind, std::string subject) {
  auto found = std::find_if(found_.begin(), found_.end(), [&](const Found& other) { return other.kind == &kind; });
  if (found == found_.end()) found = found_.insert(found_.end(), {&kind, {}});
  if (!subject.empty()) found->subjects.push_back(std::move(subject));
}

bool Findings::Has(const Kind& kind) const {
  return std::any_of(found_.begin(), found_.end(), [&](const Found& found) { return found.kind == &kind; });
}

Report Findings::ToReport() const {
  Report report;
  report.complete = complete_;
  for (const auto& [kind, subjects] : found_) {
    const bool repairable =
        !blocked_ && kind->repair != Kind::kByHand && (kind->repair != Kind::kFromHost || hostTrusted_);
    const bool later = kind->repair != Kind::kByHand && !repairable;
    std::string remedy = kind->repair == Kind::kByHand ? kind->remedy
                         : later ? "mend first what stands above; then delegationctl check --repair"
                                 : std::string("delegationctl check --repair: ") + kind->remedy;
    report.findings.push_back({kind->code, kind->severity, kind->meaning, std::move(remedy), repairable, subjects});
  }
  std::stable_sort(report.findings.begin(), report.findings.end(),
                   [](const Finding& a, const Finding& b) { return a.severity < b.severity; });
  return report;
}

bool Report::Healthy() const {
  return complete && std::all_of(findings.begin(), findings.end(),
                                 [](const Finding& finding) { return finding.severity == Severity::kNote; });
}

bool Report::Repairable() const {
  return std::any_of(findings.begin(), findings.end(), [](const Finding& finding) { return finding.repairable; });
}

Json::Value Report::ToJson() const {
  Json::Value document;
  document["healthy"] = Healthy();
  document["complete"] = complete;
  document["findings"] = Json::arrayValue;
  for (const Finding& finding : findings) {
    Json::Value& entry = document["findings"].append(Json::objectValue);
    entry["code"] = finding.code;
    entry["severity"] = Name(finding.severity);
    entry["meaning"] = finding.meaning;
    entry["remedy"] = finding.remedy;
    entry["repairable"] = finding.repairable;
    entry["subjects"] = Json::arrayValue;
    for (const std::string& subject : finding.subjects) entry["subjects"].append(subject);
  }
  return document;
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
