// delegationctl refresh: re-reads the host's accounts and recomputes everybody.
#include "verbs.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

Answer Refresh(Session& session) {
  const EditLock lock(session);
  session.LiftVanishLimit();
  const auto refresh = [&](Json::Value&) {
    session.RefreshFromHost();
    return true;
  };
  Intent intent{"a refresh from the host", "the refresh", refresh};
  intent.refreshes = true;
  intent.asks = false;
  const Carried carried = session.Carry(intent);

  Answer answer;
  answer.json["refreshed"] = !carried.dry;
  answer.json["copy"] = carried.copy.empty() ? Json::Value() : Json::Value(carried.copy);
  answer.text = "refreshed\n";
  if (!carried.copy.empty()) {
    answer.text += "the database as it was before is kept in " + Printable(carried.copy) + "\n";
  }
  carried.AddTo(answer);
  return answer;
}

}  // namespace

void AddRefresh(CommandLine& line) {
  line.Add({"refresh", "care", "[--force]",
            "re-read the host's accounts and recompute everybody; --force believes that most of them are gone",
            "delegationctl --demo refresh"},
           Refresh, true);
}

}  // namespace delegationctl
