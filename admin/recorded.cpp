// A change, the guard inside its transaction, and the journal around it.
#include "admin/recorded.h"

#include <memory>

#include "admin/announce.h"
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
  done.announced = Announce();
}

// The journal, locked until something is appended to it; null with a warning when there is none.
std::unique_ptr<Journal> BegunJournal(std::string& warning) try {
  auto journal = std::make_unique<Journal>(Journal::CurrentPath(), Journal::kWrite);
  journal->Begin();
  return journal;
} catch (const Error& error) {
  warning = error.what();
  return nullptr;
}

void AppendTo(Journal& journal, const Actor& actor, Entry entry, Recorded& done) try {
  entry.refreshes = entry.refreshes && done.tried.done;
  done.record = journal.Append(actor, entry, done.tried.before, done.tried.after, done.tried.effect);
} catch (const Error& error) {
  done.warning = error.what();
}

}  // namespace

Recorded CarryOutRecorded(const Actor& actor, const Entry& entry, const Change& change, const Judging& judge) {
  Recorded done;
  const std::unique_ptr<Journal> journal = BegunJournal(done.warning);
  CarryOutWhole(change, judge, done);
  if (journal) AppendTo(*journal, actor, entry, done);
  return done;
}

Recorded RecordAround(const Actor& actor, const Entry& entry, const Change& change) {
  Recorded done;
  const std::unique_ptr<Journal> journal = BegunJournal(done.warning);
  try {
    if (journal) done.tried.before = ReadState();
  } catch (const Error& error) {
    done.warning = error.what();
  }
  done.tried.done = change(done.tried.result);
  if (!done.warning.empty()) return done;
  try {
    done.tried.after = ReadState();
  } catch (const Error& error) {
    done.warning = error.what();
    return done;
  }
  done.tried.effect = Compare(done.tried.before, done.tried.after);
  AppendTo(*journal, actor, entry, done);
  return done;
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
