// delegationctl history: who has changed what, and whether that record is as it was written.
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <iostream>

#include "admin/journal.h"
#include "errors.h"
#include "names.h"
#include "verbs.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;
using admin::DelegationChange, admin::Effect, admin::Journal, admin::PersonEffect, admin::Record;

namespace {

struct Arguments {
  std::string what;  // "verify", a number, or nothing
  std::string user;
  std::string delegation;
  std::string since;
};

std::string TimeText(std::time_t time) { return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(time)); }

// "2026-03-01", "2026-03-01T08:30", "2026-03-01T08:30:00Z", all in UTC, or "90m", "12h", "7d" before now.
std::time_t ParseTime(const std::string& text) {
  const char last = text.empty() ? '\0' : text.back();
  const std::time_t unit = last == 'm' ? 60 : last == 'h' ? 3600 : last == 'd' ? 86400 : 0;
  if (unit > 0) return std::time(nullptr) - unit * ParseNumber(text.substr(0, text.size() - 1), "the time");
  for (const char* format : {"%Y-%m-%d", "%Y-%m-%dT%H:%M", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%dT%H:%M:%SZ"}) {
    struct tm time {};
    const char* end = strptime(text.c_str(), format, &time);
    if (end && !*end) return timegm(&time);
  }
  throw Exit(errors::kBadUsage, fmt::format("the time {} is not understood", Quoted(text)),
             "it is as 2026-03-01 or 2026-03-01T08:30 (UTC), or as 90m, 12h or 7d before now");
}

admin::RecordFilter Filter(const Arguments& arguments) {
  admin::RecordFilter filter;
  if (!arguments.user.empty()) {
    DelegationUser user;  // who is gone from the host has a history all the same
    filter.user = RoleUser::FromShortUsername(arguments.user, user) ? user.getUsername() : arguments.user;
  }
  if (!arguments.delegation.empty()) filter.delegation = arguments.delegation;
  if (!arguments.since.empty()) filter.since = ParseTime(arguments.since);
  return filter;
}

// Whoever may write the journal sees to it first that it has all that was changed past it. Why that failed, if it did.
std::string CatchUp(const Session& session, const std::string& path) {
  if (session.Options().dryRun || access(path.c_str(), W_OK) != 0) return "";
  try {
    Journal(path, Journal::kWrite).CatchUp();
    return "";
  } catch (const admin::Error& error) {
    return error.what();
  }
}

std::string ActorText(const Record& record) {
  if (!record.actor) return "-";
  return record.actor->name.empty() ? fmt::format("uid {}", record.actor->uid) : record.actor->name;
}

std::string NameOf(const DelegationChange& change) {
  return (change.after.isNull() ? change.before : change.after)["name"].asString();
}

Answer List(const std::vector<Record>& records, bool color) {
  Answer answer;
  answer.json["records"] = Json::arrayValue;
  Table table;
  table.Column("NO", Table::kRight).Column("TIME").Column("ACTOR").Column("ACTION");
  table.Column("GAIN", Table::kRight).Column("LOSE", Table::kRight).Column("DELEGATIONS");
  for (const Record& record : records) {
    std::vector<std::string> names;
    for (const DelegationChange& change : record.delegations) names.push_back(NameOf(change));
    const auto count = [&](std::size_t (Effect::*of)() const) {
      return record.effect ? std::to_string((*record.effect.*of)()) : "-";
    };
    table.Row({std::to_string(record.number), TimeText(record.time), ActorText(record), record.action,
               count(&Effect::CountGaining), count(&Effect::CountLosing), Joined(names)});
    answer.json["records"].append(record.ToJson());
    answer.quiet += fmt::format("{}\n", record.number);
  }
  answer.text = records.empty() ? "no records\n" : table.Text(color);
  return answer;
}

// "+ a  - b" for two arrays of names.
std::string ListChange(const Json::Value& before, const Json::Value& after) {
  std::set<std::string> then, now;
  for (const Json::Value& name : before) then.insert(name.asString());
  for (const Json::Value& name : after) now.insert(name.asString());
  std::vector<std::string> changes;
  for (const std::string& name : now) {
    if (!then.contains(name)) changes.push_back("+ " + name);
  }
  for (const std::string& name : then) {
    if (!now.contains(name)) changes.push_back("- " + name);
  }
  return Joined(changes, "  ");
}

std::string ChangeText(const DelegationChange& change) {
  const char* what = change.before.isNull() ? "created" : change.after.isNull() ? "deleted" : "changed";
  std::string text = fmt::format("{} {} (id {})\n", what, Quoted(NameOf(change)), change.id);
  const auto value = [](const Json::Value& document, const char* member) {
    const Json::Value& one = document[member];
    return one.isNull() ? "-" : Printable(one.isObject() ? JsonText(one) : one.asString());
  };
  for (const char* member : {"name", "priority", "color", "entries"}) {
    if (change.before[member] == change.after[member]) continue;
    text += fmt::format("  {:<8}  {} -> {}\n", member, value(change.before, member), value(change.after, member));
  }
  for (const char* member : {"tabs", "users", "groups"}) {
    const std::string changes = ListChange(change.before[member], change.after[member]);
    if (!changes.empty()) text += fmt::format("  {:<8}  {}\n", member, changes);
  }
  return text;
}

std::string PersonText(const PersonEffect& person) {
  std::vector<std::string> tabs;
  for (const std::string& tab : person.gained) tabs.push_back("+ " + tab);
  for (const std::string& tab : person.lost) tabs.push_back("- " + tab);
  const auto name = [](const auto& holding) { return holding ? Printable(holding->name) : "none"; };
  return fmt::format("  {}: {} -> {}{}{}\n", Printable(person.name), name(person.before), name(person.after),
                     tabs.empty() ? "" : "   ", Joined(tabs, "  "));
}

Answer Show(const Record& record) {
  Answer answer;
  answer.json["record"] = record.ToJson();
  answer.quiet = fmt::format("{}\n", record.number);
  answer.text =
      fmt::format("record {}, {}: {}, by {}{}\n", record.number, TimeText(record.time), Printable(record.action),
                  Printable(ActorText(record)), record.actor && record.actor->given ? " (named with --actor)" : "");
  for (const DelegationChange& change : record.delegations) answer.text += ChangeText(change);
  if (!record.effect) answer.text += "what that did to people is not known\n";
  if (record.effect && !record.effect->people.empty()) answer.text += "people\n";
  if (!record.effect) return answer;
  for (const PersonEffect& person : record.effect->people) answer.text += PersonText(person);
  return answer;
}

Answer Verify(const std::string& path) {
  const Journal journal(path, Journal::kRead);
  const admin::Verification result = journal.Verify();
  Answer answer;
  answer.json = result.ToJson();
  answer.status = result.intact ? kDone : kNo;
  const std::string until = fmt::format("{}, the hash of the last is {}",
                                        Count(static_cast<std::size_t>(result.records), "record"), result.hash);
  if (result.intact) {
    answer.text = result.records == 0 ? "there is no journal yet\n" : fmt::format("intact: {}\n", until);
    return answer;
  }
  answer.text = result.altered ? fmt::format("altered: record {}: {}\n", *result.altered, Printable(result.problem))
                               : fmt::format("altered: {}\n", Printable(result.problem));
  if (result.records > 0) answer.text += fmt::format("intact before it: {}\n", until);
  if (result.altered) answer.quiet = fmt::format("{}\n", *result.altered);
  return answer;
}

Answer History(const Session& session, const Arguments& arguments) {
  const bool filtered = !arguments.user.empty() || !arguments.delegation.empty() || !arguments.since.empty();
  if (!arguments.what.empty() && filtered) {
    throw Exit(errors::kBadUsage, "--user, --delegation and --since are for the list of all records");
  }
  const std::string path = Journal::CurrentPath();
  if (arguments.what == "verify") return Verify(path);
  const admin::RecordFilter filter = Filter(arguments);
  const int number = arguments.what.empty() ? 0 : ParseNumber(arguments.what, "the record");
  const std::string missed = CatchUp(session, path);
  const Journal journal(path, Journal::kRead);
  if (arguments.what.empty()) {
    const std::vector<Record> records = journal.List(filter);
    if (!missed.empty())
      std::cerr << "delegationctl: what was changed outside may be missing: " << Printable(missed) << '\n';
    return List(records, session.Color());
  }
  if (const std::optional<Record> record = journal.Find(number)) return Show(*record);
  throw Exit(errors::kNoRecord, fmt::format("there is no record {} in the journal", number),
             "delegationctl history lists them");
}

}  // namespace

void AddHistory(CommandLine& line) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* verb = line.Add(
      {"history", "look", "[verify | N] [--user U] [--delegation D] [--since T]",
       "who changed what and when; one record; whether all are as they were written", "delegationctl --demo history"},
      [arguments](Session& session) { return History(session, *arguments); });
  verb->add_option("WHAT", arguments->what);
  verb->add_option("--user", arguments->user, "what gave U tabs or took some, or assigned U")->type_name("U");
  verb->add_option("--delegation", arguments->delegation, "what changed D, a name or id:7")->type_name("D");
  verb->add_option("--since", arguments->since, "from then on: 2026-03-01, 2026-03-01T08:30 (UTC), 90m, 12h or 7d")
      ->type_name("T");
}

}  // namespace delegationctl
