// The reverse of the tab-to-web-API table.
#include "admin/methods.h"

#include "admin/error.h"
#include "tables/delegation_tab2webapi.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

struct Index {
  std::map<std::string, MethodTabs> methods;
  std::map<std::string, std::size_t> sizes;  // by tab, and by the two keys that are none
};

Index MakeIndex() {
  std::map<std::string, std::set<std::string>> table;
  if (!DelegationUtilGetTab2WebapiSet(table)) throw Error(Error::kSystem, "the table of methods cannot be read");
  Index index;
  for (const auto& [key, methods] : table) {
    const bool isTab = key != "_allow_webapi_" && key != "personal";
    index.sizes[key] = methods.size();
    for (const std::string& method : methods) {
      MethodTabs& entry = index.methods[method];
      if (isTab) entry.tabs.insert(key);
      entry.everybody = entry.everybody || !isTab;
    }
  }
  return index;
}

const Index& TheIndex() {
  static const auto& index = *new Index(MakeIndex());  // never destroyed
  return index;
}

}  // namespace

const std::map<std::string, MethodTabs>& Methods() { return TheIndex().methods; }

MethodTabs TabsOfMethod(const std::string& method) {
  const auto found = Methods().find(method);
  return found == Methods().end() ? MethodTabs() : found->second;
}

std::size_t CountMethods(const std::string& tab) {
  const auto found = TheIndex().sizes.find(tab);
  return found == TheIndex().sizes.end() ? 0 : found->second;
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
