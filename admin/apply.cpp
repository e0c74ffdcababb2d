// Carrying out a plan.
#include <algorithm>

#include "admin/announce.h"
#include "admin/document.h"
#include "admin/plan.h"
#include "api/delegation_api.h"
#include "platform/nimbsdk.h"
#include "role/role_db_scope.h"
#include "role/role_util.h"
#include "storage/delegation_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

// Asks the host about everybody before the database is locked.
void PrefetchAssignees(const Plan& plan) {
  for (const PlannedChange& change : plan.changes) {
    if (change.kind == PlannedChange::kDelete) continue;
    for (const Json::Value& assignee : change.document["user_group"]) {
      const std::string name = assignee["name"].asString();
      if (assignee["type"] == "user") {
        RoleUtilPrefetchUser(name);
      } else {
        RoleUtilPrefetchGroup(name);
      }
    }
  }
}

bool Run(const PlannedChange& change) {
  Json::Value document = change.document;
  int id = -1;
  switch (change.kind) {
    case PlannedChange::kDelete:
      return DelegationDelegationDelete(document);
    case PlannedChange::kUpdate:
      return DelegationDelegationUpdate(document);
    case PlannedChange::kCreate:
      return DelegationDelegationCreate(document, id);
  }
  return false;
}

bool RunInOneTransaction(const Plan& plan) {
  RoleDBScope scope(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kWrite);
  if (!scope.Usable()) throw Error(Error::kDatabase, "the delegation database cannot be opened");
  if (DocumentsById(ReadState()) != plan.basis) {
    throw Error(Error::kRefused, "delegations have been changed meanwhile; nothing was changed");
  }
  return std::all_of(plan.changes.begin(), plan.changes.end(), Run) && scope.Commit();
}

}  // namespace

Applied Apply(const Plan& plan) {
  const NIMBOAccountScope accounts(NIMBOAccountScope::kRemember);
  PrefetchAssignees(plan);
  if (!RunInOneTransaction(plan)) return Applied::kNo;
  return plan.changes.empty() || Announce() ? Applied::kYes : Applied::kNotAnnounced;
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
