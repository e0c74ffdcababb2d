// One run of the tool: which database and which accounts, the log of the library's calls, asking, and changing safely.
#include "session.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <stdlib.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <thread>

#include "admin/what_if.h"
#include "api/delegation_api.h"
#include "effect_text.h"
#include "errors.h"
#include "names.h"
#include "output.h"
#include "platform/mailserver.h"
#include "platform/nimbsdk.h"
#include "progress.h"
#include "refresh.h"
#include "storage/delegation_db_strategy.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

// How the lines end that the library logs where it answers only false, or even true.
constexpr char kOutageLine[] = ": taken for an outage, nothing is refreshed";

[[noreturn]] void NotAnnounced(const std::string& what) {
  throw Exit(errors::kNotAnnounced, what + ": stored, but not announced to the cluster",
             "delegationctl refresh announces the database again");
}

// --db, else DELEGATIONCTL_DB, which the demo world does not heed. As an absolute path, which SQLite can take for
// nothing but a file name.
std::string NamedDatabase(const Globals& globals) {
  if (globals.demo && !globals.database.empty()) {
    throw Exit(errors::kBadUsage, "--demo has a database of its own; leave out --db");
  }
  if (globals.demo) return "";
  const char* fromEnvironment = secure_getenv("DELEGATIONCTL_DB");
  const std::string named = !globals.database.empty() ? globals.database : fromEnvironment ? fromEnvironment : "";
  return named.empty() ? "" : std::filesystem::absolute(named).string();
}

Globals WithDatabase(Globals globals) {
  globals.database = NamedDatabase(globals);
  return globals;
}

}  // namespace

Log::Log(bool verbose) : verbose_(verbose) { MaillogSetSink(Sink, this); }

Log::~Log() { MaillogSetSink(nullptr, nullptr); }

void Log::Sink(void* log, const char* line) {
  auto& self = *static_cast<Log*>(log);
  if (self.verbose_) std::cerr << line << '\n';
  if (self.collect_) self.lines_.emplace_back(line);
}

void Log::StopCollecting() {
  collect_ = false;
  if (!verbose_) MaillogSetSink(nullptr, nullptr);
}

Session::Session(Globals globals, Log& log, bool mayCreate) : globals_(WithDatabase(std::move(globals))), log_(log) {
  if (globals_.demo) {
    demo_ = std::make_unique<DemoWorld>(globals_.demoDirectory);
    demo_->Enter();
  }
  const bool mustExist = globals_.dryRun || (!mayCreate && !globals_.database.empty());
  if (mustExist && !std::filesystem::exists(DatabasePath())) {
    throw Exit(errors::kNoDatabase, fmt::format("there is no database {}", Quoted(DatabasePath())),
               "delegationctl create makes one");
  }
  if (globals_.database.empty()) return;
  DelegationDBStrategy::SetDelegationDBStrategy(std::make_shared<DelegationCustomPathDBStrategy>(globals_.database));
}

bool Session::Color() const {
  const char* off = getenv("NO_COLOR");
  if ((off && *off) || globals_.color == "never" || globals_.json) return false;
  return globals_.color == "always" || isatty(STDOUT_FILENO);
}

std::string Session::DatabasePath() const {
  std::string path = globals_.database;
  if (path.empty() && !GetUserGroupDelegationConfigPath(path)) {
    throw Exit(errors::kDatabase, "the configuration cannot be read");
  }
  return path;
}

void Session::Confirm(const std::string& action, const std::string& effect) const {
  if (globals_.yes) return;
  std::cerr << effect << '\n';
  if (!isatty(STDIN_FILENO)) {
    throw Exit(errors::kUnconfirmed,
               action + " needs confirmation, and there is no terminal to ask on; nothing was changed",
               "repeat with --yes, or see the effect with --dry-run");
  }
  std::cerr << "go on? [y/N] " << std::flush;
  std::string reply;
  if (!std::getline(std::cin, reply)) std::cerr << '\n';
  if (reply != "y" && reply != "Y" && reply != "yes") {
    throw Exit(errors::kUnconfirmed, action + " was not confirmed; nothing was changed");
  }
}

void Session::LiftVanishLimit() const {
  constexpr int kNoLimit = 100;  // percent
  if (!globals_.force) return;
  const admin::Actor actor = Who();
  if (actor.given && NBLIBGroupIsAdminGroupMem(actor.name.c_str(), 0) != 1) {
    throw Exit(errors::kGuard,
               fmt::format("{} may not say that it is no outage; nothing was changed", Quoted(actor.name)),
               "leave out --force, or ask an administrator of this host");
  }
  MailserverSetVanishLimit(kNoLimit);
}

