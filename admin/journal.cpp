// The journal's file, its records, and the chain that they make.
#include "admin/journal.h"

#include <fcntl.h>
#include <pwd.h>
#include <sha2.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <set>

#include "admin/document.h"
#include "admin/rows.h"
#include "storage/delegation_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

constexpr int kVersion = 1;
constexpr int kBusyTimeout = 10000;  // milliseconds
constexpr unsigned int kNoId = 4294967295;

// A record is one JSON text, so that its hash covers all of it. The table has no rowid: then the number is stored once,
// as a value like the others.
constexpr const char* kSchema[] = {
    "CREATE TABLE journal(number INTEGER PRIMARY KEY, record TEXT NOT NULL, hash TEXT NOT NULL) WITHOUT ROWID",
    // The last record, so that one is missed that has been taken off the end.
    "CREATE TABLE head(only_one INTEGER PRIMARY KEY CHECK(only_one = 1), number INTEGER NOT NULL, hash TEXT NOT NULL)",
    "CREATE TABLE known(name TEXT PRIMARY KEY, value INTEGER NOT NULL) WITHOUT ROWID",
    "CREATE TRIGGER journal_order BEFORE INSERT ON journal WHEN new.number IS NOT (SELECT ifnull(max(number), 0) + 1 "
    "FROM journal) BEGIN SELECT raise(ABORT, 'records are only appended'); END",
    "CREATE TRIGGER journal_update BEFORE UPDATE ON journal BEGIN SELECT raise(ABORT, 'records are only appended'); "
    "END",
    "CREATE TRIGGER journal_delete BEFORE DELETE ON journal BEGIN SELECT raise(ABORT, 'records are only appended'); "
    "END",
    "CREATE TRIGGER journal_head AFTER INSERT ON journal BEGIN REPLACE INTO head VALUES(1, new.number, new.hash); END",
};

constexpr const char* kKinds[] = {"start", "change", "outside"};

[[noreturn]] void Fail(const std::string& text) { throw Error(Error::kDatabase, "the journal " + text); }

std::string HashOf(const std::string& text) {
  std::array<char, SHA256_DIGEST_STRING_LENGTH> hexadecimal{};
  return SHA256Data(reinterpret_cast<const std::uint8_t*>(text.data()), text.size(), hexadecimal.data());
}

// Everything that the state holds, each value behind its length.
class Content {
 public:
  void Add(const std::string& text) { bytes_ += std::to_string(text.size()) + ":" + text; }
  void Add(std::integral auto number) { bytes_ += std::to_string(number) + ","; }
  template <class Numbers>
  void AddAll(const Numbers& numbers) {
    Add(numbers.size());
    for (const auto number : numbers) Add(number);
  }
  std::string Hash() const { return HashOf(bytes_); }

 private:
  std::string bytes_;
};

std::string ContentOf(const State& state) {
  Content content;
  content.Add(state.delegations.size());
  for (const auto& [id, delegation] : state.delegations) {
    content.Add(id);
    content.Add(delegation.name);
    content.Add(delegation.color);
    content.Add(delegation.priority);
    content.Add(delegation.entries.size());
    for (const auto& [type, data] : delegation.entries) {
      content.Add(type);
      content.Add(data);
    }
    content.AddAll(delegation.users);
    content.AddAll(delegation.groups);
  }
  content.Add(state.users.size());
  for (const auto& [uid, user] : state.users) {
    content.Add(uid);
    content.Add(user.name);
    content.AddAll(user.groups);
    content.Add(user.effective.value_or(-1));
  }
  content.Add(state.groups.size());
  for (const auto& [gid, group] : state.groups) {
    content.Add(gid);
    content.Add(group.name);
  }
  return content.Hash();
}

// ---- Records as text ----

std::string TextOf(const Json::Value& document) {
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  return Json::writeString(writer, document);
}

Json::Value Parse(const std::string& text) {
  Json::CharReaderBuilder builder;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value document;
  if (!reader->parse(text.data(), text.data() + text.size(), &document, nullptr) || !document.isObject()) {
    Fail("has a record that is no record");
  }
  return document;
}

