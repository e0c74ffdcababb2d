// delegationctl list: the delegations, highest priority first.
#include <algorithm>
#include <set>

#include "delegations.h"
#include "names.h"
#include "verbs.h"

namespace delegationctl {

namespace {

struct Arguments {
  std::string user;
  std::string group;
  std::string tab;
};

std::set<int> IdsHeldBy(DelegationUser user) {
  std::set<int> ids;
  const Held held = LoadHeld(user);
  for (const auto& role : held.direct) ids.insert(role->getPolicyIdx());
  for (const auto& [group, roles] : held.byGroup) {
    for (const auto& role : roles) ids.insert(role->getPolicyIdx());
  }
  return ids;
}

bool Contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// The delegations that all the filters let through. Whom they are in effect for is loaded `withUsers` only: of a
// hundred thousand users it takes longer than all the rest.
std::vector<Delegation> Load(const Arguments& arguments, bool withUsers) {
  DelegationUser user;
  DelegationGroup group;
  if (!arguments.user.empty()) user = ResolveUser(arguments.user);
  if (!arguments.group.empty()) group = ResolveGroup(arguments.group);
  if (!arguments.tab.empty()) RequireTab(arguments.tab);

  const Snapshot snapshot;
  const std::set<int> held = arguments.user.empty() ? std::set<int>() : IdsHeldBy(user);
  std::vector<Delegation> delegations = LoadDelegations();
  std::erase_if(delegations, [&](const Delegation& delegation) {
    return (!arguments.user.empty() && !held.contains(delegation.id)) ||
           (!arguments.group.empty() && !Contains(delegation.groups, group.getGroupname())) ||
           (!arguments.tab.empty() && !Contains(delegation.tabs, arguments.tab));
  });
  if (withUsers) {
    for (Delegation& delegation : delegations) LoadInEffect(delegation);
  }
  return delegations;
}

Answer List(Session& session, const Arguments& arguments) {
  Answer answer;
  answer.json["delegations"] = Json::arrayValue;
  Table table;
  table.Column("ID", Table::kRight).Column("NAME").Column("PRIORITY", Table::kRight).Column("TABS", Table::kRight);
  table.Column("USERS", Table::kRight).Column("GROUPS", Table::kRight).Column("IN EFFECT", Table::kRight);
  const bool namesOnly = session.Options().quiet && !session.Options().json;
  for (const Delegation& delegation : Load(arguments, !namesOnly)) {
    const auto size = [](const auto& list) { return std::to_string(list.size()); };
    table.Row({std::to_string(delegation.id), delegation.name, std::to_string(delegation.priority),
               size(delegation.tabs), size(delegation.users), size(delegation.groups), size(delegation.inEffect)});
    answer.json["delegations"].append(ToJson(delegation));
    answer.quiet += Printable(delegation.name) + "\n";
  }
  answer.text = answer.quiet.empty() ? "no delegations\n" : table.Text(session.Color());
  return answer;
}

}  // namespace

void AddList(CommandLine& line) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* verb = line.Add({"list", "look", "[--user U] [--group G] [--tab T]",
                             "the delegations, highest priority first", "delegationctl --demo list --tab queue"},
                            [arguments](Session& session) { return List(session, *arguments); });
  verb->add_option("--user", arguments->user, "only those that U holds, directly or through a group")->type_name("U");
  verb->add_option("--group", arguments->group, "only those assigned to the group G")->type_name("G");
  verb->add_option("--tab", arguments->tab, "only those that switch the tab T on")->type_name("T");
}

}  // namespace delegationctl
