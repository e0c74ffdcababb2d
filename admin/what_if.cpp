// A change on a private copy, in a child process, and the same change in earnest.
#include "admin/what_if.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <memory>

#include "admin/rows.h"
#include "role/role_db_scope.h"
#include "storage/delegation_db_handler.h"
#include "storage/delegation_db_strategy.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

// A directory that only we may read, gone at the end.
class PrivateDirectory {
 public:
  PrivateDirectory() : path_((std::filesystem::temp_directory_path() / "mailserver-delegation-XXXXXX").string()) {
    if (!mkdtemp(path_.data())) throw Error(Error::kSystem, "cannot make a directory for a copy in " + path_);
  }
  ~PrivateDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  PrivateDirectory(const PrivateDirectory&) = delete;
  PrivateDirectory& operator=(const PrivateDirectory&) = delete;
  std::string operator/(const char* name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

void CopyDatabase(const std::string& path) {
  RoleDBHandler* const handle = DelegationDBHandler::GetDelegationDBHandler();
  if (!handle) throw Error(Error::kDatabase, "the delegation database cannot be opened");
  sqlite3* opened = nullptr;
  int result = sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  const std::unique_ptr<sqlite3, decltype(&sqlite3_close_v2)> copy(opened, &sqlite3_close_v2);
  sqlite3_backup* backup =
      result == SQLITE_OK ? sqlite3_backup_init(copy.get(), "main", handle->GetDB(), "main") : nullptr;
  if (backup) {
    sqlite3_backup_step(backup, -1);
    result = sqlite3_backup_finish(backup);
  }
  if (!backup || result != SQLITE_OK) {
    throw Error(Error::kSystem, std::string("cannot copy the database: ") + sqlite3_errmsg(copy.get()));
  }
}

// Runs the change in a state that `begin` and the reading around it see; both ways to run one come here.
Tried Run(const Change& change) {
  Tried tried;
  tried.before = ReadState();
  tried.done = change(tried.result);
  tried.after = ReadState();
  tried.effect = Compare(tried.before, tried.after);
  return tried;
}

// In the child process: the change on the copy, and all there is to tell about it.
Json::Value RunOnCopy(const std::string& copy, const Change& change,
                      const std::function<Json::Value(const State&, const State&)>& inspect) {
  Json::Value told;
  try {
    DelegationDBStrategy::SetDelegationDBStrategy(std::make_shared<DelegationCustomPathDBStrategy>(copy));
    // Inside a scope of ours the library leaves announcing to us.
    const RoleDBScope scope(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kWrite);
    const Tried tried = Run(change);
    told["done"] = tried.done;
    told["result"] = tried.result;
    told["effect"] = tried.effect.ToJson();
    if (inspect) told["inspected"] = inspect(tried.before, tried.after);
  } catch (const std::exception& exception) {
    told["done"] = false;
    told["problem"] = exception.what();
  }
  return told;
}

void WriteAll(int fd, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = write(fd, text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    done += static_cast<std::size_t>(count);
  }
}

std::string ReadAll(int fd) {
  std::string text;
  std::array<char, 65536> block;
  for (;;) {
    const ssize_t count = read(fd, block.data(), block.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return text;
    text.append(block.data(), static_cast<std::size_t>(count));
  }
}

Tried FromChild(const std::string& text) {
  Json::Value told;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (!reader->parse(text.data(), text.data() + text.size(), &told, nullptr)) {
    throw Error(Error::kSystem, "the process that tried the change out has ended without an answer");
  }
  Tried tried;
  tried.done = told["done"].asBool();
  tried.problem = told["problem"].asString();
  tried.result = told["result"];
  if (told.isMember("inspected")) tried.result["inspected"] = told["inspected"];
  if (tried.done) tried.effect = Effect::FromJson(told["effect"]);
  return tried;
}

}  // namespace

Tried TryOut(const Change& change, const std::function<Json::Value(const State&, const State&)>& inspect) {
  RoleDBHandler* pinned = nullptr;
  if (RoleDBScope::Pinned(pinned)) throw Error(Error::kSystem, "nothing can be tried out inside a transaction");
  const PrivateDirectory directory;
  const std::string copy = directory / "copy.db";
  CopyDatabase(copy);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw Error(Error::kSystem, "there is no pipe for trying out a change");
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    WriteAll(ends[1], Json::writeString(writer, RunOnCopy(copy, change, inspect)));
    _exit(0);  // nothing of the parent's is closed or flushed
  }
  close(ends[1]);
  const std::string text = child > 0 ? ReadAll(ends[0]) : "";
  close(ends[0]);
  if (child < 0) throw Error(Error::kSystem, "there is no process for trying out a change");
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return FromChild(text);
}

Tried CarryOut(const Change& change) { return Run(change); }

}  // namespace NIMBO::QUAYPOST_SERVER::admin
