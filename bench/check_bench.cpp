// The check without the host's share: accounts cost nothing, on both sides.
//
// usage: check_bench [--quick]
#include <deque>

#include "api/delegation_api.h"
#include "check_limit.h"
#include "pairs.h"

using namespace bench;
using namespace NIMBO::QUAYPOST_SERVER;

int main(int argc, char**) {
  const bool quick = argc > 1;
  constexpr int kAsked = 16;  // users, spread over the whole table
  const Directory directory(Directory::kMemory);
  std::deque<CheckLimit> limits;
  std::size_t turn = 0;
  for (const int users : quick ? std::vector{1000, 10000} : std::vector{1000, 10000, 100000}) {
    const std::string path = directory / std::to_string(users) + ".db";
    MakeDatabase(path, users);
    const CheckLimit& limit = limits.emplace_back(path);
    const auto asked = [users](std::size_t i) { return static_cast<int>(i % kAsked) * (users / kAsked) + 7; };
    for (std::size_t i = 0; i < 64; ++i) {
      const int answer = DelegationUserAllowWebapi(UserName(asked(i)), MethodNumber(i / kAsked));
      Require(answer == (limit.Allows(UserId(asked(i)), MethodNumber(i / kAsked)) ? 0 : 1),
              "library and limit disagree");
    }
    Pair pair{"check", users, 400};
    pair.setup = [=] { UseDatabase(path); };
    pair.library = [=, &turn] {
      ++turn;
      DelegationUserAllowWebapi(UserName(asked(turn)), MethodNumber(turn / kAsked));
    };
    pair.limit = [=, &limit, &turn] {
      ++turn;
      limit.Allows(UserId(asked(turn)), MethodNumber(turn / kAsked));
    };
    Measure(pair);
  }
  return RunAll();
}
