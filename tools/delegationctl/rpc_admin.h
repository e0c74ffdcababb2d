// The methods admin.* of delegationctl rpc: what the admin library answers and does.
#pragma once

#include <json/json.h>

#include <span>
#include <string>
#include <string_view>

namespace delegationctl {

struct RpcMethod {
  enum Kind { kReads, kChanges, kRefreshes };

  std::string_view name;
  std::string_view params;  // one letter for each: j any JSON, s text, u unsigned 32-bit integer
  // Gives the "result". May throw Exit and admin::Error, which become an error of the code -32000.
  Json::Value (*call)(Json::Value& params);
  Kind kind = kReads;  // of an exported function
};

std::span<const RpcMethod> AdminMethods();

// The database that the session has been given; "" for the configured one.
std::string& RpcDatabase();

}  // namespace delegationctl
