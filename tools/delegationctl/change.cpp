// What the verbs that change assignees share.
#include "change.h"

#include <algorithm>

#include "command_line.h"
#include "names.h"

namespace delegationctl {

namespace {

void AddOnce(std::vector<std::string>& names, const std::string& name) {
  if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
}

void Append(Json::Value& array, const std::vector<std::string>& names, const char* type) {
  for (const std::string& name : names) {
    Json::Value& assignee = array.append(Json::objectValue);
    assignee["type"] = type;
    assignee["name"] = name;
  }
}

}  // namespace

void AddAssigneeOptions(CLI::App* verb, Assignees& assignees) {
  AddNameList(verb, "--user", assignees.users, "users, by short name")->type_name("U,..");
  AddNameList(verb, "--group", assignees.groups, "groups")->type_name("G,..");
  verb->add_flag("--no-refresh", assignees.noRefresh, "with --group: leave out the refresh from the host before")
      ->disable_flag_override();
}

AssigneeNames Resolve(const Assignees& assignees) {
  AssigneeNames names;
  for (const std::string& name : SplitNames(assignees.users)) AddOnce(names.users, ResolveUser(name).getUsername());
  for (const std::string& name : SplitNames(assignees.groups)) AddOnce(names.groups, ResolveGroup(name).getGroupname());
  return names;
}

bool RefreshesBefore(const Assignees& assignees) { return !assignees.groups.empty() && !assignees.noRefresh; }

Json::Value AssigneeDocument(const AssigneeNames& names) {
  Json::Value array(Json::arrayValue);
  Append(array, names.users, "user");
  Append(array, names.groups, "group");
  return array;
}

}  // namespace delegationctl
