// delegationctl users: everybody who has a delegation, what it comes through, and which one counts.
#include <fmt/format.h>

#include "delegations.h"
#include "names.h"
#include "verbs.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

using Roles = std::vector<std::shared_ptr<RoleRole>>;

Json::Value References(const Roles& roles) {
  Json::Value array(Json::arrayValue);
  for (const auto& role : roles) array.append(Reference(role->getPolicyIdx(), role->getName()));
  return array;
}

std::vector<std::string> Names(const Roles& roles) {
  std::vector<std::string> names;
  for (const auto& role : roles) names.push_back(role->getName());
  return names;
}

std::string Dashed(const std::string& text) { return text.empty() ? "-" : text; }

// The delegations in effect, by uid.
std::map<unsigned int, Json::Value> LoadEffects() {
  std::map<unsigned int, Json::Value> effects;
  for (Delegation& delegation : LoadDelegations()) {
    LoadInEffect(delegation);
    for (const auto& [uid, name] : delegation.inEffect) effects[uid] = Reference(delegation.id, delegation.name);
  }
  return effects;
}

Answer Users(Session& session) {
  const Snapshot snapshot;
  const std::map<unsigned int, Json::Value> effects = LoadEffects();
  std::vector<std::shared_ptr<RoleUser>> users;
  if (!DelegationUser::List(Json::Value(), users)) Unreadable();

  Answer answer;
  answer.json["users"] = Json::arrayValue;
  Table table;
  table.Column("UID", Table::kRight).Column("NAME").Column("DIRECT").Column("THROUGH GROUPS").Column("IN EFFECT");
  for (const auto& user : users) {
    const Held held = LoadHeld(*user);
    const auto effect = effects.find(user->getUid());
    Json::Value entry = Json::objectValue;
    std::vector<std::string> through;
    entry["uid"] = user->getUid();
    entry["name"] = user->getUsername();
    entry["direct"] = References(held.direct);
    entry["groups"] = Json::arrayValue;
    for (const auto& [group, roles] : held.byGroup) {
      Json::Value& membership = entry["groups"].append(Json::objectValue);
      membership["name"] = group;
      membership["delegations"] = References(roles);
      for (const auto& role : roles) through.push_back(fmt::format("{} ({})", role->getName(), group));
    }
    entry["in_effect"] = effect == effects.end() ? Json::Value() : effect->second;
    table.Row({std::to_string(user->getUid()), user->getUsername(), Dashed(Joined(Names(held.direct))),
               Dashed(Joined(through)), effect == effects.end() ? "-" : effect->second["name"].asString()});
    answer.quiet += Printable(user->getUsername()) + "\n";
    answer.json["users"].append(entry);
  }
  answer.text = users.empty() ? "no users\n" : table.Text(session.Color());
  return answer;
}

}  // namespace

void AddUsers(CommandLine& line) {
  line.Add({"users", "look", "", "every known user: direct, through groups, in effect", "delegationctl --demo users"},
           Users);
}

}  // namespace delegationctl
