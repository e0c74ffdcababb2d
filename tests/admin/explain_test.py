#!/usr/bin/env python3
"""explain, who-can and review against the access check and the stored rows, on random databases and hosts.

usage: explain_test.py DELEGATIONCTL [--worlds N] [--seed N]

Every world has ties, names that a shell or a command line could misread, and a host that has moved on since the last refresh;
some have rows that a damaged database could have. Checked are, for every user and every method: explain's winner, the delegation
in effect and the verdict; the differences that it reports; who-can against asking about everybody; review against each user's
tabs; and that every command that explain offers turns the no into a yes, on a copy.
"""
import os
import pathlib
import random
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "hardening"))
from world import CONFIGURATION, TABS, World, contents, delegation, options, winner  # noqa: E402

NAMES = ["Desk", "it's; exit 1 #", "$(exit 1)", "-old", "[two] words", "Grün", "a,b", "Post \"x\"", "*"]
USERS = {f"u{i}": 1000 + i for i in range(8)}
GROUPS = {f"g{i}": 200 + i for i in range(5)}


def make_world(program, dice):
    """A world whose database was right at the last refresh; then the host changed, and sometimes the rows."""
    world = World(program)
    world.users = dict(USERS)
    world.groups = {name: (gid, sorted(dice.sample(sorted(USERS), dice.randrange(4)))) for name, gid in GROUPS.items()}
    world.groups["administrators"] = (300, ["u0"])
    world.write_accounts()
    with world.rpc() as rpc:
        for name in dice.sample(NAMES, dice.randrange(1, 6)):
            who = [f"user {user}" for user in sorted(USERS) if dice.random() < 0.2]
            who += [f"group {group}" for group in GROUPS if dice.random() < 0.35]
            tabs = set(dice.sample(TABS, dice.choice([0, 1, 2, 6])))
            made, _ = rpc.call("DelegationDelegationCreate", delegation(name, dice.choice([5, 5, 7, 2**31 - 1]), tabs, who))
            assert made
    change_host(world, dice)
    if dice.random() < 0.5:
        damage(world, dice)
    return world


def change_host(world, dice):
    for name, (gid, members) in list(world.groups.items()):
        if name == "administrators" or dice.random() < 0.6:
            continue
        members = [member for member in members if dice.random() < 0.6]
        joined = [user for user in sorted(USERS) if user not in members and dice.random() < 0.2]
        world.groups[name] = (gid, members + joined)
    if dice.random() < 0.3:
        gone = dice.choice(sorted(GROUPS))
        gid, members = world.groups.pop(gone)
        if dice.random() < 0.5:
            world.groups["new"] = (gid, members)
    if dice.random() < 0.3:  # a rename, or one uid for another account
        world.users["u7"] = dice.choice([1007, 2007])
        world.users["u8"] = world.users.pop("u6")
    world.write_accounts()


def damage(world, dice):
    ids = [row[0] for row in contents(world.database)["delegation_table"]]
    statements = [
        "update delegation_table set name = 'Desk'",
        f"update delegation_table set name = 'id:1' where delegationidx = {ids[0]}",
        f"insert or replace into user2delegation_real_table values ({dice.choice([1001, 1002, 2007, 1])}, {dice.choice(ids)})",
        f"delete from user2delegation_real_table where uid = {dice.randrange(1000, 1008)}",
        f"delete from user_table where uid = {dice.randrange(1000, 1008)}",
        f"insert into delegation_entry_table values (901, '{dice.choice(['no_tab', 'personal', 'queue'])}', 'true')"]
    link = ("insert into delegation2delegation_entry_table select ?, 901 from delegation_entry_table where delegationentryidx = 901",
            (ids[-1],))
    world.execute(*dice.sample(statements, 2), link)


def expected_differences(world, rows, name, uid):
    """The codes that explain has to report for a user."""
    stored = dict(rows["user_table"])
    names = dict(rows["group_table"])
    matters = {gid for gid, idx in rows["group2delegation_table"] if idx in {row[0] for row in rows["delegation_table"]}}
    held = {gid for user, gid in rows["user2group_table"] if user == uid and gid in names} if uid in stored else set()
    host = {gid: (group, members) for group, (gid, members) in world.groups.items()}
    codes = ["renamed"] if stored.get(uid, name) != name else []
    codes += ["other_uid"] if any(other != uid and text == name for other, text in stored.items()) else []
    for gid in names.keys() & matters:
        listed = gid in host and name in host[gid][1]
        if gid in held:
            codes += ["group_gone"] if gid not in host else ["left_group"] if not listed else []
            codes += ["group_renamed"] if gid in host and host[gid][0] != names[gid] else []
        elif listed:
            codes.append("joined_group")
    effective = dict(rows["user2delegation_real_table"]).get(uid)
    due = winner(rows, uid) if uid in stored else None
    codes += ["effective"] if effective != due else []
    return sorted(codes + (["repeated_type"] if has_repeated_type(rows) else []))


def has_repeated_type(rows):
    kinds = {idx: kind for idx, kind, _ in rows["delegation_entry_table"]}
    linked = [(idx, kinds[entry]) for idx, entry in rows["delegation2delegation_entry_table"]]
    return len(set(linked)) < len(linked)


