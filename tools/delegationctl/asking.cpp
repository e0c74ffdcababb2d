// What the verbs that ask who may do what have in common.
#include "asking.h"

#include <fmt/format.h>

#include <algorithm>

#include "admin/methods.h"
#include "errors.h"
#include "names.h"
#include "output.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

admin::Question ReadQuestion(const std::string& name, bool exact) {
  std::vector<std::string> known = Tabs();
  if (std::find(known.begin(), known.end(), name) != known.end()) return {.method = "", .tab = name};
  if (exact || admin::Methods().contains(name)) return {.method = name, .tab = ""};
  for (const auto& [method, tabs] : admin::Methods()) known.push_back(method);
  std::string remedy = DidYouMean(name, known);
  if (remedy.empty()) remedy = "delegationctl tabs lists the tabs, delegationctl tabs TAB their methods;";
  throw Exit(errors::kNoMethod, fmt::format("{} is no tab, and no tab contains a method of that name", Quoted(name)),
             remedy + " ask about a method as it stands with --exact");
}

std::string Described(const admin::Question& question, bool negated) {
  if (question.tab.empty()) return (negated ? "may not call " : "may call ") + Printable(question.method);
  return (negated ? "has not the tab " : "has the tab ") + Printable(question.tab);
}

std::string ThroughText(const admin::Access& access) {
  std::vector<std::string> through;
  if (access.administrator) through.push_back("administrators");
  if (access.direct) through.push_back("direct");
  for (const std::string& group : access.groups) through.push_back("group " + group);
  if (access.effective && !access.direct && access.groups.empty()) through.push_back("nothing that is stored");
  return Joined(through);
}

}  // namespace delegationctl
