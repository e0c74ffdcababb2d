// Fuzz target: one line of JSON-RPC.
#include "../../../tools/delegationctl/output.h"
#include "../../../tools/delegationctl/rpc_admin.h"
#include "../../../tools/delegationctl/rpc_answer.h"
#include "../../../tools/delegationctl/strict_json.h"
#include "admin/recorded.h"
#include "fuzz_world.h"

using namespace NIMBO::QUAYPOST_SERVER;

// The methods admin.* are not this target's, and nothing is recorded.
std::span<const delegationctl::RpcMethod> delegationctl::AdminMethods() { return {}; }

namespace NIMBO::QUAYPOST_SERVER::admin {

Actor Actor::Current() { return {}; }

Recorded RecordAround(const Actor&, const Entry&, const Change& change) {
  Recorded done;
  done.tried.done = change(done.tried.result);
  return done;
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin

namespace {

void CheckResponses(const Json::Value& answer) {
  if (answer.isArray()) {
    Require(!answer.empty(), "an empty answer is none");
    for (const Json::Value& response : answer) CheckResponses(response);
    return;
  }
  Require(answer.isObject() && answer.size() == 3 && answer["jsonrpc"] == "2.0" && answer.isMember("id") &&
              answer.isMember("result") != answer.isMember("error"),
          "a response is one");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static const FuzzWorld world;
  constexpr int kDeepest = 1000;
  world.Reset();
  if (const auto answer = delegationctl::AnswerTo({data, data + size})) {
    const std::string text = delegationctl::JsonText(*answer);
    Require(text.find('\n') == text.npos, "an answer is one line");
    auto parsed = delegationctl::ParseStrictJson(text, kDeepest);
    Require(parsed.has_value(), "an answer is strict JSON");
    CheckResponses(*parsed);
  }
  world.CheckRules();
  return 0;
}
