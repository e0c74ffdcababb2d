/// What the platform's tests share: a directory for one test's files, and short forms of the account functions.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/nimbsdk.h"
#include "support/log_capture.h"

using Names = std::vector<std::string>;

class TempDirectory {
 public:
  TempDirectory() {
    std::string pattern = ::testing::TempDir() + "platform-XXXXXX";
    path_ = mkdtemp(pattern.data());
  }
  ~TempDirectory() { std::filesystem::remove_all(path_); }
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  std::string Path(const std::string& name) const { return path_ + "/" + name; }

  /// Writes a file; its full path. Its modification time is the present whole second, so that two versions may share
  /// it.
  std::string Write(const std::string& name, const std::string& content) const {
    return WriteAt(time(nullptr), name, content);
  }

  /// As Write, but long ago, and in another second each time.
  std::string WriteAged(const std::string& name, const std::string& content) const {
    static time_t second = 1'600'000'000;
    return WriteAt(++second, name, content);
  }

 private:
  std::string WriteAt(time_t second, const std::string& name, const std::string& content) const {
    std::ofstream(Path(name), std::ios::trunc | std::ios::binary) << content;
    const timespec times[2] = {{second, 0}, {second, 0}};
    utimensat(AT_FDCWD, Path(name).c_str(), times, 0);
    return Path(name);
  }

  std::string path_;
};

/// "NAME UID", or the status, of what NIMBOUserGet or NIMBOUserGetByUID answers.
template <class Key>
std::string User(Key key) {
  NIMBOUSER* user = nullptr;
  int status;
  if constexpr (std::is_integral_v<Key>) {
    status = NIMBOUserGetByUID(key, &user);
  } else {
    status = NIMBOUserGet(key, &user);
  }
  const std::string text = user ? user->szName + (" " + std::to_string(user->uid)) : std::to_string(status);
  NIMBOUserFree(user);
  return text;
}

/// The names of a group's members, or one name: the status.
inline Names Members(const char* group) {
  NBLIBSZLIST* list = NBLIBCSzListAlloc(1024);
  const int status = NIMBOGroupListMember(group, &list);
  Names names;
  for (int i = 0; NBLIBCSzListGet(list, i); ++i) names.emplace_back(NBLIBCSzListGet(list, i));
  NBLIBCSzListFree(list);
  return status == NIMBO_OK ? names : Names{std::to_string(status)};
}

/// The names that an enumeration reports, or one name: the status.
inline Names Enumerated(const char* domain = nullptr, int offset = 0, int limit = -1) {
  Names names;
  auto collect = [](const NIMBOUSER* user, void* out) {
    static_cast<Names*>(out)->push_back(user->szName);
    return 0;
  };
  const int count = NBLIBUserInfoEnum(NIMBO_ACCOUNT_LOCAL, domain, offset, limit, collect, &names);
  return count == static_cast<int>(names.size()) ? names : Names{std::to_string(count)};
}

inline const std::string kNotFound = std::to_string(NIMBO_NOT_FOUND);
inline const std::string kFailed = std::to_string(NIMBO_LOOKUP_FAILED);
