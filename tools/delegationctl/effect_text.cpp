// What a change does to people, as people read it.
#include "effect_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <tuple>
#include <vector>

#include "output.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;
using admin::Effect, admin::Holding, admin::PersonEffect;

namespace {

std::string Described(const std::optional<Holding>& holding) {
  return holding ? fmt::format("{} ({})", Printable(holding->name), holding->priority) : "none";
}

// "+ a  + b   - c"
std::string TabsText(const PersonEffect& person) {
  std::vector<std::string> gained, lost;
  for (const std::string& tab : person.gained) gained.push_back("+ " + tab);
  for (const std::string& tab : person.lost) lost.push_back("- " + tab);
  const char* between = gained.empty() || lost.empty() ? "" : "   ";
  return Joined(gained, "  ") + between + Joined(lost, "  ");
}

}  // namespace

std::string EffectText(const Effect& effect) {
  using Kind = std::tuple<std::string, std::string, std::string>;  // before, after, tabs
  std::vector<Kind> order;
  std::map<Kind, std::vector<std::string>> names;
  for (const PersonEffect& person : effect.people) {
    const Kind kind{Described(person.before), Described(person.after), TabsText(person)};
    std::vector<std::string>& alike = names[kind];
    if (alike.empty()) order.push_back(kind);
    alike.push_back(person.name);
  }
  constexpr std::size_t kWidest = 24;  // longer ones have a line of their own
  std::size_t width = 0;
  for (const Kind& kind : order) {
    const std::size_t length = Joined(names[kind]).size();
    if (length <= kWidest) width = std::max(width, length);
  }
  std::string text;
  for (const Kind& kind : order) {
    const auto& [before, after, tabs] = kind;
    const std::string who = Joined(names[kind]);
    if (who.size() > kWidest) {
      text += fmt::format("{}: {}\n{:<{}}   ", Count(names[kind].size(), "user"), who, "", width);
    } else {
      text += fmt::format("{:<{}}   ", who, width);
    }
    text += before == after ? before + "\n" : fmt::format("{} -> {}\n", before, after);
    if (!tabs.empty()) text += fmt::format("{:<{}}   {}\n", "", width, tabs);
  }
  return text + fmt::format("dry run: nothing was changed; {} would change, {} would lose tabs\n",
                            Count(effect.people.size(), "user"), effect.CountLosing());
}

std::string LosersText(const Effect& effect) {
  std::map<std::vector<std::string>, std::size_t> losers;
  for (const PersonEffect& person : effect.people) {
    if (!person.lost.empty()) ++losers[{person.lost.begin(), person.lost.end()}];
  }
  std::string text;
  for (const auto& [tabs, count] : losers) {
    text += fmt::format("{}{} {}: {}", text.empty() ? "" : "\n", Count(count, "user"), count == 1 ? "loses" : "lose",
                        Joined(tabs));
  }
  return text;
}

}  // namespace delegationctl
