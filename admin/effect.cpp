// The difference between two states, user by user.
#include "admin/effect.h"

#include <algorithm>
#include <iterator>

#include "admin/error.h"
#include "admin/to_json.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

using Tabs = std::set<std::string>;

Tabs Without(const Tabs& all, const Tabs& others) {
  Tabs rest;
  std::set_difference(all.begin(), all.end(), others.begin(), others.end(), std::inserter(rest, rest.end()));
  return rest;
}

// The tabs of each delegation of a state, found once.
class TabsById {
 public:
  explicit TabsById(const State& state) {
    for (const auto& [id, delegation] : state.delegations) tabs_.emplace(id, TabsOf(delegation));
  }
  const Tabs& Of(const std::optional<Holding>& holding) const {
    static const Tabs none;
    return holding ? tabs_.at(holding->id) : none;
  }

 private:
  std::map<int, Tabs> tabs_;
};

std::optional<Holding> HoldingOf(const State& state, const User* user) {
  const Delegation* effective = user ? state.Effective(*user) : nullptr;
  if (!effective) return std::nullopt;
  return Holding{effective->id, effective->name, effective->priority};
}

std::optional<Holding> HoldingFrom(const Json::Value& document) {
  if (document.isNull()) return std::nullopt;
  return Holding{document["id"].asInt(), document["name"].asString(), document["priority"].asInt()};
}

Tabs TabsFrom(const Json::Value& array) {
  Tabs tabs;
  for (const Json::Value& tab : array) tabs.insert(tab.asString());
  return tabs;
}

}  // namespace

std::size_t Effect::CountGaining() const {
  return static_cast<std::size_t>(
      std::count_if(people.begin(), people.end(), [](const PersonEffect& person) { return !person.gained.empty(); }));
}

std::size_t Effect::CountLosing() const {
  return static_cast<std::size_t>(
      std::count_if(people.begin(), people.end(), [](const PersonEffect& person) { return !person.lost.empty(); }));
}

Json::Value Effect::ToJson() const {
  Json::Value document;
  document["people"] = Json::arrayValue;
  for (const PersonEffect& person : people) {
    Json::Value& entry = document["people"].append(Json::objectValue);
    entry["uid"] = person.uid;
    entry["name"] = person.name;
    entry["before"] = ToJsonObject(person.before);
    entry["after"] = ToJsonObject(person.after);
    entry["gained"] = ToJsonArray(person.gained);
    entry["lost"] = ToJsonArray(person.lost);
  }
  document["changed"] = static_cast<Json::UInt64>(people.size());
  document["gaining"] = static_cast<Json::UInt64>(CountGaining());
  document["losing"] = static_cast<Json::UInt64>(CountLosing());
  return document;
}

Effect Effect::FromJson(const Json::Value& document) {
  try {
    Effect effect;
    for (const Json::Value& entry : document["people"]) {
      effect.people.push_back({entry["uid"].asUInt(), entry["name"].asString(), HoldingFrom(entry["before"]),
                               HoldingFrom(entry["after"]), TabsFrom(entry["gained"]), TabsFrom(entry["lost"])});
    }
    return effect;
  } catch (const Json::Exception& exception) {
    throw Error(Error::kInput, std::string("not an effect: ") + exception.what());
  }
}

Effect Compare(const State& before, const State& after) {
  const TabsById tabsBefore(before), tabsAfter(after);
  Effect effect;
  const auto compare = [&](const User& user, const User* then, const User* now) {
    PersonEffect person{user.uid, user.name, HoldingOf(before, then), HoldingOf(after, now), {}, {}};
    const Tabs& had = tabsBefore.Of(person.before);
    const Tabs& has = tabsAfter.Of(person.after);
    if (person.before == person.after && had == has) return;
    person.gained = Without(has, had);
    person.lost = Without(had, has);
    effect.people.push_back(std::move(person));
  };
  auto then = before.users.begin();
  auto now = after.users.begin();
  while (then != before.users.end() || now != after.users.end()) {
    const bool gone = now == after.users.end() || (then != before.users.end() && then->first < now->first);
    const bool isNew = then == before.users.end() || (!gone && now->first < then->first);
    compare(gone ? then->second : now->second, isNew ? nullptr : &then->second, gone ? nullptr : &now->second);
    if (!isNew) ++then;
    if (!gone) ++now;
  }
  return effect;
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
