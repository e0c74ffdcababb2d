/// Documents for the exported functions, from a short form.
///
///   Change(R"({"name": "Helpdesk", "priority": 20, "tabs": ["queue"], "to": ["group ops", "user ann"]})")
#pragma once

#include <gtest/gtest.h>
#include <json/json.h>

#include <sstream>
#include <string>
#include <vector>

#include "tables/delegation_default_entries.h"

inline Json::Value Parsed(const std::string& text) {
  Json::Value value;
  if (!Json::Reader().parse(text, value)) ADD_FAILURE() << "no JSON: " << text;
  return value;
}

/// A complete change document: color "blue", priority 10, the tabs of "tabs" are "true" and all others "false", "to"
/// becomes "user_group". Other members are taken as they are. What is no object is left as it is.
inline Json::Value Change(const Json::Value& brief) {
  if (!brief.isObject()) return brief;
  std::vector<std::string> types;
  NIMBO::QUAYPOST_SERVER::DelegationUtilGetAllDefaultTypeDelegationEntry(types);
  Json::Value change;
  change["color"] = "blue";
  change["priority"] = 10;
  for (const std::string& type : types) change[type] = "false";
  for (const std::string& member : brief.getMemberNames()) change[member] = brief[member];
  change.removeMember("tabs");
  change.removeMember("to");
  for (const Json::Value& tab : brief["tabs"]) change[tab.asString()] = "true";
  if (brief.isMember("to")) change["user_group"] = Json::arrayValue;
  for (const Json::Value& assignee : brief["to"]) {
    Json::Value item;
    std::string type, name;
    std::istringstream(assignee.asString()) >> type >> name;
    item["type"] = type;
    item["name"] = name;
    change["user_group"].append(item);
  }
  return change;
}

inline Json::Value Change(const char* brief) { return Change(Parsed(brief)); }
