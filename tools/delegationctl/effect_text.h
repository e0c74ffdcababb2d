// What a change does to people, as people read it.
#pragma once

#include <string>

#include "admin/effect.h"

namespace delegationctl {

// Those for whom something changes, people with the same change together, and the counts: the answer to --dry-run.
std::string EffectText(const NIMBO::QUAYPOST_SERVER::admin::Effect& effect);

// "5 users lose: log_list, queue", a line for each set of tabs: what a confirmation is asked for.
std::string LosersText(const NIMBO::QUAYPOST_SERVER::admin::Effect& effect);

}  // namespace delegationctl
