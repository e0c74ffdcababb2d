// What a request costs on a real host, its accounts in /etc/passwd and /etc/group: the check, a process that only
// checks, `delegationctl can`, and what administrators ask of many users. A mount namespace of its own puts invented
// files there; without the right to make one there are no figures.
//
// usage: host_bench USERS [--quick]    with 100,000 users or more only what administrators ask
#include <grp.h>
#include <pwd.h>
#include <sched.h>
#include <sys/mount.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "api/delegation_api.h"
#include "check_limit.h"
#include "pairs.h"

using namespace bench;
using namespace NIMBO::QUAYPOST_SERVER;

namespace {

bool EnterHostOf(const Directory& directory, int users) {
  WriteAccounts(directory / "passwd", directory / "group", users);
  return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount((directory / "passwd").c_str(), "/etc/passwd", nullptr, MS_BIND, nullptr) == 0 &&
         mount((directory / "group").c_str(), "/etc/group", nullptr, MS_BIND, nullptr) == 0;
}

bool LimitAllows(const CheckLimit& limit, const std::string& user, const std::string& method) {
  const passwd* account = getpwnam(user.c_str());
  Require(account != nullptr, "no account " + user);
  const group* administrators = getgrnam("administrators");
  if (administrators && administrators->gr_gid == account->pw_gid) return true;
  for (char** member = administrators ? administrators->gr_mem : nullptr; member && *member; ++member) {
    if (user == *member) return true;
  }
  return limit.Allows(account->pw_uid, method);
}

// `delegationctl can` as a whole process beside one that does nothing, in turns; the best run of each counts.
void MeasureCan(const Directory& directory, int users, int runs) {
  setenv("MAILSERVER_CONF", (directory / "mailserver.conf").c_str(), 1);
  double can = 1e18, nothing = 1e18;
  for (int i = 0; i < runs; ++i) {
    nothing =
        std::min(nothing, NanosecondsOf([] { Require(std::system("exec /bin/true > /dev/null") == 0, "no true"); }));
    const std::string command = DELEGATIONCTL " can " + UserName(i % users) + " " + MethodNumber(0) + " > /dev/null";
    int status = 0;
    can = std::min(can, NanosecondsOf([&] { status = WEXITSTATUS(std::system(("exec " + command).c_str())); }));
    Require(status == 0 || status == 1, "failed: " + command);
  }
  Print("can", users, {{"library_ns", can}, {"limit_ns", nothing}});
}

// What administrators ask, and what bash asks when they press Tab behind a user's name, each as a whole process; the
// best run counts.
void MeasureQuestions(const Directory& directory, int users, int runs) {
  setenv("MAILSERVER_CONF", (directory / "mailserver.conf").c_str(), 1);
  const std::string tool = DELEGATIONCTL " ", user = UserName(users / 2);
  const std::pair<const char*, std::string> questions[] = {
      {"ask_explain", tool + "explain " + user + " " + MethodNumber(0)},
      {"ask_who_can", tool + "who-can queue"},
      {"ask_review", tool + "review --format csv"},
      {"ask_check", tool + "check"},
      {"ask_complete", "bash --norc -c 'source " COMPLETION "; COMP_WORDS=(" + tool + "can " + user +
                           "); COMP_CWORD=2; _delegationctl; [ ${#COMPREPLY[@]} -gt 0 ]'"}};
  for (const auto& [name, question] : questions) {
    const std::string command = question + " > /dev/null";
    double best = 1e18;
    for (int i = 0; i < runs; ++i) {
      int status = 0;
      best = std::min(best, NanosecondsOf([&] { status = WEXITSTATUS(std::system(("exec " + command).c_str())); }));
      Require(status == 0 || (status == 1 && question.starts_with(tool)), "failed: " + command);
    }
    Print(name, users, {{"library_ns", best}});
  }
}

// The memory of a process that has made a thousand checks.
void MeasureMemory(const Directory& directory, int users) {
  const std::string command = CHECKER " " + (directory / "mailserver.conf ") + std::to_string(users) + " 1000";
  std::FILE* checker = popen(command.c_str(), "r");
  double peak = 0;
  Require(std::fscanf(checker, "%*d %*f %lf", &peak) == 1, "failed: " + command);
  pclose(checker);
  Print("memory", users, {{"kib", peak}});
}

}  // namespace

int main(int argc, char** argv) {
  Require(argc > 1, "usage: host_bench USERS [--quick]");
  const int users = std::atoi(argv[1]);
  const bool quick = argc > 2;
  const Directory directory(Directory::kMemory);
  if (!EnterHostOf(directory, users)) {
    Print("no_mount_namespace", users, {});
    return EXIT_SUCCESS;
  }
  WriteConfiguration(directory);
  MakeDatabase(directory / "delegation.db", users);
  constexpr int kMany = 100000;
  if (users >= kMany) {
    MeasureQuestions(directory, users, quick ? 1 : 3);
    return EXIT_SUCCESS;
  }

  MeasureMemory(directory, users);
  MeasureCan(directory, users, quick ? 40 : 200);

  const CheckLimit limit(directory / "delegation.db");
  std::size_t turn = 0;
  const auto user = [&] { return UserName(static_cast<int>(turn * 7919 % static_cast<std::size_t>(users))); };
  for (; turn < 64; ++turn) {
    Require(
        (DelegationUserAllowWebapi(user(), MethodNumber(turn)) == 0) == LimitAllows(limit, user(), MethodNumber(turn)),
        "library and limit disagree");
  }
  Pair pair{"check_host", users};
  pair.library = [&] { DelegationUserAllowWebapi(user(), MethodNumber(++turn)); };
  pair.limit = [&] { LimitAllows(limit, user(), MethodNumber(++turn)); };
  Measure(pair);
  return RunAll();
}
