// Accounts from a passwd(5) and a group(5) file, for a demonstration and for tests. Both are kept in memory and read
// again when they change.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unordered_map>

#include "base/log.h"
#include "platform/linux/account_source.h"
#include "platform/linux/glibc_records.h"
#include "platform/linux/input_file.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

unsigned int IdOf(const Account& account) { return account.uid; }
unsigned int IdOf(const Group& group) { return group.gid; }

/// One of the two files: its records in their order, the first of several with one name or id found.
template <class Record, class GlibcType>
class AccountFile {
 public:
  using Reader = int (*)(std::FILE*, GlibcType*, char*, std::size_t, GlibcType**);
  AccountFile(std::string path, Reader reader) : path_(std::move(path)), reader_(reader) {}

  /// Makes the records those that the file holds now. False, with a log line, when it cannot be read.
  bool Refresh() {
    if (stamp_.Holds(path_)) return true;
    stamp_.Clear();
    records_.clear();
    by_name_.clear();
    by_id_.clear();
    const InputFile file = OpenToRead(path_);
    if (!file) return Fail("cannot read %s: %s", path_, std::strerror(errno));
    FileStamp stamp;
    stamp.Take(fileno(file.get()));
    GlibcRecord<GlibcType> record;
    int error;
    while ((error = record.Fill([&](auto... out) { return reader_(file.get(), out...); })) == 0) {
      Add(Copied(*record.found()));
    }
    if (error != ENOENT) return Fail("cannot read %s: %s", path_, std::strerror(error));
    stamp_ = stamp;
    return true;
  }

  const std::vector<Record>& records() const { return records_; }
  Answer<Record> Find(const std::string& name) { return Find(by_name_, name); }
  Answer<Record> Find(unsigned int id) { return Find(by_id_, id); }

 private:
  void Add(Record record) {
    if (record.name.empty() || record.name[0] == '+' || record.name[0] == '-') return;  // NIS marks
    by_name_.emplace(record.name, records_.size());
    by_id_.emplace(IdOf(record), records_.size());
    records_.push_back(std::move(record));
  }

  template <class Index, class Key>
  Answer<Record> Find(const Index& index, const Key& key) {
    if (!Refresh()) return {NIMBO_LOOKUP_FAILED, {}};
    const auto found = index.find(key);
    if (found == index.end()) return {NIMBO_NOT_FOUND, {}};
    return {NIMBO_OK, records_[found->second]};
  }

  const std::string path_;
  const Reader reader_;
  FileStamp stamp_;
  std::vector<Record> records_;
  std::unordered_map<std::string, std::size_t> by_name_;
  std::unordered_map<unsigned int, std::size_t> by_id_;
};

class FileAccounts : public AccountSource {
 public:
  FileAccounts(const std::string& passwd_path, const std::string& group_path)
      : users_(passwd_path, fgetpwent_r), groups_(group_path, fgetgrent_r) {}

  bool Refresh() { return users_.Refresh() && groups_.Refresh(); }

  Answer<Account> FindUser(const std::string& name) override { return users_.Find(name); }
  Answer<Account> FindUser(unsigned int uid) override { return users_.Find(uid); }
  Answer<Group> FindGroup(const std::string& name) override { return groups_.Find(name); }
  Answer<Group> FindGroup(unsigned int gid) override { return groups_.Find(gid); }

  Answer<std::vector<Account>> ListUsers() override {
    if (!users_.Refresh()) return {NIMBO_LOOKUP_FAILED, {}};
    return {NIMBO_OK, users_.records()};
  }

  Answer<std::vector<unsigned int>> ListGroupsOf(const Account& account) override {
    if (!groups_.Refresh()) return {NIMBO_LOOKUP_FAILED, {}};
    std::vector<unsigned int> gids{account.gid};
    for (const Group& group : groups_.records()) {
      if (std::ranges::find(group.members, account.name) != group.members.end()) gids.push_back(group.gid);
    }
    return {NIMBO_OK, std::move(gids)};
  }

 private:
  AccountFile<Account, passwd> users_;
  AccountFile<Group, group> groups_;
};

}  // namespace

std::shared_ptr<AccountSource> MakeFileAccounts(const std::string& passwd, const std::string& group) {
  auto accounts = std::make_shared<FileAccounts>(passwd, group);
  if (!accounts->Refresh()) return nullptr;
  return accounts;
}

}  // namespace NIMBO::QUAYPOST_SERVER
