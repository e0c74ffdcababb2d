/// A directory of its own for a test's database, and the place where the fake host's configuration says the database
/// is.
///
///   TempDatabase database;                                      // the file appears with the library's first call
///   EXPECT_EQ(database.Rows("select uid, username from user_table"), (std::vector<std::string>{"1001|ann"}));
///
/// It looks at the file through a connection of its own, opened for each call, and so sees only what is committed. When
/// it goes, the library is back at the default strategy with the file closed.
#pragma once

#include <string>
#include <vector>

class TempDatabase {
 public:
  TempDatabase();
  ~TempDatabase();
  TempDatabase(const TempDatabase&) = delete;
  TempDatabase& operator=(const TempDatabase&) = delete;

  const std::string& Directory() const { return directory_; }
  std::string Path() const { return directory_ + "/delegation.db"; }

  /// Runs statements, creating the file if need be. An error fails the test.
  void Exec(const std::string& sql) const;

  /// The rows of a query, columns joined with '|' and NULL written so. An error fails the test.
  std::vector<std::string> Rows(const std::string& sql) const;

  /// All rows of all tables, sorted, each as "TABLE: ROW".
  std::vector<std::string> Contents() const;

  /// Whether somebody holds the write lock.
  bool Locked() const;

 private:
  std::string directory_;
};
