// What taking a change back comes to, and doing it.
#include "admin/undo.h"

#include <algorithm>

#include "admin/accounts.h"
#include "admin/announce.h"
#include "api/delegation_api.h"
#include "role/role_db_scope.h"
#include "storage/delegation_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

// The names of `array` by which the host still means the same, by `find` and the ids of then; the others go to `gone`.
Json::Value Present(const Json::Value& array, const std::string& kind, const Json::Value& ids,
                    std::optional<Account> (*find)(const std::string&), std::vector<std::string>& gone) {
  Json::Value present(Json::arrayValue);
  for (const Json::Value& name : array) {
    const std::string assignee = kind + " " + name.asString();
    const std::optional<Account> account = find(name.asString());
    const Json::Value& id = ids[assignee];
    if (account && (!id.isUInt() || id.asUInt() == account->id)) {
      present.append(name);
    } else {
      gone.push_back(account ? assignee + " of then (number " + id.asString() + ")" : assignee);
    }
  }
  return present;
}

// The document of a change through the exported functions.
Json::Value ChangeDocument(const Json::Value& document) {
  Json::Value change;
  if (!DelegationDelegationDefaultEntriesGet(change)) throw Error(Error::kSystem, "there are no default entries");
  for (const Json::Value& tab : document["tabs"]) change[tab.asString()] = "true";
  const Json::Value& entries = document["entries"];
  for (const std::string& tab : entries.getMemberNames()) change[tab] = entries[tab];
  for (const char* member : {"name", "color", "priority"}) change[member] = document[member];
  change["user_group"] = Json::arrayValue;
  const auto assign = [&](const char* list, const char* type) {
    for (const Json::Value& name : document[list]) {
      Json::Value& assignee = change["user_group"].append(Json::objectValue);
      assignee["type"] = type;
      assignee["name"] = name;
    }
  };
  assign("users", "user");
  assign("groups", "group");
  return change;
}

// Whether the delegation was deleted, and its id perhaps used again, in one of these records.
bool IsDeletedIn(const std::vector<Record>& records, int id) {
  const auto deletes = [&](const DelegationChange& change) { return change.id == id && change.after.isNull(); };
  return std::any_of(records.begin(), records.end(), [&](const Record& record) {
    return std::any_of(record.delegations.begin(), record.delegations.end(), deletes);
  });
}

// The numbers of the records that touch the same delegations, or take the record back.
std::vector<long long> ThoseAbout(const std::vector<Record>& records, const Record& about) {
  std::vector<long long> numbers;
  for (const Record& record : records) {
    const auto isSame = [](const DelegationChange& a, const DelegationChange& b) { return a.id == b.id; };
    const bool touches =
        std::find_first_of(record.delegations.begin(), record.delegations.end(), about.delegations.begin(),
                           about.delegations.end(), isSame) != record.delegations.end();
    if (touches || record.undoes == about.number) numbers.push_back(record.number);
  }
  return numbers;
}

// The first name that is to come back and that another delegation has by now.
std::string TakenName(const UndoPlan& plan, const Documents& now) {
  Documents others = now;
  for (const DelegationChange& change : plan.changes) others.erase(change.id);
  for (const DelegationChange& change : plan.changes) {
    if (change.after.isNull() || change.before["name"] == change.after["name"]) continue;
    const auto hasName = [&](const auto& entry) { return entry.second["name"] == change.after["name"]; };
    if (std::any_of(others.begin(), others.end(), hasName)) return change.after["name"].asString();
  }
  return "";
}

bool CarryOutOne(const DelegationChange& change) {
  if (change.after.isNull()) {
    Json::Value ids(Json::arrayValue);
    ids.append(change.id);
    return DelegationDelegationDelete(ids);
  }
  Json::Value document = ChangeDocument(change.after);
  if (change.before.isNull()) {
    int id = -1;
    return DelegationDelegationCreate(document, id);
  }
  document["id"] = change.id;
  return DelegationDelegationUpdate(document);
}

}  // namespace

UndoPlan PlanUndo(const Journal& journal, long long number, const State& now) {
  const std::optional<Record> record = journal.Find(number);
  const std::string name = "the change " + std::to_string(number);
  if (!record) throw Error(Error::kInput, name + " is not in the journal");
  if (record->kind == Record::kStart) throw Error(Error::kRefused, name + " is only the beginning of the journal");
  if (record->delegations.empty()) throw Error(Error::kRefused, name + " has changed no delegation");
  std::vector<Record> later = journal.List();
  std::erase_if(later, [&](const Record& one) { return one.number <= number; });

  UndoPlan plan;
  plan.number = number;
  plan.overtaken = std::any_of(later.begin(), later.end(), [&](const Record& one) { return one.undoes == number; });
  const Documents present = DocumentsOf(now);
  for (const DelegationChange& change : record->delegations) {
    const auto found = present.find(change.id);
    const bool isGone = change.after.isNull() || found == present.end() || IsDeletedIn(later, change.id);
    DelegationChange back{isGone ? -1 : change.id, isGone ? Json::Value() : found->second, change.before};
    plan.overtaken = plan.overtaken || back.before != change.after;
    if (!back.after.isNull()) {
      back.after["users"] = Present(change.before["users"], "user", record->ids, UserNamed, plan.gone);
      back.after["groups"] = Present(change.before["groups"], "group", record->ids, GroupNamed, plan.gone);
    }
    if (back.before != back.after) plan.changes.push_back(std::move(back));
  }
  if (plan.overtaken) plan.since = ThoseAbout(later, *record);
  plan.taken = TakenName(plan, present);
  return plan;
}

bool Undo(const UndoPlan& plan) {
  {
    RoleDBScope scope(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kWrite);
    if (!scope.Usable() || !std::all_of(plan.changes.begin(), plan.changes.end(), CarryOutOne) || !scope.Commit()) {
      return false;
    }
  }
  return Announce();
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
