/// The handle of one database file: opening, schema upgrade, batches of statements, and the registry of open handles.
///
///   auto* db = new SomeDBHandler(path);           // derives from RoleDBHandler, knows its schema
///   if (db->Connect() != 0) { delete db; ... }    // opens or creates the file, calls _UpgradeDB
///   db->ExeCmds(cmds, true);                      // all of them or none
///
/// A handle outlives its connection: EnsureCurrent() replaces the connection after a fork and when the file at the path
/// is another one. The journal mode of the file is its own and is never changed.
#pragma once

#include <sqlite3.h>
#include <sys/types.h>

#include <list>
#include <map>
#include <memory>
#include <string>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER {

/// Complete SQL statements in the order in which ExeCmds is to run them.
class RoleSQLCmd {
 public:
  void Add(std::string statement) { statements_.push_back(std::move(statement)); }
  const std::list<std::string>& Statements() const { return statements_; }

 private:
  std::list<std::string> statements_;
};

class Statements;
struct PreparedStatement;

class MAILSERVER_EXPORT RoleDBHandler {
 public:
  /// Stores the path; opens nothing. A relative path counts from the working directory at the time of Connect().
  explicit RoleDBHandler(const std::string& path);
  virtual ~RoleDBHandler();
  RoleDBHandler(const RoleDBHandler&) = delete;
  RoleDBHandler& operator=(const RoleDBHandler&) = delete;

  /// Brings the schema of a freshly connected database from `version` (its user_version) to the current one.
  /// 0 on success, -1 on failure.
  virtual int _UpgradeDB(int version) = 0;

  /// Opens the file, reads user_version and calls _UpgradeDB. 0 on success.
  ///
  /// A file that does not exist is created, mode 0640, but only if this process has never had it open: a file that
  /// vanishes is a failure, not a reason to start from nothing. Refused are a symbolic link as last component, what is
  /// no regular file, and a file that everybody may write. First opens by several processes wait for each other on
  /// the lock file PATH.lock.
  int Connect();

  /// SQLite's busy timeout in milliseconds; 60,000 until it is set.
  void SetBusyTimeout(int milliseconds);

  /// Runs the statements in order; 0 on success. With `transaction` all of them are stored or none. Inside a
  /// RoleDBScope they become part of its transaction.
  int ExeCmds(const RoleSQLCmd& cmds, bool transaction);

  /// The open connection, null while there is none.
  sqlite3* GetDB() const { return db_; }

  /// Sees to it that the connection is this process's own and leads to the file that is at the path now; opens anew
  /// if not. False, with a log line, when that fails: then there is no connection. After a fork inside a transaction
  /// the child gets none until it calls exec: it has a copy of SQLite's lock table without the locks. The same goes for
  /// a child of a process that had opened a file in write-ahead-log mode: the log could be removed under it.
  bool EnsureCurrent();

  /// Closes and destroys the handle registered under `key`, if there is one; not inside a RoleDBScope on it.
  static void CloseRoleDBHandler(const std::string& key);

  /// The open handles by registry key; the map owns them. Never destroyed, so it can be used while the process exits.
  static std::map<std::string, RoleDBHandler*>& _singleRoleDBHandler;

 protected:
  int lastResult_ = -1;  ///< SQLite's result of the last statement the handle ran itself; -1: failed without one
  sqlite3* db_ = nullptr;
  std::string path_;

 private:
  friend class RoleDBScope;
  friend class Query;

  bool Open();
  bool BringUpToDate();
  bool ReadVersion(int& version);
  bool IsSameFile() const;
  void Close();
  PreparedStatement* Take(const std::string& statement) const;
  int Exec(const char* statement);             ///< on its own; takes no memory, so that a destructor can roll back
  int ExecKept(const std::string& statement);  ///< one that the transaction keeps prepared
  int Judge(int result);

  static bool mustExec_;  ///< this process is a child whose copy of SQLite's lock table is of no use

  std::unique_ptr<Statements> statements_;  ///< of db_
  int busyTimeout_ = 60000;
  unsigned int process_ = 0;  ///< the one that opened db_
  dev_t device_ = 0;          ///< the file that was opened
  ino_t inode_ = 0;
};

}  // namespace NIMBO::QUAYPOST_SERVER