Json::Value OptionalNumber(const std::optional<long long>& number) {
  return number ? Json::Value(static_cast<Json::Int64>(*number)) : Json::Value();
}

Json::Value Written(const Record& record) {
  Json::Value document = record.ToJson();
  document.removeMember("hash");
  return document;
}

Record::Kind KindOf(const std::string& name) {
  const auto* const found = std::find(std::begin(kKinds), std::end(kKinds), name);
  if (found == std::end(kKinds)) Fail("has a record of an unknown kind");
  return static_cast<Record::Kind>(found - kKinds);
}

Record RecordFrom(const std::string& text, const std::string& hash) try {
  const Json::Value document = Parse(text);
  Record record;
  record.number = document["number"].asInt64();
  record.time = static_cast<std::time_t>(document["time"].asInt64());
  const Json::Value& actor = document["actor"];
  if (!actor.isNull()) record.actor = Actor{actor["uid"].asUInt(), actor["name"].asString(), actor["given"].asBool()};
  record.kind = KindOf(document["kind"].asString());
  record.action = document["action"].asString();
  if (!document["undoes"].isNull()) record.undoes = document["undoes"].asInt64();
  for (const Json::Value& change : document["delegations"]) {
    record.delegations.push_back({change["id"].asInt(), change["before"], change["after"]});
  }
  record.ids = document["ids"];
  if (!record.ids.isObject()) Fail("has a record that is no record");
  if (!document["effect"].isNull()) record.effect = Effect::FromJson(document["effect"]);
  record.content = document["content"].asString();
  record.previous = document["previous"].asString();
  record.hash = hash;
  return record;
} catch (const Json::Exception&) {
  Fail("has a record that is no record");
} catch (const Error& error) {
  if (error.kind() == Error::kDatabase) throw;
  Fail("has a record that is no record");
}

// The uids and gids of those to whom the changed delegations were assigned before.
Json::Value IdsOf(const std::vector<DelegationChange>& changes, const State& before) {
  Json::Value ids(Json::objectValue);
  for (const DelegationChange& change : changes) {
    const auto found = before.delegations.find(change.id);
    if (found == before.delegations.end()) continue;
    for (const unsigned int uid : found->second.users) ids["user " + before.users.at(uid).name] = uid;
    for (const unsigned int gid : found->second.groups) ids["group " + before.groups.at(gid).name] = gid;
  }
  return ids;
}

// ---- The file ----

// Makes the file for whom the database belongs to. It is never closed here when others may have it open: that would
// drop their locks; who makes it is alone with it.
void MakeFile(const std::string& path) {
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0640);
  if (file < 0 && errno == EEXIST) return;
  if (file < 0) Fail("cannot be made (" + path + ": " + std::strerror(errno) + ")");
  struct stat database {};
  const std::string suffix = ".admin";
  bool made = fchmod(file, 0640) == 0;
  if (geteuid() == 0 && stat(path.substr(0, path.size() - suffix.size()).c_str(), &database) == 0) {
    made = fchown(file, database.st_uid, database.st_gid) == 0 && made;
  }
  close(file);
  if (!made) Fail("cannot be given its owner and mode (" + path + ")");
}

void Run(sqlite3* db, const std::string& sql) { Rows(db, sql).Run(); }

long long VersionOf(sqlite3* db) {
  Rows row(db, "pragma user_version");
  return row.Next() ? row.Number(0) : -1;
}

bool HasOurSchema(sqlite3* db) {
  std::multiset<std::string> found;
  Rows rows(db, "select sql from sqlite_master where sql is not null");
  while (rows.Next()) found.insert(rows.Text(0));
  return found == std::multiset<std::string>(std::begin(kSchema), std::end(kSchema));
}

