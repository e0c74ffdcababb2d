// The throw-away world of --demo: invented accounts in two small files, and a database with two delegations.
#pragma once

#include <string>

namespace delegationctl {

class DemoWorld {
 public:
  // A world in `directory`; with "" in a new directory, which goes with the object. Throws demo.
  explicit DemoWorld(const std::string& directory);
  ~DemoWorld();
  DemoWorld(const DemoWorld&) = delete;
  DemoWorld& operator=(const DemoWorld&) = delete;

  // Makes the world's files and delegations unless they are there, and enters it: from then on the process knows no
  // other accounts and no other configuration. Throws not_a_demo for a directory that holds something else, and demo.
  void Enter() const;

 private:
  std::string directory_;
  const bool temporary_;
};

}  // namespace delegationctl
