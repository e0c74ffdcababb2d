/// What the measuring programs work on: a host of invented accounts, a delegation database about them, and SQLite as it
/// is without the library.
///
/// The host has users u0, u1, ... and 100 groups g0 to g99, each user in two of them, and an empty group
/// "administrators". The database knows all of them and has 20 delegations with 29 entries each: each of the groups g0
/// to g79 holds one, and so does every tenth user.
#pragma once

#include <sqlite3.h>

#include <string>
#include <vector>

namespace bench {

constexpr int kGroups = 100;
constexpr int kDelegations = 20;

inline std::string UserName(int i) { return "u" + std::to_string(i); }
inline unsigned int UserId(int i) { return 100000U + static_cast<unsigned int>(i); }

/// A new directory, removed at the end with all that is in it.
class Directory {
 public:
  enum Where {
    kMemory,  ///< on tmpfs: what counts is the processor
    kDisk,    ///< in the working directory: what counts are the syncs
  };
  explicit Directory(Where where);
  ~Directory();
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

/// Replaces the files' contents in place. The first `moved` users are in the groups next to their own.
void WriteAccounts(const std::string& passwd, const std::string& group, int users, int moved = 0);

/// Writes mailserver.conf, with the database in the same directory, and makes it this process's configuration.
void WriteConfiguration(const Directory& directory);

/// Makes `path` the library's database; a new file gets its schema.
void UseDatabase(const std::string& path);

/// Makes `path` the library's database and fills it, effective delegations included.
void MakeDatabase(const std::string& path, int users, int delegations = kDelegations);

/// A connection without the library. Every error ends the program.
class Plain {
 public:
  explicit Plain(const std::string& path);
  ~Plain() { sqlite3_close_v2(db_); }
  Plain(const Plain&) = delete;
  Plain& operator=(const Plain&) = delete;
  void Exec(const std::string& sql) const;
  /// The rows, columns joined with '|'; none is null.
  std::vector<std::string> Rows(const std::string& sql) const;
  sqlite3* get() const { return db_; }

 private:
  sqlite3* db_ = nullptr;
};

/// A prepared statement of a Plain, kept and bound anew.
class Statement {
 public:
  Statement(const Plain& db, const std::string& sql);
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  /// Begins anew with these values, numbers or texts.
  template <class... Values>
  void Bind(const Values&... values) const {
    sqlite3_reset(statement_);
    int position = 0;
    (BindOne(++position, values), ...);
  }
  /// Whether there is a row; at the end it is ready to be bound again.
  bool Next() const;
  /// Runs it to the end with these values.
  template <class... Values>
  void Run(const Values&... values) const {
    Bind(values...);
    while (Next()) continue;
  }
  int Columns() const { return sqlite3_column_count(statement_); }
  long long Int(int column) const { return sqlite3_column_int64(statement_, column); }
  const char* Text(int column) const { return reinterpret_cast<const char*>(sqlite3_column_text(statement_, column)); }

 private:
  void BindOne(int position, long long value) const { sqlite3_bind_int64(statement_, position, value); }
  void BindOne(int position, const std::string& text) const {
    sqlite3_bind_text(statement_, position, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
  }

  sqlite3_stmt* statement_ = nullptr;
};

/// The effective delegation of every user that has one, in one statement; the limit of a recalculation.
extern const char* const kRecalculate;

}  // namespace bench
