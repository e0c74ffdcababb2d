/// Files that are read again when they change.
///
///   InputFile file = OpenToRead(path);
///   stamp.Take(fileno(file.get()));   // before reading
///   ...
///   if (!stamp.Holds(path)) ReadAgain();
#pragma once

#include <sys/stat.h>

#include <cstdio>
#include <ctime>
#include <memory>
#include <string>

namespace NIMBO::QUAYPOST_SERVER {

using InputFile = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

/// Null, with errno, when the file cannot be opened.
inline InputFile OpenToRead(const std::string& path) {
  return {std::fopen(path.c_str(), "re"), [](std::FILE* open) { return std::fclose(open); }};
}

/// Tells whether a file is still the one that was read.
class FileStamp {
 public:
  /// Notes the state of an open file. A file that changed within the second before has a modification time that a
  /// further change might leave as it is: its stamp never holds.
  void Take(int fd) { valid_ = fstat(fd, &state_) == 0 && state_.st_mtim.tv_sec + 1 < std::time(nullptr); }

  /// Forgets the file, so that the stamp holds for none.
  void Clear() { valid_ = false; }

  /// Whether `path` still names that file, unchanged.
  bool Holds(const std::string& path) const {
    struct stat now;
    return valid_ && stat(path.c_str(), &now) == 0 && now.st_dev == state_.st_dev && now.st_ino == state_.st_ino &&
           now.st_size == state_.st_size && now.st_mtim.tv_sec == state_.st_mtim.tv_sec &&
           now.st_mtim.tv_nsec == state_.st_mtim.tv_nsec;
  }

 private:
  struct stat state_ {};
  bool valid_ = false;
};

}  // namespace NIMBO::QUAYPOST_SERVER
