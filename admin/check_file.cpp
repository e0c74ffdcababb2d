// The part of a check that looks at the database file and its directory, without the library: that would give an empty
// file a schema. No file is opened here but through SQLite, which keeps its locks.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>

#include "admin/rows.h"
#include "admin/survey.h"
#include "storage/delegation_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

using Connection = std::unique_ptr<sqlite3, decltype(&sqlite3_close_v2)>;
using Schema = std::map<std::string, std::string>;  // "table user_table" to its SQL

Connection Open(const std::string& path, int flags) {
  sqlite3* opened = nullptr;
  sqlite3_open_v2(path.c_str(), &opened, flags, nullptr);
  return {opened, &sqlite3_close_v2};
}

std::string Octal(mode_t mode) {
  std::string text;
  for (int shift = 9; shift >= 0; shift -= 3) text += static_cast<char>('0' + ((mode >> shift) & 7U));
  return text;
}

// Whether it is a file that the library opens.
bool LookAtFile(const std::string& path, Findings& findings) {
  struct stat file {};
  if (lstat(path.c_str(), &file) != 0) {
    if (errno == ENOENT) {
      findings.Add(kinds::kDatabaseMissing, path);
    } else {
      findings.Add(kinds::kDatabaseUnreadable, path + ": " + std::strerror(errno));
      findings.SetIncomplete();
    }
    return false;
  }
  if (!S_ISREG(file.st_mode)) {
    findings.Add(kinds::kNotAFile, path);
    return false;
  }
  const std::string mode = path + " has the mode " + Octal(file.st_mode & 07777U);
  if (file.st_mode & S_IWOTH) {
    findings.Add(kinds::kDatabaseWritable, mode);
  } else if (file.st_mode & (S_IROTH | S_IXOTH)) {
    findings.Add(kinds::kDatabaseMode, mode);
  }
  const std::string parent = std::filesystem::path(path).parent_path();
  struct stat directory {};
  if (stat(parent.c_str(), &directory) == 0) {
    if (directory.st_mode & S_IWOTH) {
      findings.Add(kinds::kDirectoryWritable, parent + " has the mode " + Octal(directory.st_mode & 07777U));
    }
    if (file.st_uid != directory.st_uid && file.st_uid != 0) {
      findings.Add(kinds::kDatabaseOwner, path + " belongs to uid " + std::to_string(file.st_uid) +
                                              ", its directory to uid " + std::to_string(directory.st_uid));
    }
  }
  for (const char* beside : {".lock", ".edit-lock", ".admin"}) {
    struct stat other {};
    if (lstat((path + beside).c_str(), &other) == 0 && !S_ISREG(other.st_mode)) {
      findings.Add(kinds::kLockFile, path + beside);
    }
  }
  if (file.st_size == 0) findings.Add(kinds::kDatabaseEmpty, path);
  return file.st_size > 0 && !(file.st_mode & S_IWOTH);
}

Schema ReadSchema(sqlite3* db) {
  Schema schema;
  Rows rows(db,
            "select type || ' ' || name, sql from sqlite_master where sql is not null and name not like 'sqlite_%'");
  while (rows.Next()) schema.emplace(rows.Text(0), rows.Text(1));
  return schema;
}

// The schema as the library makes it; `version` becomes its number.
Schema KnownSchema(int& version) {
  std::vector<DelegationUpgradeFunc> history;
  DelegationUtilGetUpdateFunc(history);
  const Connection db = Open(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  for (const DelegationUpgradeFunc& step : history) {
    if (sqlite3_exec(db.get(), step.sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
      throw Error(Error::kSystem, "there is no memory for a schema to compare with");
    }
  }
  version = static_cast<int>(history.size());
  return ReadSchema(db.get());
}

// Whether version and schema are those of the library, or at least one that it can read.
bool LookAtSchema(sqlite3* db, const std::string& path, Findings& findings) {
  int known = 0;
  const Schema wanted = KnownSchema(known);
  const Schema found = ReadSchema(db);
  Rows row(db, "pragma user_version");
  const int version = row.Next() ? static_cast<int>(row.Number(0)) : -1;
  if (version == 0 && found.empty()) {
    findings.Add(kinds::kDatabaseEmpty, path);
    return false;
  }
  if (version == 0 && found != wanted) {
    findings.Add(kinds::kForeign, path);
    return false;
  }
  if (version != known) {
    findings.Add(kinds::kVersion,
                 "version " + std::to_string(version) + "; this library knows " + std::to_string(known));
  }
  bool readable = version == known;
  for (const auto& [object, sql] : wanted) {
    const auto same = found.find(object);
    if (same != found.end() && same->second == sql) continue;
    findings.Add(kinds::kSchema, object + (same == found.end() ? " is missing" : " is another one"));
    readable = false;
  }
  for (const auto& [object, sql] : found) {
    if (!wanted.contains(object)) findings.Add(kinds::kSchema, object + " is none of the library's");
  }
  return readable;
}

// Whether the file is a sound database of the library's.
bool LookInside(sqlite3* db, const std::string& path, Findings& findings) {
  if (!LookAtSchema(db, path, findings)) return false;
  bool sound = true;
  Rows integrity(db, "pragma integrity_check");
  while (integrity.Next()) {
    if (integrity.Text(0) == "ok") continue;
    findings.Add(kinds::kIntegrity, integrity.Text(0));
    sound = false;
  }
  Rows mode(db, "pragma journal_mode");
  if (mode.Next() && mode.Text(0) == "wal") findings.Add(kinds::kJournalMode, path);
  return sound;
}

}  // namespace

bool SurveyFile(const std::string& path, Survey& survey, const Progress& progress) {
  constexpr int kBusyTimeoutMilliseconds = 10000;
  Findings& findings = survey.findings;
  if (progress) progress("the database file", 0, 0);
  if (!LookAtFile(path, findings)) return false;
  std::error_code error;
  const std::filesystem::path file(path);
  const std::string resolved = (std::filesystem::canonical(file.parent_path(), error) / file.filename()).string();
  const Connection db = Open(resolved, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW);
  sqlite3_busy_timeout(db.get(), kBusyTimeoutMilliseconds);
  try {
    sqlite3_exec(db.get(), "pragma query_only = on; pragma trusted_schema = off", nullptr, nullptr, nullptr);
    return LookInside(db.get(), path, findings);
  } catch (const Error& failure) {
    switch (sqlite3_errcode(db.get()) & 0xff) {
      case SQLITE_NOTADB:
        findings.Add(kinds::kNotADatabase, path);
        break;
      case SQLITE_CORRUPT:
        findings.Add(kinds::kIntegrity, path + ": " + failure.what());
        break;
      default:
        findings.Add(kinds::kDatabaseUnreadable, path + ": " + failure.what());
        findings.SetIncomplete();
    }
    return false;
  }
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
