/// The web API methods by name: which tabs give each. The table of the library has it the other way round.
#pragma once

#include <map>
#include <set>
#include <string>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

/// Through what a method may be called.
struct MethodTabs {
  std::set<std::string> tabs;
  bool everybody = false;  ///< it is in one of the two keys that are no tabs, which every account has
};

/// Every method that is in the table, made once. Throws Error::kSystem when the table cannot be read.
MAILSERVER_EXPORT const std::map<std::string, MethodTabs>& Methods();

/// Through what `method` may be called; nothing for a method that is not in the table. Throws as Methods.
MAILSERVER_EXPORT MethodTabs TabsOfMethod(const std::string& method);

/// How many methods the tab gives; 0 for what the table does not have. Throws as Methods.
MAILSERVER_EXPORT std::size_t CountMethods(const std::string& tab);

}  // namespace NIMBO::QUAYPOST_SERVER::admin
