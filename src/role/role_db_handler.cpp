// Opening a database file safely, keeping the connection to it current, and running batches of statements on it.
#include "role/role_db_handler.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>
#include <thread>

#include "base/log.h"
#include "role/role_db_scope.h"
#include "role/role_query.h"
#include "role/statements.h"
#include "role/this_process.h"

namespace NIMBO::QUAYPOST_SERVER {

namespace {

// The files that this process has had open. One of them that is missing has vanished and is not made anew.
std::set<std::string>& KnownPaths() {
  static auto& paths = *new std::set<std::string>;
  return paths;
}

// Makes an empty database file. The descriptor is closed at once: nobody can hold a lock on a file that is new.
bool CreateDatabaseFile(const std::string& path) {
  constexpr mode_t kOwnerWritesGroupReads = 0640;
  const int fd = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW | O_CLOEXEC, kOwnerWritesGroupReads);
  if (fd < 0) {
    if (errno == EEXIST) return true;  // another process was faster
    return Fail("cannot create database file %s: %s", path, std::strerror(errno));
  }
  const bool done = fchmod(fd, kOwnerWritesGroupReads) == 0;
  close(fd);
  return done || Fail("cannot set the mode of database file %s: %s", path, std::strerror(errno));
}

bool IsAcceptable(const std::string& path, const struct stat& file) {
  if (!S_ISREG(file.st_mode)) return Fail("database file %s is not a regular file", path);
  if (file.st_mode & S_IWOTH) return Fail("database file %s can be written by everybody", path);
  return true;
}

// The same file with every symbolic link in its directory resolved; "" on failure. An absolute name is also none that
// SQLite would read as a URI.
std::string ResolveDirectory(const std::string& path) {
  const std::filesystem::path file(path);
  const std::unique_ptr<char, decltype(&std::free)> directory(realpath(file.parent_path().c_str(), nullptr),
                                                              &std::free);
  return directory ? std::filesystem::path(directory.get()) / file.filename() : "";
}

// Held while a process gives a new file its schema.
class FileLock {
 public:
  FileLock(const std::string& path, int timeoutMilliseconds)
      : fd_(open(path.c_str(), O_CREAT | O_RDONLY | O_NOFOLLOW | O_CLOEXEC, 0640)) {
    using std::chrono::milliseconds, std::chrono::steady_clock;
    const auto deadline = steady_clock::now() + milliseconds(timeoutMilliseconds);
    while (fd_ >= 0) {
      held_ = flock(fd_, LOCK_EX | LOCK_NB) == 0;
      if (held_ || steady_clock::now() >= deadline) break;
      std::this_thread::sleep_for(milliseconds(5));
    }
    if (!held_) LogError("cannot lock %s: %s", path, std::strerror(errno));
  }
  ~FileLock() {
    if (fd_ >= 0) close(fd_);
  }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  bool Held() const { return held_; }

 private:
  int fd_;
  bool held_ = false;
};

}  // namespace

std::map<std::string, RoleDBHandler*>& RoleDBHandler::_singleRoleDBHandler = *new std::map<std::string, RoleDBHandler*>;

bool RoleDBHandler::mustExec_ = false;

RoleDBHandler::RoleDBHandler(const std::string& path) : path_(path) {}

RoleDBHandler::~RoleDBHandler() { Close(); }

int RoleDBHandler::Connect() {
  std::error_code error;
  if (!path_.empty()) path_ = std::filesystem::absolute(path_, error);
  if (path_.empty() || error) return FailLookup("database file has no usable path");
  Close();
  try {
    if (Open() && BringUpToDate()) return 0;
  } catch (...) {
    Close();  // open, but never brought up to date, it would pass for current
    throw;
  }
  Close();
  return -1;
}

