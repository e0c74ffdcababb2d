// delegationctl who-can: everybody who may call a method or has a tab, and through what.
#include <fmt/format.h>

#include "admin/access.h"
#include "asking.h"
#include "progress.h"
#include "verbs.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;
using admin::Access, admin::Permitted;

namespace {

struct Arguments {
  std::string question;
  bool exact = false;
};

std::string Text(const Permitted& permitted, bool color) {
  const std::string what = Described(permitted.question);
  if (permitted.everybody) return "every account " + what + ", with or without a tab\n";
  if (permitted.accounts.empty()) return "nobody " + what + "\n";
  Table table;
  table.Column("UID", Table::kRight).Column("NAME").Column("DELEGATION").Column("THROUGH");
  for (const Access& access : permitted.accounts) {
    table.Row({std::to_string(access.uid), access.name, access.effective ? access.effective->name : "-",
               ThroughText(access)});
  }
  return table.Text(color);
}

Answer WhoCan(Session& session, const Arguments& arguments) {
  const auto question = ReadQuestion(arguments.question, arguments.exact);
  const Permitted permitted = Showing("looking at everybody", [&] { return admin::WhoCan(question); });
  Answer answer;
  answer.json = permitted.ToJson();
  answer.text = Text(permitted, session.Color());
  for (const Access& access : permitted.accounts) answer.quiet += Printable(access.name) + "\n";
  return answer;
}

}  // namespace

void AddWhoCan(CommandLine& line) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* verb = line.Add(
      {"who-can", "ask", "METHOD|TAB [--exact]", "every account that may call METHOD or has TAB, and through what",
       "delegationctl --demo who-can queue"},
      [arguments](Session& session) { return WhoCan(session, *arguments); });
  verb->add_option("METHOD|TAB", arguments->question)->required();
  verb->add_flag("--exact", arguments->exact, "ask also about a method that no tab contains")->disable_flag_override();
}

}  // namespace delegationctl