void Session::RefreshFromHost() const {
  if (DelegationRefresh()) {
    if (!globals_.actor.empty()) refreshed_ = admin::ReadState();
    return;
  }
  if (!Logged(kOutageLine)) throw Exit(errors::kRefresh, "the refresh from the host failed");
  throw Exit(errors::kOutage,
             "most stored users or groups are gone from the host: taken for an outage, nothing was changed",
             "if they are really gone: delegationctl refresh --force");
}

// Asks about renamed accounts and, if somebody is going to be removed, keeps the database as it is; the copy's path.
std::string Session::PrepareRefresh() const {
  const RefreshPreview preview = PreviewRefresh();
  if (!preview.renames.empty()) {
    Confirm("a refresh with accounts of another name",
            Joined(preview.renames, "\n") + "\nwho has the id keeps all that was assigned under the old name");
  }
  return preview.removes || !preview.renames.empty() ? KeepCopy(DatabasePath()) : "";
}

namespace {

constexpr char kStopped[] = "stopped";  // member of what a change tells: the Exit that it threw
constexpr char kLog[] = "log";

// Runs the change; an Exit becomes a part of what it tells, so that it can come from another process.
admin::Change Telling(const Intent& intent, const Log& log) {
  return [&intent, &log](Json::Value& told) {
    const auto begin = static_cast<std::ptrdiff_t>(log.Lines().size());
    bool done = false;
    try {
      done = intent.run(told);
    } catch (const Exit& exit) {
      told[kStopped]["code"] = exit.code;
      told[kStopped]["status"] = exit.status;
      told[kStopped]["text"] = exit.text;
      told[kStopped]["remedy"] = exit.remedy;
    }
    told[kLog] = JsonArray({log.Lines().begin() + begin, log.Lines().end()});
    return done;
  };
}

// Throws the Exit that stopped the change, if one did.
void RequireNotStopped(const Json::Value& told) {
  if (!told.isMember(kStopped)) return;
  const Json::Value& stopped = told[kStopped];
  const std::string code = stopped["code"].asString();
  throw Exit({code, static_cast<Status>(stopped["status"].asInt())}, stopped["text"].asString(),
             stopped["remedy"].asString());
}

constexpr char kChangedMeanwhile[] = "changed_meanwhile";

[[noreturn]] void Refuse(const std::string& actor, const admin::Refusal& refusal) {
  if (refusal.rule == kChangedMeanwhile) {
    throw Exit(errors::kChangedSince,
               "somebody has changed the database meanwhile, and the effect is another one now; nothing was changed",
               "repeat, to see it");
  }
  throw Exit(errors::kGuard,
             fmt::format("{} may not do this (rule {}): {}; nothing was changed", Quoted(actor), refusal.rule,
                         Printable(refusal.text)),
             "allowed: " + Printable(refusal.allowed));
}

Carried FromTried(admin::Tried tried) {
  Carried carried;
  carried.effect = std::move(tried.effect);
  tried.result.removeMember(kLog);
  carried.told = std::move(tried.result);
  return carried;
}

}  // namespace

admin::Actor Session::Who() const {
  if (globals_.actor.empty()) return admin::Actor::Current();
  DelegationUser user = ResolveUser(globals_.actor);
  return {user.getUid(), user.getUsername(), true};
}

// Nobody is judged whom the caller has not named: who runs the tool can write the database anyway.
admin::Judging Session::JudgingFor(const admin::Actor& actor) const {
  if (!actor.given) return {};
  return [this, actor](const admin::State& before, const admin::State& after, const admin::Effect& effect) {
    if (!refreshed_) return admin::Judge(actor.name, before, after, effect);
    return admin::Judge(actor.name, *refreshed_, after, admin::Compare(*refreshed_, after));
  };
}

Carried Session::Try(const Intent& intent, const admin::Actor& actor) const {
  const admin::Judging judge = JudgingFor(actor);
  const auto inspect = [&](const admin::State& before, const admin::State& after) {
    const auto refusal = judge ? judge(before, after, admin::Compare(before, after)) : std::nullopt;
    return refusal ? refusal->ToJson() : Json::Value();
  };
  admin::Tried tried = Showing("trying it on a copy", [&] { return admin::TryOut(Telling(intent, log_), inspect); });
  std::vector<std::string> lines;
  for (const Json::Value& line : tried.result[kLog]) lines.push_back(line.asString());
  log_.Append(lines);
  RequireNotStopped(tried.result);
  if (!tried.done) {
    throw Exit(errors::kLibrary, fmt::format("{} cannot be stored; nothing was changed", intent.what));
  }
  const Json::Value refusal = tried.result["inspected"];
  if (!refusal.isNull()) {
    Refuse(actor.name, {refusal["rule"].asString(), refusal["text"].asString(), refusal["allowed"].asString()});
  }
  tried.result.removeMember("inspected");
  Carried carried = FromTried(std::move(tried));
  carried.dry = true;
  return carried;
}

