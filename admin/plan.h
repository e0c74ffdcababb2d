/// What a document would change in the database, and carrying it out.
///
///   const Plan plan = MakePlan(ReadState(), ParseDocument(text), Prune::kNo);
///   if (!plan.changes.empty() && Apply(plan) == Applied::kNo) ...   // nothing was changed
///
/// The document says what is to be. A member that is missing is not its business: priority, color, tabs, users and
/// groups of a stored delegation stay. "tabs" and "entries" go together: with either one, every tab that they do not
/// name gets its default. Of a new delegation the priority is 0, the colour "none", no tab is on and nobody has it.
#pragma once

#include <json/json.h>

#include <string>
#include <vector>

#include "admin/state.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

struct FieldChange {
  std::string field;          ///< "name", "priority", "color" or a tab
  Json::Value before, after;  ///< "before" is null in a new delegation
};

struct AssigneeChange {
  std::vector<std::string> added, removed;  ///< names, sorted
};

/// What happens to one delegation.
struct PlannedChange {
  enum Kind { kDelete, kUpdate, kCreate };

  Kind kind;
  int id = -1;       ///< -1: new
  std::string name;  ///< as stored; of a new one as in the document
  std::vector<FieldChange> fields;
  AssigneeChange users, groups;
  Json::Value document;  ///< what the exported function is given
};

struct MAILSERVER_EXPORT Plan {
  std::vector<PlannedChange> changes;  ///< in the order in which they are made
  Json::Value basis;                   ///< the stored delegations that it was made for

  /// Whether a delegation is assigned to a group that is stored already: its members are those of the last refresh.
  bool addsKnownGroup = false;

  /// [{"action": "delete", "update" or "create", "id": number or null, "name", "fields": [{"field", "before",
  /// "after"}], "users": {"added": [name], "removed": [name]}, "groups": the same}]
  Json::Value ToJson() const;
};

/// What becomes of stored delegations that the document does not have.
enum class Prune {
  kNo,          ///< they stay
  kYes,         ///< they are deleted; refused if that would be all there are
  kEverything,  ///< they are deleted
};

/// Compares a document with a state. Names of users and groups are looked up at the host; one that it does not have is
/// an error, unless the delegation is assigned to it as it stands. Throws DocumentError; Error::kRefused for deleting
/// everything; Error::kAccounts when the host gives no answer.
MAILSERVER_EXPORT Plan MakePlan(const State& state, const Json::Value& document, Prune prune);

/// What has come of a plan.
enum class Applied {
  kNo,            ///< a step failed and nothing was changed; the log says which
  kYes,           ///< everything is stored
  kNotAnnounced,  ///< everything is stored, but the cluster could not be told
};

/// Carries out a plan through the exported functions: all of it in one transaction, or nothing. Announces it once,
/// behind the commit; inside a RoleDBScope that is the caller's. Throws Error::kRefused when delegations have been
/// changed since the plan was made, Error::kDatabase when the database cannot be opened.
MAILSERVER_EXPORT Applied Apply(const Plan& plan);

}  // namespace NIMBO::QUAYPOST_SERVER::admin
