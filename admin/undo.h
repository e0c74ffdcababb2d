/// Taking a recorded change back, as a new change.
///
///   const UndoPlan plan = PlanUndo(journal, 7, ReadState());
///   if (plan.since.empty() && !plan.overtaken && plan.gone.empty()) CarryOut([&](Json::Value&) { return Undo(plan);
///   });
///
/// What the record created is deleted, what it deleted is created again (as a rule under another id), and what it
/// changed gets its fields, tabs and assignees of before.
#pragma once

#include <string>
#include <vector>

#include "admin/journal.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

struct UndoPlan {
  long long number = 0;
  std::vector<DelegationChange> changes;  ///< what is to be done: before and after are now and then

  /// Delegations that are not any more as the record left them; taking it back takes that back too.
  bool overtaken = false;
  std::vector<long long> since;  ///< the later records that have changed them, as far as they are in the journal

  std::string taken;  ///< a name that is to come back and that another delegation has by now; "" if there is none

  /// Assignees that the host does not have any more, as "user ann", or by whose name it means somebody else now; they
  /// are left out.
  std::vector<std::string> gone;
};

/// What taking back a record comes to. Throws Error::kInput when there is no such record, Error::kRefused when it
/// changed no delegation or is the journal's first; Error::kAccounts when an assignee cannot be looked up;
/// Error::kDatabase.
MAILSERVER_EXPORT UndoPlan PlanUndo(const Journal& journal, long long number, const State& now);

/// Carries a plan out, through the exported functions, all or nothing. Announces nothing inside a RoleDBScope. False
/// when nothing was stored, or when it was stored and not announced, with the log line of an exported function.
MAILSERVER_EXPORT bool Undo(const UndoPlan& plan);

}  // namespace NIMBO::QUAYPOST_SERVER::admin
