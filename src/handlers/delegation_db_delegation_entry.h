/// The entry rows: delegation_entry_table, one row for each distinct pair of type and data that is in use. Made for one
/// operation and dropped. Lookups clear their output first.
#pragma once

#include "role/policy_db_handlers.h"

namespace NIMBO::QUAYPOST_SERVER {

class MAILSERVER_EXPORT DelegationDelegationEntryDBHandler : public PolicyPolicyEntryDBHandler {
 public:
  DelegationDelegationEntryDBHandler();
  ~DelegationDelegationEntryDBHandler();

  RoleDBHandler* getRoleDBHandler() override;
  /// Every entry, in row order; the filter is ignored.
  bool List(Json::Value filter, std::vector<std::shared_ptr<RoleRoleEntry>>& out) override;
  /// Stores an entry that has no index yet, and sets its index.
  bool Create(RoleRoleEntry& entry) override;
  bool Update(RoleRoleEntry& entry) override;
  /// Deletes each entry; goes on behind a failure and is true all the same.
  bool Delete(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) override;
  /// Deletes the row only.
  bool Delete(RoleRoleEntry& entry) override;
  bool IsExist(RoleRoleEntry& entry) override;
  /// The delegations that hold the entry, by index.
  bool FindBelongPolicies(RoleRoleEntry& entry, std::vector<std::shared_ptr<RoleRole>>& policies) override;
  /// Those of `entries` that are stored and held by no delegation. Invalid entries are skipped.
  bool GetNeedRemovePolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries,
                                  std::vector<std::shared_ptr<RoleRoleEntry>>& removable) override;
  bool RemoveOldLinks(RoleRoleEntry& entry) override;

 private:
  bool _IsNeedRemovePolicyEntry(std::shared_ptr<RoleRoleEntry>& entry);
  bool _GetLastestPolicyEntryIdx(int& idx);
};

}  // namespace NIMBO::QUAYPOST_SERVER
