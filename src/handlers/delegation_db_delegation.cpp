// SQL of the delegation rows and of their links to users, groups and entries.
#include "handlers/delegation_db_delegation.h"

#include "handlers/table_handler.h"
#include "storage/delegation_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER {

namespace {
constexpr const char* kRealTable = "user2delegation_real_table";
}

DelegationDelegationDBHandler::DelegationDelegationDBHandler() = default;
DelegationDelegationDBHandler::~DelegationDelegationDBHandler() = default;

RoleDBHandler* DelegationDelegationDBHandler::getRoleDBHandler() {
  return DelegationDBHandler::GetDelegationDBHandler();
}

// ---- Delegation rows ----

bool DelegationDelegationDBHandler::IsExist(RoleRole& role) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  return db && ReadsOne(*db, Sql("select EXISTS (select 1 FROM %q WHERE delegationidx='%q' LIMIT 1)",
                                 "delegation_table", Decimal(role.getPolicyIdx())));
}

bool DelegationDelegationDBHandler::Create(RoleRole& role) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (role.getPolicyIdx() != -1) {
    return Fail("Delegation has setting before (%i, %s, %s, %i)", role.getPolicyIdx(), role.getName(), role.getColor(),
                role.getPriority());
  }
  if (!Run(*db, Sql("insert into  %q (delegationidx, name, color, priority) values (NULL, '%q', '%q', '%i');",
                    "delegation_table", role.getName(), role.getColor(), role.getPriority()))) {
    return Fail("fail to insert delegation_table");
  }
  int idx = -1;
  if (!_GetLastestPolicyIdx(idx)) return Fail("fail to insert delegation_table");
  role.policyIdx(idx);
  return true;
}

bool DelegationDelegationDBHandler::_GetLastestPolicyIdx(int& idx) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  Query rows(*db, "select max(delegationidx) from delegation_table");
  while (rows.Next()) {
    const auto highest = rows.Int<int>(0);
    if (!highest) return Fail("convert policy index error");
    idx = *highest;
  }
  return rows.Done();
}

bool DelegationDelegationDBHandler::Update(RoleRole& role) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (!role.IsValid()) {
    return Fail("Delegation haven't setting before (%i, %s, %s, %i)", role.getPolicyIdx(), role.getName(),
                role.getColor(), role.getPriority());
  }
  return Run(*db, Sql("replace into  %q (delegationidx, name, color, priority) values ('%q', '%q', '%q', '%i');",
                      "delegation_table", Decimal(role.getPolicyIdx()), role.getName(), role.getColor(),
                      role.getPriority())) ||
         Fail("fail to insert record to user_table");
}

bool DelegationDelegationDBHandler::Delete(RoleRole& role) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  return Run(*db, Sql("DELETE FROM %q WHERE delegationidx='%q'", "delegation_table", Decimal(role.getPolicyIdx()))) ||
         Fail("fail to delete to delegation_table");
}

bool DelegationDelegationDBHandler::Delete(std::vector<std::shared_ptr<RoleRole>>& roles) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  RoleSQLCmd cmds;
  for (const auto& role : roles) {
    cmds.Add(Sql("DELETE FROM %q WHERE delegationidx='%q'", "delegation_table", Decimal(role->getPolicyIdx())));
  }
  return Run(*db, cmds) || Fail("fail to delete to delegation_table");
}

bool DelegationDelegationDBHandler::RemoveOldLinks(RoleRole& role) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  RoleSQLCmd cmds;
  for (const char* table : {"user2delegation_table", "user2delegation_real_table", "group2delegation_table",
                            "delegation2delegation_entry_table"}) {
    cmds.Add(Sql("DELETE FROM %q WHERE delegationidx='%q'", table, Decimal(role.getPolicyIdx())));
  }
  return Run(*db, cmds) || Fail("cannot remove old links of delegation [%i, %s]", role.getPolicyIdx(), role.getName());
}

