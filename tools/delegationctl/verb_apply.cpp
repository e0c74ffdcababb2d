// delegationctl export, diff and apply: the delegations as a document, and back.
#include <optional>

#include "admin/document.h"
#include "document_file.h"
#include "errors.h"
#include "verbs.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

struct Arguments {
  std::string file;
  bool prune = false;
  bool noRefresh = false;
};

Answer Export(Session&) {
  Answer answer;
  answer.json = admin::ToDocument(admin::ReadState());
  answer.text = admin::ToText(answer.json);
  answer.quiet = PlanNames(answer.json["delegations"]);
  return answer;
}

// Carries the file out, or only tries it out with `onlyTry`.
Answer CarryOut(Session& session, const Arguments& arguments, bool onlyTry) {
  const DocumentFile file(arguments.file);
  std::optional<EditLock> lock;
  if (!onlyTry) lock.emplace(session);
  const bool everything = onlyTry || session.Options().force;
  const admin::Prune prune = !arguments.prune ? admin::Prune::kNo
                             : everything     ? admin::Prune::kEverything
                                              : admin::Prune::kYes;
  const admin::Plan plan = file.PlanNow(prune);
  Answer answer;
  answer.json["changed"] = !plan.changes.empty();
  answer.json["changes"] = plan.ToJson();
  if (plan.changes.empty()) {
    answer.json["effect"] = admin::Effect().ToJson();
    answer.text = "nothing to change\n";
    return answer;
  }
  const bool refreshes = plan.addsKnownGroup && !arguments.noRefresh;
  const auto apply = [&](Json::Value& told) {
    if (refreshes) session.RefreshFromHost();
    const admin::Plan now = refreshes ? file.PlanNow(prune) : plan;
    told["changes"] = now.ToJson();
    if (admin::Apply(now) != admin::Applied::kNo) return true;
    throw Exit(errors::kLibrary, file.Name() + " was not applied; nothing was changed");
  };
  const Carried carried = session.Carry({"apply " + file.Name(), file.Name(), apply, refreshes, {}, onlyTry});
  answer.json["changes"] = carried.told["changes"];
  const std::string changes = PlanText(answer.json["changes"]);
  answer.text = "applied " + file.Name() + "\n";
  carried.AddTo(answer);
  answer.text.insert(0, changes);
  answer.quiet = PlanNames(answer.json["changes"]);
  return answer;
}

Answer Apply(Session& session, const Arguments& arguments) { return CarryOut(session, arguments, false); }

Answer Diff(Session& session, const Arguments& arguments) {
  Answer answer = CarryOut(session, arguments, true);
  answer.json["differs"] = answer.json["changed"];
  answer.json.removeMember("changed");
  answer.json.removeMember("dry_run");
  answer.status = answer.json["differs"].asBool() ? kNo : kDone;
  return answer;
}

void AddVerb(CommandLine& line, const VerbHelp& help, Answer (*run)(Session&, const Arguments&), bool mayCreate) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* verb = line.Add(
      help, [arguments, run](Session& session) { return run(session, *arguments); }, mayCreate);
  verb->add_option("-f,--file", arguments->file, "the document, - for standard input")->type_name("FILE")->required();
  verb->add_flag("--prune", arguments->prune, "delete the delegations that it does not have")->disable_flag_override();
  verb->add_flag("--no-refresh", arguments->noRefresh, "where a group is added: leave out the refresh before")
      ->disable_flag_override();
}

}  // namespace

void AddExport(CommandLine& line) {
  line.Add({"export", "file", "", "all delegations as a document", "delegationctl --demo export"}, Export);
}

void AddDiff(CommandLine& line) {
  AddVerb(line,
          {"diff", "file", "-f FILE [--prune]", "what apply would change, and for whom",
           "delegationctl --demo export | delegationctl --demo diff -f -"},
          Diff, false);
}

void AddApply(CommandLine& line) {
  AddVerb(line,
          {"apply", "file", "-f FILE [--prune]", "make the delegations what a document says, all or nothing",
           "delegationctl --demo export | delegationctl --demo apply -f -"},
          Apply, true);
}

}  // namespace delegationctl
