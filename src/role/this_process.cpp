// Tells a process from the one that forked it.
#include "role/this_process.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>

namespace NIMBO::QUAYPOST_SERVER {

namespace {

// A flag that every child finds cleared, however it was forked; null if the kernel has none to give.
bool* MapFlag() {
  constexpr std::size_t kSize = 1;
  void* const page = mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) return nullptr;
  if (madvise(page, kSize, MADV_WIPEONFORK) == 0) return static_cast<bool*>(page);
  munmap(page, kSize);
  return nullptr;
}

}  // namespace

unsigned int ThisProcess() {
  static bool* const flag = MapFlag();
  static unsigned int number = 0;
  if (!flag) return static_cast<unsigned int>(getpid());
  if (!*flag) {
    *flag = true;
    ++number;
  }
  return number;
}

}  // namespace NIMBO::QUAYPOST_SERVER
