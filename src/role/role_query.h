/// One prepared statement for one run: of those that the transaction keeps, or on its own and finalised on every path.
///
///   Query rows(*db, "select * from user_table");
///   while (rows.Next()) { ... rows.Int<unsigned int>(0) ... rows.Text(1) ... }
///   return rows.Done();
///
/// Once anything failed it is inert: Next() is false, Done() is false, and the failure has been logged at the caller's
/// line. Not for statements that change something: those go through RoleDBHandler::ExeCmds.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/log.h"
#include "base/sql.h"
#include "role/role_db_scope.h"
#include "role/statements.h"

namespace NIMBO::QUAYPOST_SERVER {

class Query {
 public:
  Query(const RoleDBHandler& handle, const std::string& sql, Place place = Place::Here())
      : db_(handle.GetDB()), place_(place), kept_(handle.Take(sql)) {
    if (kept_) {
      statement_ = kept_->statement;
      return;
    }
    result_ = sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement_, nullptr);
    if (result_ == SQLITE_OK) return;
    LogErrorAt(place_, "prepare error: [%d]", result_);
    RoleDBScope::NoteReadResult(result_);
  }
  ~Query() {
    if (kept_) {
      kept_->GiveBack();
    } else {
      sqlite3_finalize(statement_);
    }
  }
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;

  /// Goes to the next row; false behind the last one and after a failure.
  bool Next() {
    if (result_ != SQLITE_OK && result_ != SQLITE_ROW) return false;
    result_ = sqlite3_step(statement_);
    if (result_ != SQLITE_ROW && result_ != SQLITE_DONE) StepFailed();
    return result_ == SQLITE_ROW;
  }

  /// Whether every row was read.
  bool Done() const { return result_ == SQLITE_DONE; }

  /// The text of a column, `whenNull` when it is NULL. All its bytes, also behind an embedded NUL. Valid until the next
  /// row.
  std::string_view View(int column, const char* whenNull = "") {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    if (text) return {text, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
    if (sqlite3_errcode(db_) == SQLITE_NOMEM) {  // not NULL: memory ran out on the way to text
      result_ = SQLITE_NOMEM;
      StepFailed();
    }
    return whenNull;
  }

  /// The same as a copy.
  std::string Text(int column, const char* whenNull = "") { return std::string(View(column, whenNull)); }

  /// The number in a column, read from its text form; a NULL counts as -1. Nothing when it is none of type T.
  template <std::integral T>
  std::optional<T> Int(int column) {
    if (sqlite3_column_type(statement_, column) == SQLITE_INTEGER) {
      const sqlite3_int64 number = sqlite3_column_int64(statement_, column);
      if (number >= 0 && std::in_range<T>(number)) return static_cast<T>(number);
    }
    return ParseInt<T>(Text(column, "-1"));
  }

 private:
  void StepFailed() {
    LogErrorAt(place_, "sqlite3_step: [%d] %s\n", result_, sqlite3_errmsg(db_));
    RoleDBScope::NoteReadResult(result_);
  }

  sqlite3* db_;
  Place place_;
  PreparedStatement* const kept_;
  sqlite3_stmt* statement_ = nullptr;
  int result_ = SQLITE_OK;
};

}  // namespace NIMBO::QUAYPOST_SERVER
