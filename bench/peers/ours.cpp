// The library's side of the comparison: decisions over account files and the real platform, each answered from the
// database file. See compare.py for the commands on standard input.
//
// usage: ours tabs               prints the methods of each tab
//        ours WORLD DECISIONS    WORLD: a directory with demo.conf, passwd and group
#include <chrono>
#include <fstream>
#include <iostream>

#include "api/delegation_api.h"
#include "platform/mailserver.h"
#include "platform/nimbsdk.h"
#include "tables/delegation_tab2webapi.h"

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

Json::Value Tabs() {
  std::map<std::string, std::set<std::string>> table;
  DelegationUtilGetTab2WebapiSet(table);
  Json::Value tabs;
  for (const auto& [tab, methods] : table) {
    for (const std::string& method : methods) tabs[tab].append(method);
  }
  return tabs;
}

Json::Value Decide(const Json::Value& decisions) {
  Json::Value answers;
  for (const Json::Value& decision : decisions) {
    const std::string user = decision[0].asString(), method = decision[1].asString();
    const auto start = std::chrono::steady_clock::now();
    const bool yes = DelegationUserAllowWebapi(user, method) == 0;
    const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - start;
    Json::Value& answer = answers.append(Json::arrayValue);
    answer.append(yes);
    answer.append(time.count());
  }
  return answers;
}

}  // namespace

int main(int argc, char** argv) {
  Json::StreamWriterBuilder format;
  format["indentation"] = "";
  if (argc == 2) std::cout << Json::writeString(format, Tabs()) << '\n';
  if (argc != 3) return 0;
  const std::string world = argv[1];
  MailserverSetConfigFile(world + "/demo.conf");
  if (NIMBOUseAccountFiles((world + "/passwd").c_str(), (world + "/group").c_str()) != NIMBO_OK) return 1;
  Json::Value decisions;
  std::ifstream(argv[2]) >> decisions;
  for (std::string command; std::getline(std::cin, command);) {
    const Json::Value answer = command == "load" ? Json::Value(DelegationRefresh()) : Decide(decisions);
    std::cout << Json::writeString(format, answer) << std::endl;
  }
}
