// JSON-RPC 2.0 over the exported functions: a table of them, and what a request becomes.
#include "rpc_answer.h"

#include <algorithm>
#include <string_view>

#include "admin/error.h"
#include "admin/recorded.h"
#include "api/delegation_api.h"
#include "errors.h"
#include "role/role_user.h"
#include "strict_json.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

constexpr int kDeepest = 200;

enum RpcError {
  kNotDone = -32000,
  kParseError = -32700,
  kInvalidRequest = -32600,
  kMethodNotFound = -32601,
  kInvalidParams = -32602,
  kInternalError = -32603
};

Json::Value Result(Json::Value returned) {
  Json::Value result;
  result["return"] = std::move(returned);
  return result;
}

Json::Value Result(Json::Value returned, Json::Value out) {
  Json::Value result = Result(std::move(returned));
  result["out"] = std::move(out);
  return result;
}

template <bool (*function)(Json::Value, Json::Value&)>
Json::Value CallWithFilter(Json::Value& params) {
  Json::Value out;
  const bool returned = function(params[0], out);
  return Result(returned, out);
}

template <bool (*function)(std::string, Json::Value&)>
Json::Value CallWithText(Json::Value& params) {
  Json::Value out;
  const bool returned = function(params[0].asString(), out);
  return Result(returned, out);
}

template <bool (*function)(Json::Value&)>
Json::Value CallWithDocument(Json::Value& params) {
  return Result(function(params[0]));
}

Json::Value CallDefaultEntries(Json::Value&) {
  Json::Value out;
  const bool returned = DelegationDelegationDefaultEntriesGet(out);
  return Result(returned, out);
}

Json::Value CallDefaultEntry(Json::Value& params) {
  std::string data;
  const bool returned = DelegationDefaultDelegationEntryGet(params[0].asString(), data);
  return Result(returned, data);
}

Json::Value CallCreate(Json::Value& params) {
  int id = -1;
  const bool returned = DelegationDelegationCreate(params[0], id);
  return Result(returned, id);
}

Json::Value CallUpdateSingle(Json::Value& params) {
  std::vector<std::shared_ptr<RoleUser>> users;
  const bool returned = DelegationDelegationUpdateImpFromSingle(params[0], users);
  Json::Value out(Json::arrayValue);
  for (const auto& user : users) RoleUser::ToJson(*user, out.append(Json::objectValue));
  return Result(returned, out);
}

Json::Value CallAllDomain(Json::Value& params) {
  return Result(DelegationUserHasAllDomainDelegations(params[0].asUInt()));
}

Json::Value CallAllow(Json::Value& params) {
  return Result(DelegationUserAllowWebapi(params[0].asString(), params[1].asString()));
}

Json::Value CallRefresh(Json::Value&) { return Result(DelegationRefresh()); }

constexpr RpcMethod kFunctions[] = {
    {"DelegationDelegationList", "j", CallWithFilter<DelegationDelegationList>},
    {"DelegationDelegationEntryAllList", "s", CallWithText<DelegationDelegationEntryAllList>},
    {"DelegationDelegationDefaultEntriesGet", "", CallDefaultEntries},
    {"DelegationDefaultDelegationEntryGet", "s", CallDefaultEntry},
    {"DelegationDelegationCreate", "j", CallCreate, RpcMethod::kChanges},
    {"DelegationDelegationUpdate", "j", CallWithDocument<DelegationDelegationUpdate>, RpcMethod::kChanges},
    {"DelegationDelegationUpdateImpFromSingle", "j", CallUpdateSingle, RpcMethod::kChanges},
    {"DelegationDelegationDelete", "j", CallWithDocument<DelegationDelegationDelete>, RpcMethod::kChanges},
    {"DelegationUserDelegationEntriesGet", "s", CallWithText<DelegationUserDelegationEntriesGet>},
    {"DelegationUserHasAllDomainDelegations", "u", CallAllDomain},
    {"DelegationUserAllowWebapi", "ss", CallAllow},
    {"DelegationRefresh", "", CallRefresh, RpcMethod::kRefreshes},
    {"DelegationUserList", "j", CallWithFilter<DelegationUserList>},
    {"DelegationUserGroupDelegationInfoList", "j", CallWithFilter<DelegationUserGroupDelegationInfoList>},
};

bool Fits(const Json::Value& value, char kind) {
  if (kind == 's') return value.isString();
  const bool integer = value.type() == Json::intValue || value.type() == Json::uintValue;
  return kind == 'j' || (integer && value.isUInt());
}

