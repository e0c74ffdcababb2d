// The exported functions. Each is one numbered sequence of steps behind one fence: nothing throws to the caller, a
// write is one transaction, a read sees one state.
#include "api/delegation_api.h"

#include <algorithm>
#include <exception>
#include <set>
#include <utility>

#include "base/json.h"
#include "base/log.h"
#include "calculator/delegation_calculator.h"
#include "model/delegation_default_delegation.h"
#include "model/delegation_default_delegation_entry.h"
#include "model/delegation_delegation.h"
#include "model/delegation_delegation_entry.h"
#include "model/delegation_group.h"
#include "model/delegation_user.h"
#include "platform/nimbsdk.h"
#include "role/role_db_scope.h"
#include "role/role_util.h"
#include "storage/delegation_db_handler.h"
#include "tables/tab2webapi_table.h"

namespace NIMBO::QUAYPOST_SERVER {

namespace {

// ---- The fence, and what reads and writes run in ----

// Runs `body`; an exception becomes `failure`.
template <class Result, class Body>
Result Guarded(Result failure, Body body) noexcept {
  try {
    return body();
  } catch (const std::exception& exception) {
    LogError("exception: %s", exception.what());
  } catch (...) {
    LogError("unknown exception");
  }
  return failure;
}

template <class Body>
auto InReadScope(Body body, RoleDBScope::Kind kind = RoleDBScope::kRead) {
  const RoleDBScope scope(DelegationDBHandler::GetDelegationDBHandler(), kind);
  return body();
}

enum class Sweep { kNo, kYes };

enum class Outcome {
  kDone,        // stored
  kEndedEarly,  // bad input: what was written before it is stored
  kUndone,      // a failure of the environment: nothing is stored
};

// Runs `body` in one transaction. With `sweep` nobody keeps, behind it, what no assignment supports: also where body
// ended early.
template <class Body>
Outcome InWriteScope(Sweep sweep, Body body) {
  RoleDBScope scope(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kWrite);
  const bool begun = scope.Usable();
  const Outcome outcome = body() ? Outcome::kDone : Outcome::kEndedEarly;
  if (!begun) return outcome;  // there was no database: what needed one has failed and said so
  if (sweep == Sweep::kYes && !DelegationCalculator().RemoveUnsupported()) return Outcome::kUndone;
  if (scope.Commit()) return outcome;
  LogError("the change is undone");
  return Outcome::kUndone;
}

// Announces the database to the cluster, behind the commit. Inside a scope of the caller's there is nothing to announce
// yet: then it is the caller who does, once. An exception is a failed announcement: the change is stored all the same.
bool Announce() {
  return Guarded(false, [] {
    RoleDBHandler* pinned = nullptr;
    return RoleDBScope::Pinned(pinned) || DelegationCalculator().Trigger();
  });
}

// ---- Documents ----

// The entry members of a delegation document. `position` is the delegation's in the listing.
bool AddEntries(RoleRole& delegation, std::size_t position, Json::Value& document) {
  std::vector<std::shared_ptr<RoleRoleEntry>> entries;
  if (delegation.FindBelongPolicyEntries(entries) == kError) {
    return Fail("cannot get delegation [%lu]'s delegation entry", position);
  }
  for (const auto& entry : entries) {
    if (document.isMember(entry->getType())) return Fail("Why %s is duplicate?", entry->getType());
    document[entry->getType()] = entry->getData();
  }
  return true;
}

bool AssigneeNameAndType(const Json::Value& item, std::string& name, std::string& type) {
  return HasMember(item, "name") && HasMember(item, "type") && ReadString(item["name"], name) &&
         ReadString(item["type"], type);
}

// Asks the host about assignees before the database is locked to store them.
void PrefetchAssignees(const Json::Value& assignees) {
  if (!assignees.isArray()) return;
  for (const Json::Value& item : assignees) {
    std::string name;
    std::string type;
    if (!AssigneeNameAndType(item, name, type)) continue;
    DelegationGroup group;
    if (type == "user") {
      RoleUtilPrefetchUser(name);
    } else if (RoleGroup::FromTypeShortname(type, name, group) && !group.IsExist()) {
      RoleUtilPrefetchGroup(group.getGid());  // a known group keeps its stored members
    }
  }
}

void PrefetchAssigneesOf(const Json::Value& change) {
  if (HasMember(change, "user_group")) PrefetchAssignees(change["user_group"]);
}

// ---- Assignees ----

template <class Record>
using Records = std::vector<std::shared_ptr<Record>>;

// Two users are the same when uid and name are equal, two groups when gid and name are.
std::pair<unsigned int, std::string> IdentityOf(RoleUser& user) { return {user.getUid(), user.getUsername()}; }
std::pair<unsigned int, std::string> IdentityOf(RoleGroup& group) { return {group.getGid(), group.getGroupname()}; }

template <class Record>
auto IdentitiesOf(const Records<Record>& list) {
  std::set<std::pair<unsigned int, std::string>> identities;
  for (const auto& record : list) identities.insert(IdentityOf(*record));
  return identities;
}

// Those of `list` that are not in `other`, in order.
template <class Record>
Records<Record> Without(const Records<Record>& list, const Records<Record>& other) {
  const auto others = IdentitiesOf(other);
  Records<Record> rest;
  for (const auto& record : list) {
    if (!others.contains(IdentityOf(*record))) rest.push_back(record);
  }
  return rest;
}

bool SplitAssignees(const Json::Value& info, Json::Value& users, Json::Value& groups) {
  users = Json::arrayValue;
  groups = Json::arrayValue;
  if (!info.isArray()) return Fail("entryInfo is not array");
  for (Json::ArrayIndex i = 0; i < info.size(); ++i) {
    std::string type;
    if (!HasMember(info[i], "type") || !ReadString(info[i]["type"], type)) {
      return Fail("Delegation user fail have wront parameter [%lu]", static_cast<unsigned long>(i));
    }
    if (type == "user") {
      users.append(info[i]);
    } else if (type == "group") {
      groups.append(info[i]);
    } else {
      return Fail("wrong type %s", type);
    }
  }
  return true;
}

bool AssignUsers(DelegationCustomDelegation& delegation, const Json::Value& users) {
  if (!users.isArray()) return Fail("info is not array");
  Records<RoleUser> requested;
  for (Json::ArrayIndex i = 0; i < users.size(); ++i) {
    std::string name;
    std::string type;
    if (!AssigneeNameAndType(users[i], name, type)) {
      return Fail("Delegation user fail have wront parameter [%lu]", static_cast<unsigned long>(i));
    }
    if (type != "user") return Fail("userInfo has wrong paramter %s", type);
    auto user = std::make_shared<DelegationUser>();
    if (!RoleUser::FromShortUsername(name, *user)) return Fail("FromID fail");
    requested.push_back(user);
  }
  for (const auto& user : requested) {
    if (!user->IsValid()) return Fail("this user [%i, %s] is invalid", user->getUid(), user->getUsername());
    if (!user->IsExist() && !RoleUser::Create(*user)) {
      return Fail("this user [%i, %s] create fail", user->getUid(), user->getUsername());
    }
  }

  Records<RoleUser> current;
  if (delegation.FindBelongUsersNormal(current) == kError) {
    LogError("Found belong group fail");
    return Fail("Cannot get add/remove users");
  }
  auto removed = Without(current, requested);
  auto added = Without(requested, current);
  if (!removed.empty() && !delegation.UnassignPolicyToUserNormal(removed)) return Fail("unassign plicy to user fail");
  if (!added.empty() && !delegation.AssignPolicyToUserNormal(added)) return Fail("assign delegation to user fail");
  return true;
}

bool AssignGroups(DelegationCustomDelegation& delegation, const Json::Value& groups) {
  if (!groups.isArray()) return Fail("info is not array");
  Records<RoleGroup> requested;
  for (Json::ArrayIndex i = 0; i < groups.size(); ++i) {
    std::string name;
    std::string type;
    if (!AssigneeNameAndType(groups[i], name, type)) {
      return Fail("Wrong paramter %lu", static_cast<unsigned long>(i));
    }
    auto group = std::make_shared<DelegationGroup>();
    if (!RoleGroup::FromTypeShortname(type, name, *group)) return Fail("Delegation group json cannot convert to group");
    requested.push_back(group);
  }
  for (const auto& group : requested) {
    if (!group->IsValid()) return Fail("this group [%i, %s] is invalid", group->getGid(), group->getGroupname());
    if (group->IsExist()) continue;
    if (!RoleGroup::Create(*group)) return Fail("Delegation group Cannot create");
    Records<RoleUser> unused;  // the members come from the host
    if (!group->AssignGroupToUser(unused)) return Fail("Cannot assgin the user");
  }

  Records<RoleGroup> current;
  if (delegation.FindBelongGroups(current) == kError) {
    LogError("Found belong group fail");
    return Fail("Cannot get add/remove Groups");
  }
  auto removed = Without(current, requested);
  auto added = Without(requested, current);
  if (!removed.empty() && !delegation.UnassignPolicyToGroup(removed)) return Fail("unassign plicy to group fail");
  if (!added.empty() && !delegation.AssignPolicyToGroup(added)) return Fail("assign delegation to gorup fail");
  return true;
}

bool AssignAssignees(DelegationCustomDelegation& delegation, const Json::Value& assignees) {
  Json::Value users;
  Json::Value groups;
  if (!SplitAssignees(assignees, users, groups)) return Fail("Cannot get GetUserGroupTypeFromJsonArray");
  if (!AssignUsers(delegation, users)) return Fail("DelegationUserAssignDelegationV2 FAIL");
  if (!AssignGroups(delegation, groups)) return Fail("DelegationGroupAssignDelegationV2 FAIL");
  return true;
}

bool UsersOf(DelegationCustomDelegation& delegation, Records<RoleUser>& users) {
  Records<RoleUser> all;
  if (delegation.FindBelongUsersNormal(all) == kError) return Fail("FindBelongUsersNormal fail");
  Records<RoleGroup> groups;
  if (delegation.FindBelongGroups(groups) == kError) return Fail("FindBelongGroups fail");
  for (const auto& group : groups) {
    Records<RoleUser> members;
    if (group->FindBelongUsers(members) == kError) {
      return Fail("Cannot get the group [%i, %s] user", group->getGid(), group->getGroupname());
    }
    all.insert(all.end(), members.begin(), members.end());
  }
  return RoleUtilUniqueRoleUser(all, users) || Fail("Error RoleUtilUniqueRoleUser fail");
}

// ---- Changes ----

bool EntriesFromDocument(const Json::Value& in, Records<RoleRoleEntry>& entries) {
  std::vector<std::string> types;
  if (!DelegationDefaultDelegationEntry::ListDefaultType(types)) {
    return Fail("Cannot get the delegation entry list default type");
  }
  for (const std::string& type : types) {
    std::string data;
    if (!HasMember(in, type)) return Fail("Delegation Entry [%s] is not in this input", type);
    if (!ReadAsText(in[type], data)) return Fail("Delegation Entry [%s] has no usable value", type);
    entries.push_back(std::make_shared<DelegationDelegationEntry>(-1, type, data));
  }
  return true;
}

bool CreateDelegation(Json::Value& in, int& id) {
  DelegationCustomDelegation delegation;
  if (!RoleRole::FromJson(in, delegation)) return Fail("Delegation from Json fail");
  Records<RoleRoleEntry> entries;
  if (!EntriesFromDocument(in, entries)) return Fail("DelegationDelegationEntryFromDelegationJson is failed");
  if (!RoleRole::Create(delegation)) {
    return Fail("Delegation [%i, %s] cannot created", delegation.getPolicyIdx(), delegation.getName());
  }
  if (!delegation.SetPolicyEntry(entries)) return Fail("Set delegation entry fail");
  id = delegation.getPolicyIdx();

  if (!HasMember(in, "user_group")) return true;
  if (!AssignAssignees(delegation, in["user_group"])) return false;
  Records<RoleUser> users;
  if (!UsersOf(delegation, users)) return Fail("Cannot get delegation users");
  return DelegationCalculator().CalculateUser(users) || Fail("cannot calculcate user");
}

bool UpdateDelegation(Json::Value& in, Records<RoleUser>& affected) {
  DelegationCustomDelegation delegation;
  if (!RoleRole::FromJson(in, delegation)) return Fail("Delegation from Json fail");
  const int idx = delegation.getPolicyIdx();
  const std::string name = delegation.getName();
  if (!delegation.IsValid()) return Fail("Delegation [%i, %s] not valid", idx, name);
  if (!delegation.IsExist()) return Fail("Delegation [%i, %s] not exist", idx, name);
  if (!RoleRole::Update(delegation)) return Fail("Delegation [%i, %s] cannot update", idx, name);
  Records<RoleRoleEntry> entries;
  if (!EntriesFromDocument(in, entries)) return Fail("DelegationDelegationEntryFromDelegationJson is failed");
  if (!delegation.SetPolicyEntry(entries)) return Fail("Set delegation entry fail");

  Records<RoleUser> before;
  if (!UsersOf(delegation, before)) return Fail("Cannot get delegation users");
  if (!HasMember(in, "user_group")) {
    affected = before;
    return true;
  }
  if (!AssignAssignees(delegation, in["user_group"])) return false;
  Records<RoleUser> after;
  if (!UsersOf(delegation, after)) return Fail("Cannot get delegation users");
  before.insert(before.end(), after.begin(), after.end());
  return RoleUtilUniqueRoleUser(before, affected) || Fail("Error unique fail");
}

bool UpdateDelegations(Json::Value& in) {
  Records<RoleUser> affected;
  for (Json::Value& change : in) {
    Records<RoleUser> own;
    if (!UpdateDelegation(change, own)) return Fail("DelegationDelegationUpdateImpFromSingle error");
    affected.insert(affected.end(), own.begin(), own.end());
  }
  if (!RoleUtilUniqueRoleUser(affected, affected)) return Fail("RoleUtilUniqueRoleUser fail");
  return DelegationCalculator().CalculateUser(affected) || Fail("cannot calculcate user");
}

bool DeleteDelegation(const Json::Value& id, Records<RoleUser>& affected) {
  int idx = -1;
  std::shared_ptr<RoleRole> delegation;
  if (!ReadInt(id, idx) || !DelegationCustomDelegation::FromID(idx, delegation)) {
    return Fail("Delegation from Json fail");
  }
  if (!delegation->IsValid()) return Fail("Delegation is not valid");
  if (!delegation->IsExist()) return Fail("delegation not exist");
  Records<RoleUser> users;
  if (delegation->FindBelongUsersReal(users) == kError) {
    LogError("delegation.FindBelongUsersReal fail but continue");
  } else {
    affected.insert(affected.end(), users.begin(), users.end());
  }
  Records<RoleRole> alone{delegation};
  return RoleRole::DeleteChain(alone) || Fail("Delegation delete chain fail");
}

bool DeleteDelegations(const Json::Value& in, bool& recalculated) {
  Records<RoleUser> affected;
  for (const Json::Value& id : in) {
    if (!DeleteDelegation(id, affected)) return Fail("Delegation delete single fail");
  }
  recalculated = !affected.empty();
  return !recalculated || DelegationCalculator().CalculateUser(affected) || Fail("cannot calculcate user");
}

// ---- Access ----

// The tabs that are switched on for a user; none also when they could not be read.
bool EnabledTabs(const std::string& name, std::vector<std::string>& tabs) {
  const auto read = [&] {
    DelegationUser user;
    if (!RoleUser::FromShortUsername(name, user)) return Fail("Cannot get from %s", name);
    if (user.FindEnabledTypes(tabs) != kFound) tabs.clear();
    return true;
  };
  return InReadScope(read, RoleDBScope::kQuery);
}

}  // namespace

// ---- Listing ----

bool DelegationDelegationList(Json::Value filter, Json::Value& out) {
  const auto list = [&] {
    Records<RoleRole> delegations;
    if (!DelegationCustomDelegation::List(filter, delegations)) return Fail("delegation list fail");
    out = Json::arrayValue;
    for (std::size_t i = 0; i < delegations.size(); ++i) {
      Json::Value document;
      if (!RoleRole::ToJson(*delegations[i], document)) {
        return Fail("cannot convert [%i, %s]", delegations[i]->getPolicyIdx(), delegations[i]->getName());
      }
      if (!AddEntries(*delegations[i], i, document)) return false;
      out.append(document);
    }
    return true;
  };
  return Guarded(false, [&] { return InReadScope(list); });
}

bool DelegationDelegationEntryAllList(std::string type, Json::Value& out) {
  const auto list = [&] {
    Records<RoleRoleEntry> stored;
    if (!DelegationDelegationEntry::List(Json::nullValue, stored)) return Fail("DelegationDelegationEntry List fail");
    Records<RoleRoleEntry> defaults;
    if (!DelegationDefaultDelegationEntry::List(Json::nullValue, defaults)) {
      return Fail("DelegationDefaultDelegationEntry List fail");
    }
    std::set<std::string> values;
    for (const auto* entries : {&stored, &defaults}) {
      for (const auto& entry : *entries) {
        if (entry->getType() == type) values.insert(entry->getData());
      }
    }
    out = Json::arrayValue;
    for (const std::string& value : values) out.append(value);
    return true;
  };
  return Guarded(false, [&] { return InReadScope(list); });
}

bool DelegationDelegationDefaultEntriesGet(Json::Value& out) {
  return Guarded(false, [&] {
    out = Json::objectValue;
    Records<RoleRoleEntry> defaults;
    if (!DelegationDefaultDelegationEntry::List(Json::nullValue, defaults)) {
      return Fail("cannot get default delegation's delegation entry");
    }
    for (const auto& entry : defaults) {
      if (out.isMember(entry->getType())) return Fail("Why %s is duplicate?", entry->getType());
      out[entry->getType()] = entry->getData();
    }
    return true;
  });
}

bool DelegationDefaultDelegationEntryGet(std::string type, std::string& data) {
  return Guarded(false, [&] {
    Records<RoleRoleEntry> defaults;
    if (!DelegationDefaultDelegationEntry::List(Json::nullValue, defaults)) {
      return Fail("DelegationDefaultDelegationEntry List");
    }
    const auto found =
        std::find_if(defaults.begin(), defaults.end(), [&](const auto& entry) { return entry->getType() == type; });
    const std::string taken = found == defaults.end() ? "" : (*found)->getData();
    if (taken.empty()) return Fail("DelegationGlobalDelegationEntryList doesn't find anything, [%s]", type);
    data = taken;
    return true;
  });
}

// ---- Create, update, delete ----

bool DelegationDelegationCreate(Json::Value& in, int& id) {
  return Guarded(false, [&] {
    const NIMBOAccountScope accounts(NIMBOAccountScope::kRemember);
    PrefetchAssigneesOf(in);
    const bool assigns = HasMember(in, "user_group");
    int created = id;
    const Outcome outcome =
        InWriteScope(assigns ? Sweep::kYes : Sweep::kNo, [&] { return CreateDelegation(in, created); });
    if (outcome != Outcome::kUndone) id = created;
    if (outcome != Outcome::kDone) return false;
    return !assigns || Announce() || Fail("Trigger fail!!!");
  });
}

bool DelegationDelegationUpdateImpFromSingle(Json::Value& in, std::vector<std::shared_ptr<RoleUser>>& users) {
  return Guarded(false, [&] {
    const NIMBOAccountScope accounts(NIMBOAccountScope::kRemember);
    PrefetchAssigneesOf(in);
    return InWriteScope(Sweep::kYes, [&] { return UpdateDelegation(in, users); }) == Outcome::kDone;
  });
}

bool DelegationDelegationUpdate(Json::Value& in) {
  return Guarded(false, [&] {
    Json::Value changes = in;
    if (in.isObject()) {
      changes = Json::arrayValue;
      changes.append(in);
    }
    if (!changes.isArray()) return Fail("I'm error");
    const NIMBOAccountScope accounts(NIMBOAccountScope::kRemember);
    for (const Json::Value& change : changes) PrefetchAssigneesOf(change);
    if (InWriteScope(Sweep::kYes, [&] { return UpdateDelegations(changes); }) != Outcome::kDone) return false;
    return Announce() || Fail("Trigger fail!!!");
  });
}

bool DelegationDelegationDelete(Json::Value& in) {
  return Guarded(false, [&] {
    if (!in.isNull() && !in.isArray()) {
      LogError("Delegation from Json fail");
      return Fail("Delegation delete single fail");
    }
    if (in.empty()) return true;
    bool recalculated = false;
    const Outcome outcome = InWriteScope(Sweep::kYes, [&] { return DeleteDelegations(in, recalculated); });
    if (outcome != Outcome::kDone) return false;
    return !recalculated || Announce() || Fail("Trigger fail!!!");
  });
}

bool GetUserGroupTypeFromJsonArray(const Json::Value& info, Json::Value& users, Json::Value& groups) {
  return Guarded(false, [&] { return SplitAssignees(info, users, groups); });
}

bool DelegationDelegationEntryFromDelegationJson(const Json::Value& in,
                                                 std::vector<std::shared_ptr<RoleRoleEntry>>& entries) {
  return Guarded(false, [&] { return EntriesFromDocument(in, entries); });
}

bool DelegationUserAssignDelegationV2(DelegationCustomDelegation& delegation, const Json::Value& users) {
  return Guarded(false, [&] {
    const NIMBOAccountScope accounts(NIMBOAccountScope::kRemember);
    PrefetchAssignees(users);
    return InWriteScope(Sweep::kNo, [&] { return AssignUsers(delegation, users); }) == Outcome::kDone;
  });
}

bool DelegationGroupAssignDelegationV2(DelegationCustomDelegation& delegation, const Json::Value& groups) {
  return Guarded(false, [&] {
    const NIMBOAccountScope accounts(NIMBOAccountScope::kRemember);
    PrefetchAssignees(groups);
    return InWriteScope(Sweep::kNo, [&] { return AssignGroups(delegation, groups); }) == Outcome::kDone;
  });
}

bool GetDelegationUsers(DelegationCustomDelegation& delegation, std::vector<std::shared_ptr<RoleUser>>& users) {
  return Guarded(false, [&] { return InReadScope([&] { return UsersOf(delegation, users); }); });
}

// ---- Access ----

bool DelegationUserDelegationEntriesGet(std::string user, Json::Value& out) {
  return Guarded(false, [&] {
    out = Json::nullValue;
    std::vector<std::string> tabs;
    if (!EnabledTabs(user, tabs)) return false;
    Json::Value enabled = Json::arrayValue;
    for (const std::string& tab : tabs) enabled.append(tab);
    out["enable_tabs"] = std::move(enabled);
    return true;
  });
}

bool DelegationUserHasAllDomainDelegations(unsigned int uid) {
  const auto holdsOne = [&] {
    static const auto& kAllDomainTypes =
        *new std::set<std::string>{"all_domain_general", "all_domain_user_group", "all_domain_alias",
                                   "all_domain_autobcc", "all_domain_quota",      "all_domain_disclaimer"};
    DelegationUser user;
    if (!RoleUser::FromID(uid, user)) return Fail("Cannot get from uid[%u]", uid);
    std::vector<std::string> tabs;
    if (user.FindEnabledTypes(tabs) != kFound) return false;
    return std::any_of(tabs.begin(), tabs.end(), [](const auto& tab) { return kAllDomainTypes.contains(tab); });
  };
  return Guarded(false, [&] { return InReadScope(holdsOne); });
}

int DelegationUserAllowWebapi(std::string user, std::string webapi) {
  constexpr int kAllowed = 0;
  constexpr int kNotAllowed = 1;
  return Guarded(static_cast<int>(kError), [&]() -> int {
    const NIMBOAccountScope accounts(NIMBOAccountScope::kRemember);
    std::string fullName;
    if (!RoleUtilShortName2FullRealName(true, user, fullName)) {
      return FailLookup("convert name [%s] to fullname fail", user);
    }
    const int administrator = NBLIBGroupIsAdminGroupMem(fullName.c_str(), 0);
    if (administrator < 0) return FailLookup("found admin group fail");
    if (administrator == 1) return kAllowed;

    std::vector<std::string> tabs;
    if (!EnabledTabs(user, tabs)) return FailLookup("Cannot get the policy error");
    const auto* table = Tab2WebapiTable();
    if (!table) return FailLookup("Cannot DelegationTab2WebapiSetGet");
    tabs.insert(tabs.end(), {"_allow_webapi_", "personal"});
    bool allowed = false;
    for (const std::string& tab : tabs) {  // to the last: one unknown tab fails the whole check
      const auto methods = table->find(tab);
      if (methods == table->end()) return FailLookup("cannot find the tabs [%s]", tab);
      allowed = allowed || methods->second.contains(webapi);
    }
    return allowed ? kAllowed : kNotAllowed;
  });
}

bool DelegationRefresh() {
  return Guarded(false, [&] {
    const NIMBOAccountScope accounts(NIMBOAccountScope::kEnumerate);
    DelegationCalculator calculator;
    calculator.Prefetch();
    const auto refresh = [&] { return calculator.Refresh() || Fail("cannot refresh"); };
    if (InWriteScope(Sweep::kYes, refresh) != Outcome::kDone) return false;
    if (!Announce()) LogError("cannot trigger");
    return true;
  });
}

// ---- Users and groups ----

bool DelegationUserList(Json::Value filter, Json::Value& out) {
  const auto single = [](RoleUser& user, Json::Value& delegations) {
    Records<RoleRole> held;
    if (user.FindBelongPolicies(held) == kError) return Fail("findbelongdelegation fail");
    for (const auto& delegation : held) {
      Json::Value document;
      if (!RoleRole::ToJson(*delegation, document)) return Fail("Delegation tojson fail");
      delegations.append(document);
    }
    return true;
  };
  const auto list = [&] {
    Records<RoleUser> users;
    if (!DelegationUser::List(filter, users)) return Fail("User list fail");
    out = Json::nullValue;
    for (const auto& user : users) {
      Json::Value delegations = Json::arrayValue;
      if (!single(*user, delegations)) return Fail("DelegationUserSingleList fail");
      out[user->getUsername()] = Json::objectValue;
      out[user->getUsername()]["delegation"] = delegations;
    }
    return true;
  };
  return Guarded(false, [&] { return InReadScope(list); });
}

namespace {

bool sort_by_role_priority(const std::shared_ptr<RoleRole>& a, const std::shared_ptr<RoleRole>& b) {
  return a->getPriority() > b->getPriority();
}

bool ComposeDelegationGroupToJsonList(RoleRole& delegation, Json::Value& list) {
  Records<RoleGroup> groups;
  if (delegation.FindBelongGroups(groups) == kError) return Fail("Cannot found group");
  for (const auto& group : groups) {
    Json::Value document;
    if (!RoleGroup::ToJson(*group, document)) return Fail("Convert fail...");
    list.append(document);
  }
  return true;
}

bool ComposeDelegationUserToJsonList(RoleRole& delegation, Json::Value& list) {
  Records<RoleUser> users;
  if (delegation.FindBelongUsersNormal(users) == kError) return Fail("Cannot found user");
  for (const auto& user : users) {
    Json::Value document;
    if (!RoleUser::ToJson(*user, document)) return Fail("Convert fail...");
    document["type"] = "user";
    list.append(document);
  }
  return true;
}

}  // namespace

bool DelegationUserGroupDelegationInfoList(Json::Value filter, Json::Value& out) {
  const auto list = [&] {
    bool detail = false;
    if (HasMember(filter, "detail")) {
      const Json::Value& wanted = filter["detail"];
      if (!wanted.isBool()) return Fail("delegation list fail");
      detail = wanted.asBool();
    }
    Records<RoleRole> delegations;
    if (!DelegationCustomDelegation::List(filter, delegations)) return Fail("delegation list fail");
    std::stable_sort(delegations.begin(), delegations.end(), sort_by_role_priority);
    out = Json::arrayValue;
    for (std::size_t i = 0; i < delegations.size(); ++i) {
      Json::Value document;
      if (!RoleRole::ToJson(*delegations[i], document)) return Fail("Error cannot convert to json");
      if (!AddEntries(*delegations[i], i, document)) return false;
      if (detail) {
        Json::Value assignees = Json::arrayValue;
        if (!ComposeDelegationGroupToJsonList(*delegations[i], assignees)) {
          return Fail("ComposeDelegationGroupToJsonList fail");
        }
        if (!ComposeDelegationUserToJsonList(*delegations[i], assignees)) {
          return Fail("ComposeDelegationUserToJsonList fail");
        }
        document["user_group"] = assignees;
      }
      out.append(document);
    }
    return true;
  };
  return Guarded(false, [&] { return InReadScope(list); });
}

}  // namespace NIMBO::QUAYPOST_SERVER
