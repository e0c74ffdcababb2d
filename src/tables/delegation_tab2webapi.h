/// Which web API methods each tab needs: the constant map behind every access check.
///
/// Its keys are the 29 entry types and two that are no tabs: "_allow_webapi_", what every delegated administrator may
/// call, and "personal", a user's own settings. Method names match byte for byte; one may belong to several tabs.
#pragma once

#include <map>
#include <set>
#include <string>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER {

/// Replaces `out` with a copy of the table; true, false only when memory ran out. Whoever asks about many methods takes
/// the copy once.
MAILSERVER_EXPORT bool DelegationUtilGetTab2WebapiSet(std::map<std::string, std::set<std::string>>& out);

}  // namespace NIMBO::QUAYPOST_SERVER
