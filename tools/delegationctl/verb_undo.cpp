// delegationctl undo: takes back what a record of the journal has changed.
#include <fmt/format.h>

#include "errors.h"
#include "names.h"
#include "undo.h"
#include "verbs.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

admin::UndoPlan RequireUndoable(const admin::Journal& journal, long long number, bool force) {
  if (!journal.Find(number)) {
    throw Exit(errors::kNoRecord, fmt::format("there is no record {} in the journal", number),
               "delegationctl history lists them");
  }
  admin::UndoPlan plan = admin::PlanUndo(journal, number, admin::ReadState());
  if (plan.overtaken && !force) {
    std::string by;
    for (const long long later : plan.since) by += fmt::format("{}{}", by.empty() ? " in " : ", ", later);
    throw Exit(errors::kChangedSince,
               fmt::format("what record {} changed has been changed since{}; nothing was changed", number, by),
               "undo the later ones first, or everything since at once with --force");
  }
  if (!plan.taken.empty()) {
    throw Exit(errors::kNameTaken,
               fmt::format("there is another delegation {} by now; nothing was changed", Quoted(plan.taken)),
               "rename that one with delegationctl update");
  }
  if (!plan.gone.empty() && !force) {
    throw Exit(errors::kNoUser, fmt::format("the host no longer has {}; nothing was changed", Joined(plan.gone)),
               "--force leaves them out");
  }
  return plan;
}

namespace {

std::string Described(const admin::DelegationChange& change) {
  const Json::Value& one = change.after.isNull() ? change.before : change.after;
  const char* what = change.before.isNull() ? "created" : change.after.isNull() ? "deleted" : "restored";
  return fmt::format("{} {}", what, Quoted(one["name"].asString()));
}

Answer Undo(Session& session, const std::string& text) {
  const int number = ParseNumber(text, "the record");
  const EditLock lock(session);
  admin::UndoPlan plan;
  {
    admin::Journal journal(admin::Journal::CurrentPath(),
                           session.Options().dryRun ? admin::Journal::kRead : admin::Journal::kWrite);
    if (!session.Options().dryRun) journal.CatchUp();
    plan = RequireUndoable(journal, number, session.Options().force);
  }
  Answer answer;
  answer.json["undone"] = number;
  answer.json["changed"] = !plan.changes.empty();
  if (plan.changes.empty()) {
    answer.text = fmt::format("nothing is left of record {}\n", number);
    return answer;
  }
  const std::string action = fmt::format("undo {}", number);
  const Carried carried =
      session.Carry({action, action, [&](Json::Value&) { return admin::Undo(plan); }, false, number});
  for (const admin::DelegationChange& change : plan.changes) {
    answer.text += fmt::format("{}{}", answer.text.empty() ? "" : ", ", Described(change));
  }
  answer.text = fmt::format("undone {}: {}\n", number, answer.text);
  carried.AddTo(answer);
  return answer;
}

}  // namespace

void AddUndo(CommandLine& line) {
  const auto number = std::make_shared<std::string>();
  CLI::App* verb = line.Add(
      {"undo", "change", "N [--force]", "take back what record N of the history changed; --force: and all since",
       "dir=$(mktemp -d) && delegationctl --demo=$dir/w delete Helpdesk -qy && delegationctl --demo=$dir/w undo 2"},
      [number](Session& session) { return Undo(session, *number); });
  verb->add_option("N", *number)->required();
}

}  // namespace delegationctl
