// How often a change waits for the disk.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "api/delegation_api.h"
#include "support/documents.h"
#include "support/fake_host.h"
#include "support/temp_database.h"

static int syncs = 0;

// In place of the C library's, for SQLite as well.
extern "C" __attribute__((visibility("default"))) int fsync(int file) {
  return ++syncs, static_cast<int>(syscall(SYS_fsync, file));
}
extern "C" __attribute__((visibility("default"))) int fdatasync(int file) {
  return ++syncs, static_cast<int>(syscall(SYS_fdatasync, file));
}

namespace NIMBO::QUAYPOST_SERVER {
namespace {

constexpr int kOneTransaction = 4;  // the journal, the journal's header, its directory, the database

template <class Call>
int SyncsOf(Call call) {
  syncs = 0;
  EXPECT_TRUE(call());
  return syncs;
}

TEST(Syncs, OfAChangeAreThoseOfOneTransactionForAnyNumberOfUsers) {
  for (const unsigned int users : {10U, 500U}) {
    FakeHost& host = FakeHost::Instance() = FakeHost();
    const TempDatabase database;
    Json::Value change = Change(R"({"name": "Helpdesk", "tabs": ["queue"], "to": ["group ops"]})");
    std::vector<std::string> members;
    for (unsigned int i = 0; i < users; ++i) {
      members.push_back("u" + std::to_string(i));
      host.AddUser(members.back(), 1000 + i);
      change["user_group"].append(Parsed(R"({"type": "user", "name": ")" + members.back() + "\"}"));
    }
    host.AddGroup("ops", 200, members);
    int id = -1;
    ASSERT_TRUE(DelegationDelegationCreate(change, id)) << "makes the file as well";

    EXPECT_EQ(SyncsOf([&] { return DelegationDelegationCreate(change, id); }), kOneTransaction);
    change["id"] = id;
    change["user_group"] = Json::arrayValue;
    EXPECT_EQ(SyncsOf([&] { return DelegationDelegationUpdate(change); }), kOneTransaction);
    host.SetMembers("ops", {"u0"});
    EXPECT_EQ(SyncsOf(DelegationRefresh), kOneTransaction);
    EXPECT_EQ(SyncsOf(DelegationRefresh), 0) << "nothing has changed";
    Json::Value ids = Json::arrayValue;
    ids.append(id);
    EXPECT_EQ(SyncsOf([&] { return DelegationDelegationDelete(ids); }), kOneTransaction);
  }
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
