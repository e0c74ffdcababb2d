/// What the framework asks of the four table handlers: one interface for each kind of record.
///
/// A handler is made for one operation and dropped. Operations return true on success; those that look for records of
/// another kind and are declared int return -1 (error), 0 (found) or 1 (nothing found). What they log and in which
/// order they answer is the implementation's.
///
/// The last slot of each interface, RemoveOldLinks, is called behind Create: ids are used again, by SQLite and by the
/// host, and a new record must not find itself in links that an earlier one with the same id has left.
#pragma once

#include <json/json.h>

#include <memory>
#include <vector>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER {

class RoleDBHandler;
class RoleUser;
class RoleGroup;
class RoleRole;
class RoleRoleEntry;

class MAILSERVER_EXPORT PolicyUserDBHandler {
 public:
  PolicyUserDBHandler();
  virtual RoleDBHandler* getRoleDBHandler() = 0;
  virtual bool List(Json::Value filter, std::vector<std::shared_ptr<RoleUser>>& out) = 0;
  virtual bool Create(RoleUser& user) = 0;
  virtual bool Update(RoleUser& user) = 0;
  virtual bool Delete(std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual bool IsExist(RoleUser& user) = 0;
  virtual int FindBelongGroups(RoleUser& user, std::vector<std::shared_ptr<RoleGroup>>& groups) = 0;
  virtual int FindBelongPolicies(RoleUser& user, std::vector<std::shared_ptr<RoleRole>>& policies) = 0;
  virtual bool GetNeedRemoveUser(std::vector<std::shared_ptr<RoleUser>>& users,
                                 std::vector<std::shared_ptr<RoleUser>>& removable) = 0;
  /// Removes the direct assignments and memberships of the user's uid (not the effective row).
  virtual bool RemoveOldLinks(RoleUser& user);

 protected:
  ~PolicyUserDBHandler();
  int status_ = 0;  ///< while it is not 0 every operation refuses
};

class MAILSERVER_EXPORT PolicyGroupDBHandler {
 public:
  PolicyGroupDBHandler();
  virtual RoleDBHandler* getRoleDBHandler() = 0;
  virtual bool List(Json::Value filter, std::vector<std::shared_ptr<RoleGroup>>& out) = 0;
  virtual bool Create(RoleGroup& group) = 0;
  virtual bool Update(RoleGroup& group) = 0;
  virtual bool Delete(std::vector<std::shared_ptr<RoleGroup>>& groups) = 0;
  virtual bool Delete(RoleGroup& group) = 0;
  virtual bool IsExist(RoleGroup& group) = 0;
  virtual int FindBelongPolicies(RoleGroup& group, std::vector<std::shared_ptr<RoleRole>>& policies) = 0;
  virtual bool AssignGroupToUser(RoleGroup& group, std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual bool UnassignGroupToUser(RoleGroup& group, std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual int FindBelongUsers(RoleGroup& group, std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual bool GetNeedRemoveGroup(std::vector<std::shared_ptr<RoleGroup>>& groups,
                                  std::vector<std::shared_ptr<RoleGroup>>& removable) = 0;
  /// 1 removable, -1 error, anything else not removable.
  virtual int IsNeedRemoveGroup(RoleGroup& group) = 0;
  /// Removes the assignments and memberships of the group's gid.
  virtual bool RemoveOldLinks(RoleGroup& group);

 protected:
  ~PolicyGroupDBHandler();
  int status_ = 0;  ///< while it is not 0 every operation refuses
};

/// "Normal" operations concern what an administrator assigned, "Real" ones the one effective role of a user.
class MAILSERVER_EXPORT PolicyPolicyDBHandler {
 public:
  PolicyPolicyDBHandler();
  virtual RoleDBHandler* getRoleDBHandler() = 0;
  virtual bool List(Json::Value filter, std::vector<std::shared_ptr<RoleRole>>& out) = 0;
  virtual bool Create(RoleRole& role) = 0;
  virtual bool Update(RoleRole& role) = 0;
  virtual bool Delete(std::vector<std::shared_ptr<RoleRole>>& roles) = 0;
  virtual bool Delete(RoleRole& role) = 0;
  virtual bool IsExist(RoleRole& role) = 0;
  virtual bool AssignPolicyToUserNormal(RoleRole& role, std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual bool AssignPolicyToUserReal(RoleRole& role, std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual bool UnassignPolicyToUserNormal(RoleRole& role, std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual bool UnassignPolicyToUserReal(RoleRole& role, std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual bool AssignPolicyToGroup(RoleRole& role, std::vector<std::shared_ptr<RoleGroup>>& groups) = 0;
  virtual bool AssignPolicyToGroup(RoleRole& role, RoleGroup& group) = 0;
  virtual bool UnassignPolicyToGroup(RoleRole& role, std::vector<std::shared_ptr<RoleGroup>>& groups) = 0;
  virtual bool UnassignPolicyToGroup(RoleRole& role, RoleGroup& group) = 0;
  virtual bool UnassignPolicyToPolicyEntries(RoleRole& role, std::vector<std::shared_ptr<RoleRoleEntry>>& entries) = 0;
  virtual bool FindBelongUsersNormal(RoleRole& role, std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual bool FindBelongUsersReal(RoleRole& role, std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual bool FindBelongGroups(RoleRole& role, std::vector<std::shared_ptr<RoleGroup>>& groups) = 0;
  virtual bool AssignPolicyEntryToPolicy(RoleRole& role, std::vector<std::shared_ptr<RoleRoleEntry>>& entries) = 0;
  virtual bool FindBelongPolicyEntries(RoleRole& role, std::vector<std::shared_ptr<RoleRoleEntry>>& entries) = 0;
  /// Removes every assignment and entry link that carries the role's index.
  virtual bool RemoveOldLinks(RoleRole& role);

 protected:
  ~PolicyPolicyDBHandler();
  int status_ = 0;  ///< while it is not 0 every operation refuses
};

class MAILSERVER_EXPORT PolicyPolicyEntryDBHandler {
 public:
  PolicyPolicyEntryDBHandler();
  virtual RoleDBHandler* getRoleDBHandler() = 0;
  virtual bool List(Json::Value filter, std::vector<std::shared_ptr<RoleRoleEntry>>& out) = 0;
  virtual bool Create(RoleRoleEntry& entry) = 0;
  virtual bool Update(RoleRoleEntry& entry) = 0;
  virtual bool Delete(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) = 0;
  virtual bool Delete(RoleRoleEntry& entry) = 0;
  virtual bool IsExist(RoleRoleEntry& entry) = 0;
  virtual bool FindBelongPolicies(RoleRoleEntry& entry, std::vector<std::shared_ptr<RoleRole>>& policies) = 0;
  virtual bool GetNeedRemovePolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries,
                                          std::vector<std::shared_ptr<RoleRoleEntry>>& removable) = 0;
  /// Removes the links of every role to the entry's index.
  virtual bool RemoveOldLinks(RoleRoleEntry& entry);

 protected:
  ~PolicyPolicyEntryDBHandler();
  int status_ = 0;  ///< while it is not 0 every operation refuses
};

}  // namespace NIMBO::QUAYPOST_SERVER
