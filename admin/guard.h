/// What somebody who is not an administrator of the host may change. Without it the tab "delegation" would be worth
/// every tab: whoever may change delegations could give himself all of them.
///
///   if (std::optional<Refusal> refusal = Judge("ann", tried.before, tried.after, tried.effect)) ...
///
/// An administrator may change everything. Anybody else needs the tab "delegation" himself, gives nobody a tab that he
/// does not have, and leaves alone his own delegation and those that are not below it. A refresh is not judged: it only
/// reads the host again.
#pragma once

#include <json/json.h>

#include <optional>
#include <string>

#include "admin/effect.h"
#include "admin/state.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

struct MAILSERVER_EXPORT Refusal {
  std::string rule;     ///< "unknown_actor", "no_delegation_tab", "tab_not_held", "own_or_above", "name_taken" or
                        ///< "nobody_left"
  std::string text;     ///< what is refused and why, a sentence without a full stop
  std::string allowed;  ///< what would be allowed

  /// {"rule", "text", "allowed"}
  Json::Value ToJson() const;
};

/// Judges a change by the states around it, of which `effect` is the difference. `actor` is a user's short name;
/// nothing when the change is allowed. A lookup that fails, and a user whom nobody knows, are refused.
MAILSERVER_EXPORT std::optional<Refusal> Judge(const std::string& actor, const State& before, const State& after,
                                               const Effect& effect);

}  // namespace NIMBO::QUAYPOST_SERVER::admin