bool DelegationDelegationDBHandler::List(Json::Value, std::vector<std::shared_ptr<RoleRole>>& out) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  out.clear();
  Query rows(*db, "select * from delegation_table");
  while (rows.Next()) {
    auto delegation = ReadDelegation(rows, 0);
    if (!delegation) return Fail("convert data error");
    out.push_back(delegation);
  }
  return rows.Done();
}

// ---- Users ----

bool DelegationDelegationDBHandler::AssignPolicyToUserNormal(RoleRole& role,
                                                             std::vector<std::shared_ptr<RoleUser>>& users) {
  if (!role.IsValid()) return Fail("Wrong parameter");
  return _AssignPolicyToUserImp(role, users, "user2delegation_table");
}

bool DelegationDelegationDBHandler::AssignPolicyToUserReal(RoleRole& role,
                                                           std::vector<std::shared_ptr<RoleUser>>& users) {
  if (!role.IsValid()) return Fail("Wrong parameter");
  return _AssignPolicyToUserImp(role, users, kRealTable);
}

bool DelegationDelegationDBHandler::_AssignPolicyToUserImp(RoleRole& role,
                                                           std::vector<std::shared_ptr<RoleUser>>& users,
                                                           std::string table) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  const std::string idx = Decimal(role.getPolicyIdx());
  RoleSQLCmd cmds;
  for (const auto& user : users) {
    const std::string uid = Decimal(user->getUid());
    // A user has one row in the table of effective ones: who holds the delegation already keeps it as it is.
    if (table == kRealTable &&
        ReadsOne(*db, Sql("select EXISTS (select 1 FROM %q WHERE uid='%q' and delegationidx='%q')", table, uid, idx))) {
      continue;
    }
    cmds.Add(Sql("insert or replace into  %q (uid, delegationidx) values ('%q', '%q');", table, uid, idx));
  }
  return Run(*db, cmds) || Fail("fail to delete to delegation_table");
}

bool DelegationDelegationDBHandler::UnassignPolicyToUserNormal(RoleRole& role,
                                                               std::vector<std::shared_ptr<RoleUser>>& users) {
  if (!role.IsValid()) return Fail("delegation is not valid");
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  RoleSQLCmd cmds;
  for (const auto& user : users) {
    if (!user->IsValid()) {
      LogError("Error uses is invalid");
      continue;
    }
    cmds.Add(Sql("DELETE FROM %q WHERE uid='%q' and delegationidx='%i';", "user2delegation_table",
                 Decimal(user->getUid()), role.getPolicyIdx()));
  }
  return Run(*db, cmds) || Fail("fail to delete to delegation_table");
}

bool DelegationDelegationDBHandler::UnassignPolicyToUserReal(RoleRole& role,
                                                             std::vector<std::shared_ptr<RoleUser>>& users) {
  if (!role.IsValid()) return Fail("delegation is not valid");
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  RoleSQLCmd cmds;
  for (const auto& user : users) {
    if (!user->IsValid()) {
      LogError("Error uses is invalid");
      continue;
    }
    cmds.Add(Sql("DELETE FROM %q WHERE uid='%q'", kRealTable, Decimal(user->getUid())));
  }
  return Run(*db, cmds) || Fail("fail to delete to delegation_table");
}

bool DelegationDelegationDBHandler::RemoveUnsupportedReal() {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  return Run(*db,
             "DELETE FROM user2delegation_real_table WHERE uid not in (select uid from user_table) or (not exists "
             "(select 1 from user2delegation_view as direct where direct.uid = user2delegation_real_table.uid and "
             "direct.delegationidx = user2delegation_real_table.delegationidx) and not exists (select 1 from "
             "user2group_view as member inner join group2delegation_view as inherited on member.gid = inherited.gid "
             "where member.uid = user2delegation_real_table.uid and inherited.delegationidx = "
             "user2delegation_real_table.delegationidx))") ||
         Fail("cannot remove unsupported rows of user2delegation_real_table");
}

bool DelegationDelegationDBHandler::FindBelongUsersNormal(RoleRole& role,
                                                          std::vector<std::shared_ptr<RoleUser>>& users) {
  return _FindBelongUsersImp(role, users, "delegation2user_view");
}