def apply_remedy(program, world, command, user, question):
    """Whether the command, as printed, gives the user what was asked for, on a copy of the world."""
    with tempfile.TemporaryDirectory() as directory:
        copy = directory + "/copy"
        shutil.copytree(world.directory, copy)
        pathlib.Path(copy, "demo.conf").write_text(CONFIGURATION.format(copy, 100), encoding="utf-8")
        script = f'delegationctl() {{ {program} --demo="$COPY" --yes "$@"; }}\n{command}\n'
        done = subprocess.run(["/bin/sh", "-c", script], env={**os.environ, "COPY": copy}, capture_output=True, text=True,
                              stdin=subprocess.DEVNULL, timeout=120, cwd=directory)
        asked = subprocess.run([*program.split(), f"--demo={copy}", "explain", user, question], capture_output=True, text=True, timeout=120)
        if done.returncode == 0 and asked.returncode == 0:
            return True
        print(f"{command}: {done.returncode} {done.stdout}{done.stderr}\n{asked.stdout}{asked.stderr}")
        return False


class Check:
    def __init__(self, program, world, dice):
        self.program, self.world, self.dice = program, world, dice
        self.rows = contents(world.database)
        self.failures = 0
        self.remedies = {}  # (kind, state of affairs): (command, user, question)

    def expect(self, holds, *what):
        if not holds:
            self.failures += 1
            print("FAILED", *what)

    def run(self, methods):
        users = sorted(self.world.users)
        questions = [("method", method) for method in methods] + [("tab", tab) for tab in TABS]
        with self.world.rpc() as rpc:
            tabs = {user: set(rpc.call("DelegationUserDelegationEntriesGet", user)[1]["enable_tabs"]) for user in users}
            allowed = {question: set() for question in questions}  # {question: users}, by brute force
            for user in users:
                access = rpc.batch([("DelegationUserAllowWebapi", user, method) for method in methods])
                verdicts = [verdict for verdict, _ in access] + [0 if user == "u0" or tab in tabs[user] else 1 for tab in TABS]
                answers = rpc.batch([("admin.explain", {"user": user, kind: value}) for kind, value in questions])
                for question, verdict, (_, out) in zip(questions, verdicts, answers):
                    self.expect(verdict == (-1 if out["failed"] else 0 if out["allowed"] else 1), user, question, verdict, out)
                    self.note_remedies(user, question[1], out)
                    if verdict == 0:
                        allowed[question].add(user)
                self.check_explanation(user, answers[0][1])
            for question, (_, out) in zip(questions, rpc.batch([("admin.who_can", dict([question])) for question in questions])):
                named = {account["name"] for account in out["accounts"]}
                self.expect(named == allowed[question], "who-can", question, named, allowed[question])
                for account in out["accounts"]:
                    self.check_source(account)
            self.check_review(rpc, tabs)
        for (kind, *_), (command, user, question) in sorted(self.remedies.items()):
            self.expect(apply_remedy(self.program, self.world, command, user, question), kind, command)
        return self.failures

    def check_explanation(self, user, out):
        uid = self.world.users[user]
        first = out["candidates"][0]["id"] if out["candidates"] else None
        self.expect(first == (winner(self.rows, uid) if uid in dict(self.rows["user_table"]) else None), user, "winner", first)
        in_effect, stored = out["in_effect"] and out["in_effect"]["id"], dict(self.rows["user2delegation_real_table"]).get(uid)
        known = stored in {row[0] for row in self.rows["delegation_table"]}
        self.expect(in_effect == (stored if known else None), user, "in effect", in_effect)
        codes = sorted(difference["code"] for difference in out["differences"])
        self.expect(codes == expected_differences(self.world, self.rows, user, uid), user, codes)

    def note_remedies(self, user, question, out):
        """One of each kind for each state of affairs: there are thousands."""
        if out["allowed"] or out["failed"]:
            return
        helpless = not out["tabs_needed"] or has_repeated_type(self.rows)
        self.expect(helpless or out["remedies"] or out["candidates"][0]["priority"] == 2**31 - 1, user, question, "no remedy")
        codes = tuple(difference["code"] for difference in out["differences"])
        for remedy in out["remedies"]:
            key = (remedy["kind"], codes, remedy["command"].split()[1:3] == ["update", "id:1"])
            if key not in self.remedies or self.dice.random() < 0.05:
                self.remedies[key] = (remedy["command"], user, question)

    def check_source(self, account):
        idx, uid = account["in_effect"] and account["in_effect"]["id"], account["uid"]
        known, names = uid in dict(self.rows["user_table"]), dict(self.rows["group_table"])
        groups = {names[gid] for user, gid in self.rows["user2group_table"]
                  if known and user == uid and gid in names and (gid, idx) in self.rows["group2delegation_table"]}
        direct = known and (uid, idx) in self.rows["user2delegation_table"]
        self.expect(set(account["groups"]) == groups and account["direct"] == direct, "source", account)

    def check_review(self, rpc, tabs):
        _, out = rpc.call("admin.review")
        for account in out["accounts"]:
            due = (set() if account["gone"] else tabs[account["name"]]) & {*TABS, "personal"}
            self.expect(set(account["tabs"]) == due, "review", account, due)
            self.expect(account["administrator"] == (account["name"] == "u0"), "review", account)
        known = {uid for table in ("user_table", "user2delegation_real_table") for uid, _ in self.rows[table]}
        listed = {account["uid"] for account in out["accounts"]}
        self.expect(listed == known | {self.world.users["u0"]}, "review lists", listed, known)


def main():
    chosen = options(worlds=4, seed=1)
    with World(chosen.program) as world:
        table = world.run("tabs")[1]["tabs"]
    methods = sorted({method for tab in table for method in tab["methods"]} |
                     {"Webapi_Version_Check_v1", "Webapi_Personal_Forward_Get_v1", "No_Such_Method"})
    failures = 0
    for seed in range(chosen.seed, chosen.seed + chosen.worlds):
        dice = random.Random(seed)
        with make_world(chosen.program, dice) as world:
            check = Check(chosen.program, world, dice)
            failures += check.run(methods)
            print(f"seed {seed}: {len(world.users) * len(methods)} verdicts, {len(check.remedies)} remedies applied", flush=True)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
