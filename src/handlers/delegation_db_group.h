/// The group rows and their members: group_table, user2group_table. Made for one operation and dropped.
///
/// The three-valued lookups answer -1 (error), 0 (the output holds something) or 1 (it is empty); they append.
#pragma once

#include "role/policy_db_handlers.h"

namespace NIMBO::QUAYPOST_SERVER {

class MAILSERVER_EXPORT DelegationGroupDBHandler : public PolicyGroupDBHandler {
 public:
  DelegationGroupDBHandler();
  ~DelegationGroupDBHandler();

  RoleDBHandler* getRoleDBHandler() override;
  /// Every group, in row order; the filter is ignored. Appends; an invalid row ends the listing with false.
  bool List(Json::Value filter, std::vector<std::shared_ptr<RoleGroup>>& out) override;
  bool Create(RoleGroup& group) override;
  /// Also inserts a missing row.
  bool Update(RoleGroup& group) override;
  /// Deletes one group after the other; stops at the first failure.
  bool Delete(std::vector<std::shared_ptr<RoleGroup>>& groups) override;
  bool Delete(RoleGroup& group) override;
  bool IsExist(RoleGroup& group) override;
  /// The delegations of a valid group, highest priority first.
  int FindBelongPolicies(RoleGroup& group, std::vector<std::shared_ptr<RoleRole>>& policies) override;
  bool AssignGroupToUser(RoleGroup& group, std::vector<std::shared_ptr<RoleUser>>& users) override;
  bool UnassignGroupToUser(RoleGroup& group, std::vector<std::shared_ptr<RoleUser>>& users) override;
  /// The stored members of a valid group, by uid.
  int FindBelongUsers(RoleGroup& group, std::vector<std::shared_ptr<RoleUser>>& users) override;
  bool GetNeedRemoveGroup(std::vector<std::shared_ptr<RoleGroup>>& groups,
                          std::vector<std::shared_ptr<RoleGroup>>& removable) override;
  /// 1: the group record itself decides whether it goes.
  int IsNeedRemoveGroup(RoleGroup& group) override;
  bool RemoveOldLinks(RoleGroup& group) override;

  /// One stored membership: the rowid of its row, and the user; the name is "" when the user is not stored.
  struct Membership {
    long long row;
    unsigned int uid;
    std::string username;
  };
  /// Appends the memberships of a valid group.
  bool ListMemberships(RoleGroup& group, std::vector<Membership>& memberships);
};

}  // namespace NIMBO::QUAYPOST_SERVER
