// Names on the command line and what they mean: users, groups, tabs, methods, and "did you mean".
#include "names.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <numeric>

#include "admin/accounts.h"
#include "errors.h"
#include "output.h"
#include "platform/mailserver.h"
#include "platform/nimbsdk.h"
#include "role/role_util.h"
#include "tables/delegation_default_entries.h"
#include "tables/delegation_tab2webapi.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

constexpr int kAccountsShown = 10000;  // as many accounts are looked through for "did you mean"

std::string Lower(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

// The number of insertions, deletions, replacements and swaps of neighbours that turn `a` into `b`.
std::size_t EditDistance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> beforeLast, last(b.size() + 1), row(b.size() + 1);
  std::iota(last.begin(), last.end(), 0);
  for (std::size_t i = 1; i <= a.size(); ++i) {
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
      const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
    }
    beforeLast = last;
    last = row;
  }
  return last[b.size()];
}

std::vector<std::string> AccountNames() {
  std::vector<std::string> names;
  int type = 0;
  if (!MailserverAccountType(type)) return names;
  const auto collect = [](const NIMBOUSER* user, void* context) {
    static_cast<std::vector<std::string>*>(context)->push_back(user->szName);
    return 0;
  };
  NBLIBUserInfoEnum(type, nullptr, 0, kAccountsShown, collect, &names);
  return names;
}

std::vector<std::string> StoredGroupNames() {
  std::vector<std::shared_ptr<RoleGroup>> groups;
  std::vector<std::string> names;
  if (!DelegationGroup::List(Json::Value(), groups)) return names;
  for (const auto& group : groups) names.push_back(group->getGroupname());
  return names;
}

}  // namespace

DelegationUser ResolveUser(const std::string& name) {
  if (const auto account = admin::UserNamed(name)) return {account->id, account->name};
  std::string remedy = DidYouMean(name, AccountNames());
  throw Exit(errors::kNoUser, fmt::format("there is no user {} on this host", Quoted(name)),
             remedy.empty() ? "getent passwd lists the host's accounts" : remedy);
}

DelegationGroup ResolveGroup(const std::string& name) {
  if (const auto account = admin::GroupNamed(name)) return {account->id, account->name};
  std::string remedy = DidYouMean(name, StoredGroupNames());
  throw Exit(errors::kNoGroup, fmt::format("there is no group {} on this host", Quoted(name)),
             remedy.empty() ? "getent group lists the host's groups" : remedy);
}

bool UserIsGone(const std::string& name) { return !admin::UserNamed(name); }

bool GroupIsGone(const std::string& name) { return !admin::GroupNamed(name); }

std::vector<std::string> Tabs() {
  std::vector<std::string> tabs;
  DelegationUtilGetAllDefaultTypeDelegationEntry(tabs);
  return tabs;
}

void RequireTab(const std::string& name) {
  const std::vector<std::string> tabs = Tabs();
  if (std::find(tabs.begin(), tabs.end(), name) != tabs.end()) return;
  std::string remedy = DidYouMean(name, tabs);
  throw Exit(errors::kNoTab, fmt::format("there is no tab {}", Quoted(name)),
             remedy.empty() ? "delegationctl tabs lists them" : remedy);
}

Methods TabMethods() {
  Methods methods;
  DelegationUtilGetTab2WebapiSet(methods);
  return methods;
}

void RequireMethod(const std::string& method, const std::string& otherwise) {
  std::set<std::string> known;
  for (const auto& [tab, names] : TabMethods()) known.insert(names.begin(), names.end());
  if (known.contains(method)) return;
  std::string remedy = DidYouMean(method, {known.begin(), known.end()});
  if (remedy.empty())
    remedy = "delegationctl tabs TAB lists the methods of a tab" + std::string(otherwise.empty() ? "" : ";");
  if (!otherwise.empty()) remedy += " " + otherwise;
  throw Exit(errors::kNoMethod, fmt::format("no tab contains the method {}", Quoted(method)), remedy);
}

std::vector<std::string> SplitNames(const std::vector<std::string>& lists) {
  std::vector<std::string> names;
  for (const std::string& list : lists) {
    for (std::size_t begin = 0, end = 0; end != std::string::npos; begin = end + 1) {
      end = list.find(',', begin);
      const std::string name = list.substr(begin, end == std::string::npos ? end : end - begin);
      if (name.empty()) throw Exit(errors::kBadUsage, fmt::format("the list {} has an empty name", Quoted(list)));
      if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
  }
  return names;
}

std::string DidYouMean(const std::string& name, const std::vector<std::string>& candidates) {
  constexpr std::size_t kShown = 3;
  std::size_t nearest = std::max<std::size_t>(name.size() / 4, 1);
  std::vector<std::string> names;
  for (const std::string& candidate : candidates) {
    const std::size_t size = candidate.size(), other = name.size();
    if (size > other + nearest || other > size + nearest) continue;
    const std::size_t distance = EditDistance(Lower(name), Lower(candidate));
    if (distance > nearest) continue;
    if (distance < nearest) names.clear();
    nearest = distance;
    if (names.size() < kShown) names.push_back(candidate);
  }
  return names.empty() ? "" : fmt::format("did you mean {}?", Joined(names, " or "));
}

int ParseNumber(const std::string& text, const std::string& what) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 10);
  if (error == std::errc() && end == text.data() + text.size()) return number;
  throw Exit(errors::kBadUsage, fmt::format("{} {} is no number", what, Quoted(text)),
             "numbers are decimal, from -2147483648 to 2147483647");
}

void RequireStorable(const std::string& text, const std::string& what) {
  constexpr std::size_t kLongest = 400;  // bytes; the library's statements hold 2047 with every quote doubled
  if (text.empty()) throw Exit(errors::kBadUsage, fmt::format("the {} is empty", what));
  if (text.size() > kLongest) {
    throw Exit(errors::kBadUsage, fmt::format("the {} has {} bytes", what, text.size()),
               fmt::format("at most {} can be stored", kLongest));
  }
  if (Printable(text) != text) {
    throw Exit(errors::kBadUsage, fmt::format("the {} {} has bytes that are no text", what, Quoted(text)),
               "leave out control characters, and write it in UTF-8");
  }
}

}  // namespace delegationctl