Carried Session::Carry(const Intent& intent) {
  const NIMBOAccountScope accounts(intent.refreshes ? NIMBOAccountScope::kEnumerate : NIMBOAccountScope::kRemember);
  const admin::Actor actor = Who();
  if (globals_.dryRun || intent.onlyTry) return Try(intent, actor);
  std::optional<Json::Value> shown;
  const bool asks = !globals_.yes && intent.asks;
  if (asks || actor.given) {
    const Carried tried = Try(intent, actor);
    const std::string losers = LosersText(tried.effect);
    if (asks && (!intent.repairs.empty() || !losers.empty())) {
      Confirm(intent.action, intent.repairs + losers);
      shown = tried.effect.ToJson();
    }
  }
  const std::string copy = !intent.repairs.empty() ? KeepCopy(DatabasePath(), "repair")
                           : intent.refreshes      ? PrepareRefresh()
                                                   : "";
  refreshed_.reset();
  // One transaction, which also sees to it that what was confirmed is what is done.
  const auto judge = [&, judgeActor = JudgingFor(actor)](const admin::State& before, const admin::State& after,
                                                         const admin::Effect& effect) -> std::optional<admin::Refusal> {
    if (shown && *shown != effect.ToJson()) return admin::Refusal{kChangedMeanwhile, "", ""};
    return judgeActor ? judgeActor(before, after, effect) : std::nullopt;
  };
  admin::Recorded done = Showing("storing it", [&] {
    return admin::CarryOutRecorded(actor, {intent.action, intent.refreshes, intent.undoes}, Telling(intent, log_),
                                   judge);
  });
  if (!done.warning.empty())
    std::cerr << "delegationctl: not recorded in the history: " << Printable(done.warning) << '\n';
  if (done.refusal) Refuse(actor.name, *done.refusal);
  if (!done.announced) NotAnnounced(intent.what);
  RequireNotStopped(done.tried.result);
  if (!done.tried.done) throw Exit(errors::kLibrary, intent.what + " was not stored; nothing was changed");
  Carried carried = FromTried(std::move(done.tried));
  carried.copy = copy;
  carried.record = done.record;
  carried.warning = done.warning;
  return carried;
}

void Carried::AddTo(Answer& answer) const {
  answer.json["effect"] = effect.ToJson();
  if (record) answer.json["record"] = static_cast<Json::Int64>(*record);
  if (!warning.empty()) answer.json["warning"] = warning;
  if (!dry) return;
  answer.json["dry_run"] = true;
  answer.text = EffectText(effect);
  answer.quiet.clear();
  for (const admin::PersonEffect& person : effect.people) answer.quiet += Printable(person.name) + "\n";
}

bool Session::Logged(const char* text) const {
  const auto has = [&](const std::string& line) { return line.ends_with(text); };
  return std::any_of(log_.Lines().begin(), log_.Lines().end(), has);
}

EditLock::EditLock(const Session& session) {
  if (session.Options().dryRun) return;
  constexpr auto kPause = std::chrono::milliseconds(100);
  constexpr int kTries = 600;
  const std::string path = session.DatabasePath() + ".edit-lock";
  file_ = open(path.c_str(), O_RDONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0640);
  if (file_ < 0) {
    throw Exit(errors::kLocked, fmt::format("cannot open the lock file {}: {}", Quoted(path), std::strerror(errno)),
               "changes need a directory that you may write");
  }
  for (int i = 0; flock(file_, LOCK_EX | LOCK_NB) != 0; ++i) {
    if (i == 0) std::cerr << "waiting for another change to end (" << Printable(path) << ")\n";
    if (i == kTries) {
      close(file_);
      throw Exit(errors::kLocked, "another delegationctl is at work; nothing was changed", "repeat when it has ended");
    }
    std::this_thread::sleep_for(kPause);
  }
}

EditLock::~EditLock() {
  if (file_ >= 0) close(file_);
}

}  // namespace delegationctl
