/// The vocabulary of delegation entries: the 29 entry types, each one tab of the administration interface, with the
/// data that the default delegation gives them ("false": it grants nothing) and their fixed negative indexes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER {

class RoleUser;
class RoleGroup;
class RoleRoleEntry;
class DelegationUser;
class DelegationGroup;
class DelegationDelegationEntry;

/// Replaces `types` with the types in table order; true.
MAILSERVER_EXPORT bool DelegationUtilGetAllDefaultTypeDelegationEntry(std::vector<std::string>& types);

/// Replaces `entries` with a new DelegationDefaultDelegationEntry for each row, in table order; true.
MAILSERVER_EXPORT bool DelegationUtilGetAllDefaultDelegationEntry(std::vector<std::shared_ptr<RoleRoleEntry>>& entries);

/// Replace `out` with a new copy of every element of `in`, in order.
MAILSERVER_EXPORT void DuplicatedConvertUsersToSharedUsers(std::vector<DelegationUser>& in,
                                                           std::vector<std::shared_ptr<RoleUser>>& out);
MAILSERVER_EXPORT void DuplicatedConvertGroupsToSharedGroups(std::vector<DelegationGroup>& in,
                                                             std::vector<std::shared_ptr<RoleGroup>>& out);
MAILSERVER_EXPORT void DuplicatedConvertEntriesToSharedEntries(std::vector<DelegationDelegationEntry>& in,
                                                               std::vector<std::shared_ptr<RoleRoleEntry>>& out);

}  // namespace NIMBO::QUAYPOST_SERVER
