// delegationctl delete: removes delegations with all their assignments.
#include <fmt/format.h>

#include <map>

#include "api/delegation_api.h"
#include "delegations.h"
#include "verbs.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

struct Arguments {
  std::string name;
  std::vector<std::string> more;
};

Answer Delete(Session& session, const Arguments& arguments) {
  std::vector<std::string> names = {arguments.name};
  names.insert(names.end(), arguments.more.begin(), arguments.more.end());

  const EditLock lock(session);
  std::map<int, std::string> chosen;
  {
    const Snapshot snapshot;
    const std::vector<Delegation> delegations = LoadDelegations();
    for (const std::string& name : names) {
      const Delegation& delegation = FindDelegation(delegations, name);
      chosen[delegation.id] = delegation.name;
    }
  }
  Answer answer;
  Json::Value ids(Json::arrayValue);
  std::vector<std::string> described;
  answer.json["deleted"] = Json::arrayValue;
  for (const auto& [id, name] : chosen) {
    ids.append(id);
    described.push_back(fmt::format("{} (id {})", Quoted(name), id));
    answer.json["deleted"].append(Reference(id, name));
  }
  const Carried carried =
      session.Carry({"delete " + Count(chosen.size(), "delegation"), "the deletion of " + Joined(described),
                     [&](Json::Value&) { return DelegationDelegationDelete(ids); }});
  answer.text = fmt::format("deleted {}\n", Joined(described));
  carried.AddTo(answer);
  return answer;
}

}  // namespace

void AddDelete(CommandLine& line) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* verb = line.Add({"delete", "change", "NAME...", "delete delegations with all their assignments",
                             "delegationctl --demo delete Helpdesk --yes"},
                            [arguments](Session& session) { return Delete(session, *arguments); });
  verb->add_option("NAME", arguments->name)->required();
  line.TakeMoreNames(verb, arguments->more);
}

}  // namespace delegationctl
