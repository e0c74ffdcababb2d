// The rules of the guard, one function each.
#include "admin/guard.h"

#include <algorithm>
#include <iterator>

#include "model/delegation_user.h"
#include "platform/nimbsdk.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

using Tabs = std::set<std::string>;

constexpr char kTab[] = "delegation";  // the tab that lets its holders change delegations

std::string Quoted(const std::string& name) { return '"' + name + '"'; }

std::string Joined(const Tabs& tabs) {
  std::string text;
  for (const std::string& tab : tabs) text += (text.empty() ? "" : ", ") + tab;
  return text.empty() ? "none" : text;
}

Tabs Without(const Tabs& tabs, const Tabs& others) {
  Tabs rest;
  std::set_difference(tabs.begin(), tabs.end(), others.begin(), others.end(), std::inserter(rest, rest.end()));
  return rest;
}

template <class Ids>
bool HasNew(const Ids& before, const Ids& after) {
  return !std::includes(before.begin(), before.end(), after.begin(), after.end());
}

bool Same(const Delegation& a, const Delegation& b) {
  return a.name == b.name && a.color == b.color && a.priority == b.priority && a.entries == b.entries &&
         a.users == b.users && a.groups == b.groups;
}

const Delegation* Find(const State& state, int id) {
  const auto found = state.delegations.find(id);
  return found == state.delegations.end() ? nullptr : &found->second;
}

// One delegation around the change; null: it does not exist.
struct Touched {
  const Delegation* before;
  const Delegation* after;
  const Delegation& Any() const { return before ? *before : *after; }
};

std::vector<Touched> TouchedBy(const State& before, const State& after) {
  std::vector<Touched> touched;
  for (const auto& [id, delegation] : before.delegations) {
    const Delegation* now = Find(after, id);
    if (!now || !Same(delegation, *now)) touched.push_back({&delegation, now});
  }
  for (const auto& [id, delegation] : after.delegations) {
    if (!Find(before, id)) touched.push_back({nullptr, &delegation});
  }
  return touched;
}

// The tabs that the user gets when he is computed anew, which a change may leave to a later refresh.
Tabs DueTabs(const State& state, const User& user) {
  const std::vector<Candidate> candidates = state.CandidatesOf(user);
  return candidates.empty() ? Tabs() : TabsOf(*candidates.front().delegation);
}

// The delegation that counts among those of a user's own, or of one group; null without any.
const Delegation* Highest(const State& state, const std::vector<int>& ids) {
  const Delegation* highest = nullptr;
  for (const int id : ids) {
    const Delegation& one = state.delegations.at(id);
    if (!highest || one.priority > highest->priority) highest = &one;
  }
  return highest;
}

class Guard {
 public:
  Guard(const User& actor, const State& before, const State& after, const Effect& effect)
      : before_(before),
        after_(after),
        effect_(effect),
        own_(before.Effective(actor)),
        held_(before.TabsOf(actor)),
        touched_(TouchedBy(before, after)) {}

  std::optional<Refusal> Judge() const {
    for (const auto rule :
         {&Guard::MayChangeAtAll, &Guard::LeavesHisOwnAndAbove, &Guard::TakesNoName, &Guard::PutsNoOtherTabInto,
          &Guard::UncoversNothing, &Guard::GivesNobodyMore, &Guard::LeavesSomebody}) {
      if (std::optional<Refusal> refusal = (this->*rule)()) return refusal;
    }
    return std::nullopt;
  }

 private:
  std::optional<Refusal> MayChangeAtAll() const {
    if (held_.contains(kTab) || (touched_.empty() && effect_.people.empty())) return std::nullopt;
    return Refusal{"no_delegation_tab", "who does not have the tab delegation may not change delegations",
                   "an administrator can give it"};
  }

  std::optional<Refusal> LeavesHisOwnAndAbove() const {
    for (const Touched& touched : touched_) {
      const Delegation& delegation = touched.Any();
      const bool own = own_ && delegation.id == own_->id;
      const auto isBelow = [&](const Delegation* one) { return !one || (own_ && one->priority < own_->priority); };
      if (isBelow(touched.before) && isBelow(touched.after)) continue;
      return Refusal{
          "own_or_above",
          Quoted(delegation.name) + (own ? " is the delegation in effect for who makes the change"
                                         : " is not below the delegation of who makes the change, or would "
                                           "not be"),
          own_ ? "delegations with a priority below " + std::to_string(own_->priority) + ", other than the own one"
               : "none"};
    }
    return std::nullopt;
  }

  std::optional<Refusal> TakesNoName() const {
    for (const auto& [before, after] : touched_) {
      if (!after || (before && before->name == after->name)) continue;
      for (const auto& [id, other] : after_.delegations) {
        if (id == after->id || other.name != after->name) continue;
        return Refusal{"name_taken", "there would be two delegations " + Quoted(after->name), "another name"};
      }
    }
    return std::nullopt;
  }

