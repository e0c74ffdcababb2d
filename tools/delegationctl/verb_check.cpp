// delegationctl check: is everything in order, and mending what is not.
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "admin/check.h"
#include "admin/error.h"
#include "errors.h"
#include "platform/mailserver.h"
#include "platform/nimbsdk.h"
#include "progress.h"
#include "verbs.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;
using admin::Finding, admin::Report, admin::Severity;

namespace {

struct Arguments {
  bool repair = false;
  bool noCluster = false;
};

Report Look(const Session& session, bool cluster) {
  Progress progress;
  admin::CheckOptions options;
  options.database = session.Options().database;
  options.cluster = cluster;
  options.progress = [&](const std::string& what, std::size_t done, std::size_t total) {
    progress.Show("checking " + what, done, total);
  };
  return admin::Check(options);
}

int StatusOf(const Report& report) { return !report.complete ? kFailed : report.Healthy() ? kDone : kNo; }

std::size_t CountOf(const Report& report, Severity severity) {
  return static_cast<std::size_t>(std::count_if(report.findings.begin(), report.findings.end(),
                                                [&](const Finding& finding) { return finding.severity == severity; }));
}

std::string Text(const Finding& finding, bool color) {
  std::string text = color ? fmt::format("  \033[1m{}\033[0m", finding.code) : "  " + finding.code;
  text += fmt::format("  {}\n", Printable(finding.meaning));
  for (const std::string& subject : finding.subjects) text += fmt::format("      {}\n", Printable(subject));
  return text + fmt::format("    > {}\n", Printable(finding.remedy));
}

std::string Summary(const Report& report) {
  const std::size_t errors = CountOf(report, Severity::kError), warnings = CountOf(report, Severity::kWarning),
                    notes = CountOf(report, Severity::kNote);
  std::vector<std::string> parts;
  if (errors > 0) parts.push_back(Count(errors, "error"));
  if (warnings > 0) parts.push_back(Count(warnings, "warning"));
  if (notes > 0) parts.push_back(Count(notes, "note"));
  std::string text = (report.Healthy() ? "healthy" : "not healthy") + std::string(parts.empty() ? "" : ": ");
  text += Joined(parts);
  return text + (report.complete ? "\n" : "; not everything could be checked\n");
}

std::string Text(const Report& report, bool color) {
  std::string text;
  std::optional<Severity> group;
  for (const Finding& finding : report.findings) {
    if (group != finding.severity) {
      const char* name = finding.severity == Severity::kError     ? "errors"
                         : finding.severity == Severity::kWarning ? "warnings"
                                                                  : "notes";
      text += fmt::format("{}{}\n", text.empty() ? "" : "\n", name);
    }
    group = finding.severity;
    text += Text(finding, color);
  }
  return text + (text.empty() ? "" : "\n") + Summary(report);
}

Answer AnswerOf(const Report& report, const Session& session) {
  Answer answer;
  answer.json = report.ToJson();
  if (!report.complete) {
    Json::Value& error = answer.json["error"];
    error["code"] = std::string(errors::kIncomplete.code);
    error["message"] = "not everything could be checked";
    error["hint"] = "the findings say what failed";
    error["log"] = JsonArray(session.GetLog().Lines());
  }
  answer.text = Text(report, session.Color());
  for (const Finding& finding : report.findings) answer.quiet += finding.code + "\n";
  answer.status = StatusOf(report);
  return answer;
}

// What a repair is going to do, whom it concerns included.
std::string Plan(const Report& report, bool color) {
  std::string text = "to be repaired\n";
  for (const Finding& finding : report.findings) {
    if (finding.repairable) text += Text(finding, color);
  }
  return text + "\n";
}

bool Repair(Json::Value& told) {
  Progress progress;
  progress.Show("repairing");
  try {
    return admin::Repair(told);
  } catch (const admin::Error& error) {
    throw Exit(error.kind() == admin::Error::kRefused ? errors::kRefusedByRule : errors::kLibrary,
               Printable(error.what()));
  }
}

Answer CheckAndRepair(Session& session, const Arguments& arguments) {
  const EditLock lock(session);
  session.LiftVanishLimit();
  const NIMBOAccountScope accounts(NIMBOAccountScope::kEnumerate);  // the host as it is now, for all that follows
  const Report before = Look(session, false);
  if (!before.Repairable()) {
    Answer answer = AnswerOf(before, session);
    answer.json["repaired"] = Json::arrayValue;
    answer.text += "there is nothing to repair\n";
    return answer;
  }
  const std::string plan = Plan(before, session.Color());
  const Carried carried = session.Carry({.action = "a repair", .what = "the repair", .run = Repair, .repairs = plan});
  if (carried.dry) {
    Answer answer = AnswerOf(before, session);
    carried.AddTo(answer);
    answer.text.insert(0, plan);
    answer.status = kDone;
    return answer;
  }
  if (!carried.told["announced"].asBool()) {
    throw Exit(errors::kNotAnnounced, "the repair: stored, but not announced to the cluster",
               "delegationctl refresh announces the database again");
  }
  const Report after = Look(session, !arguments.noCluster);
  Answer answer = AnswerOf(after, session);
  carried.AddTo(answer);
  answer.json["copy"] = carried.copy;
  answer.json["repaired"] = Json::arrayValue;
  std::vector<std::string> repaired;
  for (const Finding& finding : before.findings) {
    const auto same = [&](const Finding& other) { return other.code == finding.code; };
    if (std::any_of(after.findings.begin(), after.findings.end(), same)) continue;
    repaired.push_back(finding.code);
  }
  answer.json["repaired"] = JsonArray(repaired);
  answer.text += fmt::format("repaired: {}\nthe database as it was before is kept in {}\n", Joined(repaired),
                             Printable(carried.copy));
  return answer;
}

Answer CheckOnly(Session& session, const Arguments& arguments) {
  session.LiftVanishLimit();
  return AnswerOf(Look(session, !arguments.noCluster && !session.Options().dryRun), session);
}

}  // namespace

void AddCheck(CommandLine& line) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* verb =
      line.Add({"check", "care", "[--repair] [--no-cluster]",
                "is everything in order: database, host, cluster, what is stored", "delegationctl --demo check"},
               [arguments](Session& session) {
                 return arguments->repair ? CheckAndRepair(session, *arguments) : CheckOnly(session, *arguments);
               });
  verb->add_flag("--repair", arguments->repair, "mend what can be mended without doubt; keeps a copy first")
      ->disable_flag_override();
  verb->add_flag("--no-cluster", arguments->noCluster,
                 "do not announce the database to see whether the cluster answers")
      ->disable_flag_override();
}

}  // namespace delegationctl
