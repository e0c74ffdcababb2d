/// The unit of database work that an exported call is: one transaction on one handle, nestable.
///
///   RoleDBScope scope(handle, RoleDBScope::kWrite);   // BEGIN IMMEDIATE
///   ... handlers and records work as ever; each batch becomes a savepoint, or a part of the step it is in ...
///   return scope.Commit();                            // else the destructor rolls back
///
/// While a scope exists its handle is pinned: RoleDBScope::Pinned() gives it to everybody who asks for the current
/// database. A scope that could not begin (no handle, a database locked for longer than the busy timeout) pins "no
/// database", so that all work in it fails as it does when the file cannot be opened.
///
/// Two kinds of failure are kept apart. Bad input fails one operation, and its caller decides. A failure of the
/// environment (I/O, memory, corruption, a host lookup without an answer) is noted with NoteEnvironmentFailure() and
/// lets no enclosing scope commit.
///
/// Not for several threads, as the whole library.
#pragma once

#include "role/role_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER {

class MAILSERVER_EXPORT RoleDBScope {
 public:
  enum Kind {
    kRead,   ///< one snapshot for all reads; inside another scope: part of it
    kWrite,  ///< BEGIN IMMEDIATE; inside another scope: a savepoint, refused if that one only reads
    kStep,   ///< inside a scope a savepoint, with all that is begun in it whole or undone; otherwise nothing at all
    kAlone,  ///< for one statement, which is whole or not by itself: kWrite without the savepoint
    kQuery,  ///< for one query, with those that run while it is open: it is their snapshot, so this begins nothing
  };

  /// Begins. `handle` may be null: a scope in which there is no database.
  RoleDBScope(RoleDBHandler* handle, Kind kind);
  /// Rolls back what was not committed.
  ~RoleDBScope();
  RoleDBScope(const RoleDBScope&) = delete;
  RoleDBScope& operator=(const RoleDBScope&) = delete;

  /// Whether it began and work in it can reach the database.
  bool Usable() const;

  /// Keeps the work of this scope; for the outermost one on its handle that is the COMMIT. False when it was rolled
  /// back instead: the scope was not usable, a failure of the environment was noted, or the COMMIT failed.
  bool Commit();

  /// Undoes the work of this scope.
  void Rollback();

  /// Whether a scope exists in this process; `handle` becomes its handle, or null when there is no database in it.
  static bool Pinned(RoleDBHandler*& handle);

  /// Notes a failure of the environment in the innermost scope; without one nothing happens.
  static void NoteEnvironmentFailure();

  /// Notes it if the SQLite result `code` of a read is one.
  static void NoteReadResult(int code);
  /// The same for a write. There SQLITE_ERROR is a statement with a text too long for it, which is bad input.
  static void NoteWriteResult(int code);

 private:
  friend class RoleDBHandler;

  enum class State {
    kRefused,      // no database, or BEGIN failed
    kJoined,       // part of an enclosing scope
    kSavepoint,    // undone on its own inside an enclosing scope
    kPart,         // undone with the step that it is part of
    kTransaction,  // the outermost one on its handle
    kQuerying,     // the outermost one, of the kind kQuery
    kInactive,     // a kStep outside any scope
    kEnded,
  };

  /// Whether the present scope is one of the process that forked this one.
  static bool IsParents();
  /// Whether there is a scope on `handle`.
  static bool IsOn(const RoleDBHandler* handle);

  State Begin(Kind kind);
  bool InTransaction() const;
  bool IsKeptWithLocks();
  void End();

  static RoleDBScope* innermost_;

  RoleDBScope* const outer_;
  RoleDBHandler* const handle_;
  const unsigned int process_;
  State state_ = State::kRefused;
  bool writes_ = false;          ///< the transaction holds the write lock
  RoleDBScope* step_ = nullptr;  ///< the step that it is or is part of
  bool environmentFailed_ = false;
  bool broken_ = false;  ///< a part of this step has failed
};

}  // namespace NIMBO::QUAYPOST_SERVER
