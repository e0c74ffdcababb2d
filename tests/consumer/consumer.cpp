// Uses the installed library on a database of its own. Exit status 0 when every answer is as expected.
//
// usage: consumer DATABASE
#include <admin/state.h>
#include <api/delegation_api.h>
#include <storage/delegation_db_strategy.h>
#include <tables/delegation_default_entries.h>

#include <cstdio>

using namespace NIMBO::QUAYPOST_SERVER;

int main(int, char** argv) {
  DelegationDBStrategy::SetDelegationDBStrategy(std::make_shared<DelegationCustomPathDBStrategy>(argv[1]));
  std::vector<std::string> types;
  DelegationUtilGetAllDefaultTypeDelegationEntry(types);
  Json::Value change;
  change["name"] = "Queue keepers";
  change["color"] = "green";
  change["priority"] = 10;
  for (const std::string& type : types) change[type] = type == "queue";

  int id = -1;
  Json::Value listed;
  const bool created = DelegationDelegationCreate(change, id) && id == 1;
  const bool found = DelegationDelegationList(Json::nullValue, listed) && listed[0]["queue"] == "true" &&
                     admin::ReadState().delegations.at(1).HasTab("queue");
  const int unknown = DelegationUserAllowWebapi("no such account", "Webapi_Queue_Flush_v1");
  std::printf("created %d, found %d, an unknown account gets %d\n", created, found, unknown);
  return created && found && unknown == -1 ? 0 : 1;
}
