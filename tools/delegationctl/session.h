// One run of the tool: which database and which accounts, the log of the library's calls, asking, and changing safely.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "demo_world.h"

namespace delegationctl {

// The options that every verb takes.
struct Globals {
  bool json = false;
  bool quiet = false;
  bool yes = false;
  bool force = false;
  bool verbose = false;
  bool demo = false;
  std::string demoDirectory;  // "" for a new one that is deleted at the end
  std::string database;       // "" for the configured one
  std::string color = "auto";
};

// Collects the log lines of this process from its making on; they also go to stderr with `verbose`.
class Log {
 public:
  explicit Log(bool verbose);
  ~Log();
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  const std::vector<std::string>& Lines() const { return lines_; }

  // From now on the lines go to the configured target, or only to stderr: for a verb that does not end by itself.
  void StopCollecting();

 private:
  static void Sink(void* log, const char* line);

  const bool verbose_;
  bool collect_ = true;
  std::vector<std::string> lines_;
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

  // Runs DelegationRefresh. If it is going to remove anybody, the database as it was is kept first, and the copy's path
  // is returned, "" otherwise. Throws outage, refresh, copy or database.
  std::string Refresh();

  // Runs a change that the library makes: `what` names it ("\"Night\" (id 3)"). Throws failed, after a refresh that
  // sets right what a change stopped half-way has left, or not_announced.
  void Store(const std::string& what, const std::function<bool()>& change);

  // Throws not_announced when a refresh of this run was stored and could not be announced.
  void RequireRefreshAnnounced() const;

 private:
  // Whether the library has logged a line that ends with `text`; names that a line quotes stand before its end.
  bool Logged(const char* text) const;

  const Globals globals_;
  Log& log_;
  std::unique_ptr<DemoWorld> demo_;
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
