/// Who may: every account that may call a method or has a tab, and everybody's tabs at once.
///
///   for (const Access& access : WhoCan({.tab = "queue"}).accounts) Show(access);
///
/// Both ask the host for all its accounts and for those that the database knows, and read the database in one
/// transaction. An account that could not be looked up ends them with an Error: a list for an audit has no gaps.
/// Nothing is changed. Not for several threads.
#pragma once

#include <json/json.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "admin/effect.h"
#include "admin/explain.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

/// One account and where its access comes from.
struct Access {
  unsigned int uid = 0;
  std::string name;                  ///< the host's; the stored one of an account that is gone
  bool gone = false;                 ///< the host has no account of this uid any more: it may do nothing
  bool administrator = false;        ///< a member of the host's administrators group: it may do everything
  std::optional<Holding> effective;  ///< the stored effective delegation; nothing: the default
  bool direct = false;               ///< `effective` is assigned to the account directly,
  std::vector<std::string> groups;   ///< and through these groups; neither: no stored assignment supports it

  /// {"uid", "name", "gone", "administrator", "in_effect": {"id", "name", "priority"} or null, "direct", "groups"}
  MAILSERVER_EXPORT Json::Value ToJson() const;
};

struct MAILSERVER_EXPORT Permitted {
  Question question;
  bool everybody = false;            ///< every account of the host may; `accounts` are all of them
  std::set<std::string> tabsNeeded;  ///< each of them gives what was asked for
  std::vector<Access> accounts;      ///< by uid; `effective` and its source only where it gives what was asked for

  /// {"method" or "tab", "everybody", "tabs_needed", "accounts": [Access]}
  Json::Value ToJson() const;
};

/// Every account of the host for which DelegationUserAllowWebapi allows the method, or that has the tab or is an
/// administrator. Throws Error: kInput for a question that is not one of the two, kAccounts, kDatabase.
MAILSERVER_EXPORT Permitted WhoCan(const Question& question);

/// One delegation as an auditor sees it.
struct ReviewedDelegation {
  Holding delegation;
  std::string color;
  std::set<std::string> tabs;
  std::set<std::string> unknownTabs;  ///< switched on, but no tabs: every access check of who is under it fails
  std::vector<std::string> users;     ///< assigned directly
  std::vector<std::string> groups;
  std::size_t inEffect = 0;  ///< accounts that are under it
};

struct MAILSERVER_EXPORT Review {
  std::vector<std::string> tabs;                ///< all there are, in the order of the web interface
  std::vector<ReviewedDelegation> delegations;  ///< highest priority first
  std::vector<Access> accounts;                 ///< by uid: all that the database knows, and the administrators

  /// The tabs that the account has through its effective delegation.
  const std::set<std::string>& TabsOf(const Access& access) const;

  /// {"tabs", "delegations": [{"id", "name", "priority", "color", "tabs", "unknown_tabs", "users", "groups",
  /// "in_effect"}], "accounts": [Access with "tabs"]}
  Json::Value ToJson() const;
};

/// Everybody's tabs and their source. Throws Error: kAccounts, kDatabase.
MAILSERVER_EXPORT Review MakeReview();

}  // namespace NIMBO::QUAYPOST_SERVER::admin
