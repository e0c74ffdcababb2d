// delegationctl can: whether a user may call a web API method.
#include <fmt/format.h>

#include "api/delegation_api.h"
#include "delegations.h"
#include "errors.h"
#include "names.h"
#include "verbs.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

enum AccessAnswer { kAccessError = -1, kAllowed = 0, kNotAllowed = 1 };

struct Arguments {
  std::string user;
  std::string method;
  bool exact = false;
};

Answer Can(const Arguments& arguments) {
  DelegationUser user = ResolveUser(arguments.user);
  if (!arguments.exact) RequireMethod(arguments.method, "ask about it as it stands with --exact");

  const int access = DelegationUserAllowWebapi(arguments.user, arguments.method);
  if (access == kNotAllowed) {
    const Snapshot snapshot;  // a database that cannot be read is no "no"
    RequireReadableEffect(user);
  } else if (access != kAllowed) {
    throw Exit(errors::kAccessCheck, fmt::format("the access check for {} failed", Quoted(user.getUsername())));
  }

  Answer answer;
  answer.json["user"] = user.getUsername();
  answer.json["method"] = arguments.method;
  answer.json["allowed"] = access == kAllowed;
  answer.text = access == kAllowed ? "yes\n" : "no\n";
  answer.status = access == kAllowed ? kDone : kNo;
  return answer;
}

}  // namespace

void AddCan(CommandLine& line) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* verb = line.Add(
      {"can", "ask", "USER METHOD [--exact]", "whether USER may call the web API METHOD: yes or no (alias can-i)",
       "delegationctl --demo can bob Webapi_Queue_Flush_v1"},
      [arguments](Session&) { return Can(*arguments); });
  verb->alias("can-i");
  verb->add_option("USER", arguments->user)->required();
  verb->add_option("METHOD", arguments->method)->required();
  verb->add_flag("--exact", arguments->exact, "ask also about a method that no tab contains")->disable_flag_override();
}

}  // namespace delegationctl
