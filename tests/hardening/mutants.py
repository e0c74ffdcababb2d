#!/usr/bin/env python3
"""Breaks one rule of the library at a time, in a copy, and tells which test notices. Prints a table; fails when more than
two mutants survive.

usage: mutants.py SOURCE_TREE WORK_DIRECTORY [WORDS...]    only those whose description has one of them
"""
import os
import re
import subprocess
import sys

CALCULATOR = "calculator/delegation_calculator.cpp"
API = "api/delegation_api.cpp"
USERS, ROLES, ENTRIES = (f"handlers/delegation_db_{name}.cpp" for name in ("user", "delegation", "delegation_entry"))
HANDLE, SCOPE = "role/role_db_handler.cpp", "role/role_db_scope.cpp"

MUTANTS = [  # what the library then does wrong, file under src/, text, its replacement
    # The rule of the highest priority
    ("the lowest priority wins", CALCULATOR, "out->getPriority() < candidate", "out->getPriority() > candidate"),
    ("the last of equal priority wins", CALCULATOR, "out->getPriority() < candidate", "out->getPriority() <= candidate"),
    ("groups give nothing", CALCULATOR, "candidates.insert(candidates.end(), inherited.begin(), inherited.end());", ""),
    ("unreadable assignments count as none", CALCULATOR, "if (user.FindBelongPolicies(candidates) == kError) return kError;",
     "user.FindBelongPolicies(candidates);"),
    ("who is left with nothing keeps what he had", CALCULATOR, "if (found == kNothing) {", "if (found == kNothing) {\n      continue;"),
    ("a refresh recomputes nobody", CALCULATOR, 'return CalculateUser(users) || Fail("CalculateUser fail!!");', "return true;"),
    ("a refresh leaves the users alone", CALCULATOR, "if (!_RefreshUsers())", "if (false)"),
    ("a refresh leaves the groups alone", CALCULATOR, "if (!_RefreshGroups())", "if (false)"),
    ("a refresh leaves the entry types alone", CALCULATOR, "if (!_RefreshDelegation())", "if (false)"),
    ("the host is asked while the database is locked", API, "calculator.Prefetch();", ""),
    # An outage is not a departure
    ("no outage is suspected", CALCULATOR, "if (!CheckVanished()) return false;", ""),
    ("exactly the limit is an outage", CALCULATOR, "gone * 100 > stored", "gone * 100 >= stored"),
    ("ten stored users are too few to tell", CALCULATOR, "kFewRecords = 10", "kFewRecords = 11"),
    ("a user who could not be looked up is removed", "role/role_user.cpp",
     'return Fail("cannot look up the account of user [%i, %s]", getUid(), getUsername());', "return _RefreshNBOSUserNotExist();"),
    ("a group that could not be looked up is removed", "role/role_group.cpp",
     'return Fail("cannot look up group [%i, %s]", getGid(), getGroupname());', "return _RefreshNBOSGroupNotExist();"),
    ("a failed lookup does not undo the call", "role/host_accounts.h",
     "RoleDBScope::NoteEnvironmentFailure();\n  return HostAnswer::kUnknown;", "return HostAnswer::kUnknown;"),
    # Who is forgotten
    ("users with a delegation of their own are forgotten", USERS, "if (direct == kFound) return true;", ""),
    ("group members are forgotten", USERS, "needRemove = groups.empty();", "needRemove = true;"),
    ("nobody is forgotten", USERS, "needRemove = groups.empty();", "needRemove = false;"),
    ("entries in use are deleted", ENTRIES, "return policies.empty();", "return true;"),
    ("entries out of use stay", ENTRIES, "return policies.empty();", "return false;"),
    ("entries are taken for equal by their type", "model/delegation_delegation_entry.cpp",
     "stored.find(key)", "stored.lower_bound({getType(), \"\"})"),
    ("a kept entry cannot be stored again", "model/delegation_delegation_entry.cpp",
     "policyEntryIdx(-1);\n  if", "if"),
    ("a group that leaves loses its lowest delegation", "model/delegation_group.cpp", "policies.front()", "policies.back()"),
    # Nobody keeps what nobody granted
    ("unsupported effective rows stay", API, "sweep == Sweep::kYes && !DelegationCalculator().RemoveUnsupported()", "false"),
    ("they stay behind a refresh", API, "InWriteScope(Sweep::kYes, refresh)", "InWriteScope(Sweep::kNo, refresh)"),
    ("they stay behind a create", API, "assigns ? Sweep::kYes : Sweep::kNo", "Sweep::kNo"),
    ("a group supports nothing", ROLES, "where member.uid = user2", "where 0 and member.uid = user2"),
    ("an unknown user keeps an effective row", ROLES, "uid not in (select uid from user_table) or", "0 or"),
    # A new record adopts no old links
    ("a new user adopts links", "role/role_user.cpp", " && handler->RemoveOldLinks(user)", ""),
    ("a new group adopts links", "role/role_group.cpp", " && handler->RemoveOldLinks(*this)", ""),
    ("a new delegation adopts links", "role/role_role.cpp", "if (handler->RemoveOldLinks(*this) && ", "if ("),
    ("a new entry adopts links", "role/role_role_entry.cpp", "if (handler->RemoveOldLinks(*this) && ", "if ("),
    # One transaction for each change
    ("a failure of the environment is committed", SCOPE, "Usable() && !environmentFailed_", "Usable()"),
    ("a failed write is taken for bad input", SCOPE, "(code & 0xff) != SQLITE_ERROR) NoteEnvironmentFailure();",
     "(code & 0xff) != SQLITE_ERROR) return;"),
    ("a failed commit leaves the transaction open", SCOPE, "if (!kept) {\n    Rollback();", "if (!kept) {\n    End();"),
    ("a commit that could not give its locks back counts as failed", SCOPE, " || IsKeptWithLocks()", ""),
    ("a change takes the lock late", SCOPE, '"BEGIN IMMEDIATE"', '"BEGIN"'),
    ("a change inside a reader is accepted", SCOPE, "if (!writes_) {", "if (false) {"),
    ("a refresh wipes entries it cannot store", "model/delegation_delegation.cpp",
     "RoleDBScope step(DelegationDBHandler::GetDelegationDBHandler(),", "RoleDBScope step(nullptr,"),
    ("a refresh wipes members it cannot store", "model/delegation_group.cpp",
     "RoleDBScope step(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kStep);\n  std::vector<std::shared_ptr<RoleUser>> unused;",
     "RoleDBScope step(nullptr, RoleDBScope::kStep);\n  std::vector<std::shared_ptr<RoleUser>> unused;"),
    ("a step goes on without a part that has failed", SCOPE, "step_->broken_ = true;", ";"),
    ("pages are written before the commit", HANDLE, "pragma cache_spill = off", "pragma cache_spill = 1"),
    ("it announces inside the caller's transaction", API, "RoleDBScope::Pinned(pinned) ||", ""),
    ("a change is not announced", API, 'return !assigns || Announce() || Fail("Trigger fail!!!");', "return true;"),
    ("who loses a delegation by an update is not recomputed", API, "before.insert(before.end(), after.begin(), after.end());",
     "before = after;"),
    ("who held a deleted delegation is not recomputed", API, "affected.insert(affected.end(), users.begin(), users.end());", ""),
    # Opening, and staying current
    ("a file that everybody can write is opened", HANDLE, "if (file.st_mode & S_IWOTH)", "if (false)"),
    ("a symbolic link is opened", HANDLE, "if (!S_ISREG(file.st_mode))", "if (false)"),
    ("several make the schema at once", HANDLE, "held_ = flock(fd_, LOCK_EX | LOCK_NB) == 0;", "held_ = true;"),
    ("a membership stays where it is, whatever stands behind it", CALCULATOR, " || row < last_row_[uid]", ""),
    ("a group behind an unknown one is looked through", CALCULATOR, "all_known_ = all_known_ && ReadHostGroup", "all_known_ = ReadHostGroup"),
    ("who has left a group stays its member", CALCULATOR, "if (!stays) leavers", "if (false) leavers"),
    ("an account with another's uid keeps the stored name", CALCULATOR, " || (stays && members.list[found->second].name != username)", ""),
    ("a statement is run with another's values", "role/statements.cpp", " || prepared.taken", ""),
    ("a quote in a value is lost", "role/statements.cpp", "(ends ? 1 : 0)", "1"),
    ("a file that has vanished is made anew", HANDLE, "if (KnownPaths().contains(path_) || KnownPaths().contains(resolved))", "if (false)"),
    ("a replaced file is not noticed", HANDLE, "process_ == ThisProcess() && IsSameFile()", "process_ == ThisProcess()"),
    ("a forked child uses the parent's connection", HANDLE, "process_ == ThisProcess() && IsSameFile()", "IsSameFile()"),
    ("a child forked in a transaction goes on", SCOPE, "RoleDBHandler::mustExec_ = true;", ";"),
    # The answer
    ("an exception means allowed", API, "Guarded(static_cast<int>(kError), [&]() -> int {", "Guarded(0, [&]() -> int {"),
    ("a failed administrator lookup means administrator", API, "if (administrator < 0) return FailLookup(\"found admin group fail\");\n    if (administrator == 1)",
     "if (administrator != 0)"),
    ("an unknown tab is passed over", API, 'return FailLookup("cannot find the tabs [%s]", tab);', "continue;"),
    ("everything but \"false\" switches a tab on", ROLES, 'data == "true"', 'data != "false"'),
    ("a name ends at a NUL", "role/role_util.cpp", "if (name.empty() || HasNul(name)) return false;", "if (name.empty()) return false;"),
]


