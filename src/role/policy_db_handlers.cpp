// The parts of the handler interfaces that are not abstract.
#include "role/policy_db_handlers.h"

namespace NIMBO::QUAYPOST_SERVER {

PolicyUserDBHandler::PolicyUserDBHandler() = default;
PolicyUserDBHandler::~PolicyUserDBHandler() = default;
bool PolicyUserDBHandler::RemoveOldLinks(RoleUser&) { return true; }

PolicyGroupDBHandler::PolicyGroupDBHandler() = default;
PolicyGroupDBHandler::~PolicyGroupDBHandler() = default;
bool PolicyGroupDBHandler::RemoveOldLinks(RoleGroup&) { return true; }

PolicyPolicyDBHandler::PolicyPolicyDBHandler() = default;
PolicyPolicyDBHandler::~PolicyPolicyDBHandler() = default;
bool PolicyPolicyDBHandler::RemoveOldLinks(RoleRole&) { return true; }

PolicyPolicyEntryDBHandler::PolicyPolicyEntryDBHandler() = default;
PolicyPolicyEntryDBHandler::~PolicyPolicyEntryDBHandler() = default;
bool PolicyPolicyEntryDBHandler::RemoveOldLinks(RoleRoleEntry&) { return true; }

}  // namespace NIMBO::QUAYPOST_SERVER
