/// A host account that can hold roles: directly, through groups, and exactly one in effect.
///
/// Abstract: a subclass names its JSON keys, makes its table handler and says what a refresh does.
#pragma once

#include <json/json.h>

#include <memory>
#include <string>
#include <vector>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER {

class PolicyUserDBHandler;
class RoleGroup;
class RoleRole;
class RoleRoleEntry;

class MAILSERVER_EXPORT RoleUser {
 public:
  virtual std::string getUsername() = 0;
  virtual void username(const std::string& value) = 0;
  virtual unsigned int getUid() = 0;
  virtual void uid(unsigned int value) = 0;
  /// Called by Refresh() when the host definitely has no such account any more.
  virtual bool _RefreshNBOSUserNotExist() = 0;
  /// Called by Refresh() when the account exists, with its present name.
  virtual bool _RefreshNBOSUserExist(std::string name) = 0;
  virtual std::shared_ptr<PolicyUserDBHandler> GetUserDBHandler() = 0;
  virtual std::string GetUIDKey() = 0;
  virtual std::string GetUsernameKey() = 0;
  virtual std::shared_ptr<RoleUser> newUserInst(unsigned int uid, std::string name) = 0;

  /// The uid is set and the name is not empty.
  virtual bool IsValid();
  /// A row with the uid is stored.
  virtual bool IsExist();
  /// Brings the record in line with the host account of its uid. False when the hook fails or the host could not be
  /// asked; then nothing is changed.
  virtual bool Refresh();
  /// The directly assigned roles, highest priority first: 0 found, 1 none, -1 error.
  virtual int FindBelongPolicies(std::vector<std::shared_ptr<RoleRole>>& policies);
  /// The groups the user is stored as a member of, same coding.
  virtual int FindBelongGroups(std::vector<std::shared_ptr<RoleGroup>>& groups);
  /// The entries of the directly assigned roles, role after role; same coding.
  virtual int FindBelongPolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries);

  /// Fill a record from the host account. False when there is none or the host could not be asked.
  /// A short name is qualified with the domain on a domain host, unless it is qualified already.
  static bool FromID(unsigned int uid, RoleUser& out);
  static bool FromShortUsername(std::string name, RoleUser& out);
  /// Stores a new row; links that an earlier owner of the uid has left are not adopted.
  static bool Create(RoleUser& user);
  static bool Update(RoleUser& user);
  /// Deletes the rows of all these users or of none; an empty list is true.
  static bool Delete(std::vector<std::shared_ptr<RoleUser>>& users);
  /// {"id": uid, "name": username} under the record's own keys.
  static bool ToJson(RoleUser& user, Json::Value& out);

 protected:
  RoleUser();
  RoleUser(unsigned int uid, std::string username);
  ~RoleUser();

  unsigned int uid_;
  std::string username_;
};

}  // namespace NIMBO::QUAYPOST_SERVER
