// A change, the guard inside its transaction, and the journal around it.
#include "admin/recorded.h"

#include <memory>

#include "calculator/delegation_calculator.h"
#include "role/role_db_scope.h"
#include "storage/delegation_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

void CarryOutWhole(const Change& change, const Judging& judge, Recorded& done) {
  {
    RoleDBScope scope(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kWrite);
    if (!scope.Usable()) throw Error(Error::kDatabase, "the delegation database cannot be opened for writing");
    done.tried = CarryOut(change);
    if (done.tried.done && judge) done.refusal = judge(done.tried.before, done.tried.after, done.tried.effect);
    done.tried.done = done.tried.done && !done.refusal && scope.Commit();
  }
  if (!done.tried.done) {
    done.tried.effect = Effect();
    done.tried.after = done.tried.before;
    return;
  }
  try {
    done.announced = DelegationCalculator().Trigger();
  } catch (...) {
    done.announced = false;  // it is stored all the same
  }
}

}  // namespace

Recorded CarryOutRecorded(const Actor& actor, const Entry& entry, const Change& change, const Judging& judge) {
  Recorded done;
  std::unique_ptr<Journal> journal;
  try {
    journal = std::make_unique<Journal>(Journal::CurrentPath(), Journal::kWrite);
    journal->Begin();
  } catch (const Error& error) {
    done.warning = error.what();
    journal.reset();
  }
  CarryOutWhole(change, judge, done);
  if (!journal) return done;
  Entry stored = entry;
  stored.refreshes = entry.refreshes && done.tried.done;
  try {
    done.record = journal->Append(actor, stored, done.tried.before, done.tried.after, done.tried.effect);
  } catch (const Error& error) {
    done.warning = error.what();
  }
  return done;
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
