/// The exported functions: everything that web handlers and tools ask of the delegation library.
///
///   Json::Value change;                                        // {"name", "color", "priority", one member per tab}
///   int id = -1;
///   DelegationDelegationCreate(change, id);
///   if (DelegationUserAllowWebapi("ann", "Webapi_Queue_Flush_v1") == 0) ...   // 0 is "allowed"
///
/// Documents:
/// - delegation: {"id": int, "name": string, "color": string, "priority": int, TYPE: DATA, ...}, one member for each
///   entry
/// - user: {"id": int, "name": string}
/// - group: {"id": int, "name": string, "type": "group"}
/// - assignee: {"type": "user" or "group", "name": short name}
///
/// A write is one transaction. Bad input (an unknown name, a malformed member) ends it with what was stored before that
/// step, a failure of the environment (I/O, memory, a host lookup without an answer) with nothing changed; both are
/// false and logged. A read sees one state of the database. No function throws. Not for several threads.
#pragma once

#include <json/json.h>

#include <memory>
#include <string>
#include <vector>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER {

class RoleUser;
class RoleRoleEntry;
class DelegationCustomDelegation;

// ---- Listing ----

/// Every stored delegation with its entries. `out`: array of delegations, in row order. The filter is ignored. False
/// also when a delegation has two entries of one type.
MAILSERVER_EXPORT bool DelegationDelegationList(Json::Value filter, Json::Value& out);

/// The distinct data values of all entries of one type, stored and default ones. `out`: sorted array of strings.
MAILSERVER_EXPORT bool DelegationDelegationEntryAllList(std::string type, Json::Value& out);

/// The default delegation's entries. `out`: {TYPE: DATA, ...}.
MAILSERVER_EXPORT bool DelegationDelegationDefaultEntriesGet(Json::Value& out);

/// The data of one default entry. False, and `data` unchanged, when there is none or its data is empty.
MAILSERVER_EXPORT bool DelegationDefaultDelegationEntryGet(std::string type, std::string& data);

/// Every stored user's directly assigned delegations. `out`: {USERNAME: {"delegation": [{"id", "name", "color",
/// "priority"}, ...]}, ...}, null when there is no user. The filter is ignored.
MAILSERVER_EXPORT bool DelegationUserList(Json::Value filter, Json::Value& out);

/// Every stored delegation with its entries, highest priority first. `out`: array of delegations. With {"detail": true}
/// as filter each also has "user_group": an array of its groups and then of its direct users, in the form of assignees.
MAILSERVER_EXPORT bool DelegationUserGroupDelegationInfoList(Json::Value filter, Json::Value& out);

// ---- Create, update, delete ----

/// Creates a delegation. `in`: "name" (not empty), "color", "priority", one member for each of the 29 entry types
/// (a string, bool, number or null; taken as text) and, optionally, "user_group": an array of assignees. `id` becomes
/// the new index. On false the delegation may be stored without its assignees; `id` then tells which.
MAILSERVER_EXPORT bool DelegationDelegationCreate(Json::Value& in, int& id);

/// Updates one delegation (an object) or several (an array), each identified by its "id"; the rest as for create. With
/// "user_group" the delegation's assignees become exactly those; without it they stay. Stops at the first failure.
MAILSERVER_EXPORT bool DelegationDelegationUpdate(Json::Value& in);

/// Updates one delegation without recalculating. `users` becomes those whose delegation in force may have changed: who
/// held it before and who holds it now.
MAILSERVER_EXPORT bool DelegationDelegationUpdateImpFromSingle(Json::Value& in,
                                                               std::vector<std::shared_ptr<RoleUser>>& users);

/// Deletes delegations. `in`: array of ids (null and [] do nothing). Stops at the first failure; then the users of
/// those deleted before are without a delegation until the next refresh.
MAILSERVER_EXPORT bool DelegationDelegationDelete(Json::Value& in);

/// Splits an array of assignees by type.
MAILSERVER_EXPORT bool GetUserGroupTypeFromJsonArray(const Json::Value& info, Json::Value& users, Json::Value& groups);

/// Appends one new entry for each entry type, in table order, from the member of that name.
MAILSERVER_EXPORT bool DelegationDelegationEntryFromDelegationJson(
    const Json::Value& in, std::vector<std::shared_ptr<RoleRoleEntry>>& entries);

/// Make the delegation's direct users, or its groups, exactly the assignees of the array.
MAILSERVER_EXPORT bool DelegationUserAssignDelegationV2(DelegationCustomDelegation& delegation,
                                                        const Json::Value& users);
MAILSERVER_EXPORT bool DelegationGroupAssignDelegationV2(DelegationCustomDelegation& delegation,
                                                         const Json::Value& groups);

/// Everybody who holds the delegation directly or through a group, each once.
MAILSERVER_EXPORT bool GetDelegationUsers(DelegationCustomDelegation& delegation,
                                          std::vector<std::shared_ptr<RoleUser>>& users);

// ---- Access ----

/// The tabs that are switched on for a user. `out`: {"enable_tabs": [TYPE, ...]}; empty also when the entries could
/// not be read. False, and `out` null, for an unknown user.
MAILSERVER_EXPORT bool DelegationUserDelegationEntriesGet(std::string user, Json::Value& out);

/// Whether at least one all-domain tab is switched on for the user.
MAILSERVER_EXPORT bool DelegationUserHasAllDomainDelegations(unsigned int uid);

/// Whether a user may call a web API method: 0 allowed, 1 not allowed, -1 error (to be treated as a refusal). Members
/// of the host's administrators group may call every method.
MAILSERVER_EXPORT int DelegationUserAllowWebapi(std::string user, std::string webapi);

/// Re-reads users, groups and members from the host, brings every delegation in line with the entry types, recomputes
/// every user, and announces the result. A failed announcement is logged and does not make it false.
MAILSERVER_EXPORT bool DelegationRefresh();

}  // namespace NIMBO::QUAYPOST_SERVER
