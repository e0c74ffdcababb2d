/// What the four table handlers share: the open check, running a batch, and records made from rows.
///
/// A record's columns are neighbours, from 0 in a table and from 1 in a view: `first` says where they begin. A reader
/// gives null when a number in the row is none; the caller logs it in its own words.
#pragma once

#include <memory>
#include <string>

#include "model/delegation_delegation.h"
#include "model/delegation_delegation_entry.h"
#include "model/delegation_group.h"
#include "model/delegation_user.h"
#include "role/belongs.h"
#include "role/role_query.h"

namespace NIMBO::QUAYPOST_SERVER {

/// `handle` if it can be worked with, else null and the log says so. `status` is the handler's own.
RoleDBHandler* Usable(RoleDBHandler* handle, int status, Place place = Place::Here());

/// Runs a batch as one unit.
bool Run(RoleDBHandler& handle, const RoleSQLCmd& cmds);
bool Run(RoleDBHandler& handle, std::string statement);

/// Whether the query could be read and its one value is "1".
bool ReadsOne(RoleDBHandler& handle, const std::string& sql, Place place = Place::Here());

std::shared_ptr<DelegationUser> ReadUser(Query& row, int first);
std::shared_ptr<DelegationGroup> ReadGroup(Query& row, int first);
std::shared_ptr<DelegationCustomDelegation> ReadDelegation(Query& row, int first);
std::shared_ptr<DelegationDelegationEntry> ReadEntry(Query& row, int first);

}  // namespace NIMBO::QUAYPOST_SERVER
