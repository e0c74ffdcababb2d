/// Members of JSON documents, read by their kind. JsonCpp throws where a value is of another kind than asked for;
/// nothing here does. Text with an embedded NUL is refused: behind the NUL it would be lost in SQL and in account
/// lookups, and mean something else there than in memory.
#pragma once

#include <json/json.h>

#include <string>

namespace NIMBO::QUAYPOST_SERVER {

inline bool HasNul(const std::string& text) { return text.find('\0') != std::string::npos; }

/// Whether `object` is an object with a member `key` (of any kind).
inline bool HasMember(const Json::Value& object, const std::string& key) {
  return object.isObject() && object.isMember(key);
}

/// Reads a string without NUL.
inline bool ReadString(const Json::Value& value, std::string& out) {
  if (!value.isString() || HasNul(value.asString())) return false;
  out = value.asString();
  return true;
}

/// Reads an integer within 32 bits; a real number or a bool is none.
inline bool ReadInt(const Json::Value& value, int& out) {
  if ((value.type() != Json::intValue && value.type() != Json::uintValue) || !value.isInt()) return false;
  out = value.asInt();
  return true;
}

/// Reads the text form of a string, bool, number or null (""), without NUL.
inline bool ReadAsText(const Json::Value& value, std::string& out) {
  if (value.isArray() || value.isObject() || HasNul(value.asString())) return false;
  out = value.asString();
  return true;
}

}  // namespace NIMBO::QUAYPOST_SERVER
