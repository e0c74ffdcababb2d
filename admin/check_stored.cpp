// The part of a check that compares what is stored with itself.
#include <algorithm>
#include <map>
#include <set>

#include "admin/rows.h"
#include "admin/survey.h"
#include "role/role_db_scope.h"
#include "storage/delegation_db_handler.h"
#include "tables/delegation_default_entries.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

const Link kLinks[10] = {
    {"user2delegation_table", "uid", "user_table", "delegationidx"},
    {"user2delegation_table", "delegationidx", "delegation_table", "uid"},
    {"group2delegation_table", "gid", "group_table", "delegationidx"},
    {"group2delegation_table", "delegationidx", "delegation_table", "gid"},
    {"user2group_table", "uid", "user_table", "gid"},
    {"user2group_table", "gid", "group_table", "uid"},
    {"delegation2delegation_entry_table", "delegationidx", "delegation_table", "delegationentryidx"},
    {"delegation2delegation_entry_table", "delegationentryidx", "delegation_entry_table", "delegationidx"},
    {"user2delegation_real_table", "uid", "user_table", "delegationidx"},
    {"user2delegation_real_table", "delegationidx", "delegation_table", "uid"},
};

std::string Described(const Delegation& delegation) {
  return '"' + delegation.name + "\" (id " + std::to_string(delegation.id) + ")";
}

std::string Joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

namespace {

// Adds a finding for each row of the query, whose one column is the subject.
void AddEach(sqlite3* db, const std::string& sql, const Kind& kind, Findings& findings) {
  Rows rows(db, sql);
  while (rows.Next()) findings.Add(kind, rows.Text(0));
}

void LookAtRows(sqlite3* db, Findings& findings) {
  AddEach(db,
          "select 'delegation ' || delegationidx || ': ' || case when delegationidx not between 1 and 2147483647 then "
          "'the id is out of range' when ifnull(name, '') = '' then 'it has no name' else 'the priority ' || "
          "ifnull(quote(priority), 'NULL') || ' is no number within 32 bits' end from delegation_table where "
          "delegationidx not between 1 and 2147483647 or ifnull(name, '') = '' or typeof(priority) <> 'integer' or "
          "priority not between -2147483648 and 2147483647",
          kinds::kRowUnusable, findings);
  AddEach(db,
          "select 'entry ' || delegationentryidx || ': ' || case when ifnull(type, '') = '' then 'it has no type' else "
          "'the id is out of range' end from delegation_entry_table where delegationentryidx not between 1 and "
          "2147483647 or ifnull(type, '') = ''",
          kinds::kRowUnusable, findings);
  AddEach(db,
          "select 'uid ' || uid || ' ' || ifnull(username, '') from user_table where uid not between 0 and 4294967294",
          kinds::kIdOutOfRange, findings);
  AddEach(
      db,
      "select 'gid ' || gid || ' ' || ifnull(groupname, '') from group_table where gid not between 0 and 4294967294",
      kinds::kIdOutOfRange, findings);
  AddEach(db, "select 'uid ' || uid from user_table where ifnull(username, '') = '' and uid between 0 and 4294967294",
          kinds::kNameMissing, findings);
  AddEach(db, "select 'gid ' || gid from group_table where ifnull(groupname, '') = '' and gid between 0 and 4294967294",
          kinds::kNameMissing, findings);
  if (findings.Has(kinds::kRowUnusable)) findings.Block();
}

std::string SelectOrphans(const Link& link) {
  const auto& [table, column, parent, other] = link;
  const std::string child = std::string(table) + "." + column;
  return std::string("select '") + table + ": ' || '" + column + " ' || quote(" + child + ") || ' of " + other +
         " ' || quote(" + other + ") || ' is not stored' from " + table + " where not exists (select 1 from " + parent +
         " where " + parent + "." + column + " = " + child + ")";
}

void LookAtLinks(sqlite3* db, Findings& findings) {
  for (const Link& link : kLinks) {
    const bool effective = std::string(link.table) == "user2delegation_real_table" && std::string(link.column) == "uid";
    AddEach(db, SelectOrphans(link), effective ? kinds::kUnknownUser : kinds::kOrphan, findings);
  }
}

void LookAtTypes(sqlite3* db, const State& state, Findings& findings) {
  std::vector<std::string> types;
  DelegationUtilGetAllDefaultTypeDelegationEntry(types);
  std::map<int, std::map<std::string, long long>> counts;
  Rows rows(db,
            "select delegationidx, type, count(*) from delegation2delegation_entry_view group by delegationidx, type");
  while (rows.Next()) counts[static_cast<int>(rows.Number(0))].emplace(rows.Text(1), rows.Number(2));
  for (const auto& [id, delegation] : state.delegations) {
    std::vector<std::string> missing;
    for (const std::string& type : types) {
      if (!counts[id].contains(type)) missing.push_back(type);
    }
    if (!missing.empty()) findings.Add(kinds::kTypeMissing, Described(delegation) + ": " + Joined(missing));
    for (const auto& [type, count] : counts[id]) {
      const std::string subject = Described(delegation) + ": " + type;
      const bool known = std::find(types.begin(), types.end(), type) != types.end();
      if (!known && !type.empty()) findings.Add(kinds::kTypeUnknown, subject);
      if (count > 1) findings.Add(kinds::kTypeRepeated, subject);
    }
  }
}

std::string NameOf(const Delegation* delegation) { return delegation ? Described(*delegation) : "none"; }

void LookAtEffective(const State& state, const User& user, const std::vector<Candidate>& candidates,
                     Findings& findings) {
  const Delegation* const due = candidates.empty() ? nullptr : candidates.front().delegation;
  const Delegation* const stored = state.Effective(user);
  if (stored == due) return;
  const bool supported = !stored || std::any_of(candidates.begin(), candidates.end(), [&](const Candidate& candidate) {
    return candidate.delegation == stored;
  });
  findings.Add(supported ? kinds::kDiffers : kinds::kUnsupported,
               user.name + ": " + NameOf(stored) + " is stored, " + NameOf(due) + " is due");
}

// What the delegations make of each other, people with the same told together.
class Rivalry {
 public:
  void Add(const User& user, const std::vector<Candidate>& candidates) {
    if (candidates.empty()) return;
    const Delegation& winner = *candidates.front().delegation;
    std::set<const Delegation*> losers;
    for (const Candidate& candidate : candidates) {
      held_.insert(candidate.delegation->id);
      if (candidate.delegation != &winner) losers.insert(candidate.delegation);
    }
    winning_.insert(winner.id);
    for (const Delegation* loser : losers) {
      const std::pair<int, int> pair(winner.id, loser->id);
      if (loser->priority == winner.priority) tied_[pair].push_back(user.name);
      const auto known = lost_.find(pair);
      const bool isNew = known == lost_.end();
      auto& [tabs, names] = isNew ? lost_[pair] : known->second;
      if (isNew) {
        const std::set<std::string> has = TabsOf(winner);
        for (const std::string& tab : TabsOf(*loser)) {
          if (!has.contains(tab)) tabs.push_back(tab);
        }
      }
      if (!tabs.empty()) names.push_back(user.name);
    }
  }

