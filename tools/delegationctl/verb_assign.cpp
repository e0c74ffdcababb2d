// delegationctl assign and unassign: who a delegation is assigned to.
#include <fmt/format.h>

#include <algorithm>

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
  Assignees assignees;
};

bool Contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// Those of `names` that are in `present`, or are not, as `wanted` says.
std::vector<std::string> Those(const std::vector<std::string>& names, const std::vector<std::string>& present,
                               bool wanted) {
  std::vector<std::string> out;
  for (const std::string& name : names) {
    if (Contains(present, name) == wanted) out.push_back(name);
  }
  return out;
}

Delegation Load(const std::string& name) {
  const Snapshot snapshot;
  return FindDelegation(LoadDelegations(), name);
}

std::string Named(const AssigneeNames& names) {
  std::vector<std::string> all;
  for (const std::string& user : names.users) all.push_back("user " + user);
  for (const std::string& group : names.groups) all.push_back("group " + group);
  return Joined(all);
}

// The stored name of an assignee who is to be taken off: the host's name, or the name as it stands for one that the
// host no longer has. `resolve` gives the former and throws for an unknown name.
template <class Resolve>
std::string AssignedName(const std::string& name, const std::vector<std::string>& assigned,
                         const std::string& delegation, Resolve resolve) {
  if (Contains(assigned, name)) return name;
  const std::string canonical = resolve(name);
  if (Contains(assigned, canonical)) return canonical;
  throw Exit(errors::kNotAssigned,
             fmt::format("{} is not among those to whom {} is assigned", Quoted(canonical), delegation),
             "delegationctl users shows what a user has and through what");
}

AssigneeNames ResolveAssigned(const Assignees& assignees, const Delegation& delegation) {
  AssigneeNames names;
  const auto userName = [](const std::string& name) { return ResolveUser(name).getUsername(); };
  const auto groupName = [](const std::string& name) { return ResolveGroup(name).getGroupname(); };
  for (const std::string& name : SplitNames(assignees.users)) {
    names.users.push_back(AssignedName(name, delegation.users, Described(delegation), userName));
  }
  for (const std::string& name : SplitNames(assignees.groups)) {
    names.groups.push_back(AssignedName(name, delegation.groups, Described(delegation), groupName));
  }
  return names;
}

// An update names all assignees and the library looks each up; one who is gone from the host would make it fail
// half-way.
void RequirePresent(const AssigneeNames& names, const Delegation& delegation) {
  constexpr char kRemedy[] = "delegationctl refresh removes who is gone; repeat after it";
  for (const std::string& user : names.users) {
    if (!UserIsGone(user)) continue;
    throw Exit(errors::kNoUser,
               fmt::format("the host no longer has the user {}, to whom {} is assigned; nothing was changed",
                           Quoted(user), Described(delegation)),
               kRemedy);
  }
  for (const std::string& group : names.groups) {
    if (!GroupIsGone(group)) continue;
    throw Exit(errors::kNoGroup,
               fmt::format("the host no longer has the group {}, to which {} is assigned; nothing was changed",
                           Quoted(group), Described(delegation)),
               kRemedy);
  }
}

// Who it is assigned to afterwards. `names` are those that were named, `changed` those for whom that is news.
AssigneeNames After(const Delegation& delegation, const AssigneeNames& names, const AssigneeNames& changed,
                    bool assign) {
  if (!assign) return {Those(delegation.users, names.users, false), Those(delegation.groups, names.groups, false)};
  AssigneeNames after = {delegation.users, delegation.groups};
  after.users.insert(after.users.end(), changed.users.begin(), changed.users.end());
  after.groups.insert(after.groups.end(), changed.groups.begin(), changed.groups.end());
  return after;
}

Answer Change(Session& session, const Arguments& arguments, bool assign) {
  if (arguments.assignees.users.empty() && arguments.assignees.groups.empty()) {
    throw Exit(errors::kBadUsage, "nobody is named", "say whom with --user or --group");
  }
  const EditLock lock(session);
  Delegation delegation = Load(arguments.name);
  const AssigneeNames names = assign ? Resolve(arguments.assignees) : ResolveAssigned(arguments.assignees, delegation);
  const bool refreshes = RefreshesBefore(arguments.assignees);
  const std::string id = fmt::format("id:{}", delegation.id);
  const auto change = [&](Json::Value& told) {
    if (refreshes) session.RefreshFromHost();
    delegation = Load(id);  // the refresh may have removed assignees
    const AssigneeNames changed = {Those(names.users, delegation.users, !assign),
                                   Those(names.groups, delegation.groups, !assign)};
    const AssigneeNames after = After(delegation, names, changed, assign);
    told["users"] = JsonArray(after.users);
    told["groups"] = JsonArray(after.groups);
    told["who"] = Named(changed);
    if (changed.users.empty() && changed.groups.empty()) return true;
    RequirePresent(after, delegation);
    delegation.document["user_group"] = AssigneeDocument(after);
    return DelegationDelegationUpdate(delegation.document);
  };
  const Carried carried = session.Carry(
      {assign ? "assign 1 delegation" : "unassign 1 delegation", Described(delegation), change, refreshes});

  Answer answer;
  const std::string who = carried.told["who"].asString();
  answer.json = Reference(delegation.id, delegation.name);
  answer.json["users"] = carried.told["users"];
  answer.json["groups"] = carried.told["groups"];
  answer.json["changed"] = !who.empty();
  answer.text = who.empty()
                    ? fmt::format("{} is so already\n", Described(delegation))
                    : fmt::format("{} {}: {}\n", assign ? "assigned" : "unassigned", Described(delegation), who);
  carried.AddTo(answer);
  return answer;
}

void Add(CommandLine& line, const VerbHelp& help, bool assign) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* verb =
      line.Add(help, [arguments, assign](Session& session) { return Change(session, *arguments, assign); });
  verb->add_option("NAME", arguments->name)->required();
  AddAssigneeOptions(verb, arguments->assignees);
}

}  // namespace

void AddAssign(CommandLine& line) {
  Add(line,
      {"assign", "change", "NAME [--user U,..] [--group G,..]", "assign a delegation to more users and groups",
       "delegationctl --demo assign Helpdesk --group office"},
      true);
}

void AddUnassign(CommandLine& line) {
  Add(line,
      {"unassign", "change", "NAME [--user U,..] [--group G,..]", "take a delegation from users and groups",
       "delegationctl --demo unassign Helpdesk --user grace --yes"},
      false);
}

}  // namespace delegationctl
