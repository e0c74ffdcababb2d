/// One prepared statement of this library's own: bound, read row by row, finalised on every path. Every failure throws
/// Error. Private.
///
///   Rows rows(db, "select uid, username from user_table where uid > ?", 1000);
///   while (rows.Next()) Use(rows.Number(0), rows.Text(1));
#pragma once

#include <sqlite3.h>

#include <concepts>
#include <string>

#include "admin/error.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

class Rows {
 public:
  template <class... Values>
  explicit Rows(sqlite3* db, const std::string& sql, const Values&... values) : db_(db) {
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement_, nullptr) != SQLITE_OK) Fail();
    int position = 0;
    (Bind(++position, values), ...);
  }
  ~Rows() { sqlite3_finalize(statement_); }
  Rows(const Rows&) = delete;
  Rows& operator=(const Rows&) = delete;

  bool Next() {
    const int result = sqlite3_step(statement_);
    if (result != SQLITE_ROW && result != SQLITE_DONE) Fail();
    return result == SQLITE_ROW;
  }

  /// Runs it to its end.
  void Run() {
    while (Next()) {
    }
  }

  bool IsNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
  long long Number(int column) const { return sqlite3_column_int64(statement_, column); }
  std::string Text(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    return text ? std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))) : "";
  }

 private:
  [[noreturn]] void Fail() {
    const std::string text = sqlite3_errmsg(db_);
    sqlite3_finalize(statement_);
    statement_ = nullptr;
    throw Error(Error::kDatabase, "SQLite: " + text);
  }
  void Bind(int position, std::integral auto value) { sqlite3_bind_int64(statement_, position, value); }
  void Bind(int position, const std::string& text) {
    sqlite3_bind_text(statement_, position, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
  }

  sqlite3* db_;
  sqlite3_stmt* statement_ = nullptr;
};

}  // namespace NIMBO::QUAYPOST_SERVER::admin
