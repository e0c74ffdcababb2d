/// All that a check can find, and the collection of what it has found. Private.
#pragma once

#include <string>
#include <vector>

#include "admin/check.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

struct Kind {
  enum Repair {
    kByHand,
    kFromStored,  ///< out of what is stored
    kFromHost,    ///< needs the host's answers
  };

  const char* code;
  Severity severity;
  Repair repair;
  const char* meaning;
  const char* remedy;  ///< what to do by hand, or what a repair does
};

namespace kinds {

constexpr auto kError = Severity::kError;
constexpr auto kWarning = Severity::kWarning;
constexpr auto kNote = Severity::kNote;

// ---- What the library stands on ----

inline constexpr Kind kConfiguration{"configuration", kError, Kind::kByHand, "the configuration cannot be read",
                                     "mend mailserver.conf; the log names the line"};
inline constexpr Kind kDatabaseMissing{"database_missing", kError, Kind::kByHand, "there is no database file",
                                       "restore a copy, or let the first change make a new one"};
inline constexpr Kind kDatabaseUnreadable{"database_unreadable", kError, Kind::kByHand,
                                          "the database could not be looked at", "see the reason"};
inline constexpr Kind kNotAFile{"not_a_regular_file", kError, Kind::kByHand,
                                "the database is a symbolic link or no regular file; the library refuses it",
                                "put the file itself there, or name it in mailserver.conf"};
inline constexpr Kind kDatabaseWritable{"database_writable", kError, Kind::kByHand,
                                        "everybody may write the database; the library refuses it",
                                        "chmod 0640, and look for changes that nobody should have made"};
inline constexpr Kind kDirectoryWritable{
    "directory_writable", kError, Kind::kByHand,
    "everybody may write the database's directory, and put a journal there that changes the database", "chmod 0750"};
inline constexpr Kind kDatabaseMode{"database_mode", kWarning, Kind::kByHand, "everybody may read the database",
                                    "chmod 0640"};
inline constexpr Kind kDatabaseOwner{"database_owner", kWarning, Kind::kByHand,
                                     "the database belongs neither to the owner of its directory nor to root",
                                     "chown it to whom the mail server runs as"};
inline constexpr Kind kLockFile{"lock_file", kWarning, Kind::kByHand,
                                "a file that is kept beside the database is no regular file",
                                "remove it; it is made again when it is needed"};
inline constexpr Kind kDatabaseEmpty{"database_empty", kError, Kind::kByHand,
                                     "the database file is empty; the library would take it for a new one",
                                     "restore a copy; if there was nothing to lose, delegationctl list completes it"};
inline constexpr Kind kNotADatabase{"not_a_database", kError, Kind::kByHand, "the file is no SQLite database",
                                    "restore a copy"};
inline constexpr Kind kForeign{"foreign_database", kError, Kind::kByHand,
                               "the file is the database of something else, and the library would add its tables to it",
                               "name the right file in mailserver.conf"};
inline constexpr Kind kVersion{
    "version_differs", kError, Kind::kByHand, "the schema's version is not the one that this library knows",
    "a higher one needs a newer library; one of 0 beside a complete schema is what a process "
    "that died has left, and delegationctl list completes it"};
inline constexpr Kind kSchema{"schema_differs", kError, Kind::kByHand,
                              "the tables, indexes and views are not those that the library makes", "restore a copy"};
inline constexpr Kind kIntegrity{"integrity", kError, Kind::kByHand, "the database file is damaged", "restore a copy"};
inline constexpr Kind kJournalMode{"journal_mode", kWarning, Kind::kByHand,
                                   "the database has a write-ahead log: a copy of the file alone, as the cluster and "
                                   "backups take it, lacks the latest changes",
                                   "sqlite3 DATABASE 'pragma journal_mode = delete'"};
inline constexpr Kind kAccounts{"accounts_unavailable", kError, Kind::kByHand,
                                "the account source does not list the host's accounts",
                                "see to the account source; nothing is taken for gone until it answers"};
inline constexpr Kind kLookupFailed{"lookup_failed", kError, Kind::kByHand,
                                    "the account source did not answer about some accounts",
                                    "see to the account source; nothing is taken for gone until it answers"};
inline constexpr Kind kNoAdministrators{
    "no_administrators", kError, Kind::kByHand,
    "nobody is in the administrators' group, or there is no such group on the host",
    "make the group that [accounts] admin_group names in mailserver.conf, with a member"};
inline constexpr Kind kCluster{"cluster", kError, Kind::kByHand, "the cluster did not take the announcement",
                               "see to the cluster; delegationctl refresh announces the database again"};

// ---- What is stored ----

inline constexpr Kind kRowUnusable{"row_unusable", kError, Kind::kByHand,
                                   "a delegation or an entry cannot be read: lists and refreshes fail, or leave it out",
                                   "mend the row with sqlite3, or restore a copy; nothing is repaired before that"};
inline constexpr Kind kIdOutOfRange{"id_out_of_range", kError, Kind::kFromStored,
                                    "a stored user or group has an id that no account can have",
                                    "removes the record and its links"};
inline constexpr Kind kNameMissing{"name_missing", kError, Kind::kFromHost, "a stored user or group has no name",
                                   "takes the name from the host, or removes a record whose id the host has not"};
inline constexpr Kind kOrphan{"link_without_parent", kWarning, Kind::kFromStored,
                              "a link leads to something that is not stored", "removes the link"};
inline constexpr Kind kUnknownUser{"effective_unknown_user", kError, Kind::kFromStored,
                                   "an effective delegation is stored for somebody who is no known user",
                                   "takes it away"};
inline constexpr Kind kUnsupported{"effective_unsupported", kError, Kind::kFromStored,
                                   "a user's effective delegation is one that no assignment gives", "recomputes it"};
inline constexpr Kind kDiffers{"effective_differs", kError, Kind::kFromStored,
                               "a user's effective delegation is not the one that the assignments give",
                               "recomputes it"};
inline constexpr Kind kTypeUnknown{"type_unknown", kError, Kind::kFromStored,
                                   "a delegation has an entry of a type that is no tab; access checks may fail",
                                   "removes the entry"};
inline constexpr Kind kTypeRepeated{"type_repeated", kError, Kind::kFromStored,
                                    "a delegation has several entries of one type; listing the delegations fails",
                                    "keeps one, the one that allows less"};
inline constexpr Kind kTypeMissing{"type_missing", kWarning, Kind::kFromStored,
                                   "a delegation has no entry of a type; the tab is off", "adds the default entry"};

// ---- What is stored, and the host ----

inline constexpr Kind kOutage{
    "outage_suspected", kError, Kind::kByHand,
    "most stored users or groups are gone from the host: rather an outage of the account "
    "source",
    "see to the account source; if they are really gone: delegationctl check --repair --force"};
inline constexpr Kind kUidReused{"uid_reused", kError, Kind::kFromHost,
                                 "a uid belongs to somebody else now, who has what was given to the stored user",
                                 "takes it away; assign it again to whom it is due"};
inline constexpr Kind kGidReused{"gid_reused", kError, Kind::kFromHost,
                                 "a gid belongs to another group now, whose members get what was given to the stored "
                                 "group",
                                 "takes it away; assign it again to the group it is due to"};
inline constexpr Kind kUserRenamed{"user_renamed", kWarning, Kind::kFromHost,
                                   "a user has another name on the host; it may as well be somebody else, who takes "
                                   "over everything",
                                   "stores the new name"};
inline constexpr Kind kGroupRenamed{
    "group_renamed", kWarning, Kind::kFromHost,
    "a group has another name on the host; it may as well be another group, which takes "
    "over everything",
    "stores the new name"};
inline constexpr Kind kUserGone{"user_gone", kWarning, Kind::kFromHost,
                                "the host has no account of a stored user; the uid may be given to somebody else",
                                "removes the user"};
inline constexpr Kind kGroupGone{"group_gone", kWarning, Kind::kFromHost,
                                 "the host has no such group any more; its members keep what it gives",
                                 "removes the group"};
inline constexpr Kind kMembersStale{"members_stale", kWarning, Kind::kFromHost,
                                    "a group's members are not those that it had at the last refresh",
                                    "takes them from the host"};
inline constexpr Kind kStaleName{"stale_name", kWarning, Kind::kByHand,
                                 "a group of the host lists a name that is no account; who gets that name is a member",
                                 "take the name out of the group on the host: gpasswd -d NAME GROUP"};

// ---- What was meant ----

inline constexpr Kind kTie{"tie", kNote, Kind::kByHand,
                           "delegations of equal priority compete for a user; which one wins depends on the order in "
                           "which they were stored",
                           "give them different priorities"};
inline constexpr Kind kNobody{"nobody_assigned", kNote, Kind::kByHand,
                              "a delegation is assigned to nobody, or to groups without members",
                              "assign it, or delete it"};
inline constexpr Kind kOutranked{"always_outranked", kNote, Kind::kByHand,
                                 "a delegation is in effect for nobody: another one outranks it for all who have it",
                                 "raise its priority, or delete it"};
inline constexpr Kind kTabsLost{"tabs_lost", kNote, Kind::kByHand,
                                "users lack tabs of a delegation that another one outranks",
                                "give the tabs to the one in effect too, or change the priorities"};

}  // namespace kinds

class Findings {
 public:
  /// Adds `subject` to what has been found of this kind; "" adds none.
  void Add(const Kind& kind, std::string subject = "");

  /// The host's answers are not to be acted upon.
  void DistrustHost() { hostTrusted_ = false; }
  bool HostTrusted() const { return hostTrusted_; }

  /// Nothing can be repaired.
  void Block() { blocked_ = true; }
  bool Blocked() const { return blocked_; }

  /// Something could not be looked at.
  void SetIncomplete() { complete_ = false; }

  bool Has(const Kind& kind) const;
  Report ToReport() const;

 private:
  struct Found {
    const Kind* kind;
    std::vector<std::string> subjects;
  };
  std::vector<Found> found_;
  bool hostTrusted_ = true;
  bool blocked_ = false;
  bool complete_ = true;
};

}  // namespace NIMBO::QUAYPOST_SERVER::admin
