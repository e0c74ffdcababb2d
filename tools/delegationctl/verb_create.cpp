// delegationctl create: a new delegation, with its tabs and assignees.
#include <fmt/format.h>

#include "api/delegation_api.h"
#include "change.h"
#include "delegations.h"
#include "errors.h"
#include "names.h"
#include "verbs.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

struct Arguments {
  std::string name;
  std::string priority = "0";
  std::string color = "none";
  std::vector<std::string> tabs;
  Assignees assignees;
};

Answer Create(Session& session, const Arguments& arguments) {
  Json::Value document;
  if (!DelegationDelegationDefaultEntriesGet(document)) Unreadable();
  for (const std::string& tab : SplitNames(arguments.tabs)) {
    RequireTab(tab);
    document[tab] = "true";
  }
  RequireStorable(arguments.color, "color");
  document["name"] = arguments.name;
  document["color"] = arguments.color;
  document["priority"] = ParseNumber(arguments.priority, "the priority");

  const AssigneeNames names = Resolve(arguments.assignees);

  const EditLock lock(session);
  {
    const Snapshot snapshot;
    RequireFreeName(LoadDelegations(), arguments.name);
  }
  if (!names.users.empty() || !names.groups.empty()) document["user_group"] = AssigneeDocument(names);

  const bool refreshes = RefreshesBefore(arguments.assignees);
  const auto create = [&](Json::Value& told) {
    if (refreshes) session.RefreshFromHost();
    int id = -1;
    const bool created = DelegationDelegationCreate(document, id);
    told["id"] = id;
    return created;
  };
  const Carried carried = session.Carry({"create 1 delegation", Quoted(arguments.name), create, refreshes});

  Answer answer;
  const int id = carried.told["id"].asInt();
  answer.json = Reference(id, arguments.name);
  answer.text = fmt::format("created {} (id {})\n", Quoted(arguments.name), id);
  carried.AddTo(answer);
  return answer;
}

}  // namespace

void AddCreate(CommandLine& line) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* verb = line.Add(
      {"create", "change", "NAME [--priority N] [--color C] [--tab T,..] [--user U,..] [--group G,..]",
       "a new delegation",
       "delegationctl --demo create \"Night shift\" --priority 60 --tab monitor_all --user bob --yes"},
      [arguments](Session& session) { return Create(session, *arguments); }, true);
  verb->add_option("NAME", arguments->name)->required();
  verb->add_option("--priority", arguments->priority, "the higher one is in effect (0)")->type_name("N");
  verb->add_option("--color", arguments->color, "the colour that the web interface shows (none)")->type_name("C");
  AddNameList(verb, "--tab", arguments->tabs, "tabs to switch on")->type_name("T,..");
  AddAssigneeOptions(verb, arguments->assignees);
}

}  // namespace delegationctl
