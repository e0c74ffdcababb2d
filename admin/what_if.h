/// A change tried out: the real code, on a private copy of the database, in a child process.
///
///   Tried tried = TryOut([&] { return DelegationDelegationDelete(ids); });
///   if (tried.done) Show(tried.effect);
///
/// The copy is taken through SQLite's backup interface and removed at the end; of the database itself only read
/// permission is needed, and not a byte of it changes. Nothing is announced to the cluster. Not inside a RoleDBScope
/// and not for several threads.
#pragma once

#include <functional>
#include <string>

#include "admin/effect.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

/// What has come of a change.
struct Tried {
  bool done = false;    ///< what the change returned
  std::string problem;  ///< what the change threw, "" if nothing
  Json::Value result;   ///< what it has put into its argument
  Effect effect;        ///< none when it was not done
  State before, after;  ///< empty for a change that was tried out in another process
};

/// A change: what it stores goes through the exported functions; what it wants to tell goes into the argument.
using Change = std::function<bool(Json::Value& result)>;

/// Runs `change` on a copy. With `inspect`, that is called with the states before and after, in the child process, and
/// what it returns is added to the result as "inspected". Throws Error when there can be no copy or no child process.
MAILSERVER_EXPORT Tried TryOut(const Change& change,
                               const std::function<Json::Value(const State& before, const State& after)>& inspect = {});

/// Runs `change` on the database itself and tells in the same form what it did. Throws Error when the states before or
/// after cannot be read.
MAILSERVER_EXPORT Tried CarryOut(const Change& change);

}  // namespace NIMBO::QUAYPOST_SERVER::admin
