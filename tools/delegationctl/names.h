// Names on the command line and what they mean: users, groups, tabs, methods, and "did you mean".
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "model/delegation_group.h"
#include "model/delegation_user.h"

namespace delegationctl {

using NIMBO::QUAYPOST_SERVER::DelegationGroup;
using NIMBO::QUAYPOST_SERVER::DelegationUser;
using Methods = std::map<std::string, std::set<std::string>>;  // by tab, and by the two keys that are no tabs

// The host account of a short name. Throws no_user when there definitely is none, accounts when nobody knows.
DelegationUser ResolveUser(const std::string& name);

// The host group of a name; throws no_group or accounts.
DelegationGroup ResolveGroup(const std::string& name);

// Whether the host definitely has no account, or no group, of this (stored) name any more; throws accounts.
bool UserIsGone(const std::string& name);
bool GroupIsGone(const std::string& name);

// The 29 tabs, in table order.
std::vector<std::string> Tabs();

// Throws no_tab unless `name` is one of the tabs.
void RequireTab(const std::string& name);

// The web API methods by tab.
Methods TabMethods();

// Throws no_method unless some tab, or one of the keys that are no tabs, contains `method`; the hint ends with
// `otherwise`.
void RequireMethod(const std::string& method, const std::string& otherwise = "");

// The elements of a list option given as "a,b" or several times, each once; throws usage for an empty element.
std::vector<std::string> SplitNames(const std::vector<std::string>& lists);

// "did you mean X or Y?" with those of `candidates` that are nearest to `name`, or "" when none is near.
std::string DidYouMean(const std::string& name, const std::vector<std::string>& candidates);

// The number that `text` is, in base 10 and 32 bits; throws usage, naming `what`.
int ParseNumber(const std::string& text, const std::string& what);

// Throws usage unless a delegation may be called, or coloured, `text`: UTF-8 without control bytes, neither empty nor
// longer than the library can store.
void RequireStorable(const std::string& text, const std::string& what);

}  // namespace delegationctl