bool RoleDBHandler::Open() {
  if (mustExec_ || RoleDBScope::IsParents()) {
    return Fail("process %i was forked with a database in use: it has none until it calls exec", getpid());
  }
  const std::string resolved = ResolveDirectory(path_);
  struct stat file {};
  if (lstat(path_.c_str(), &file) != 0) {
    if (errno != ENOENT) return Fail("cannot find database file %s: %s", path_, std::strerror(errno));
    if (KnownPaths().contains(path_) || KnownPaths().contains(resolved)) {
      return Fail("database file %s has vanished", path_);
    }
    if (!CreateDatabaseFile(path_)) return false;
    if (lstat(path_.c_str(), &file) != 0) {
      return Fail("cannot find database file %s: %s", path_, std::strerror(errno));
    }
  }
  if (!IsAcceptable(path_, file)) return false;

  process_ = ThisProcess();
  constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX;
  lastResult_ = sqlite3_open_v2(resolved.c_str(), &db_, kFlags, nullptr);
  if (lastResult_ != SQLITE_OK) return Fail("cannot open database file %s: [%d]", path_, lastResult_);
  statements_ = std::make_unique<Statements>(db_);
  sqlite3_busy_timeout(db_, busyTimeout_);
  sqlite3_db_config(db_, SQLITE_DBCONFIG_ENABLE_FKEY, 0, nullptr);
  sqlite3_db_config(db_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(db_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);

  int moved = 1;
  sqlite3_file_control(db_, "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  device_ = file.st_dev;
  inode_ = file.st_ino;
  if (moved != 0 || !IsSameFile()) return Fail("database file %s was replaced while it was opened", path_);
  KnownPaths().insert({path_, resolved});
  // Pages must not be written before COMMIT: that would take the exclusive lock and shut readers out until then. The
  // cache, in KiB and taken as needed, holds the tables of 100,000 users: a refresh reads no page twice.
  return Exec("pragma cache_spill = off; pragma cache_size = -16384") == SQLITE_OK;
}

bool RoleDBHandler::ReadVersion(int& version) {
  Query row(*this, "pragma user_version");
  if (!row.Next()) return false;
  const auto value = row.Int<int>(0);
  if (!value) return Fail("user_version of database file %s is no number", path_);
  version = *value;
  return true;
}

bool RoleDBHandler::BringUpToDate() {
  int version = -1;
  if (!ReadVersion(version)) return false;
  if (version != 0) return _UpgradeDB(version) == 0;
  // A new file. Of several processes that open it first, one makes the schema, and the others then find it made.
  const FileLock lock(path_ + ".lock", busyTimeout_);
  return lock.Held() && ReadVersion(version) && _UpgradeDB(version) == 0;
}

bool RoleDBHandler::IsSameFile() const {
  struct stat file {};
  return lstat(path_.c_str(), &file) == 0 && file.st_dev == device_ && file.st_ino == inode_;
}

bool RoleDBHandler::EnsureCurrent() { return (db_ && process_ == ThisProcess() && IsSameFile()) || Connect() == 0; }

void RoleDBHandler::Close() {
  if (db_ && process_ == ThisProcess()) {
    statements_.reset();
    sqlite3_close_v2(db_);
  } else if (db_) {
    // The parent's: closing it here could undo the parent's work. With the file it leaves a copy of the parent's locks,
    // which hold nothing; that is harmless if there were none. On a write-ahead log there is always one.
    const char* log = sqlite3_filename_wal(sqlite3_db_filename(db_, "main"));
    mustExec_ = mustExec_ || access(log, F_OK) == 0 || sqlite3_txn_state(db_, nullptr) != SQLITE_TXN_NONE;
  }
  static_cast<void>(statements_.release());
  db_ = nullptr;
}

void RoleDBHandler::SetBusyTimeout(int milliseconds) {
  busyTimeout_ = milliseconds;
  if (db_) lastResult_ = sqlite3_busy_timeout(db_, milliseconds);
}

PreparedStatement* RoleDBHandler::Take(const std::string& statement) const {
  return statements_ ? statements_->Take(statement) : nullptr;
}

int RoleDBHandler::Exec(const char* statement) {
  return Judge(sqlite3_exec(db_, statement, nullptr, nullptr, nullptr));
}

int RoleDBHandler::ExecKept(const std::string& statement) {
  PreparedStatement* const kept = Take(statement);
  return kept ? Judge(kept->Run()) : Exec(statement.c_str());
}

// Notes the result of a statement that the handle ran itself, and logs a failure.
int RoleDBHandler::Judge(int result) {
  lastResult_ = result;
  if (result != SQLITE_OK) {
    LogError("sqlite3_exec: [%d] %s", result, sqlite3_errmsg(db_));
    RoleDBScope::NoteWriteResult(result);
  }
  return result;
}

int RoleDBHandler::ExeCmds(const RoleSQLCmd& cmds, bool transaction) {
  const auto runAll = [&] {
    for (const std::string& statement : cmds.Statements()) {
      if (ExecKept(statement) != SQLITE_OK) return false;
    }
    return true;
  };
  const bool alone = cmds.Statements().size() <= 1;
  RoleDBScope scope(this, !transaction ? RoleDBScope::kStep : alone ? RoleDBScope::kAlone : RoleDBScope::kWrite);
  return scope.Usable() && runAll() && scope.Commit() ? 0 : -1;
}

void RoleDBHandler::CloseRoleDBHandler(const std::string& key) {
  const auto found = _singleRoleDBHandler.find(key);
  if (found == _singleRoleDBHandler.end()) return;
  if (RoleDBScope::IsOn(found->second)) return LogError("a database is not closed inside a transaction on it");
  delete found->second;
  _singleRoleDBHandler.erase(found);
}

}  // namespace NIMBO::QUAYPOST_SERVER
