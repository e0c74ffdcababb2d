/// A host group whose members inherit the roles assigned to it.
///
/// Abstract: a subclass names its JSON keys, makes its table handler and keeps the stored members in step with the
/// host.
#pragma once

#include <json/json.h>

#include <memory>
#include <string>
#include <vector>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER {

class PolicyGroupDBHandler;
class RoleUser;
class RoleRole;
class RoleRoleEntry;

class MAILSERVER_EXPORT RoleGroup {
 public:
  /// The gid is set and the name is not empty.
  virtual bool IsValid();
  /// The roles assigned to the group, highest priority first: 0 found, 1 none, -1 error.
  virtual int FindBelongPolicies(std::vector<std::shared_ptr<RoleRole>>& policies);
  /// The entries of those roles, role after role; same coding.
  virtual int FindBelongPolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries);
  virtual unsigned int getGid() = 0;
  virtual void gid(unsigned int value) = 0;
  virtual std::string getGroupname() = 0;
  virtual void groupname(std::string& value) = 0;
  virtual std::string GetGidKey() = 0;
  virtual std::string GetNameKey() = 0;
  virtual std::string GetTypeKey() = 0;
  virtual std::string GetSystemTypeKey() = 0;
  /// A row with the gid is stored.
  virtual bool IsExist();
  /// The stored members: 0 found, 1 none, -1 error.
  virtual int FindBelongUsers(std::vector<std::shared_ptr<RoleUser>>& users);
  virtual bool AssignGroupToUser(std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual bool UnassignGroupToUser(std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  /// Brings the record in line with the host group of its gid. False when the hook fails or the host could not be
  /// asked; then nothing is changed.
  virtual bool Refresh();
  /// The members that the host group has now.
  virtual bool FindNBOSUserTo(std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  /// Called by Refresh() when the host group exists, with its present name.
  virtual bool _RefreshNBOSGroupExist(std::string name) = 0;
  /// Called by Refresh() when the host definitely has no such group any more.
  virtual bool _RefreshNBOSGroupNotExist() = 0;
  virtual std::shared_ptr<PolicyGroupDBHandler> GetGroupDBHandler() = 0;
  /// Stores a new row; links that an earlier owner of the gid has left are not adopted.
  virtual bool _CreateImp();

  /// Fills a record from the host group of this name; `type` must be the record's own type. False when there is none
  /// or the host could not be asked.
  static bool FromTypeShortname(std::string type, std::string name, RoleGroup& out);
  static bool Create(RoleGroup& group);
  static bool Update(RoleGroup& group);
  static bool Delete(RoleGroup& group);
  /// {"id": gid, "name": groupname, "type": the record's own type} under the record's own keys.
  static bool ToJson(RoleGroup& group, Json::Value& out);

 protected:
  RoleGroup();
  RoleGroup(unsigned int gid, std::string groupname);
  ~RoleGroup();

  unsigned int gid_;
  std::string groupname_;
};

}  // namespace NIMBO::QUAYPOST_SERVER
