// What `delegationctl rpc` answers; how lines come and go is rpc.cpp's.
#pragma once

#include <json/json.h>

#include <optional>
#include <string>

#include "rpc_admin.h"

namespace delegationctl {

// The answer to one line, a request or a batch of them; nothing when it held notifications only. Throws nothing but
// std::bad_alloc.
std::optional<Json::Value> AnswerTo(const std::string& line);

// The exported function of that name; null when there is none.
const RpcMethod* FindExported(const std::string& function);

// Whether these are arguments of it.
bool Fit(const Json::Value& params, const RpcMethod& method);

// The answer to a line that is no JSON, or too long to tell.
Json::Value ParseErrorAnswer();

}  // namespace delegationctl