bool DelegationDelegationDBHandler::FindBelongUsersReal(RoleRole& role, std::vector<std::shared_ptr<RoleUser>>& users) {
  return _FindBelongUsersImp(role, users, "delegation2user_real_view");
}

bool DelegationDelegationDBHandler::_FindBelongUsersImp(RoleRole& role, std::vector<std::shared_ptr<RoleUser>>& users,
                                                        std::string view) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (!role.IsValid()) return Fail("delegation not valid");
  users.clear();
  Query rows(
      *db, "select * from " + view + " WHERE delegationidx = '" + Decimal(role.getPolicyIdx()) + "'  ORDER BY uid ASC");
  while (rows.Next()) {
    auto user = ReadUser(rows, 1);
    if (!user) return Fail("convert data error");
    if (user->IsValid()) users.push_back(user);
  }
  return rows.Done();
}

// ---- Groups ----

bool DelegationDelegationDBHandler::_ComposeAssignPolicyToGroupSQL(RoleRole& role, RoleGroup& group, RoleSQLCmd& cmds) {
  cmds.Add(Sql("insert or replace into  %q (gid, delegationidx) values ('%q', '%q');", "group2delegation_table",
               Decimal(group.getGid()), Decimal(role.getPolicyIdx())));
  return true;
}

bool DelegationDelegationDBHandler::_ComposeUnassignPolicyToGroupSQL(RoleRole& role, RoleGroup& group,
                                                                     RoleSQLCmd& cmds) {
  if (!group.IsValid()) {
    LogError("Error uses is invalid");
    return true;
  }
  cmds.Add(Sql("DELETE FROM %q WHERE delegationidx='%q' and gid='%q'", "group2delegation_table",
               Decimal(role.getPolicyIdx()), Decimal(group.getGid())));
  return true;
}

bool DelegationDelegationDBHandler::AssignPolicyToGroup(RoleRole& role, RoleGroup& group) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (!role.IsValid()) return Fail("Wrong parameter");
  RoleSQLCmd cmds;
  if (!_ComposeAssignPolicyToGroupSQL(role, group, cmds)) {
    return Fail("_ComposeAssignPolicyToGroupSQL error [%i %s]", group.getGid(), group.getGroupname());
  }
  return Run(*db, cmds) || Fail("fail to delete to delegation_table");
}

bool DelegationDelegationDBHandler::AssignPolicyToGroup(RoleRole& role,
                                                        std::vector<std::shared_ptr<RoleGroup>>& groups) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (!role.IsValid()) return Fail("Wrong parameter");
  RoleSQLCmd cmds;
  for (const auto& group : groups) {
    if (!_ComposeAssignPolicyToGroupSQL(role, *group, cmds)) {
      return Fail("_ComposeAssignPolicyToGroupSQL error [%i %s]", group->getGid(), group->getGroupname());
    }
  }
  return Run(*db, cmds) || Fail("fail to delete to delegation_table");
}

bool DelegationDelegationDBHandler::UnassignPolicyToGroup(RoleRole& role, RoleGroup& group) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (!role.IsValid()) return Fail("delegation is not valid");
  RoleSQLCmd cmds;
  if (!_ComposeUnassignPolicyToGroupSQL(role, group, cmds)) {
    return Fail("Cannot compose unassign delegation to group sql");
  }
  return Run(*db, cmds) || Fail("fail to delete to delegation_table");
}

bool DelegationDelegationDBHandler::UnassignPolicyToGroup(RoleRole& role,
                                                          std::vector<std::shared_ptr<RoleGroup>>& groups) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (!role.IsValid()) return Fail("delegation is not valid");
  RoleSQLCmd cmds;
  for (const auto& group : groups) {
    if (!_ComposeUnassignPolicyToGroupSQL(role, *group, cmds)) {
      return Fail("Cannot compose unassign delegation to group sql");
    }
  }
  return Run(*db, cmds) || Fail("fail to delete to delegation_table");
}

