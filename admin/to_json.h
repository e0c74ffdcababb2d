/// The parts that the library's answers have in common, as JSON. Private.
#pragma once

#include <json/json.h>

#include <optional>
#include <set>
#include <string>

#include "admin/effect.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

/// {"id", "name", "priority"}
inline Json::Value ToJsonObject(const Holding& holding) {
  Json::Value document;
  document["id"] = holding.id;
  document["name"] = holding.name;
  document["priority"] = holding.priority;
  return document;
}

/// The same, or null.
inline Json::Value ToJsonObject(const std::optional<Holding>& holding) {
  return holding ? ToJsonObject(*holding) : Json::Value();
}

template <class Texts>
Json::Value ToJsonArray(const Texts& texts) {
  Json::Value array(Json::arrayValue);
  for (const std::string& text : texts) array.append(text);
  return array;
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
