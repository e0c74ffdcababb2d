// SQL of the user rows.
#include "handlers/delegation_db_user.h"

#include "handlers/table_handler.h"
#include "storage/delegation_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER {

DelegationUserDBHandler::DelegationUserDBHandler() = default;
DelegationUserDBHandler::~DelegationUserDBHandler() = default;

RoleDBHandler* DelegationUserDBHandler::getRoleDBHandler() { return DelegationDBHandler::GetDelegationDBHandler(); }

bool DelegationUserDBHandler::IsExist(RoleUser& user) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  return db && ReadsOne(*db, Sql("select EXISTS (select 1 FROM %q WHERE uid='%q' LIMIT 1)", "user_table",
                                 Decimal(user.getUid())));
}

bool DelegationUserDBHandler::Create(RoleUser& user) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  return Run(*db, Sql("insert into  %q (uid, username) values ('%q', '%q');", "user_table", Decimal(user.getUid()),
                      user.getUsername())) ||
         Fail("fail to insert user_table");
}

bool DelegationUserDBHandler::Update(RoleUser& user) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (!user.IsValid()) return Fail("user is not valid");
  return Run(*db, Sql("replace into  %q (uid, username) values ('%q', '%q');", "user_table", Decimal(user.getUid()),
                      user.getUsername())) ||
         Fail("fail to insert record to user_table");
}

bool DelegationUserDBHandler::Delete(std::vector<std::shared_ptr<RoleUser>>& users) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  RoleSQLCmd cmds;
  for (const auto& user : users) {
    cmds.Add(Sql("DELETE FROM %q WHERE uid='%q'", "user_table", Decimal(user->getUid())));
  }
  return Run(*db, cmds) || Fail("fail to delete to user_table");
}

bool DelegationUserDBHandler::RemoveOldLinks(RoleUser& user) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  RoleSQLCmd cmds;
  for (const char* table : {"user2delegation_table", "user2group_table"}) {
    cmds.Add(Sql("DELETE FROM %q WHERE uid='%q'", table, Decimal(user.getUid())));
  }
  return Run(*db, cmds) || Fail("cannot remove old links of user [%i, %s]", user.getUid(), user.getUsername());
}

bool DelegationUserDBHandler::_IsNeedRemoveUser(RoleUser& user, bool& needRemove) {
  needRemove = false;
  if (!user.IsExist()) return true;

  std::vector<std::shared_ptr<RoleRole>> policies;
  const int direct = FindBelongPolicies(user, policies);
  if (direct == kError) return Fail("FindBelongPolicies error");
  if (direct == kFound) return true;

  std::vector<std::shared_ptr<RoleGroup>> groups;
  if (FindBelongGroups(user, groups) == kError) return Fail("FindBelongGroups fail");
  needRemove = groups.empty();
  return true;
}

bool DelegationUserDBHandler::GetNeedRemoveUser(std::vector<std::shared_ptr<RoleUser>>& users,
                                                std::vector<std::shared_ptr<RoleUser>>& removable) {
  removable.clear();
  for (std::size_t i = 0; i < users.size(); ++i) {
    if (!users[i]->IsValid()) {
      LogError("we have invalid user in %lu", i);
      continue;
    }
    bool needRemove = false;
    if (!_IsNeedRemoveUser(*users[i], needRemove)) return Fail("_IsNeedRemoveUser has error");
    if (needRemove) removable.push_back(users[i]);
  }
  return true;
}

bool DelegationUserDBHandler::List(Json::Value, std::vector<std::shared_ptr<RoleUser>>& out) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  Query rows(*db, "select * from user_table");
  while (rows.Next()) {
    auto user = ReadUser(rows, 0);
    if (!user) return Fail("convert uid error");
    out.push_back(user);
  }
  return rows.Done();
}

int DelegationUserDBHandler::FindBelongGroups(RoleUser& user, std::vector<std::shared_ptr<RoleGroup>>& groups) {
  if (!user.IsValid()) return FailLookup("user is invalid");
  groups.clear();
  return _FindBelongGroupsImp(user, groups);
}

int DelegationUserDBHandler::_FindBelongGroupsImp(RoleUser& user, std::vector<std::shared_ptr<RoleGroup>>& groups) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return kError;
  Query rows(*db, "select * from user2group_view WHERE uid = '" + Decimal(user.getUid()) + "'");
  while (rows.Next()) {
    auto group = ReadGroup(rows, 1);
    if (!group) return FailLookup("convert uid error");
    if (group->IsValid()) groups.push_back(group);
  }
  return rows.Done() ? FoundIn(groups) : kError;
}

int DelegationUserDBHandler::FindBelongPolicies(RoleUser& user, std::vector<std::shared_ptr<RoleRole>>& policies) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return kError;
  if (!user.IsValid()) return FailLookup("pDelegation fail");
  Query rows(*db,
             "select * from user2delegation_view WHERE uid = '" + Decimal(user.getUid()) + "'  ORDER BY priority DESC");
  while (rows.Next()) {
    auto policy = ReadDelegation(rows, 1);
    if (!policy) return FailLookup("convert data error");
    if (policy->IsValid()) policies.push_back(policy);
  }
  return rows.Done() ? FoundIn(policies) : kError;
}

int DelegationUserDBHandler::FindRealBelongPolicies(RoleUser& user, std::vector<std::shared_ptr<RoleRole>>& policies) {
  const int read = VisitRealBelongPolicies(user, [&](const auto& policy) { policies.push_back(policy); });
  return read == kError ? kError : FoundIn(policies);
}

int DelegationUserDBHandler::VisitRealBelongPolicies(
    RoleUser& user, const std::function<void(const std::shared_ptr<RoleRole>&)>& visit) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return kError;
  if (!user.IsValid()) return FailLookup("pDelegation fail");
  Query rows(*db,
             "select user2delegation_real_table.uid, delegation_table.delegationidx, delegation_table.name, "
             "delegation_table.color, delegation_table.priority from user2delegation_real_table inner join "
             "delegation_table on user2delegation_real_table.delegationidx = delegation_table.delegationidx and "
             "user2delegation_real_table.uid = " +
                 Decimal(user.getUid()));
  bool visited = false;
  while (rows.Next()) {
    const auto policy = ReadDelegation(rows, 1);
    if (!policy) return FailLookup("convert data error");
    if (!policy->IsValid()) continue;
    visit(policy);
    visited = true;
  }
  if (!rows.Done()) return kError;
  return visited ? kFound : kNothing;
}

}  // namespace NIMBO::QUAYPOST_SERVER
