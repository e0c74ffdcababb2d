/// Telling the cluster about a database that has changed. Private.
#pragma once

#include "calculator/delegation_calculator.h"
#include "platform/mailserver.h"
#include "role/role_db_scope.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

/// Announces the database behind a commit; inside a transaction of the caller's that is the caller's to do. False when
/// the cluster could not be told: the change is stored all the same.
inline bool Announce() noexcept {
  RoleDBHandler* pinned = nullptr;
  if (RoleDBScope::Pinned(pinned)) return true;
  try {
    if (DelegationCalculator().Trigger()) return true;
  } catch (...) {  // a failure like any other
  }
  maillog(3, "announce.h:%d Trigger fail!!!", __LINE__);  // as the exported functions say it
  return false;
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
