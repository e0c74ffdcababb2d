/// What glibc's passwd and group functions have in common: buffers of the caller's, and records full of pointers
/// into them.
#pragma once

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <memory>

#include "platform/linux/account_source.h"

namespace NIMBO::QUAYPOST_SERVER {

// A group's record holds all its members' names.
template <class Record>
constexpr std::size_t kFirstBuffer = 16 << 10;
template <>
inline constexpr std::size_t kFirstBuffer<group> = 1 << 20;

/// One record and the buffer behind it.
template <class Record>
class GlibcRecord {
 public:
  /// Calls `function(&record, buffer, size, &found)`, again with twice the buffer while that answers ERANGE, up to
  /// 64 MiB. Its result.
  template <class Function>
  int Fill(Function function) {
    constexpr std::size_t kLargestBuffer = 64 << 20;
    for (;;) {
      found_ = nullptr;
      const int result = function(&record_, buffer_.get(), size_, &found_);
      if (result != ERANGE || size_ >= kLargestBuffer) return result;
      buffer_ = std::make_unique_for_overwrite<char[]>(size_ * 2);
      size_ *= 2;
    }
  }

  /// The record that the last Fill found, or null.
  const Record* found() const { return found_; }

 private:
  std::size_t size_ = kFirstBuffer<Record>;
  std::unique_ptr<char[]> buffer_ = std::make_unique_for_overwrite<char[]>(size_);  // untouched: most of it stays so
  Record record_{};
  Record* found_ = nullptr;
};

inline Account Copied(const passwd& record) { return {record.pw_name, record.pw_uid, record.pw_gid}; }

inline Group Copied(const group& record) {
  Group copy{record.gr_name, record.gr_gid, {}};
  for (char** member = record.gr_mem; member && *member; ++member) copy.members.emplace_back(*member);
  return copy;
}

}  // namespace NIMBO::QUAYPOST_SERVER
