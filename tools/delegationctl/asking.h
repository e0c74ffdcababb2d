// What the verbs that ask who may do what have in common.
#pragma once

#include <string>

#include "admin/access.h"
#include "admin/explain.h"

namespace delegationctl {

// What `name` asks about: the tab of that name, or else the method. Throws no_method for what is neither, unless
// `exact`.
NIMBO::QUAYPOST_SERVER::admin::Question ReadQuestion(const std::string& name, bool exact);

// "may call Webapi_Queue_Flush_v1" or "has the tab queue", with `negated` "may not call ..." or "has not the tab ...".
std::string Described(const NIMBO::QUAYPOST_SERVER::admin::Question& question, bool negated = false);

// "administrators, direct, group helpdesk": where an account's access comes from; printable.
std::string ThroughText(const NIMBO::QUAYPOST_SERVER::admin::Access& access);

}  // namespace delegationctl
