// What the verbs that change assignees share.
#pragma once

#include <json/json.h>

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "session.h"

namespace delegationctl {

// The options --user, --group and --no-refresh, as given.
struct Assignees {
  std::vector<std::string> users;
  std::vector<std::string> groups;
  bool noRefresh = false;
};

// Canonical names, each once.
struct AssigneeNames {
  std::vector<std::string> users;
  std::vector<std::string> groups;
};

void AddAssigneeOptions(CLI::App* verb, Assignees& assignees);

// The host's names of the users and groups; throws usage, no_user, no_group or accounts.
AssigneeNames Resolve(const Assignees& assignees);

// A group that is known already keeps its members as of the last refresh; so a change that names groups refreshes
// first, unless --no-refresh.
bool RefreshesBefore(const Assignees& assignees);

// The array that a change document carries as "user_group".
Json::Value AssigneeDocument(const AssigneeNames& names);

}  // namespace delegationctl
