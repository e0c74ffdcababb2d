// The stored delegations as the tool shows and changes them.
#include "delegations.h"

#include <fmt/format.h>

#include <algorithm>

#include "api/delegation_api.h"
#include "errors.h"
#include "model/delegation_delegation.h"
#include "names.h"
#include "output.h"
#include "role/role_group.h"
#include "storage/delegation_db_handler.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

constexpr char kIdPrefix[] = "id:";

bool IsIdForm(const std::string& name) { return name.rfind(kIdPrefix, 0) == 0; }

Delegation FromDocument(const Json::Value& document, const Json::Value& defaults) {
  Delegation delegation;
  delegation.id = document["id"].asInt();
  delegation.name = document["name"].asString();
  delegation.color = document["color"].asString();
  delegation.priority = document["priority"].asInt();
  delegation.document = document;
  for (const std::string& tab : defaults.getMemberNames()) {
    const std::string data = document.get(tab, defaults[tab]).asString();
    delegation.document[tab] = data;  // a row may lack a tab that is newer than it, an update needs them all
    if (data == "true") {
      delegation.tabs.push_back(tab);
    } else if (data != defaults[tab].asString()) {
      delegation.entries[tab] = data;
    }
  }
  for (const Json::Value& assignee : document["user_group"]) {
    auto& names = assignee["type"].asString() == "user" ? delegation.users : delegation.groups;
    names.push_back(assignee["name"].asString());
  }
  return delegation;
}

}  // namespace

void Unreadable() { throw Exit(errors::kDatabase, "the delegation database cannot be read"); }

Snapshot::Snapshot() : scope_(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kRead) {
  if (!scope_.Usable()) {
    throw Exit(errors::kDatabase, "the delegation database cannot be opened");
  }
}

std::vector<Delegation> LoadDelegations() {
  Json::Value detail, documents, defaults;
  detail["detail"] = true;
  if (!DelegationUserGroupDelegationInfoList(detail, documents)) Unreadable();
  if (!DelegationDelegationDefaultEntriesGet(defaults)) Unreadable();
  std::vector<Delegation> delegations;
  for (const Json::Value& document : documents) delegations.push_back(FromDocument(document, defaults));
  std::sort(delegations.begin(), delegations.end(), [](const Delegation& a, const Delegation& b) {
    return a.priority != b.priority ? a.priority > b.priority : a.id < b.id;
  });
  return delegations;
}

void LoadInEffect(Delegation& delegation) {
  std::shared_ptr<RoleRole> record;
  std::vector<std::shared_ptr<RoleUser>> users;
  if (!DelegationCustomDelegation::FromID(delegation.id, record) || record->FindBelongUsersReal(users) == -1) {
    Unreadable();
  }
  for (const auto& user : users) delegation.inEffect[user->getUid()] = user->getUsername();
}

Held LoadHeld(RoleUser& user) {
  Held held;
  std::vector<std::shared_ptr<RoleGroup>> groups;
  if (user.FindBelongPolicies(held.direct) == -1 || user.FindBelongGroups(groups) == -1) Unreadable();
  for (const auto& group : groups) {
    if (group->FindBelongPolicies(held.byGroup[group->getGroupname()]) == -1) Unreadable();
  }
  return held;
}

void RequireReadableEffect(DelegationUser& user) {
  std::vector<std::shared_ptr<RoleRoleEntry>> entries;
  if (user.FindRealBelongPolicyEntries(entries) == -1) Unreadable();
}

const Delegation& FindDelegation(const std::vector<Delegation>& delegations, const std::string& name) {
  std::vector<const Delegation*> found;
  std::vector<std::string> names, ids;
  const bool byId = IsIdForm(name);
  const int id = byId ? ParseNumber(name.substr(sizeof kIdPrefix - 1), "the delegation's id") : -1;
  for (const Delegation& delegation : delegations) {
    names.push_back(delegation.name);
    if (byId ? delegation.id != id : delegation.name != name) continue;
    found.push_back(&delegation);
    ids.push_back(fmt::format("{}{}", kIdPrefix, delegation.id));
  }
  if (found.empty()) {
    std::string remedy = DidYouMean(name, names);
    throw Exit(errors::kNoDelegation, fmt::format("there is no delegation {}", Quoted(name)),
               remedy.empty() ? "delegationctl list shows them" : remedy);
  }
  if (found.size() > 1) {
    throw Exit(errors::kAmbiguous, fmt::format("{} delegations are called {}", found.size(), Quoted(name)),
               fmt::format("say which one: {}", Joined(ids)));
  }
  return *found.front();
}

void RequireFreeName(const std::vector<Delegation>& delegations, const std::string& name, int id) {
  RequireStorable(name, "name");
  if (IsIdForm(name)) throw Exit(errors::kBadUsage, fmt::format("a delegation cannot be called {}", Quoted(name)));
  for (const Delegation& delegation : delegations) {
    if (delegation.name == name && delegation.id != id) {
      throw Exit(errors::kNameTaken, fmt::format("there is a delegation {} already", Described(delegation)),
                 "choose another name, or see it with delegationctl show");
    }
  }
}

Json::Value ToJson(const Delegation& delegation) {
  Json::Value out = Reference(delegation.id, delegation.name);
  out["color"] = delegation.color;
  out["priority"] = delegation.priority;
  out["tabs"] = JsonArray(delegation.tabs);
  out["entries"] = Json::objectValue;
  for (const auto& [tab, data] : delegation.entries) out["entries"][tab] = data;
  out["users"] = JsonArray(delegation.users);
  out["groups"] = JsonArray(delegation.groups);
  out["in_effect"] = Json::arrayValue;
  for (const auto& [uid, user] : delegation.inEffect) out["in_effect"].append(user);
  return out;
}

Json::Value Reference(int id, const std::string& name) {
  Json::Value out;
  out["id"] = id;
  out["name"] = name;
  return out;
}

std::string Described(const Delegation& delegation) {
  return fmt::format("{} (id {})", Quoted(delegation.name), delegation.id);
}

}  // namespace delegationctl
