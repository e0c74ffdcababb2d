/// What would give a user a tab, as command lines. Private.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "admin/explain.h"
#include "admin/state.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

/// One word of a POSIX shell that stands for `text`, which holds no NUL.
std::string ShellWord(const std::string& text);

/// The smallest changes after which `user`, whose effective delegation has none of the tabs `needed`, has one of them.
/// `refreshed` is the user as a refresh from the host would leave it; `isUpToDate` says whether the host surely has
/// everybody to whom a delegation is assigned, without which it is not assigned to anybody else before a refresh.
std::vector<Remedy> FindRemedies(const State& state, const User& user, const User& refreshed,
                                 const std::set<std::string>& needed,
                                 const std::function<bool(const Delegation&)>& isUpToDate);

}  // namespace NIMBO::QUAYPOST_SERVER::admin
