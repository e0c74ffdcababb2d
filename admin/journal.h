/// The journal: every change with who made it, when, what was before and after, and who gained and lost which tabs.
/// Changes are written to it by recorded.h; to read it:
///
///   Journal journal(Journal::CurrentPath(), Journal::kRead);
///   for (const Record& record : journal.List({.user = "bob"})) ...
///
/// It is an SQLite file of its own, DATABASE.admin, and the library does not know of it: without it, or when it is
/// damaged, access checks and changes go on. Records are only appended, and each holds the hash of the one before.
/// Whoever may write the file can also write all of it anew; note the last hash elsewhere to see even that.
///
/// A journal is opened, used and closed again; it is not for a child process of the one that opened it.
#pragma once

#include <json/json.h>

#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "admin/effect.h"
#include "admin/error.h"
#include "admin/state.h"

struct sqlite3;

namespace NIMBO::QUAYPOST_SERVER::admin {

/// Who makes a change.
struct MAILSERVER_EXPORT Actor {
  unsigned int uid = 4294967295;
  std::string name;    ///< "" when the uid has none
  bool given = false;  ///< named by the caller, not found out from the process

  /// Who has logged in to the session that this process belongs to, or else whose process it is.
  static Actor Current();
};

/// The documents of one delegation around a change, as ToDocument gives them; null: it did not exist.
struct DelegationChange {
  int id = -1;
  Json::Value before;
  Json::Value after;
};

/// What the delegations of two states, or two sets of documents by id, have not in common, by id.
using Documents = std::map<int, Json::Value>;
MAILSERVER_EXPORT Documents DocumentsOf(const State& state);
MAILSERVER_EXPORT std::vector<DelegationChange> Differences(const Documents& before, const Documents& after);

struct MAILSERVER_EXPORT Record {
  enum Kind {
    kStart,    ///< what the database held when the journal was begun
    kChange,   ///< a change, or a refresh from the host
    kOutside,  ///< what has been changed past the journal since the record before
  };

  long long number = 0;
  std::time_t time = 0;
  std::optional<Actor> actor;  ///< nobody is known for kStart and kOutside
  Kind kind = kChange;
  std::string action;
  std::optional<long long> undoes;  ///< the number of the record that it takes back
  std::vector<DelegationChange> delegations;
  Json::Value ids;  ///< whom the names meant before it: {"user ann": 1001, "group staff": 50}, as far as known
  std::optional<Effect> effect;  ///< not known for kStart and kOutside
  std::string content;           ///< digest of everything that the database holds after it
  std::string previous;          ///< hash of the record before, "" of the first
  std::string hash;              ///< of this record; not a part of it

  /// {"number", "time" (seconds since 1970), "actor": {"uid", "name", "given"} or null, "kind": "start", "change"
  /// or "outside", "action", "undoes": number or null, "delegations": [{"id", "before", "after"}], "ids",
  /// "effect" or null, "content", "previous", "hash"}
  Json::Value ToJson() const;
};

/// What a new record is about.
struct Entry {
  std::string action;
  bool refreshes = false;  ///< the host has been read again; that is kept even when nothing has changed
  std::optional<long long> undoes;
};

/// Which records are wanted; nothing: all.
struct RecordFilter {
  std::optional<std::string> user;        ///< that gained, lost, or was assigned or unassigned directly
  std::optional<std::string> delegation;  ///< that was changed: its name before or after, or "id:7"
  std::optional<std::time_t> since;
};

struct MAILSERVER_EXPORT Verification {
  bool intact = false;
  std::optional<long long> altered;  ///< the first record that is not as it was written, if it can be told
  std::string problem;               ///< "" when intact
  long long records = 0;             ///< that are as they were written
  std::string hash;                  ///< of the last of them

  /// {"intact", "altered": number or null, "problem", "records", "hash"}
  Json::Value ToJson() const;
};

class MAILSERVER_EXPORT Journal {
 public:
  enum Access { kRead, kWrite };

  /// DATABASE.admin for the database that the library works on now. Throws Error::kDatabase.
  static std::string CurrentPath();

  /// Opens the file; with kWrite it is made, mode 0640, if it does not exist. Throws Error::kDatabase, also for a
  /// symbolic link. What is no journal, or one of a newer version, can only be verified.
  Journal(const std::string& path, Access access);
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  /// Whether there is a file; without one a journal that is only read is empty.
  bool Exists() const { return exists_; }

  /// Keeps all others from appending until the next Append or the end of this object. Called before the change that
  /// is going to be appended, so that records stand in the order of the changes. Throws Error::kDatabase.
  void Begin();

  /// Appends what has changed between two states, and before it what has been changed past the journal until then.
  /// The number of the new record; nothing when the states are the same. Throws Error::kDatabase; then nothing is
  /// appended.
  std::optional<long long> Append(const Actor& actor, const Entry& entry, const State& before, const State& after,
                                  const Effect& effect);

  /// Appends a record of what has been changed past the journal, if anything has. Throws as Append, and as ReadState.
  void CatchUp();

  /// The records that the filter wants, oldest first. Throws Error::kDatabase.
  std::vector<Record> List(const RecordFilter& filter = {}) const;

  /// The record of that number, if there is one. Throws Error::kDatabase.
  std::optional<Record> Find(long long number) const;

  /// The delegations as they were after the record of that number, found by following the journal from its beginning.
  /// Throws Error::kDatabase.
  Documents DocumentsAt(long long number) const;

  /// Whether all records are as they were written. Throws Error::kDatabase when that cannot be found out.
  Verification Verify() const;

  /// When a refresh was last made through the tool or this library. Throws Error::kDatabase.
  std::optional<std::time_t> LastRefresh() const;

 private:
  struct Closer {
    void operator()(sqlite3* db) const;
  };

  void CheckVersion(Access access);
  sqlite3* Db() const;
  void Make();
  void Commit();
  std::optional<Record> Last() const;
  void AppendMissed(const State& now, const std::string& content);
  long long Insert(Record record);

  bool exists_ = false;
  std::string damage_;  ///< why it is no journal
  std::unique_ptr<sqlite3, Closer> db_;
};

/// Journal::LastRefresh of the current database; nothing also when there is no journal or it cannot be read.
MAILSERVER_EXPORT std::optional<std::time_t> LastRefresh();

}  // namespace NIMBO::QUAYPOST_SERVER::admin
