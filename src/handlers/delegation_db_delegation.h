/// The delegation rows and their links to users, groups and entries. Made for one operation and dropped.
///
/// Lists are written in one piece: all of it or nothing. Lookups clear their output first.
#pragma once

#include <string>

#include "role/policy_db_handlers.h"

namespace NIMBO::QUAYPOST_SERVER {

class RoleSQLCmd;

class MAILSERVER_EXPORT DelegationDelegationDBHandler : public PolicyPolicyDBHandler {
 public:
  DelegationDelegationDBHandler();
  ~DelegationDelegationDBHandler();

  RoleDBHandler* getRoleDBHandler() override;
  /// Every delegation, in row order; the filter is ignored.
  bool List(Json::Value filter, std::vector<std::shared_ptr<RoleRole>>& out) override;
  /// Stores a delegation that has no index yet, and sets its index.
  bool Create(RoleRole& role) override;
  bool Update(RoleRole& role) override;
  /// Deletes the rows only; links go through the unassign operations.
  bool Delete(std::vector<std::shared_ptr<RoleRole>>& roles) override;
  bool Delete(RoleRole& role) override;
  bool IsExist(RoleRole& role) override;
  bool AssignPolicyToUserNormal(RoleRole& role, std::vector<std::shared_ptr<RoleUser>>& users) override;
  /// Replaces the users' effective delegation.
  bool AssignPolicyToUserReal(RoleRole& role, std::vector<std::shared_ptr<RoleUser>>& users) override;
  bool UnassignPolicyToUserNormal(RoleRole& role, std::vector<std::shared_ptr<RoleUser>>& users) override;
  /// Removes the users' effective rows, whichever delegation they name.
  bool UnassignPolicyToUserReal(RoleRole& role, std::vector<std::shared_ptr<RoleUser>>& users) override;
  bool AssignPolicyToGroup(RoleRole& role, std::vector<std::shared_ptr<RoleGroup>>& groups) override;
  bool AssignPolicyToGroup(RoleRole& role, RoleGroup& group) override;
  bool UnassignPolicyToGroup(RoleRole& role, std::vector<std::shared_ptr<RoleGroup>>& groups) override;
  bool UnassignPolicyToGroup(RoleRole& role, RoleGroup& group) override;
  bool UnassignPolicyToPolicyEntries(RoleRole& role, std::vector<std::shared_ptr<RoleRoleEntry>>& entries) override;
  /// Direct users by uid; users by effect; groups by gid; entries by type.
  bool FindBelongUsersNormal(RoleRole& role, std::vector<std::shared_ptr<RoleUser>>& users) override;
  bool FindBelongUsersReal(RoleRole& role, std::vector<std::shared_ptr<RoleUser>>& users) override;
  bool FindBelongGroups(RoleRole& role, std::vector<std::shared_ptr<RoleGroup>>& groups) override;
  /// Makes `entries` the delegation's whole set; entries that are not stored or not valid are skipped.
  bool AssignPolicyEntryToPolicy(RoleRole& role, std::vector<std::shared_ptr<RoleRoleEntry>>& entries) override;
  bool FindBelongPolicyEntries(RoleRole& role, std::vector<std::shared_ptr<RoleRoleEntry>>& entries) override;
  bool RemoveOldLinks(RoleRole& role) override;

  /// Appends the types of the role's entries whose data is "true", in their order, without a record for each row.
  bool FindEnabledTypes(RoleRole& role, std::vector<std::string>& types);

  /// Removes every effective row that no stored assignment supports: neither a direct one nor one through a group of a
  /// stored user. Only takes away.
  bool RemoveUnsupportedReal();

 private:
  bool _GetLastestPolicyIdx(int& idx);
  bool _AssignPolicyToUserImp(RoleRole& role, std::vector<std::shared_ptr<RoleUser>>& users, std::string table);
  bool _FindBelongUsersImp(RoleRole& role, std::vector<std::shared_ptr<RoleUser>>& users, std::string view);
  bool _ComposeAssignPolicyToGroupSQL(RoleRole& role, RoleGroup& group, RoleSQLCmd& cmds);
  bool _ComposeUnassignPolicyToGroupSQL(RoleRole& role, RoleGroup& group, RoleSQLCmd& cmds);
};

}  // namespace NIMBO::QUAYPOST_SERVER
