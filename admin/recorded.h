/// Changes that are recorded in the journal, judged before they are stored if somebody makes them who is to be judged.
///
///   const Recorded done = CarryOutRecorded(actor, {"delete 1 delegation"}, change, judge);
///   if (done.refusal) ...   // nothing was stored
///
/// That the journal cannot be written stops no change; it is told as a warning.
///
/// A program that calls exported functions for somebody else has each of them recorded with RecordAround.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "admin/guard.h"
#include "admin/journal.h"
#include "admin/what_if.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

struct Recorded {
  Tried tried;
  std::optional<Refusal> refusal;   ///< then nothing was stored
  std::optional<long long> record;  ///< its number in the journal; nothing also when nothing has changed
  std::string warning;              ///< why it is not in the journal, "" if it is
  bool announced = true;            ///< false: it is stored, but the cluster could not be told
};

/// Says whether a change is refused, by the states around it.
using Judging = std::function<std::optional<Refusal>(const State& before, const State& after, const Effect& effect)>;

/// Runs `change` on the database in one transaction and records what it did: refused or not done, nothing of it is
/// stored; otherwise it is stored and announced once. Throws as CarryOut, and what the change throws.
MAILSERVER_EXPORT Recorded CarryOutRecorded(const Actor& actor, const Entry& entry, const Change& change,
                                            const Judging& judge = {});

/// Runs `change` and records what it did. It stores and announces as it always does: nothing is judged or taken back,
/// and what another program stores past the journal at the same moment counts as part of it. `announced` and
/// `refusal` say nothing. Throws what the change throws.
MAILSERVER_EXPORT Recorded RecordAround(const Actor& actor, const Entry& entry, const Change& change);

}  // namespace NIMBO::QUAYPOST_SERVER::admin
