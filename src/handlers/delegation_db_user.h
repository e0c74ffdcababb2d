/// The user rows: user_table, and, read-only, what a user belongs to. Made for one operation and dropped.
///
/// The three-valued lookups answer -1 (error), 0 (the output holds something) or 1 (it is empty).
#pragma once

#include <functional>

#include "role/policy_db_handlers.h"

namespace NIMBO::QUAYPOST_SERVER {

class MAILSERVER_EXPORT DelegationUserDBHandler : public PolicyUserDBHandler {
 public:
  DelegationUserDBHandler();
  ~DelegationUserDBHandler();

  RoleDBHandler* getRoleDBHandler() override;
  /// Every user, in row order; the filter is ignored. Appends.
  bool List(Json::Value filter, std::vector<std::shared_ptr<RoleUser>>& out) override;
  bool Create(RoleUser& user) override;
  /// Also inserts a missing row.
  bool Update(RoleUser& user) override;
  /// Deletes all these rows or none.
  bool Delete(std::vector<std::shared_ptr<RoleUser>>& users) override;
  bool IsExist(RoleUser& user) override;
  /// The groups of a valid user; clears the output first.
  int FindBelongGroups(RoleUser& user, std::vector<std::shared_ptr<RoleGroup>>& groups) override;
  /// The direct delegations of a valid user, highest priority first; appends.
  int FindBelongPolicies(RoleUser& user, std::vector<std::shared_ptr<RoleRole>>& policies) override;
  /// Those of `users` that exist and have neither a direct delegation nor a group. Invalid users are skipped.
  bool GetNeedRemoveUser(std::vector<std::shared_ptr<RoleUser>>& users,
                         std::vector<std::shared_ptr<RoleUser>>& removable) override;
  bool RemoveOldLinks(RoleUser& user) override;

  /// The effective delegation of a valid user (at most one); appends.
  int FindRealBelongPolicies(RoleUser& user, std::vector<std::shared_ptr<RoleRole>>& policies);
  /// Calls `visit` with it while its row is open: what `visit` reads is of the same state, also outside a transaction.
  int VisitRealBelongPolicies(RoleUser& user, const std::function<void(const std::shared_ptr<RoleRole>&)>& visit);
  int _FindBelongGroupsImp(RoleUser& user, std::vector<std::shared_ptr<RoleGroup>>& groups);
  bool _IsNeedRemoveUser(RoleUser& user, bool& needRemove);
};

}  // namespace NIMBO::QUAYPOST_SERVER