Json::Value Response(const Json::Value& id) {
  Json::Value response;
  response["jsonrpc"] = "2.0";
  response["id"] = id;
  return response;
}

Json::Value ErrorResponse(RpcError code, const char* message, const Json::Value& id = Json::Value()) {
  Json::Value response = Response(id);
  response["error"]["code"] = code;
  response["error"]["message"] = message;
  return response;
}

// What stopped a method of the admin library; "data" tells as the tool's JSON does.
Json::Value NotDone(const Exit& exit, const Json::Value& id) {
  Json::Value response = ErrorResponse(kNotDone, exit.what(), id);
  response["error"]["data"]["code"] = exit.code;
  response["error"]["data"]["hint"] = exit.remedy;
  return response;
}

const RpcMethod* Find(std::span<const RpcMethod> methods, const std::string& name) {
  const auto found =
      std::find_if(methods.begin(), methods.end(), [&](const RpcMethod& method) { return method.name == name; });
  return found == methods.end() ? nullptr : &*found;
}

// Calls an exported function; what one changes is recorded.
Json::Value CallExported(const RpcMethod& method, Json::Value& params) {
  if (method.kind == RpcMethod::kReads) return method.call(params);
  const auto call = [&](Json::Value& told) {
    told = method.call(params);
    return told["return"].asBool();
  };
  const admin::Entry entry{std::string(method.name), method.kind == RpcMethod::kRefreshes, {}};
  const admin::Recorded done = admin::RecordAround(admin::Actor::Current(), entry, call);
  Json::Value result = done.tried.result;
  if (!done.warning.empty()) result["warning"] = done.warning;
  return result;
}

Json::Value Call(const Json::Value& request, const Json::Value& id) {
  const std::string name = request["method"].asString();
  const RpcMethod* const exported = FindExported(name);
  const RpcMethod* const method = exported ? exported : Find(AdminMethods(), name);
  if (!method) return ErrorResponse(kMethodNotFound, "Method not found", id);
  Json::Value params = request.get("params", Json::arrayValue);
  if (!Fit(params, *method)) return ErrorResponse(kInvalidParams, "Invalid params", id);
  try {
    Json::Value response = Response(id);
    response["result"] = exported ? CallExported(*exported, params) : method->call(params);
    return response;
  } catch (const Exit& exit) {
    return NotDone(exit, id);
  } catch (const admin::Error& error) {
    return NotDone(FromAdmin(error), id);
  } catch (const std::exception&) {
    return ErrorResponse(kInternalError, "Internal error", id);
  }
}

bool IsRequest(const Json::Value& request) {
  if (!request.isObject() || request["jsonrpc"] != "2.0" || !request["method"].isString()) return false;
  const Json::Value& id = request["id"];
  const bool idFits = id.isNull() || id.isString() || (id.isNumeric() && !id.isBool());
  const bool paramsFit = !request.isMember("params") || request["params"].isArray() || request["params"].isObject();
  return idFits && paramsFit;
}

// The response to one request; nothing for a notification.
std::optional<Json::Value> Handle(const Json::Value& request) {
  if (!IsRequest(request)) return ErrorResponse(kInvalidRequest, "Invalid Request");
  Json::Value response = Call(request, request["id"]);
  if (!request.isMember("id")) return std::nullopt;
  return response;
}

}  // namespace

const RpcMethod* FindExported(const std::string& function) { return Find(kFunctions, function); }

bool Fit(const Json::Value& params, const RpcMethod& method) {
  if (!params.isArray() || params.size() != method.params.size()) return false;
  for (Json::ArrayIndex i = 0; i < params.size(); ++i) {
    if (!Fits(params[i], method.params[i])) return false;
  }
  return true;
}

Json::Value ParseErrorAnswer() { return ErrorResponse(kParseError, "Parse error"); }

std::optional<Json::Value> AnswerTo(const std::string& line) {
  const std::optional<Json::Value> parsed = ParseStrictJson(line, kDeepest);
  if (!parsed) return ParseErrorAnswer();
  if (!parsed->isArray()) return Handle(*parsed);
  if (parsed->empty()) return ErrorResponse(kInvalidRequest, "Invalid Request");
  Json::Value responses(Json::arrayValue);
  for (const Json::Value& request : *parsed) {
    if (std::optional<Json::Value> response = Handle(request)) responses.append(*std::move(response));
  }
  if (responses.empty()) return std::nullopt;
  return responses;
}

}  // namespace delegationctl
