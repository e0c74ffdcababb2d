// The smallest changes that give a user a tab.
#include "admin/remedies.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "admin/methods.h"
#include "admin/text.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

Holding HoldingOf(const Delegation& delegation) { return {delegation.id, delegation.name, delegation.priority}; }

// How a command line names the delegation: by its name if that is clear and cannot be mistaken for something else.
std::string Reference(const State& state, const Delegation& delegation) {
  const auto namesakes = std::count_if(state.delegations.begin(), state.delegations.end(),
                                       [&](const auto& other) { return other.second.name == delegation.name; });
  const bool clear =
      namesakes == 1 && IsPlain(delegation.name) && delegation.name[0] != '-' && delegation.name.rfind("id:", 0) != 0;
  return clear ? ShellWord(delegation.name) : "id:" + std::to_string(delegation.id);
}

class Finder {
 public:
  Finder(const State& state, const User& user, const std::set<std::string>& needed)
      : state_(state), user_(user), candidates_(state.CandidatesOf(user)), needed_(needed.begin(), needed.end()) {
    std::stable_sort(needed_.begin(), needed_.end(), [](const std::string& a, const std::string& b) {
      return CountMethods(a) < CountMethods(b);  // the one that gives least first
    });
  }

  std::vector<Remedy> Find(const User& refreshed, const std::function<bool(const Delegation&)>& isUpToDate) {
    const std::vector<Candidate> due = state_.CandidatesOf(refreshed);
    if (!due.empty() && TabOf(*due.front().delegation)) Add(Remedy::kRefresh, nullptr, "", "refresh");
    const Delegation* best = Winner() ? nullptr : BestToAssign();
    if (best && isUpToDate(*best)) {
      AddAssign(*best, "");
    } else if (best && due.empty()) {
      AddAssign(*best, "refresh && delegationctl ");
    }
    if (Winner() && !TabOf(*Winner())) {
      AddSwitchOn();
      AddPriority();
    }
    if (remedies_.empty()) AddCreate();
    return std::move(remedies_);
  }

 private:
  const Delegation* Winner() const { return candidates_.empty() ? nullptr : candidates_.front().delegation; }

  // The smallest of the needed tabs that the delegation has, or null.
  const std::string* TabOf(const Delegation& delegation) const {
    const auto found =
        std::find_if(needed_.begin(), needed_.end(), [&](const std::string& tab) { return delegation.HasTab(tab); });
    return found == needed_.end() ? nullptr : &*found;
  }

  void Add(Remedy::Kind kind, const Delegation* delegation, const std::string& tab, const std::string& command,
           int priority = 0) {
    remedies_.push_back(
        {kind, delegation ? HoldingOf(*delegation) : Holding(), tab, priority, "delegationctl " + command});
  }

  void AddSwitchOn() {
    for (const std::string& tab : needed_) {
      Add(Remedy::kSwitchOn, Winner(), tab, "update " + Reference(state_, *Winner()) + " --on " + tab);
    }
  }

  void AddPriority() {
    if (Winner()->priority == INT_MAX) return;
    const int priority = Winner()->priority + 1;
    std::set<int> seen;
    for (const Candidate& candidate : candidates_) {
      const std::string* tab = TabOf(*candidate.delegation);
      if (!tab || !seen.insert(candidate.delegation->id).second) continue;
      Add(Remedy::kPriority, candidate.delegation, *tab,
          "update " + Reference(state_, *candidate.delegation) + " --priority " + std::to_string(priority), priority);
    }
  }

  // What a user without any delegation is best given: the one that has the tab and the fewest others.
  const Delegation* BestToAssign() const {
    const Delegation* best = nullptr;
    std::size_t fewest = 0;
    for (const auto& [id, delegation] : state_.delegations) {
      const std::size_t tabs = TabsOf(delegation).size();
      if (!TabOf(delegation) || (best && tabs >= fewest)) continue;
      best = &delegation;
      fewest = tabs;
    }
    return NameFitsAList() ? best : nullptr;
  }

  void AddAssign(const Delegation& delegation, const std::string& first) {
    Add(Remedy::kAssign, &delegation, *TabOf(delegation),
        first + "assign " + Reference(state_, delegation) + " --user " + ShellWord(user_.name));
  }

  void AddCreate() {
    const bool outranked = Winner() && Winner()->priority == INT_MAX;
    if (needed_.empty() || outranked || !NameFitsAList()) return;
    const int priority = Winner() ? Winner()->priority + 1 : 0;
    Add(Remedy::kCreate, nullptr, needed_.front(),
        "create " + ShellWord(FreeName()) + (Winner() ? " --priority " + std::to_string(priority) : "") + " --tab " +
            needed_.front() + " --user " + ShellWord(user_.name),
        priority);
  }

  // "queue for eva", which no delegation is called.
  std::string FreeName() const {
    const auto isTaken = [&](const std::string& name) {
      return std::any_of(state_.delegations.begin(), state_.delegations.end(),
                         [&](const auto& other) { return other.second.name == name; });
    };
    const std::string wished = needed_.front() + " for " + user_.name;
    std::string name = wished;
    for (int i = 2; isTaken(name); ++i) name = wished + " " + std::to_string(i);
    return name;
  }

  // Whether a list of names on a command line can hold the user's.
  bool NameFitsAList() const {
    return IsPlain(user_.name) && user_.name.find(',') == std::string::npos && user_.name[0] != '-';
  }

  const State& state_;
  const User& user_;
  const std::vector<Candidate> candidates_;
  std::vector<std::string> needed_;
  std::vector<Remedy> remedies_;
};

}  // namespace

std::string ShellWord(const std::string& text) {
  constexpr char kHarmless[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./:@%+";
  if (!text.empty() && text.find_first_not_of(kHarmless) == std::string::npos) return text;
  std::string word = "'";
  for (const char c : text) word += c == '\'' ? "'\\''" : std::string(1, c);
  return word + "'";
}

std::vector<Remedy> FindRemedies(const State& state, const User& user, const User& refreshed,
                                 const std::set<std::string>& needed,
                                 const std::function<bool(const Delegation&)>& isUpToDate) {
  return Finder(state, user, needed).Find(refreshed, isUpToDate);
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
