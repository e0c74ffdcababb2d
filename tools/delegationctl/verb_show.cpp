// delegationctl show: one delegation and everybody under it.
#include <fmt/format.h>

#include "delegations.h"
#include "verbs.h"

namespace delegationctl {

namespace {

Answer Show(const std::string& name) {
  const Snapshot snapshot;
  Delegation delegation = FindDelegation(LoadDelegations(), name);
  LoadInEffect(delegation);

  Answer answer;
  answer.json["delegation"] = ToJson(delegation);
  answer.quiet = Printable(delegation.name) + "\n";
  const auto field = [&](const char* label, const std::string& value) {
    answer.text += fmt::format("{:<11}{}\n", label, value.empty() ? "-" : value);
  };
  std::vector<std::string> inEffect;
  for (const auto& [uid, user] : delegation.inEffect) inEffect.push_back(user);
  field("name", Printable(delegation.name));
  field("id", std::to_string(delegation.id));
  field("priority", std::to_string(delegation.priority));
  field("color", Printable(delegation.color));
  field("tabs", Joined(delegation.tabs));
  for (const auto& [tab, data] : delegation.entries)
    field("entry", fmt::format("{}: {}", Printable(tab), Quoted(data)));
  field("users", Joined(delegation.users));
  field("groups", Joined(delegation.groups));
  field("in effect", Joined(inEffect));
  return answer;
}

}  // namespace

void AddShow(CommandLine& line) {
  const auto name = std::make_shared<std::string>();
  CLI::App* verb = line.Add({"show", "look", "DELEGATION", "one delegation: fields, tabs, assignees, who is under it",
                             "delegationctl --demo show Helpdesk"},
                            [name](Session&) { return Show(*name); });
  verb->add_option("DELEGATION", *name)->required();
}

}  // namespace delegationctl