  void Report(const State& state, Findings& findings) const {
    const auto name = [&](int id) { return Described(state.delegations.at(id)); };
    for (const auto& [pair, names] : tied_) {
      findings.Add(kinds::kTie, name(pair.first) + " wins over " + name(pair.second) + ": " + Joined(names));
    }
    for (const auto& [id, delegation] : state.delegations) {
      if (!held_.contains(id)) {
        findings.Add(kinds::kNobody, Described(delegation));
      } else if (!winning_.contains(id)) {
        findings.Add(kinds::kOutranked, Described(delegation));
      }
    }
    for (const auto& [pair, loss] : lost_) {
      const auto& [tabs, names] = loss;
      if (tabs.empty()) continue;
      findings.Add(kinds::kTabsLost, name(pair.first) + " outranks " + name(pair.second) + " with " + Joined(tabs) +
                                         ": " + Joined(names));
    }
  }

 private:
  using Names = std::vector<std::string>;
  std::set<int> held_, winning_;                                 // by anybody, for anybody
  std::map<std::pair<int, int>, Names> tied_;                    // users, by winner and loser
  std::map<std::pair<int, int>, std::pair<Names, Names>> lost_;  // tabs and users, by winner and loser
};

}  // namespace

void SurveyStored(Survey& survey, const Progress& progress) {
  if (progress) progress("what is stored", 0, 0);
  Findings& findings = survey.findings;
  {
    const RoleDBScope scope(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kRead);
    RoleDBHandler* const handle = DelegationDBHandler::GetDelegationDBHandler();
    if (!scope.Usable() || !handle) throw Error(Error::kDatabase, "the delegation database cannot be opened");
    LookAtRows(handle->GetDB(), findings);
    LookAtLinks(handle->GetDB(), findings);
    survey.state = ReadState();
    LookAtTypes(handle->GetDB(), survey.state, findings);
  }
  Rivalry rivalry;
  std::size_t done = 0;
  for (const auto& [uid, user] : survey.state.users) {
    if (progress && ++done % 1000 == 0) progress("users", done, survey.state.users.size());
    const std::vector<Candidate> candidates = survey.state.CandidatesOf(user);
    LookAtEffective(survey.state, user, candidates, findings);
    rivalry.Add(user, candidates);
  }
  rivalry.Report(survey.state, findings);
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
