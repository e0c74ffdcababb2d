// delegationctl tabs: the tabs, the web API methods behind them, and who has them.
#include <fmt/format.h>

#include "api/delegation_api.h"
#include "delegations.h"
#include "errors.h"
#include "names.h"
#include "verbs.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

struct Arguments {
  std::string tab;
  std::string user;
  std::string method;
};

std::string Lines(const std::vector<std::string>& names) { return names.empty() ? "" : Joined(names, "\n") + "\n"; }

Answer AllTabs(Session& session) {
  Answer answer;
  const Methods methods = TabMethods();
  Table table;
  table.Column("TAB").Column("METHODS", Table::kRight);
  for (const std::string& tab : Tabs()) {
    const auto& names = methods.at(tab);
    table.Row({tab, std::to_string(names.size())});
    Json::Value& entry = answer.json["tabs"].append(Json::objectValue);
    entry["tab"] = tab;
    entry["methods"] = JsonArray({names.begin(), names.end()});
  }
  answer.text = table.Text(session.Color());
  answer.quiet = Lines(Tabs());
  return answer;
}

Answer OneTab(const std::string& tab) {
  RequireTab(tab);
  const std::set<std::string> names = TabMethods().at(tab);
  Answer answer;
  answer.json["tab"] = tab;
  answer.json["methods"] = JsonArray({names.begin(), names.end()});
  answer.text = answer.quiet = Lines({names.begin(), names.end()});
  return answer;
}

Answer TabsOfUser(const std::string& name) {
  DelegationUser user = ResolveUser(name);
  const Snapshot snapshot;
  RequireReadableEffect(user);
  Json::Value enabled;
  if (!DelegationUserDelegationEntriesGet(name, enabled)) Unreadable();
  std::vector<std::string> tabs;
  for (const Json::Value& tab : enabled["enable_tabs"]) tabs.push_back(tab.asString());
  Answer answer;
  answer.json["user"] = user.getUsername();
  answer.json["tabs"] = JsonArray(tabs);
  answer.quiet = Lines(tabs);
  answer.text = tabs.empty() ? fmt::format("{} has no tabs\n", Printable(user.getUsername())) : answer.quiet;
  return answer;
}

Answer TabsOfMethod(const std::string& method) {
  RequireMethod(method);
  const Methods methods = TabMethods();
  std::vector<std::string> tabs;
  bool everybody = false;
  for (const auto& [tab, names] : methods) {
    if (!names.contains(method)) continue;
    const bool forEverybody = tab == "_allow_webapi_" || tab == "personal";
    everybody = everybody || forEverybody;
    if (!forEverybody) tabs.push_back(tab);
  }
  Answer answer;
  answer.json["method"] = method;
  answer.json["tabs"] = JsonArray(tabs);
  answer.json["everybody"] = everybody;
  answer.quiet = Lines(tabs);
  answer.text = answer.quiet + (everybody ? "every user may call it, with or without a tab\n" : "");
  return answer;
}

Answer RunTabs(Session& session, const Arguments& arguments) {
  if (!arguments.tab.empty() + !arguments.user.empty() + !arguments.method.empty() > 1) {
    throw Exit(errors::kBadUsage, "TAB, --user and --method exclude each other");
  }
  if (!arguments.tab.empty()) return OneTab(arguments.tab);
  if (!arguments.user.empty()) return TabsOfUser(arguments.user);
  if (!arguments.method.empty()) return TabsOfMethod(arguments.method);
  return AllTabs(session);
}

}  // namespace

void AddTabs(CommandLine& line) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* verb = line.Add(
      {"tabs", "look", "[TAB | --user U | --method M]",
       "the tabs; one tab's methods; a user's tabs; the tabs that give a method", "delegationctl --demo tabs queue"},
      [arguments](Session& session) { return RunTabs(session, *arguments); });
  verb->add_option("TAB", arguments->tab);
  verb->add_option("--user", arguments->user, "the tabs that the user U has")->type_name("U");
  verb->add_option("--method", arguments->method, "the tabs that give the web API method M")->type_name("M");
}

}  // namespace delegationctl
