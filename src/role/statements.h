/// The prepared statements of one transaction.
///
/// A statement is known by its text with every quoted value taken out. The values are bound in their places, as text,
/// which SQLite treats as it treats the quoted values themselves. So what runs once for each of many users is prepared
/// once.
#pragma once

#include <sqlite3.h>

#include <string>
#include <unordered_map>
#include <vector>

namespace NIMBO::QUAYPOST_SERVER {

struct PreparedStatement {
  sqlite3_stmt* statement = nullptr;
  bool taken = false;
  std::string values;  ///< bound to the statement in its present run

  /// Runs it to its end and gives it back. SQLITE_OK, or SQLite's result.
  int Run() {
    int result;
    do result = sqlite3_step(statement);
    while (result == SQLITE_ROW);
    GiveBack();
    return result == SQLITE_DONE ? SQLITE_OK : result;
  }

  /// Ends its present run.
  void GiveBack() {
    sqlite3_reset(statement);
    taken = false;
  }
};

class Statements {
 public:
  explicit Statements(sqlite3* db) : db_(db) {}
  ~Statements() { End(); }
  Statements(const Statements&) = delete;
  Statements& operator=(const Statements&) = delete;

  /// From now on statements are kept.
  void Begin() { keeps_ = true; }

  /// Finalises all of them; none may be taken.
  void End();

  /// The statement `sql`, to be stepped and then given back. Null when it is to be run on its own: outside a
  /// transaction, when the same one is taken already, and for text that has more to it than values in single quotes.
  PreparedStatement* Take(const std::string& sql);

 private:
  bool TakeValuesOut(const std::string& sql);
  bool Bind(PreparedStatement& prepared);

  sqlite3* const db_;
  bool keeps_ = false;
  std::unordered_map<std::string, PreparedStatement> kept_;
  // Of the statement looked for:
  std::string text_;               // without values
  std::string values_;             // one behind the other
  std::vector<std::size_t> ends_;  // of each value in values_
};

}  // namespace NIMBO::QUAYPOST_SERVER
