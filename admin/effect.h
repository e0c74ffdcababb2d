/// What a change does to people: whose effective delegation becomes another one, and who gains and who loses which
/// tabs.
#pragma once

#include <json/json.h>

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "admin/state.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

/// An effective delegation as people know it.
struct Holding {
  int id = -1;
  std::string name;
  int priority = 0;

  bool operator==(const Holding& other) const { return id == other.id; }
};

/// What happens to one user.
struct PersonEffect {
  unsigned int uid = 0;
  std::string name;
  std::optional<Holding> before;  ///< nothing: the default, or not a known user
  std::optional<Holding> after;
  std::set<std::string> gained;  ///< tabs
  std::set<std::string> lost;
};

struct MAILSERVER_EXPORT Effect {
  std::vector<PersonEffect> people;  ///< those for whom something changes, by uid

  std::size_t CountGaining() const;
  std::size_t CountLosing() const;

  /// {"people": [{"uid", "name", "before": {"id", "name", "priority"} or null, "after", "gained": [tab], "lost"}],
  /// "changed": n, "gaining": n, "losing": n}
  Json::Value ToJson() const;
  /// The reverse; throws Error::kInput for a document that is no effect.
  static Effect FromJson(const Json::Value& document);
};

/// The difference between two moments, by the stored effective delegations, which access checks go by.
MAILSERVER_EXPORT Effect Compare(const State& before, const State& after);

}  // namespace NIMBO::QUAYPOST_SERVER::admin