class Copy:
    def __init__(self, tree, work):
        self.tree, self.build = work + "/tree", work + "/build"
        os.makedirs(self.tree, exist_ok=True)
        subprocess.run(["rsync", "-rlp", "--delete", "--checksum", "--exclude=/build", "--exclude=/.git", tree + "/", self.tree], check=True)
        subprocess.run(["cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug"],
                       check=True, stdout=subprocess.DEVNULL)
        program = self.build + "/tools/delegationctl/delegationctl"
        self.suites = {
            "unit tests": [self.build + "/tests/unit_tests", "--gtest_brief=1", "--gtest_fail_fast"],
            "model": [sys.executable, self.tree + "/tests/hardening/model_test.py", program, "--sequences", "60", "--seed", "1"],
            "processes": [sys.executable, self.tree + "/tests/hardening/processes_test.py", program, "--share", "20"],
            "fault sweeps": [self.build + "/tests/hardening/hardening_tests", "--gtest_brief=1", "--gtest_fail_fast"]}

    def make(self):
        done = subprocess.run(["ninja", "-C", self.build, "unit_tests", "delegationctl", "hardening_tests"],
                              stdout=subprocess.PIPE, text=True)
        assert done.returncode == 0, done.stdout[-2000:]

    def caught_by(self):
        """The first suite that fails, with its first failing test; None."""
        for name, command in self.suites.items():
            try:
                run = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=300, errors="replace")
            except subprocess.TimeoutExpired:
                return name + ": hangs"
            if run.returncode != 0:
                failed = re.search(r"FAILED *\] ([\w/.]+)", str(run.stdout))
                return f"{name}: {failed[1]}" if failed else name
        return None


def main():
    tree, work, *words = sys.argv[1:]
    copy = Copy(os.path.abspath(tree), os.path.abspath(work))
    copy.make()
    assert copy.caught_by() is None, "a test fails without any mutant"
    survivors, chosen = 0, [mutant for mutant in MUTANTS if not words or any(word in mutant[0] for word in words)]
    for what, file, text, replacement in chosen:
        path = f"{copy.tree}/src/{file}"
        with open(path, encoding="utf-8") as source:
            original = source.read()
        assert original.count(text) >= 1, f"{file} has no \"{text}\" any more"
        with open(path, "w", encoding="utf-8") as source:
            source.write(original.replace(text, replacement, 1))
        try:
            copy.make()
            caught = copy.caught_by()
        finally:
            with open(path, "w", encoding="utf-8") as source:
                source.write(original)
        survivors += caught is None
        print(f"| {what} | {file} | {caught or '**survives**'} |", flush=True)
    print(f"{len(chosen) - survivors} of {len(chosen)} mutants caught")
    return survivors > 2


if __name__ == "__main__":
    sys.exit(main())