bool DelegationDelegationDBHandler::FindBelongGroups(RoleRole& role, std::vector<std::shared_ptr<RoleGroup>>& groups) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (!role.IsValid()) return Fail("delegation not valid");
  groups.clear();
  Query rows(*db, "select * from delegation2group_view WHERE delegationidx = '" + Decimal(role.getPolicyIdx()) +
                      "'  ORDER BY gid ASC");
  while (rows.Next()) {
    auto group = ReadGroup(rows, 1);
    if (!group) return Fail("convert data error");
    if (group->IsValid()) groups.push_back(group);
  }
  return rows.Done();
}

// ---- Entries ----

bool DelegationDelegationDBHandler::AssignPolicyEntryToPolicy(RoleRole& role,
                                                              std::vector<std::shared_ptr<RoleRoleEntry>>& entries) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (!role.IsValid()) return Fail("Wrong parameter");
  RoleSQLCmd cmds;
  cmds.Add(Sql("DELETE FROM %q WHERE delegationidx='%q'", "delegation2delegation_entry_table",
               Decimal(role.getPolicyIdx())));
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (!entries[i]->IsExist()) {
      LogError("Delegation Entries [%lu] not exist, so skip it", i);
    } else if (!entries[i]->IsValid()) {
      LogError("Delegation Entries [%lu] not valid, so skip it", i);
    } else {
      cmds.Add(Sql("insert or replace into  %q (delegationidx, delegationentryidx) values ('%q', '%q');",
                   "delegation2delegation_entry_table", Decimal(role.getPolicyIdx()),
                   Decimal(entries[i]->getPolicyEntryIdx())));
    }
  }
  return Run(*db, cmds) || Fail("fail to delete to delegation_table");
}

bool DelegationDelegationDBHandler::UnassignPolicyToPolicyEntries(
    RoleRole& role, std::vector<std::shared_ptr<RoleRoleEntry>>& entries) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (!role.IsValid()) return Fail("delegation is not valid");
  RoleSQLCmd cmds;
  for (const auto& entry : entries) {
    if (!entry->IsValid()) {
      LogError("Error delegation entry is invalid");
      continue;
    }
    cmds.Add(Sql("DELETE FROM %q WHERE delegationentryidx='%q' and delegationidx='%q'",
                 "delegation2delegation_entry_table", Decimal(entry->getPolicyEntryIdx()),
                 Decimal(role.getPolicyIdx())));
  }
  return Run(*db, cmds) || Fail("fail to delete to delegation_table");
}

namespace {

std::string EntriesOf(RoleRole& role) {
  return "select * from delegation2delegation_entry_view WHERE delegationidx = '" + Decimal(role.getPolicyIdx()) +
         "'  ORDER BY type ASC";
}

}  // namespace

bool DelegationDelegationDBHandler::FindEnabledTypes(RoleRole& role, std::vector<std::string>& types) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (!role.IsValid()) return Fail("delegation not valid");
  Query rows(*db, EntriesOf(role));
  while (rows.Next()) {
    const auto idx = rows.Int<int>(1);
    if (!idx) return Fail("convert data error");
    const std::string_view type = rows.View(2);
    const std::string_view data = rows.View(3);
    if (*idx <= 0 || type.empty()) {
      LogError("DelegationEntry(%s, %s, %s) is not valid", Decimal(*idx), std::string(type), std::string(data));
    } else if (data == "true") {
      types.emplace_back(type);
    }
  }
  return rows.Done();
}

bool DelegationDelegationDBHandler::FindBelongPolicyEntries(RoleRole& role,
                                                            std::vector<std::shared_ptr<RoleRoleEntry>>& entries) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (!role.IsValid()) return Fail("delegation not valid");
  entries.clear();
  Query rows(*db, EntriesOf(role));
  while (rows.Next()) {
    auto entry = ReadEntry(rows, 1);
    if (!entry) return Fail("convert data error");
    if (entry->IsValid()) {
      entries.push_back(entry);
    } else {
      LogError("DelegationEntry(%s, %s, %s) is not valid", Decimal(entry->getPolicyEntryIdx()), entry->getType(),
               entry->getData());
    }
  }
  return rows.Done();
}

}  // namespace NIMBO::QUAYPOST_SERVER
