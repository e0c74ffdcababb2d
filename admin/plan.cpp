// Comparing a document with the stored delegations.
#include "admin/plan.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "admin/accounts.h"
#include "admin/document.h"
#include "admin/form.h"
#include "admin/to_json.h"
#include "api/delegation_api.h"
#include "tables/delegation_default_entries.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

// ---- Users or groups of a delegation ----

struct Side {
  const char* type;
  const char* member;
  std::optional<Account> (*named)(const std::string&);
  std::optional<Account> (*withId)(unsigned int);
  DocumentError::Cause unknown, gone;
};

constexpr Side kUsers{"user", "users", UserNamed, UserWithId, DocumentError::kNoUser, DocumentError::kUserGone};
constexpr Side kGroups{"group", "groups", GroupNamed, GroupWithId, DocumentError::kNoGroup, DocumentError::kGroupGone};

struct Assignees {
  AssigneeChange change;
  std::map<unsigned int, std::string> after;  // the host's name by id; "" if it was not asked for
};

// `stored` are the ids to whom the delegation is assigned.
template <class Records>
Assignees CompareAssignees(const Side& side, const Json::Value& element, const Records& records,
                           const std::vector<unsigned int>& stored) {
  Assignees assignees;
  if (!element.isMember(side.member)) {
    for (const unsigned int id : stored) assignees.after[id];
    return assignees;
  }
  for (const Json::Value& wanted : element[side.member]) {
    const std::string name = wanted.asString();
    if (const std::optional<Account> account = side.named(name)) {
      assignees.after[account->id] = account->name;
      continue;
    }
    const auto kept =
        std::find_if(stored.begin(), stored.end(), [&](unsigned int id) { return records.at(id).name == name; });
    if (kept == stored.end()) {
      const std::string text = std::string("there is no ") + side.type + " " + Quoted(name) + " on this host";
      throw DocumentError(side.unknown, text, wanted, name);
    }
    assignees.after[*kept];
  }
  const std::set<unsigned int> before(stored.begin(), stored.end());
  for (const auto& [id, name] : assignees.after) {
    if (!before.contains(id)) assignees.change.added.push_back(name);
  }
  for (const unsigned int id : before) {
    if (!assignees.after.contains(id)) assignees.change.removed.push_back(records.at(id).name);
  }
  std::sort(assignees.change.added.begin(), assignees.change.added.end());
  std::sort(assignees.change.removed.begin(), assignees.change.removed.end());
  return assignees;
}

bool IsEmpty(const AssigneeChange& change) { return change.added.empty() && change.removed.empty(); }

// Appends everybody who is to have the delegation. The library looks each up at the host by name.
template <class Records>
void AppendAssignees(const Side& side, const Assignees& assignees, const Records& records, const Json::Value& element,
                     Json::Value& out) {
  for (const auto& [id, known] : assignees.after) {
    std::string name = known;
    if (name.empty()) {
      const std::optional<Account> account = side.withId(id);
      const std::optional<Account> back = account ? side.named(account->name) : std::nullopt;
      if (!back || back->id != id) {
        const std::string& stored = records.at(id).name;
        throw DocumentError(side.gone,
                            std::string("the host no longer has the ") + side.type + " " + Quoted(stored) +
                                ", to whom " + Quoted(element["name"].asString()) + " is assigned",
                            element, stored);
      }
      name = back->name;
    }
    Json::Value& assignee = out.append(Json::objectValue);
    assignee["type"] = side.type;
    assignee["name"] = name;
  }
}

// ---- One delegation ----

class Planner {
 public:
  Planner(const State& state, const Json::Value& document) : state_(state) {
    DelegationUtilGetAllDefaultTypeDelegationEntry(tabs_);
    if (!DelegationDelegationDefaultEntriesGet(defaults_)) throw Error(Error::kSystem, "there are no default entries");
    Match(document["delegations"]);
  }

  std::vector<PlannedChange> Run(const Json::Value& elements, Prune prune) {
    std::vector<PlannedChange> changes;
    std::set<int> kept;
    for (const auto& [element, stored] : matches_) {
      if (stored) kept.insert(stored->id);
    }
    if (prune != Prune::kNo) changes = Deletions(kept, prune);
    std::map<std::string, int> taken;  // names of delegations that stay as they are
    for (const auto& [id, delegation] : state_.delegations) {
      if (!kept.contains(id) && prune == Prune::kNo) taken.emplace(delegation.name, id);
    }
    for (const Json::Value& element : elements) {
      const Delegation* stored = matches_.at(&element);
      RequireFree(element["name"], taken);
      PlannedChange change = Compare(element, stored);
      if (!stored || !change.fields.empty() || !IsEmpty(change.users) || !IsEmpty(change.groups)) {
        changes.push_back(std::move(change));
      }
    }
    return changes;
  }

