// One run of the tool: which database and which accounts, the log of the library's calls, asking, and changing safely.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "admin/effect.h"
#include "admin/recorded.h"
#include "demo_world.h"
#include "output.h"

namespace delegationctl {

// The options that every verb takes.
struct Globals {
  bool json = false;
  bool quiet = false;
  bool dryRun = false;
  bool yes = false;
  bool force = false;
  bool verbose = false;
  bool demo = false;
  std::string demoDirectory;  // "" for a new one that is deleted at the end
  std::string database;       // "" for the configured one
  std::string color = "auto";
  std::string actor;  // for whom a change is made; "" for who is logged in, who is not judged
};

// Collects the log lines of this process from its making on; they also go to stderr with `verbose`.
class Log {
 public:
  explicit Log(bool verbose);
  ~Log();
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  const std::vector<std::string>& Lines() const { return lines_; }

  // Adds lines of another process, which has shown them already.
  void Append(const std::vector<std::string>& lines) { lines_.insert(lines_.end(), lines.begin(), lines.end()); }

  // From now on the lines go to the configured target, or only to stderr: for a verb that does not end by itself.
  void StopCollecting();

 private:
  static void Sink(void* log, const char* line);

  const bool verbose_;
  bool collect_ = true;
  std::vector<std::string> lines_;
};

// A change, its names resolved.
struct Intent {
  std::string action;                          // for asking: "delete 1 delegation"
  std::string what;                            // "\"Night\" (id 3)"
  std::function<bool(Json::Value& told)> run;  // through the exported functions; what it wants to tell goes into `told`
  bool refreshes = false;                      // it begins with a refresh from the host
  std::optional<long long> undoes = {};        // the record of the journal that it takes back
  bool onlyTry = false;                        // as with --dry-run
  std::string repairs = {};                    // the plan of a repair: asked for in any case, and a copy is kept first
  bool asks = true;                            // false: who loses something loses it by what the host says
};

// What has come of one.
struct Carried {
  NIMBO::QUAYPOST_SERVER::admin::Effect effect;
  Json::Value told;
  std::string copy;  // of the database as it was before a refresh that removes somebody, "" if there is none
  bool dry = false;  // it was only tried out
  std::optional<long long> record;  // its number in the journal
  std::string warning;              // why it is not in the journal

  // Completes the verb's answer to a change: the effect as "effect" and, with --dry-run, instead of the text.
  void AddTo(Answer& answer) const;
};

class Session {
 public:
  // Chooses the accounts and the database; opens nothing yet. A database that --db or DELEGATIONCTL_DB names must
  // exist, unless `mayCreate`. Throws usage, no_database, not_a_demo or demo.
  Session(Globals globals, Log& log, bool mayCreate);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  const Globals& Options() const { return globals_; }

  // Whether the answer may be coloured: on a terminal or on request, and never with NO_COLOR.
  bool Color() const;

  Log& GetLog() const { return log_; }

  // The path of the database file; throws database when the configuration cannot be read.
  std::string DatabasePath() const;

  // Shows `effect` and asks on the terminal whether to go on; with --yes neither. Throws unconfirmed.
  void Confirm(const std::string& action, const std::string& effect) const;

  // Every change goes through here: asks when somebody is going to lose a tab, makes it and tells what it did to
  // people; with --dry-run tries it out instead. It is recorded in the journal, and judged if --actor says for whom it
  // is made. Throws what `intent.run` throws; no_user; guard; unconfirmed; copy; failed, after a refresh that sets
  // right what a change stopped half-way has left; not_announced.
  Carried Carry(const Intent& intent);

  // With --force, believes a host that looks like an outage, unless --actor says for whom, and that is no
  // administrator; throws guard.
  void LiftVanishLimit() const;

  // DelegationRefresh; throws outage or refresh. For an intent's `run`.
  void RefreshFromHost() const;

 private:
  // Whether the library has logged a line that ends with `text`; names that a line quotes stand before its end.
  bool Logged(const char* text) const;
  std::string PrepareRefresh() const;
  NIMBO::QUAYPOST_SERVER::admin::Actor Who() const;
  NIMBO::QUAYPOST_SERVER::admin::Judging JudgingFor(const NIMBO::QUAYPOST_SERVER::admin::Actor& actor) const;
  Carried Try(const Intent& intent, const NIMBO::QUAYPOST_SERVER::admin::Actor& actor) const;

  const Globals globals_;
  Log& log_;
  std::unique_ptr<DemoWorld> demo_;
  // What a change's own refresh has left, from where the change is judged: nobody is blamed for what the host says.
  mutable std::optional<NIMBO::QUAYPOST_SERVER::admin::State> refreshed_;
};

// The advisory lock of one read-change-write: PATH.edit-lock, never the database itself. Waits for up to a minute.
class EditLock {
 public:
  explicit EditLock(const Session& session);
  ~EditLock();
  EditLock(const EditLock&) = delete;
  EditLock& operator=(const EditLock&) = delete;

 private:
  int file_ = -1;
};

}  // namespace delegationctl
