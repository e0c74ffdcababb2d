// A temporary database for one test.
#include "support/temp_database.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "storage/delegation_db_handler.h"
#include "storage/delegation_db_strategy.h"
#include "support/fake_host.h"

namespace {

std::string ParentDirectory() {
  if (access("/dev/shm", W_OK) == 0) return "/dev/shm";
  const char* configured = getenv("TMPDIR");
  return configured ? configured : "/tmp";
}

/// Runs `sql` on a connection of its own; SQLite's error message, or "".
std::string Run(const std::string& path, const std::string& sql, std::vector<std::string>* rows) {
  sqlite3* opened = nullptr;
  const int result = sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  const std::unique_ptr<sqlite3, int (*)(sqlite3*)> db(opened, sqlite3_close);
  const auto append = [](void* out, int columns, char** values, char**) {
    std::string row;
    for (int i = 0; i < columns; ++i) row += std::string(i > 0 ? "|" : "") + (values[i] ? values[i] : "NULL");
    if (out) static_cast<std::vector<std::string>*>(out)->push_back(row);
    return 0;
  };
  if (result != SQLITE_OK || sqlite3_exec(opened, sql.c_str(), append, rows, nullptr) != SQLITE_OK) {
    return sqlite3_errmsg(opened);
  }
  return "";
}

}  // namespace

TempDatabase::TempDatabase() : directory_(ParentDirectory() + "/delegation-test-XXXXXX") {
  if (!mkdtemp(directory_.data())) ADD_FAILURE() << "cannot make " << directory_;
  FakeHost::Instance().configuration.database = Path();
}

TempDatabase::~TempDatabase() {
  using namespace NIMBO::QUAYPOST_SERVER;
  DelegationDBStrategy::SetDelegationDBStrategy(nullptr);
  DelegationDBHandler::CloseDelegationDBHandler();
  std::filesystem::remove_all(directory_);
}

void TempDatabase::Exec(const std::string& sql) const { EXPECT_EQ(Run(Path(), sql, nullptr), "") << sql; }

std::vector<std::string> TempDatabase::Rows(const std::string& sql) const {
  std::vector<std::string> rows;
  EXPECT_EQ(Run(Path(), sql, &rows), "") << sql;
  return rows;
}

std::vector<std::string> TempDatabase::Contents() const {
  std::vector<std::string> contents;
  for (const std::string& table : Rows("select name from sqlite_master where type = 'table' order by name")) {
    for (const std::string& row : Rows("select * from " + table + " order by 1, 2"))
      contents.push_back(table + ": " + row);
  }
  return contents;
}

bool TempDatabase::Locked() const { return Run(Path(), "begin immediate; rollback", nullptr) != ""; }
