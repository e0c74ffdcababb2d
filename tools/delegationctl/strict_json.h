// JSON as its grammar says. JsonCpp's strict mode lets through comments inside arrays, numbers such as 01, +1 and 1.,
// control characters in strings, a byte order mark, and half surrogate pairs.
#pragma once

#include <json/json.h>

#include <optional>
#include <string>

namespace delegationctl {

// The value that `text` is, nested at most `deepest` deep, or nothing; also for duplicate keys and for bytes that are
// not UTF-8.
std::optional<Json::Value> ParseStrictJson(const std::string& text, int deepest);

}  // namespace delegationctl