bool Concerns(const Record& record, const RecordFilter& filter) {
  if (filter.since && record.time < *filter.since) return false;
  const auto isNamed = [&](const DelegationChange& change) {
    const std::string& name = *filter.delegation;
    return change.before["name"] == name || change.after["name"] == name || "id:" + std::to_string(change.id) == name;
  };
  if (filter.delegation && std::none_of(record.delegations.begin(), record.delegations.end(), isNamed)) return false;
  if (!filter.user) return true;
  const auto has = [&](const Json::Value& document) {
    const Json::Value& users = document["users"];
    return std::find(users.begin(), users.end(), Json::Value(*filter.user)) != users.end();
  };
  const auto assigns = [&](const DelegationChange& change) { return has(change.before) != has(change.after); };
  const auto isUser = [&](const PersonEffect& person) { return person.name == *filter.user; };
  return std::any_of(record.delegations.begin(), record.delegations.end(), assigns) ||
         (record.effect && std::any_of(record.effect->people.begin(), record.effect->people.end(), isUser));
}

}  // namespace

Actor Actor::Current() {
  Actor actor;
  std::ifstream login("/proc/self/loginuid");
  if (!(login >> actor.uid) || actor.uid == kNoId) actor.uid = getuid();
  std::array<char, 16384> buffer;
  struct passwd entry {};
  struct passwd* found = nullptr;
  if (getpwuid_r(actor.uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found) actor.name = found->pw_name;
  return actor;
}

Documents DocumentsOf(const State& state) {
  Documents documents;
  for (const auto& [id, delegation] : state.delegations) documents.emplace(id, ToDocument(state, delegation));
  return documents;
}

std::vector<DelegationChange> Differences(const Documents& before, const Documents& after) {
  std::map<int, DelegationChange> changes;
  for (const auto& [id, document] : before) changes[id].before = document;
  for (const auto& [id, document] : after) changes[id].after = document;
  std::vector<DelegationChange> differences;
  for (auto& [id, change] : changes) {
    change.id = id;
    if (change.before != change.after) differences.push_back(std::move(change));
  }
  return differences;
}

Json::Value Record::ToJson() const {
  Json::Value document;
  document["number"] = static_cast<Json::Int64>(number);
  document["time"] = static_cast<Json::Int64>(time);
  document["actor"] = Json::Value();
  if (actor) {
    document["actor"]["uid"] = actor->uid;
    document["actor"]["name"] = actor->name;
    document["actor"]["given"] = actor->given;
  }
  document["kind"] = kKinds[kind];
  document["action"] = action;
  document["undoes"] = OptionalNumber(undoes);
  document["delegations"] = Json::arrayValue;
  for (const DelegationChange& change : delegations) {
    Json::Value& entry = document["delegations"].append(Json::objectValue);
    entry["id"] = change.id;
    entry["before"] = change.before;
    entry["after"] = change.after;
  }
  document["ids"] = ids.isNull() ? Json::Value(Json::objectValue) : ids;
  document["effect"] = effect ? effect->ToJson() : Json::Value();
  document["content"] = content;
  document["previous"] = previous;
  document["hash"] = hash;
  return document;
}

Json::Value Verification::ToJson() const {
  Json::Value document;
  document["intact"] = intact;
  document["altered"] = OptionalNumber(altered);
  document["problem"] = problem;
  document["records"] = static_cast<Json::Int64>(records);
  document["hash"] = hash;
  return document;
}

void Journal::Closer::operator()(sqlite3* db) const { sqlite3_close_v2(db); }

std::string Journal::CurrentPath() {
  RoleDBHandler* const handle = DelegationDBHandler::GetDelegationDBHandler();
  if (!handle || !handle->GetDB()) throw Error(Error::kDatabase, "the delegation database cannot be opened");
  return std::string(sqlite3_db_filename(handle->GetDB(), "main")) + ".admin";
}

Journal::Journal(const std::string& path, Access access) {
  struct stat file {};
  if (lstat(path.c_str(), &file) != 0) {
    if (errno != ENOENT) Fail("cannot be found (" + path + ": " + std::strerror(errno) + ")");
    if (access == kRead) return;
    MakeFile(path);
  } else if (!S_ISREG(file.st_mode)) {
    Fail("is no regular file (" + path + ")");
  }
  sqlite3* opened = nullptr;
  const int flags = access == kRead ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
  const int result = sqlite3_open_v2(path.c_str(), &opened, flags | SQLITE_OPEN_NOFOLLOW, nullptr);
  db_.reset(opened);
  if (result != SQLITE_OK) Fail("cannot be opened (" + path + ": " + sqlite3_errstr(result) + ")");
  sqlite3_busy_timeout(opened, kBusyTimeout);
  sqlite3_db_config(opened, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(opened, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  exists_ = true;
  CheckVersion(access);
}

void Journal::CheckVersion(Access access) try {
  if (VersionOf(db_.get()) == 0) {
    if (Rows(db_.get(), "select 1 from sqlite_master").Next()) {
      damage_ = "it is some other database";
      return;
    }
    if (access == kWrite) Make();
  }
  const long long version = VersionOf(db_.get());
  if (version == 0) damage_ = "the file is empty";
  if (version != 0 && version != kVersion) damage_ = "its version " + std::to_string(version) + " is not known here";
} catch (const Error& error) {
  const int code = sqlite3_errcode(db_.get()) & 0xff;
  if (code != SQLITE_CORRUPT && code != SQLITE_NOTADB) throw;
  damage_ = error.what();
}

// The connection, for what needs a journal.
sqlite3* Journal::Db() const {
  if (!db_) Fail("does not exist");
  if (!damage_.empty()) Fail(std::string("is damaged (") + sqlite3_db_filename(db_.get(), "main") + "): " + damage_);
  return db_.get();
}

Journal::~Journal() = default;

void Journal::Make() {
  Begin();
  if (VersionOf(db_.get()) == 0) {  // no other process has been faster
    for (const char* statement : kSchema) Run(db_.get(), statement);
    Run(db_.get(), "pragma user_version = " + std::to_string(kVersion));
  }
  Commit();
}

// What is begun and not committed goes with the connection.
// Exclusive: who only reads it must not keep the record out when the change is stored already.
void Journal::Begin() { Run(Db(), "BEGIN EXCLUSIVE"); }

void Journal::Commit() { Run(Db(), "COMMIT"); }

std::optional<Record> Journal::Last() const {
  Rows row(Db(), "select record, hash from journal order by number desc limit 1");
  if (!row.Next()) return std::nullopt;
  return RecordFrom(row.Text(0), row.Text(1));
}

long long Journal::Insert(Record record) {
  const std::optional<Record> last = Last();
  record.number = last ? last->number + 1 : 1;
  record.time = std::time(nullptr);
  record.previous = last ? last->hash : "";
  const std::string text = TextOf(Written(record));
  Rows(Db(), "insert into journal(number, record, hash) values(?, ?, ?)", record.number, text, HashOf(text)).Run();
  return record.number;
}

// The first record of a journal, or what has been changed past it.
void Journal::AppendMissed(const State& now, const std::string& content) {
  const std::optional<Record> last = Last();
  if (last && last->content == content) return;
  Record record;
  record.kind = last ? Record::kOutside : Record::kStart;
  record.action = last ? "changed outside" : "begin of the journal";
  record.delegations = Differences(last ? DocumentsAt(last->number) : Documents(), DocumentsOf(now));
  record.content = content;
  Insert(std::move(record));
}

void Journal::CatchUp() {
  Begin();
  const State now = ReadState();
  AppendMissed(now, ContentOf(now));
  Commit();
}

std::optional<long long> Journal::Append(const Actor& actor, const Entry& entry, const State& before,
                                         const State& after, const Effect& effect) {
  const std::string contentBefore = ContentOf(before);
  Record record;
  record.actor = actor;
  record.action = entry.action;
  record.undoes = entry.undoes;
  record.effect = effect;
  record.content = ContentOf(after);

  if (sqlite3_get_autocommit(Db()) != 0) Begin();
  AppendMissed(before, contentBefore);
  if (entry.refreshes) {
    Rows(Db(), "replace into known values('last refresh', ?)", static_cast<long long>(std::time(nullptr))).Run();
  }
  std::optional<long long> number;
  if (record.content != contentBefore) {
    record.delegations = Differences(DocumentsOf(before), DocumentsOf(after));
    record.ids = IdsOf(record.delegations, before);
    number = Insert(std::move(record));
  }
  Commit();
  return number;
}

std::vector<Record> Journal::List(const RecordFilter& filter) const {
  std::vector<Record> records;
  if (!Exists()) return records;
  Rows rows(Db(), "select record, hash from journal order by number");
  while (rows.Next()) {
    Record record = RecordFrom(rows.Text(0), rows.Text(1));
    if (Concerns(record, filter)) records.push_back(std::move(record));
  }
  return records;
}

std::optional<Record> Journal::Find(long long number) const {
  if (!Exists()) return std::nullopt;
  Rows row(Db(), "select record, hash from journal where number = ?", number);
  if (!row.Next()) return std::nullopt;
  return RecordFrom(row.Text(0), row.Text(1));
}

Documents Journal::DocumentsAt(long long number) const {
  Documents documents;
  if (!Exists()) return documents;
  Rows rows(Db(), "select record from journal where number <= ? order by number", number);
  while (rows.Next()) {
    for (DelegationChange& change : RecordFrom(rows.Text(0), "").delegations) {
      if (change.after.isNull()) {
        documents.erase(change.id);
      } else {
        documents[change.id] = std::move(change.after);
      }
    }
  }
  return documents;
}

Verification Journal::Verify() const {
  Verification result;
  if (!Exists()) {
    result.intact = true;
    return result;
  }
  if (!damage_.empty()) {
    result.problem = damage_;
    return result;
  }
  const auto fail = [&](const std::string& problem, bool isRecord = true) {
    if (isRecord) result.altered = result.records + 1;
    result.problem = problem;
    return result;
  };
  try {
    if (!HasOurSchema(db_.get())) return fail("its tables or triggers have been altered", false);
    Rows rows(db_.get(),
              "select number, record, hash, typeof(number) || typeof(record) || typeof(hash) from journal "
              "order by number");
    while (rows.Next()) {
      const std::string text = rows.Text(1);
      const std::string hash = rows.Text(2);
      if (rows.Number(0) != result.records + 1) return fail("a record is missing");
      if (rows.Text(3) != "integertexttext" || HashOf(text) != hash) return fail("a record is not as it was written");
      const Record record = RecordFrom(text, hash);
      if (record.number != rows.Number(0) || record.previous != result.hash) {
        return fail("a record does not follow the one before it");
      }
      ++result.records;
      result.hash = hash;
    }
    Rows head(db_.get(), "select number, hash from head");
    const bool hasHead = head.Next();
    if (hasHead != (result.records > 0) || (hasHead && head.Number(0) > result.records)) {
      return fail("the last records are missing");
    }
    if (hasHead && (head.Number(0) != result.records || head.Text(1) != result.hash)) {
      return fail("the last record is not the one that was written last", false);
    }
    Rows check(db_.get(), "pragma integrity_check(1)");
    if (!check.Next() || check.Text(0) != "ok") return fail("the file is damaged: " + check.Text(0), false);
  } catch (const Error&) {
    const int code = sqlite3_errcode(db_.get()) & 0xff;
    if (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE && code != SQLITE_CORRUPT) throw;
    return fail("a record cannot be read");
  }
  result.intact = true;
  return result;
}

std::optional<std::time_t> Journal::LastRefresh() const {
  if (!Exists()) return std::nullopt;
  Rows row(Db(), "select value from known where name = 'last refresh'");
  if (!row.Next()) return std::nullopt;
  return static_cast<std::time_t>(row.Number(0));
}

std::optional<std::time_t> LastRefresh() {
  try {
    return Journal(Journal::CurrentPath(), Journal::kRead).LastRefresh();
  } catch (const Error&) {
    return std::nullopt;
  }
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
