// A server that only checks: what it needs, and how long its callers wait.
//
// usage: checker CONFIGURATION USERS CHECKS [PASSWD GROUP]
//
// Asks for one user after the other, so many times (0: until SIGTERM or its parent's end). Prints its process id when
// it has begun, and at the end its longest check in ns and its largest memory in KiB. With the two files accounts come
// from them.
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "api/delegation_api.h"
#include "platform/mailserver.h"
#include "platform/nimbsdk.h"

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

volatile std::sig_atomic_t ended = 0;

// The process's largest resident size so far.
long PeakKibibytes() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    long value = 0;
    if (word == "VmHWM:" && status >> value) return value;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4 && argc != 6) return EXIT_FAILURE;
  std::signal(SIGTERM, [](int) { ended = 1; });
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  MailserverSetConfigFile(argv[1]);
  if (argc == 6 && NIMBOUseAccountFiles(argv[4], argv[5]) != NIMBO_OK) return EXIT_FAILURE;
  const int users = std::atoi(argv[2]);
  const int checks = std::atoi(argv[3]);
  double longest = 0;
  for (int i = 0; ended == 0 && (checks == 0 || i < checks); ++i) {
    const std::string user = "u" + std::to_string(i % users);
    const auto start = std::chrono::steady_clock::now();
    const int answer = DelegationUserAllowWebapi(user, "Webapi_Queue_Flush_v1");
    const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - start;
    if (answer < 0) return EXIT_FAILURE;
    if (i > 0) {
      longest = std::max(longest, taken.count());
    } else {  // this one has opened the database
      std::printf("%d\n", getpid());
      std::fflush(stdout);
    }
  }
  std::printf("%.0f %ld\n", longest, PeakKibibytes());
}
