// Transactions and savepoints behind exported calls and batches.
#include "role/role_db_scope.h"

#include "base/log.h"
#include "role/statements.h"
#include "role/this_process.h"

namespace NIMBO::QUAYPOST_SERVER {

namespace {

// Results that say something about the statement or its data, not about the disk, the memory or other processes.
bool IsAboutInput(int code) {
  switch (code & 0xff) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
    case SQLITE_CONSTRAINT:
    case SQLITE_MISMATCH:
    case SQLITE_TOOBIG:
      return true;
    default:
      return false;
  }
}

}  // namespace

RoleDBScope* RoleDBScope::innermost_ = nullptr;

RoleDBScope::RoleDBScope(RoleDBHandler* handle, Kind kind)
    : outer_(innermost_), handle_(handle), process_(ThisProcess()) {
  state_ = Begin(kind);
  if (state_ != State::kInactive) innermost_ = this;
}

RoleDBScope::~RoleDBScope() { Rollback(); }

RoleDBScope::State RoleDBScope::Begin(Kind kind) {
  const RoleDBScope* enclosing = outer_;
  while (enclosing && (enclosing->handle_ != handle_ || enclosing->state_ == State::kQuerying)) {
    enclosing = enclosing->outer_;
  }
  if (!enclosing) {
    if (kind == kStep) return State::kInactive;
    writes_ = kind == kWrite || kind == kAlone;
    if (!handle_ || !handle_->db_ || handle_->process_ != process_) return State::kRefused;
    if (kind == kQuery) return State::kQuerying;
    const char* begin = writes_ ? "BEGIN IMMEDIATE" : "BEGIN";
    const bool idle = sqlite3_get_autocommit(handle_->db_) != 0;
    if (handle_->Exec(begin) == SQLITE_OK) {
      handle_->statements_->Begin();
      return State::kTransaction;
    }
    if (idle && InTransaction()) handle_->Exec("ROLLBACK");  // interrupted when it had already begun
    return State::kRefused;
  }
  if (!enclosing->Usable()) return State::kRefused;
  writes_ = enclosing->writes_;
  step_ = enclosing->step_;
  if (kind == kRead || kind == kQuery) return State::kJoined;
  if (!writes_) {
    LogError("a change inside a scope that only reads is refused");
    return State::kRefused;
  }
  if (kind == kAlone) return State::kJoined;
  if (step_) return State::kPart;
  if (kind == kStep) step_ = this;
  return handle_->ExecKept("SAVEPOINT scope") == SQLITE_OK ? State::kSavepoint : State::kRefused;
}

// SQLite ends a transaction by itself after some errors; a child of fork() has no part in its parent's.
bool RoleDBScope::InTransaction() const {
  return process_ == ThisProcess() && handle_->db_ && sqlite3_get_autocommit(handle_->db_) == 0;
}

bool RoleDBScope::Usable() const {
  if (state_ == State::kInactive) return true;
  if (state_ == State::kQuerying) return process_ == ThisProcess() && handle_->db_;
  return state_ != State::kRefused && state_ != State::kEnded && InTransaction();
}

// Whether the COMMIT that has just failed has stored everything and only could not give the locks back. They go with
// the connection then.
bool RoleDBScope::IsKeptWithLocks() {
  if (!handle_->db_ || sqlite3_extended_errcode(handle_->db_) != SQLITE_IOERR_UNLOCK) return false;
  handle_->Close();
  return true;
}

bool RoleDBScope::Commit() {
  bool kept = Usable() && !environmentFailed_ && !broken_;
  if (kept && state_ == State::kSavepoint) kept = handle_->ExecKept("RELEASE scope") == SQLITE_OK;
  if (kept && state_ == State::kTransaction) kept = handle_->Exec("COMMIT") == SQLITE_OK || IsKeptWithLocks();
  if (!kept) {
    Rollback();
    return false;
  }
  End();
  return true;
}

void RoleDBScope::Rollback() {
  if ((state_ == State::kSavepoint || state_ == State::kTransaction) && Usable()) {
    bool undone = true;
    if (state_ == State::kSavepoint) {
      undone = handle_->Exec("ROLLBACK TO scope") == SQLITE_OK && handle_->Exec("RELEASE scope") == SQLITE_OK;
    }
    if (state_ == State::kTransaction) undone = handle_->Exec("ROLLBACK") == SQLITE_OK;
    if (!undone) environmentFailed_ = true;
    if (!undone && state_ == State::kTransaction) handle_->Close();  // with it go the transaction and its locks
  }
  if (state_ == State::kPart) step_->broken_ = true;
  End();
}

void RoleDBScope::End() {
  if (state_ == State::kEnded || state_ == State::kInactive) return;
  if (environmentFailed_ && outer_) outer_->environmentFailed_ = true;
  if (state_ == State::kTransaction && process_ != ThisProcess()) {
    RoleDBHandler::mustExec_ = true;
  } else if (state_ == State::kTransaction && handle_->statements_) {
    handle_->statements_->End();
  }
  state_ = State::kEnded;
  while (innermost_ && innermost_->state_ == State::kEnded) innermost_ = innermost_->outer_;
}

bool RoleDBScope::IsParents() { return innermost_ && innermost_->process_ != ThisProcess(); }

bool RoleDBScope::IsOn(const RoleDBHandler* handle) {
  const RoleDBScope* scope = innermost_;
  while (scope && scope->handle_ != handle) scope = scope->outer_;
  return scope && handle;
}

bool RoleDBScope::Pinned(RoleDBHandler*& handle) {
  if (!innermost_) return false;
  handle = innermost_->state_ != State::kRefused && !IsParents() ? innermost_->handle_ : nullptr;
  return true;
}

void RoleDBScope::NoteEnvironmentFailure() {
  if (innermost_) innermost_->environmentFailed_ = true;
}

void RoleDBScope::NoteReadResult(int code) {
  if (!IsAboutInput(code)) NoteEnvironmentFailure();
}

void RoleDBScope::NoteWriteResult(int code) {
  if (!IsAboutInput(code) && (code & 0xff) != SQLITE_ERROR) NoteEnvironmentFailure();
}

}  // namespace NIMBO::QUAYPOST_SERVER
