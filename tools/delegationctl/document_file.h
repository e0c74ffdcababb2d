// Documents in files: reading one, saying what is wrong with it and where, and showing what it would change.
#pragma once

#include <json/json.h>

#include <string>

#include "admin/document.h"
#include "admin/plan.h"
#include "output.h"

namespace delegationctl {

// What a document would change in the database as it is now. Throws usage, no_user, no_group, no_tab, no_delegation,
// ambiguous, name_taken, refused, accounts and database.
NIMBO::QUAYPOST_SERVER::admin::Plan PlanNow(const Json::Value& document, NIMBO::QUAYPOST_SERVER::admin::Prune prune);

class DocumentFile {
 public:
  // Reads `path`, "-" for standard input. Throws usage, also for what is no JSON, with file:line:column.
  explicit DocumentFile(const std::string& path);

  // PlanNow, which says file:line:column of what is wrong in it.
  NIMBO::QUAYPOST_SERVER::admin::Plan PlanNow(NIMBO::QUAYPOST_SERVER::admin::Prune prune) const;

  // As people call it.
  const std::string& Name() const { return name_; }

 private:
  // "FILE:LINE:COLUMN: "
  std::string Place(const NIMBO::QUAYPOST_SERVER::admin::DocumentError& error) const;

  std::string name_;
  std::string text_;
  Json::Value document_;
};

// What a plan's JSON says, a delegation after the other.
std::string PlanText(const Json::Value& changes);

// The names of the delegations in it, one per line.
std::string PlanNames(const Json::Value& changes);

}  // namespace delegationctl
