// SQL of the entry rows.
#include "handlers/delegation_db_delegation_entry.h"

#include "handlers/table_handler.h"
#include "storage/delegation_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER {

DelegationDelegationEntryDBHandler::DelegationDelegationEntryDBHandler() = default;
DelegationDelegationEntryDBHandler::~DelegationDelegationEntryDBHandler() = default;

RoleDBHandler* DelegationDelegationEntryDBHandler::getRoleDBHandler() {
  return DelegationDBHandler::GetDelegationDBHandler();
}

bool DelegationDelegationEntryDBHandler::IsExist(RoleRoleEntry& entry) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  return db && ReadsOne(*db, Sql("select EXISTS (select 1 FROM %q WHERE delegationentryidx='%q' LIMIT 1)",
                                 "delegation_entry_table", Decimal(entry.getPolicyEntryIdx())));
}

bool DelegationDelegationEntryDBHandler::Create(RoleRoleEntry& entry) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (entry.getPolicyEntryIdx() != -1) {
    return Fail("Delegation Entry has setting before (%i, %s, %s)", entry.getPolicyEntryIdx(), entry.getType(),
                entry.getData());
  }
  if (!Run(*db, Sql("insert into  %q (delegationentryidx, type, data) values (NULL, '%q', '%q');",
                    "delegation_entry_table", entry.getType(), entry.getData()))) {
    return Fail("fail to insert user_table");
  }
  int idx = -1;
  if (!_GetLastestPolicyEntryIdx(idx)) return Fail("fail to search delegation entry");
  entry.policyEntryIdx(idx);
  return true;
}

bool DelegationDelegationEntryDBHandler::Update(RoleRoleEntry& entry) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  if (!entry.IsValid()) {
    return Fail("Delegation haven't setting before (%i, %s)", entry.getPolicyEntryIdx(), entry.getType());
  }
  return Run(*db,
             Sql("replace into  %q (delegationentryidx, type, data) values ('%q', '%q', '%q');",
                 "delegation_entry_table", Decimal(entry.getPolicyEntryIdx()), entry.getType(), entry.getData())) ||
         Fail("fail to insert record to user_table");
}

bool DelegationDelegationEntryDBHandler::Delete(RoleRoleEntry& entry) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  return Run(*db, Sql("DELETE FROM %q WHERE delegationentryidx='%q'", "delegation_entry_table",
                      Decimal(entry.getPolicyEntryIdx()))) ||
         Fail("fail to delete to delegation_table");
}

bool DelegationDelegationEntryDBHandler::Delete(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) {
  if (status_ != 0) return Fail("Open delegationDBHandler cannot open before");
  for (const auto& entry : entries) {
    if (!Delete(*entry)) {
      LogError("delegation entry (%lu, %s, %s) cannot delete", static_cast<unsigned long>(entry->getPolicyEntryIdx()),
               entry->getType(), entry->getData());
    }
  }
  return true;
}

bool DelegationDelegationEntryDBHandler::RemoveOldLinks(RoleRoleEntry& entry) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  return Run(*db, Sql("DELETE FROM %q WHERE delegationentryidx='%q'", "delegation2delegation_entry_table",
                      Decimal(entry.getPolicyEntryIdx()))) ||
         Fail("cannot remove old links of delegation entry (%i, %s)", entry.getPolicyEntryIdx(), entry.getType());
}

bool DelegationDelegationEntryDBHandler::_GetLastestPolicyEntryIdx(int& idx) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  Query rows(*db, "select max(delegationentryidx) from delegation_entry_table");
  while (rows.Next()) {
    const auto highest = rows.Int<int>(0);
    if (!highest) return Fail("parse policy entry index error");
    idx = *highest;
  }
  return rows.Done();
}

bool DelegationDelegationEntryDBHandler::List(Json::Value, std::vector<std::shared_ptr<RoleRoleEntry>>& out) {
  RoleDBHandler* db = Usable(getRoleDBHandler(), status_);
  if (!db) return false;
  out.clear();
  Query rows(*db, "select * from delegation_entry_table");
  while (rows.Next()) {
    auto entry = ReadEntry(rows, 0);
    if (!entry) return Fail("update policy entry index error");
    out.push_back(entry);
  }
  return rows.Done();
}

bool DelegationDelegationEntryDBHandler::FindBelongPolicies(RoleRoleEntry& entry,
                                                            std::vector<std::shared_ptr<RoleRole>>& policies) {
  RoleDBHandler* db = getRoleDBHandler();
  if (!db || status_ != 0) return Fail("Open DelegationDelegationEntryDBHandler cannot open before");
  if (!entry.IsValid()) return Fail("delegationEntry not valid");
  policies.clear();
  Query rows(*db, "select * from delegation_entry2delegation_view WHERE delegationentryidx = '" +
                      Decimal(entry.getPolicyEntryIdx()) + "'  ORDER BY delegationidx ASC");
  while (rows.Next()) {
    auto policy = ReadDelegation(rows, 1);
    if (!policy) return Fail("convert data error");
    if (policy->IsValid()) {
      policies.push_back(policy);
    } else {
      LogError("Delegation(%s, %s) is not valid", policy->getName(), policy->getColor());
    }
  }
  return rows.Done();
}

bool DelegationDelegationEntryDBHandler::_IsNeedRemovePolicyEntry(std::shared_ptr<RoleRoleEntry>& entry) {
  if (!entry->IsExist()) return false;
  std::vector<std::shared_ptr<RoleRole>> policies;
  if (entry->FindBelongPolicies(policies) == kError) {
    LogError("FindBelongPolicies error");
    return true;  // deliberately: an entry whose delegations cannot be read counts as removable
  }
  return policies.empty();
}

bool DelegationDelegationEntryDBHandler::GetNeedRemovePolicyEntries(
    std::vector<std::shared_ptr<RoleRoleEntry>>& entries, std::vector<std::shared_ptr<RoleRoleEntry>>& removable) {
  removable.clear();
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (!entries[i]->IsValid()) {
      LogError("we have invalid delegationEntry in %lu", i);
    } else if (_IsNeedRemovePolicyEntry(entries[i])) {
      removable.push_back(entries[i]);
    }
  }
  return true;
}

}  // namespace NIMBO::QUAYPOST_SERVER
