// What `delegationctl rpc` answers; how lines come and go is rpc.cpp's.
#pragma once

#include <json/json.h>

#include <optional>
#include <string>

namespace delegationctl {

// The answer to one line, a request or a batch of them; nothing when it held notifications only. Throws nothing but
// std::bad_alloc.
std::optional<Json::Value> AnswerTo(const std::string& line);

// Calls an exported function with its arguments; {"return", "out"}. Nothing when there is no such function, or the
// arguments do not fit it.
std::optional<Json::Value> CallExported(const std::string& function, Json::Value params);

// The answer to a line that is no JSON, or too long to tell.
Json::Value ParseErrorAnswer();

}  // namespace delegationctl
