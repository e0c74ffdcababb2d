/// The tab-to-web-API table itself, for the access check, which needs no copy of it. Private: not installed.
#pragma once

#include <map>
#include <set>
#include <string>

namespace NIMBO::QUAYPOST_SERVER {

using Tab2Webapi = std::map<std::string, std::set<std::string>>;

/// Built on first use, never changed and never destroyed. Null when there was no memory to build it; the next call
/// tries again.
const Tab2Webapi* Tab2WebapiTable();

}  // namespace NIMBO::QUAYPOST_SERVER