  bool AddsKnownGroup() const { return addsKnownGroup_; }

 private:
  using Claimed = std::set<const Delegation*>;

  // The one stored delegation of that name that is not `claimed`; null when there is none.
  const Delegation* OneNamed(const Json::Value& at, const Claimed& claimed = {}) const {
    const std::string name = at.asString();
    std::vector<const Delegation*> found;
    for (const auto& [id, delegation] : state_.delegations) {
      if (delegation.name == name && !claimed.contains(&delegation)) found.push_back(&delegation);
    }
    if (found.size() > 1) {
      throw DocumentError(DocumentError::kAmbiguous,
                          std::to_string(found.size()) + " delegations are called " + Quoted(name), at, name);
    }
    return found.empty() ? nullptr : found.front();
  }

  // The delegation that "was" names: by "id:7", or by a name. One that has been renamed already goes by its new name.
  const Delegation* Former(const Json::Value& element) const {
    const Json::Value& was = element["was"];
    const std::string name = was.asString();
    const Delegation* found = nullptr;
    if (name.starts_with("id:")) {
      for (const auto& [id, delegation] : state_.delegations) {
        if ("id:" + std::to_string(id) == name) found = &delegation;
      }
    } else {
      found = OneNamed(was);
      if (!found) found = OneNamed(element["name"]);
    }
    if (!found) {
      throw DocumentError(DocumentError::kNoDelegation, "there is no delegation " + Quoted(name), was, name);
    }
    return found;
  }

  // Finds the stored delegation of each element: first of those that rename one, so that its name is free for another.
  void Match(const Json::Value& elements) {
    Claimed claimed;
    for (const Json::Value& element : elements) {
      if (!element.isMember("was")) continue;
      const Delegation* stored = Former(element);
      Require(claimed.insert(stored).second, "a second change of " + Quoted(stored->name), element["was"]);
      matches_[&element] = stored;
    }
    for (const Json::Value& element : elements) {
      if (!element.isMember("was")) matches_[&element] = OneNamed(element["name"], claimed);
    }
  }

  static void RequireFree(const Json::Value& name, const std::map<std::string, int>& taken) {
    const auto found = taken.find(name.asString());
    if (found == taken.end()) return;
    throw DocumentError(
        DocumentError::kNameTaken,
        "there is a delegation " + Quoted(found->first) + " (id " + std::to_string(found->second) + ") already", name,
        found->first);
  }

  std::vector<PlannedChange> Deletions(const std::set<int>& kept, Prune prune) const {
    if (prune == Prune::kYes && kept.empty() && !state_.delegations.empty()) {
      throw Error(Error::kRefused, "the document has none of the stored delegations: all of them would be deleted");
    }
    std::vector<PlannedChange> deletions;
    for (const auto& [id, delegation] : state_.delegations) {
      if (kept.contains(id)) continue;
      PlannedChange& change = deletions.emplace_back(
          PlannedChange{PlannedChange::kDelete, id, delegation.name, {}, {}, {}, Json::arrayValue});
      change.document.append(id);
    }
    return deletions;
  }

  void RequireTab(const std::string& tab, const Json::Value& at) const {
    if (defaults_.isMember(tab)) return;
    throw DocumentError(DocumentError::kNoTab, "there is no tab " + Quoted(tab), at, tab);
  }

  // The data of all tabs, and the value that gives each its data; none for those that get their default.
  Json::Value TabData(const Json::Value& element, const Delegation& stored,
                      std::map<std::string, const Json::Value*>& from) const {
    Json::Value data = defaults_;
    if (!element.isMember("tabs") && !element.isMember("entries")) {
      for (const auto& [tab, text] : stored.entries) {
        if (defaults_.isMember(tab)) data[tab] = text;
      }
      return data;
    }
    for (const Json::Value& tab : element["tabs"]) {
      RequireTab(tab.asString(), tab);
      data[tab.asString()] = "true";
      from[tab.asString()] = &tab;
    }
    if (!element.isMember("entries")) return data;
    const Json::Value& entries = element["entries"];
    for (const std::string& tab : entries.getMemberNames()) {
      RequireTab(tab, entries[tab]);
      Require(from.emplace(tab, &entries[tab]).second, Quoted(tab) + " is in \"tabs\" and in \"entries\"",
              entries[tab]);
      data[tab] = entries[tab];
    }
    return data;
  }

