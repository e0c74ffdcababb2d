/// Derives the one delegation in force for each user, refreshes everything from the host, and announces the database
/// to the mail cluster. Holds no data: make one on the stack and call one operation.
///
/// The rule: of all delegations that a user has directly and through groups the one of highest priority; on equal
/// priority the one met first, direct ones before those of groups; without any, the default delegation.
#pragma once

#include <memory>
#include <vector>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER {

class RoleUser;
class RoleGroup;
class RoleRole;

class MAILSERVER_EXPORT DelegationCalculator {
 public:
  /// Refreshes users, groups and delegations, then recomputes every stored user; stops at the first failure. Refuses
  /// before the first write when more stored users or groups are gone from the host than the vanish limit allows: that
  /// is an outage of the account source, not a departure.
  bool Refresh();
  /// Announces the database file to the mail cluster as "delegation_db".
  bool Trigger();
  /// Recomputes and stores the delegation in force for each user. One invalid user among them: nothing is written.
  bool CalculateUser(std::vector<std::shared_ptr<RoleUser>>& users);
  bool CalculateUser(RoleUser& user);
  /// The same for every stored member of these groups, each once.
  bool CalculateUserInGroup(std::vector<std::shared_ptr<RoleGroup>>& groups);
  bool CalculateUserInGroup(RoleGroup& group);
  /// The delegation that the rule chooses: 0 found, 1 there is no candidate (`out` untouched), -1 error.
  int FindHighestPriorityDelegation(RoleUser& user, std::shared_ptr<RoleRole>& out);

  /// Asks the host, inside a NIMBOAccountScope, for everything that Refresh() will ask it, so that a slow account
  /// source is not waited for under the database lock.
  void Prefetch();
  /// Takes from everybody what no stored assignment supports. Only takes away; it is no recalculation.
  bool RemoveUnsupported();

 private:
  bool _RefreshUsers();
  bool _RefreshGroups();
  bool _RefreshDelegation();
  bool _GetAllGroupsUsers(std::vector<std::shared_ptr<RoleGroup>>& groups,
                          std::vector<std::shared_ptr<RoleUser>>& users);
  bool CheckVanished();
};

}  // namespace NIMBO::QUAYPOST_SERVER
