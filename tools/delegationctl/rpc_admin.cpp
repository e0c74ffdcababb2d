// The methods admin.*: a table of them, and what each does.
#include "rpc_admin.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>

#include "admin/access.h"
#include "admin/check.h"
#include "admin/document.h"
#include "admin/explain.h"
#include "admin/journal.h"
#include "admin/recorded.h"
#include "document_file.h"
#include "errors.h"
#include "names.h"
#include "output.h"
#include "platform/nimbsdk.h"
#include "rpc_answer.h"
#include "undo.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;
using admin::Journal;

namespace {

Json::Value Result(Json::Value returned, Json::Value out) {
  Json::Value result;
  result["return"] = std::move(returned);
  result["out"] = std::move(out);
  return result;
}

// The member of an object with arguments, null when it is left out; throws usage for one of another type.
const Json::Value& Member(const Json::Value& object, const char* name, Json::ValueType type) {
  if (!object.isObject()) throw Exit(errors::kBadUsage, "the argument is no object");
  const Json::Value& member = object[name];
  const bool isInteger = member.type() == Json::intValue || member.type() == Json::uintValue;
  const bool fits = type == Json::intValue ? isInteger && member.isInt64() : member.type() == type;
  if (member.isNull() || fits) return member;
  throw Exit(errors::kBadUsage, fmt::format("the member {} is of the wrong type", Quoted(name)));
}

// Throws usage for an argument that has other members: a misspelt one must not be taken for one that is left out.
void RequireMembersOf(const Json::Value& object, std::initializer_list<std::string_view> known) {
  if (!object.isObject()) throw Exit(errors::kBadUsage, "the argument is no object");
  for (const std::string& name : object.getMemberNames()) {
    if (std::find(known.begin(), known.end(), name) != known.end()) continue;
    throw Exit(errors::kBadUsage, fmt::format("there is no member {}", Quoted(name)));
  }
}

// ---- Changes: judged if an actor is given, and recorded ----

admin::Actor ActorOf(const Json::Value& argument) {
  const Json::Value& name = Member(argument, "actor", Json::stringValue);
  if (name.isNull() && argument.isMember("actor")) {
    throw Exit(errors::kBadUsage, "the member \"actor\" is of the wrong type");
  }
  if (name.isNull()) return admin::Actor::Current();
  DelegationUser user = ResolveUser(name.asString());
  return {user.getUid(), user.getUsername(), true};
}

// What became of a change: what it told, "effect", "record", "announced", and "refused" or "warning" where there is
// one.
Json::Value Carry(const admin::Actor& actor, const admin::Entry& entry, const admin::Change& change, bool isJudged) {
  admin::Judging judge;
  if (isJudged) judge = std::bind_front(admin::Judge, actor.name);
  const admin::Recorded done = admin::CarryOutRecorded(actor, entry, change, judge);
  Json::Value result = done.tried.result;
  result["return"] = done.tried.done && done.announced;
  result["effect"] = done.tried.effect.ToJson();
  result["record"] = done.record ? Json::Value(static_cast<Json::Int64>(*done.record)) : Json::Value();
  result["announced"] = done.announced;
  if (done.refusal) result["refused"] = done.refusal->ToJson();
  if (!done.warning.empty()) result["warning"] = done.warning;
  return result;
}

// {"actor", "method", "params"}: an exported function that changes something. A refresh is nobody's doing.
Json::Value Change(Json::Value& params) {
  RequireMembersOf(params[0], {"actor", "method", "params"});
  const std::string method = Member(params[0], "method", Json::stringValue).asString();
  const Json::Value& arguments = Member(params[0], "params", Json::arrayValue);
  const RpcMethod* const exported = FindExported(method);
  if (!exported || exported->kind == RpcMethod::kReads) {
    throw Exit(errors::kBadUsage, fmt::format("{} is no function that changes something", Quoted(method)));
  }
  if (!Fit(arguments, *exported)) {
    throw Exit(errors::kBadUsage, fmt::format("these are no arguments of {}", Quoted(method)));
  }
  const admin::Actor actor = ActorOf(params[0]);
  const auto run = [&](Json::Value& told) {
    Json::Value writable = arguments;
    told = exported->call(writable);
    return told["return"].asBool();
  };
  const bool refreshes = exported->kind == RpcMethod::kRefreshes;
  return Carry(actor, {method, refreshes, {}}, run, actor.given && !refreshes);
}

// {"actor", "number", "force"}
Json::Value Undo(Json::Value& params) {
  RequireMembersOf(params[0], {"actor", "number", "force"});
  const long long number = Member(params[0], "number", Json::intValue).asInt64();
  const bool force = Member(params[0], "force", Json::booleanValue).asBool();
  const NIMBOAccountScope accounts(NIMBOAccountScope::kRemember);
  const admin::Actor actor = ActorOf(params[0]);
  admin::UndoPlan plan;
  {
    Journal journal(Journal::CurrentPath(), Journal::kWrite);
    journal.CatchUp();
    plan = RequireUndoable(journal, number, force);
  }
  return Carry(
      actor, {fmt::format("undo {}", number), false, number}, [&](Json::Value&) { return admin::Undo(plan); },
      actor.given);
}

// ---- Documents ----

Json::Value Export(Json::Value&) { return Result(true, admin::ToDocument(admin::ReadState())); }

// {"document", "prune", "force"}; `force` too lets "prune" delete everything.
admin::Plan PlanOf(const Json::Value& argument, bool force) {
  const bool prune = Member(argument, "prune", Json::booleanValue).asBool();
  const bool everything = force || Member(argument, "force", Json::booleanValue).asBool();
  return PlanNow(Member(argument, "document", Json::objectValue), !prune       ? admin::Prune::kNo
                                                                  : everything ? admin::Prune::kEverything
                                                                               : admin::Prune::kYes);
}

// {"document", "prune"}
Json::Value Diff(Json::Value& params) {
  RequireMembersOf(params[0], {"document", "prune"});
  const NIMBOAccountScope accounts(NIMBOAccountScope::kRemember);
  const admin::Plan plan = PlanOf(params[0], true);
  const admin::Tried tried = admin::TryOut([&](Json::Value&) { return Apply(plan) != admin::Applied::kNo; });
  Json::Value out;
  out["differs"] = !plan.changes.empty();
  out["changes"] = plan.ToJson();
  out["effect"] = tried.effect.ToJson();
  return Result(tried.done, std::move(out));
}

// {"actor", "document", "prune", "force"}
Json::Value Apply(Json::Value& params) {
  RequireMembersOf(params[0], {"actor", "document", "prune", "force"});
  const NIMBOAccountScope accounts(NIMBOAccountScope::kRemember);
  const admin::Actor actor = ActorOf(params[0]);
  const admin::Plan plan = PlanOf(params[0], false);
  const auto change = [&](Json::Value& told) {
    told["changes"] = plan.ToJson();
    return Apply(plan) == admin::Applied::kYes;
  };
  return Carry(actor, {"apply", false, {}}, change, actor.given);
}

// ---- The journal ----

// {"user", "delegation", "since": seconds since 1970}
Json::Value History(Json::Value& params) {
  RequireMembersOf(params[0], {"user", "delegation", "since"});
  admin::RecordFilter filter;
  const Json::Value& user = Member(params[0], "user", Json::stringValue);
  const Json::Value& delegation = Member(params[0], "delegation", Json::stringValue);
  const Json::Value& since = Member(params[0], "since", Json::intValue);
  if (!user.isNull()) filter.user = user.asString();
  if (!delegation.isNull()) filter.delegation = delegation.asString();
  if (!since.isNull()) filter.since = static_cast<std::time_t>(since.asInt64());
  const std::string path = Journal::CurrentPath();
  try {
    if (Journal(path, Journal::kRead).Exists()) Journal(path, Journal::kWrite).CatchUp();
  } catch (const admin::Error&) {
    // it may only be read, or is damaged, which is said below
  }
  Json::Value records(Json::arrayValue);
  for (const admin::Record& record : Journal(path, Journal::kRead).List(filter)) records.append(record.ToJson());
  return Result(true, std::move(records));
}

Json::Value HistoryVerify(Json::Value&) {
  const admin::Verification result = Journal(Journal::CurrentPath(), Journal::kRead).Verify();
  return Result(result.intact, result.ToJson());
}

// ---- Who may do what ----

admin::Question QuestionOf(const Json::Value& argument) {
  const admin::Question question{Member(argument, "method", Json::stringValue).asString(),
                                 Member(argument, "tab", Json::stringValue).asString()};
  if (!question.tab.empty()) RequireTab(question.tab);
  return question;
}

// {"user", "method" or "tab" or neither}
Json::Value Explain(Json::Value& params) {
  RequireMembersOf(params[0], {"user", "method", "tab"});
  const admin::Question question = QuestionOf(params[0]);
  const NIMBOAccountScope accounts(NIMBOAccountScope::kRemember);
  const std::string user = Member(params[0], "user", Json::stringValue).asString();
  ResolveUser(user);
  return Result(true, admin::Explain(user, question).ToJson());
}

Json::Value Review(Json::Value&) { return Result(true, admin::MakeReview().ToJson()); }

// {"method" or "tab"}
Json::Value WhoCan(Json::Value& params) {
  RequireMembersOf(params[0], {"method", "tab"});
  return Result(true, admin::WhoCan(QuestionOf(params[0])).ToJson());
}

// {"cluster": whether to announce the database to see whether the cluster answers; true unless given}
Json::Value Check(Json::Value& params) {
  RequireMembersOf(params[0], {"cluster"});
  const Json::Value& cluster = Member(params[0], "cluster", Json::booleanValue);
  admin::CheckOptions options;
  options.database = RpcDatabase();
  options.cluster = cluster.isNull() || cluster.asBool();
  const admin::Report report = admin::Check(options);
  return Result(report.Healthy(), report.ToJson());
}

constexpr RpcMethod kMethods[] = {
    {"admin.apply", "j", Apply},     {"admin.change", "j", Change},
    {"admin.check", "j", Check},     {"admin.diff", "j", Diff},
    {"admin.explain", "j", Explain}, {"admin.export", "", Export},
    {"admin.history", "j", History}, {"admin.history_verify", "", HistoryVerify},
    {"admin.review", "", Review},    {"admin.undo", "j", Undo},
    {"admin.who_can", "j", WhoCan},
};

}  // namespace

std::span<const RpcMethod> AdminMethods() { return kMethods; }

std::string& RpcDatabase() {
  static std::string path;
  return path;
}

}  // namespace delegationctl