  // Notes a field that changes; true if it does.
  static bool Note(PlannedChange& change, const std::string& field, Json::Value before, const Json::Value& after) {
    change.document[field] = after;
    if (before == after) return false;
    if (change.kind == PlannedChange::kCreate) before = Json::nullValue;
    change.fields.push_back({field, std::move(before), after});
    return true;
  }

  // The change that makes `stored` (null: a new delegation) what the element says.
  PlannedChange Compare(const Json::Value& element, const Delegation* stored) {
    static const Delegation kNew{-1, "", "none", 0, {}, {}, {}};
    const Delegation& before = stored ? *stored : kNew;
    const std::string name = element["name"].asString();
    PlannedChange change{stored ? PlannedChange::kUpdate : PlannedChange::kCreate,
                         before.id,
                         stored ? before.name : name,
                         {},
                         {},
                         {},
                         {}};
    if (stored) change.document["id"] = before.id;
    change.document["name"] = name;
    if (stored && name != before.name) change.fields.push_back({"name", before.name, name});
    if (name != before.name || !stored) RequireName(name, element["name"]);
    Note(change, "priority", before.priority, element.get("priority", before.priority).asInt());
    if (Note(change, "color", before.color, element.get("color", before.color))) {
      RequireStorable(element["color"].asString(), "color", element["color"]);
      Require(!element["color"].asString().empty(), "the color is empty", element["color"]);
    }
    std::map<std::string, const Json::Value*> from;
    const Json::Value data = TabData(element, before, from);
    for (const std::string& tab : tabs_) {
      const auto now = before.entries.find(tab);
      const std::string dataNow = now == before.entries.end() ? defaults_[tab].asString() : now->second;
      if (Note(change, tab, dataNow, data[tab]) && from.contains(tab)) {
        RequireStorable(data[tab].asString(), "data of " + tab, *from[tab]);
      }
    }
    NoteAssignees(element, before, change);
    return change;
  }

  void NoteAssignees(const Json::Value& element, const Delegation& before, PlannedChange& change) {
    Assignees users = CompareAssignees(kUsers, element, state_.users, before.users);
    Assignees groups = CompareAssignees(kGroups, element, state_.groups, before.groups);
    if (IsEmpty(users.change) && IsEmpty(groups.change)) return;
    for (const auto& [gid, name] : groups.after) {
      const bool added = !std::binary_search(before.groups.begin(), before.groups.end(), gid);
      addsKnownGroup_ = addsKnownGroup_ || (added && state_.groups.contains(gid));
    }
    Json::Value& everybody = change.document["user_group"] = Json::arrayValue;
    AppendAssignees(kUsers, users, state_.users, element, everybody);
    AppendAssignees(kGroups, groups, state_.groups, element, everybody);
    change.users = std::move(users.change);
    change.groups = std::move(groups.change);
  }

  const State& state_;
  std::vector<std::string> tabs_;
  Json::Value defaults_;
  std::map<const Json::Value*, const Delegation*> matches_;
  bool addsKnownGroup_ = false;
};

Json::Value AssigneesToJson(const AssigneeChange& change) {
  Json::Value document;
  document["added"] = ToJsonArray(change.added);
  document["removed"] = ToJsonArray(change.removed);
  return document;
}

}  // namespace

Json::Value Plan::ToJson() const {
  static constexpr const char* kActions[] = {"delete", "update", "create"};
  Json::Value array(Json::arrayValue);
  for (const PlannedChange& change : changes) {
    Json::Value& entry = array.append(Json::objectValue);
    entry["action"] = kActions[change.kind];
    entry["id"] = change.id == -1 ? Json::Value() : Json::Value(change.id);
    entry["name"] = change.name;
    entry["fields"] = Json::arrayValue;
    for (const FieldChange& field : change.fields) {
      Json::Value& out = entry["fields"].append(Json::objectValue);
      out["field"] = field.field;
      out["before"] = field.before;
      out["after"] = field.after;
    }
    entry["users"] = AssigneesToJson(change.users);
    entry["groups"] = AssigneesToJson(change.groups);
  }
  return array;
}

Plan MakePlan(const State& state, const Json::Value& document, Prune prune) {
  RequireForm(document);
  Planner planner(state, document);
  Plan plan;
  plan.changes = planner.Run(document["delegations"], prune);
  plan.basis = DocumentsById(state);
  plan.addsKnownGroup = planner.AddsKnownGroup();
  return plan;
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
