// SQL of the group rows and their members.
#include "handlers/delegation_db_group.h"

#include "handlers/table_handler.h"
#include "storage/delegation_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER {

DelegationGroupDBHandler::DelegationGroupDBHandler() = default;
DelegationGroupDBHandler::~DelegationGroupDBHandler() = default;

RoleDBHandler* DelegationGroupDBHandler::getRoleDBHandler() { return DelegationDBHandler::GetDelegationDBHandler(); }

bool DelegationGroupDBHandler::IsExist(RoleGroup& group) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  return db && ReadsOne(*db, Sql("select EXISTS (select 1 FROM %q WHERE gid='%q' LIMIT 1);", "group_table",
                                 Decimal(group.getGid())));
}

bool DelegationGroupDBHandler::Create(RoleGroup& group) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  return Run(*db, Sql("insert into  %q (gid, groupname) values ('%q', '%q');", "group_table", Decimal(group.getGid()),
                      group.getGroupname())) ||
         Fail("fail to insert group_table");
}

bool DelegationGroupDBHandler::Update(RoleGroup& group) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (!group.IsValid()) return Fail("group is not valid");
  return Run(*db, Sql("replace into  %q (gid, groupname) values ('%q', '%q');", "group_table", Decimal(group.getGid()),
                      group.getGroupname())) ||
         Fail("fail to insert record to user_table");
}

bool DelegationGroupDBHandler::Delete(RoleGroup& group) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  return Run(*db, Sql("DELETE FROM %q WHERE gid='%q';", "group_table", Decimal(group.getGid()))) ||
         Fail("fail to delete to user_table");
}

bool DelegationGroupDBHandler::Delete(std::vector<std::shared_ptr<RoleGroup>>& groups) {
  for (const auto& group : groups) {
    if (!Delete(*group)) return Fail("Cannot delete");
  }
  return true;
}

bool DelegationGroupDBHandler::RemoveOldLinks(RoleGroup& group) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  RoleSQLCmd cmds;
  for (const char* table : {"group2delegation_table", "user2group_table"}) {
    cmds.Add(Sql("DELETE FROM %q WHERE gid='%q'", table, Decimal(group.getGid())));
  }
  return Run(*db, cmds) || Fail("cannot remove old links of group [%i, %s]", group.getGid(), group.getGroupname());
}

bool DelegationGroupDBHandler::AssignGroupToUser(RoleGroup& group, std::vector<std::shared_ptr<RoleUser>>& users) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (!group.IsValid()) return Fail("Wrong parameter");
  RoleSQLCmd cmds;
  for (const auto& user : users) {
    cmds.Add(Sql("insert or replace into  %q (uid, gid) values ('%q', '%q');", "user2group_table",
                 Decimal(user->getUid()), Decimal(group.getGid())));
  }
  return Run(*db, cmds) || Fail("fail to delete to delegation_table");
}

bool DelegationGroupDBHandler::UnassignGroupToUser(RoleGroup& group, std::vector<std::shared_ptr<RoleUser>>& users) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (!group.IsValid()) return Fail("Group is not valid");
  RoleSQLCmd cmds;
  for (const auto& user : users) {
    if (!user->IsValid()) {
      LogError("Error uses is invalid");
      continue;
    }
    cmds.Add(Sql("DELETE FROM %q WHERE uid='%q' and gid='%q'", "user2group_table", Decimal(user->getUid()),
                 Decimal(group.getGid())));
  }
  return Run(*db, cmds) || Fail("fail to delete to delegation_table");
}

int DelegationGroupDBHandler::IsNeedRemoveGroup(RoleGroup&) { return 1; }

bool DelegationGroupDBHandler::GetNeedRemoveGroup(std::vector<std::shared_ptr<RoleGroup>>& groups,
                                                  std::vector<std::shared_ptr<RoleGroup>>& removable) {
  removable.clear();
  for (std::size_t i = 0; i < groups.size(); ++i) {
    if (!groups[i]->IsValid()) {
      LogError("we have invalid group in %lu", i);
      continue;
    }
    const int needRemove = IsNeedRemoveGroup(*groups[i]);
    if (needRemove == kError) LogError("Error occur..");
    if (needRemove == 1) removable.push_back(groups[i]);
  }
  return true;
}

bool DelegationGroupDBHandler::List(Json::Value, std::vector<std::shared_ptr<RoleGroup>>& out) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  Query rows(*db, "select * from group_table");
  while (rows.Next()) {
    auto group = ReadGroup(rows, 0);
    if (!group) return Fail("convert gid error");
    if (!group->IsValid()) return Fail("gid grupname is invalid");
    out.push_back(group);
  }
  return rows.Done();
}

int DelegationGroupDBHandler::FindBelongUsers(RoleGroup& group, std::vector<std::shared_ptr<RoleUser>>& users) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return kError;
  if (!group.IsValid()) return FailLookup("group fail");
  Query rows(*db, "select * from group2user_view WHERE gid = '" + Decimal(group.getGid()) + "' ORDER BY uid ASC");
  while (rows.Next()) {
    auto user = ReadUser(rows, 1);
    if (!user) return FailLookup("convert data error");
    if (user->IsValid()) users.push_back(user);
  }
  return rows.Done() ? FoundIn(users) : kError;
}

bool DelegationGroupDBHandler::ListMemberships(RoleGroup& group, std::vector<Membership>& memberships) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  Query rows(*db,
             "select user2group_table.rowid, user2group_table.uid, user_table.username from user2group_table left join "
             "user_table on user2group_table.uid = user_table.uid WHERE gid = '" +
                 Decimal(group.getGid()) + "'");
  while (rows.Next()) {
    const auto row = rows.Int<long long>(0);
    const auto uid = rows.Int<unsigned int>(1);
    if (!row || !uid) return Fail("convert data error");
    memberships.push_back({*row, *uid, rows.Text(2)});
  }
  return rows.Done();
}

int DelegationGroupDBHandler::FindBelongPolicies(RoleGroup& group, std::vector<std::shared_ptr<RoleRole>>& policies) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return kError;
  if (!group.IsValid()) return FailLookup("group fail");
  Query rows(
      *db, "select * from group2delegation_view WHERE gid = '" + Decimal(group.getGid()) + "' ORDER BY priority DESC");
  while (rows.Next()) {
    auto policy = ReadDelegation(rows, 1);
    if (!policy) return FailLookup("convert data error");
    if (policy->IsValid()) policies.push_back(policy);
  }
  return rows.Done() ? FoundIn(policies) : kError;
}

}  // namespace NIMBO::QUAYPOST_SERVER