  // What a group, or a user, has and does not come to count now may do so when the one above it goes or sinks, for
  // members too whom only the next refresh finds.
  std::optional<Refusal> UncoversNothing() const {
    const auto uncovers = [&](const std::string& name, const std::vector<int>& then, const std::vector<int>& now) {
      const Delegation* first = Highest(after_, now);
      const Delegation* one = Highest(before_, then);
      if (!first || (one && one->id == first->id)) return std::optional<Refusal>();
      const Tabs foreign = Without(TabsOf(*first), held_);
      return foreign.empty() ? std::nullopt : std::optional(NotHeld(Quoted(name) + " would get", foreign));
    };
    for (const auto& [gid, group] : after_.groups) {
      const auto then = before_.groups.find(gid);
      if (then == before_.groups.end()) continue;
      if (auto refusal = uncovers(group.name, then->second.delegations, group.delegations)) return refusal;
    }
    for (const auto& [uid, user] : after_.users) {
      const auto then = before_.users.find(uid);
      if (then == before_.users.end()) continue;
      if (auto refusal = uncovers(user.name, then->second.direct, user.direct)) return refusal;
    }
    return std::nullopt;
  }

  // By content, whoever is affected: a tab that is switched on, and all tabs of what is newly assigned or raised.
  std::optional<Refusal> PutsNoOtherTabInto() const {
    for (const auto& [before, after] : touched_) {
      if (!after) continue;
      const bool reachesMore = !before || HasNew(before->users, after->users) ||
                               HasNew(before->groups, after->groups) || after->priority > before->priority;
      const Tabs given = reachesMore ? TabsOf(*after) : Without(TabsOf(*after), TabsOf(*before));
      const Tabs foreign = Without(given, held_);
      if (!foreign.empty()) return NotHeld(Quoted(after->name) + " would give", foreign);
    }
    return std::nullopt;
  }

  // By effect: stored now, and due when everybody is computed anew.
  std::optional<Refusal> GivesNobodyMore() const {
    for (const PersonEffect& person : effect_.people) {
      const Tabs foreign = Without(person.gained, held_);
      if (!foreign.empty()) return NotHeld(Quoted(person.name) + " would get", foreign);
    }
    if (touched_.empty()) return std::nullopt;
    for (const auto& [uid, user] : after_.users) {
      const Tabs due = Without(DueTabs(after_, user), held_);
      if (due.empty()) continue;
      const auto then = before_.users.find(uid);
      const Tabs foreign = Without(due, then == before_.users.end() ? Tabs() : DueTabs(before_, then->second));
      if (!foreign.empty()) return NotHeld(Quoted(user.name) + " would get", foreign);
    }
    return std::nullopt;
  }

  // An administrator always can; this is for a host that has none.
  std::optional<Refusal> LeavesSomebody() const {
    const auto can = [this](const auto& entry) { return after_.TabsOf(entry.second).contains(kTab); };
    if (touched_.empty() || std::any_of(after_.users.begin(), after_.users.end(), can)) return std::nullopt;
    return Refusal{"nobody_left", "nobody would have the tab delegation any more", "leave it to somebody"};
  }

  Refusal NotHeld(const std::string& who, const Tabs& tabs) const {
    return {"tab_not_held", who + " what who makes the change does not have: " + Joined(tabs),
            "only these tabs: " + Joined(held_)};
  }

  const State& before_;
  const State& after_;
  const Effect& effect_;
  const Delegation* const own_;
  const Tabs held_;
  const std::vector<Touched> touched_;
};

}  // namespace

Json::Value Refusal::ToJson() const {
  Json::Value document;
  document["rule"] = rule;
  document["text"] = text;
  document["allowed"] = allowed;
  return document;
}

std::optional<Refusal> Judge(const std::string& actor, const State& before, const State& after, const Effect& effect) {
  const Refusal unknown{"unknown_actor", "who makes the change, " + Quoted(actor) + ", could not be looked up",
                        "a user whom the host knows"};
  DelegationUser account;
  if (actor.empty() || !RoleUser::FromShortUsername(actor, account)) return unknown;
  const int administrator = NBLIBGroupIsAdminGroupMem(account.getUsername().c_str(), 0);
  if (administrator == 1) return std::nullopt;
  if (administrator != 0) return unknown;

  // Somebody else's delegations are stored under a uid that has been given away.
  const auto stored = before.users.find(account.getUid());
  const bool isStored = stored != before.users.end() && stored->second.name == account.getUsername();
  return Guard(isStored ? stored->second : User(), before, after, effect).Judge();
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
