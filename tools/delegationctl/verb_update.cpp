// delegationctl update: changes a delegation's fields and tabs; its assignees stay.
#include <fmt/format.h>

#include <algorithm>

#include "api/delegation_api.h"
#include "delegations.h"
#include "errors.h"
#include "names.h"
#include "verbs.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

struct Arguments {
  std::string name;
  std::string rename;
  std::string priority;
  std::string color;
  std::vector<std::string> on;
  std::vector<std::string> off;
};

// The tabs' new data. Throws usage for a tab that is to be both on and off.
Json::Value TabData(const Arguments& arguments) {
  Json::Value defaults, data(Json::objectValue);
  if (!DelegationDelegationDefaultEntriesGet(defaults)) Unreadable();
  for (const std::string& tab : SplitNames(arguments.on)) {
    RequireTab(tab);
    data[tab] = "true";
  }
  for (const std::string& tab : SplitNames(arguments.off)) {
    RequireTab(tab);
    if (data.isMember(tab))
      throw Exit(errors::kBadUsage, fmt::format("the tab {} is both in --on and in --off", Quoted(tab)));
    data[tab] = defaults[tab];
  }
  return data;
}

// The members that the options name, with their new values. Throws usage.
Json::Value NewMembers(const Arguments& arguments) {
  Json::Value members = TabData(arguments);
  if (!arguments.rename.empty()) members["name"] = arguments.rename;
  if (!arguments.priority.empty()) members["priority"] = ParseNumber(arguments.priority, "the priority");
  if (!arguments.color.empty()) {
    RequireStorable(arguments.color, "color");
    members["color"] = arguments.color;
  }
  if (members.empty()) {
    throw Exit(errors::kBadUsage, "nothing to change is given", "delegationctl update --help shows the options");
  }
  return members;
}

// Stores the members in the delegation as it is now.
bool Store(int id, const Json::Value& members) {
  const std::vector<Delegation> delegations = LoadDelegations();
  Json::Value document = FindDelegation(delegations, fmt::format("id:{}", id)).document;
  for (const std::string& member : members.getMemberNames()) document[member] = members[member];
  document.removeMember("user_group");
  return DelegationDelegationUpdate(document);
}

Answer Update(Session& session, const Arguments& arguments) {
  const Json::Value members = NewMembers(arguments);
  const EditLock lock(session);
  std::vector<Delegation> delegations;
  {
    const Snapshot snapshot;
    delegations = LoadDelegations();
  }
  const Delegation& delegation = FindDelegation(delegations, arguments.name);
  if (members.isMember("name")) RequireFreeName(delegations, arguments.rename, delegation.id);

  Json::Value document = delegation.document;
  std::vector<std::string> changes;
  for (const std::string& member : members.getMemberNames()) {
    if (document[member] == members[member]) continue;
    changes.push_back(fmt::format("{} {} -> {}", member, document[member].asString(), members[member].asString()));
    document[member] = members[member];
  }
  Answer answer;
  answer.json = Reference(delegation.id, document["name"].asString());
  answer.json["changed"] = !changes.empty();
  if (changes.empty()) {
    answer.text = fmt::format("{} is so already\n", Described(delegation));
    return answer;
  }
  const Carried carried = session.Carry(
      {"update 1 delegation", Described(delegation), [&](Json::Value&) { return Store(delegation.id, members); }});
  answer.text = fmt::format("updated {}: {}\n", Described(delegation), Joined(changes));
  carried.AddTo(answer);
  return answer;
}

}  // namespace

void AddUpdate(CommandLine& line) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* verb =
      line.Add({"update", "change", "NAME [--rename NEW] [--priority N] [--color C] [--on T,..] [--off T,..]",
                "change a delegation's fields and tabs; its assignees stay",
                "delegationctl --demo update Helpdesk --on log_report --yes"},
               [arguments](Session& session) { return Update(session, *arguments); });
  verb->add_option("NAME", arguments->name)->required();
  verb->add_option("--rename", arguments->rename, "the new name")->type_name("NEW");
  verb->add_option("--priority", arguments->priority, "the higher one is in effect")->type_name("N");
  verb->add_option("--color", arguments->color, "the colour that the web interface shows")->type_name("C");
  AddNameList(verb, "--on", arguments->on, "tabs to switch on")->type_name("T,..");
  AddNameList(verb, "--off", arguments->off, "tabs to switch off")->type_name("T,..");
}

}  // namespace delegationctl
