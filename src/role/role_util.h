/// Free functions of the role framework: names, account sources, lists of users.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER {

class RoleUser;

/// Where the mail server's accounts come from.
enum AUTH_TYPE {
  AUTH_TYPE_LOCAL = 1,
  AUTH_TYPE_WIN_DOMAIN = 2,
  AUTH_TYPE_LDAP = 3,
};

/// Fills `out` with the users of `in`, each uid once, at its first occurrence. Both may be the same list.
MAILSERVER_EXPORT bool RoleUtilUniqueRoleUser(std::vector<std::shared_ptr<RoleUser>>& in,
                                              std::vector<std::shared_ptr<RoleUser>>& out);

/// Turns a login name as the web layer gives it into the account's canonical name. False when there is no such account
/// or the host could not be asked. With `qualify` a short name is qualified with the domain on a domain host.
MAILSERVER_EXPORT bool RoleUtilShortName2FullRealName(bool qualify, const std::string& shortName,
                                                      std::string& fullName);

/// Fills the record (uid, name) from a full account name. False when there is no such account or the host could not be
/// asked.
MAILSERVER_EXPORT bool RoleUtilUserGetFromFullUserName(std::string fullName, RoleUser& out);

/// The mail server's current account source, and the short name of its Windows domain ("" without one). False when
/// the configuration cannot be read.
MAILSERVER_EXPORT bool RoleMailConfCurrentAuthTypeGet(AUTH_TYPE& type);
MAILSERVER_EXPORT bool RoleMailConfWinDomainShortNameGet(std::string& name);

/// Ask the host, inside a NIMBOAccountScope, what a later call will ask about these, so that the answers are there
/// before a database lock is taken. Nothing is logged or returned: the later call meets the same answers.
MAILSERVER_EXPORT void RoleUtilPrefetchUser(unsigned int uid);
MAILSERVER_EXPORT void RoleUtilPrefetchUser(const std::string& shortName);
MAILSERVER_EXPORT void RoleUtilPrefetchGroup(unsigned int gid);
MAILSERVER_EXPORT void RoleUtilPrefetchGroup(const std::string& name);

}  // namespace NIMBO::QUAYPOST_SERVER
