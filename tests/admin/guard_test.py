#!/usr/bin/env python3
"""Random users who are no administrators try random changes: nobody may come out of it with a tab that those who made the
changes did not have at the beginning, and a refused change leaves nothing behind.

usage: guard_test.py DELEGATIONCTL [--worlds N] [--seed N]
"""
import collections
import os
import random
import shlex
import subprocess
import sys

sys.path.insert(0, os.path.dirname(__file__))
from journal_test import Journaled
from world import CREATE, DELETE, GROUPS, REFRESH, SINGLE, TABS, UPDATE, USERS, contents, delegation, options

FEW = ["delegation", "queue", "service", "log_list", "quaypost"]  # so that much is shared


def random_world(it, rng):
    """Delegations of an administrator; some of their holders may change delegations."""
    for i in range(rng.randrange(3, 8)):
        tabs = set(rng.sample(FEW, rng.randrange(1, 4))) | ({"delegation"} if rng.random() < 0.5 else set())
        assignees = [f"user {name}" for name in rng.sample(USERS, rng.randrange(3))]
        assignees += [f"group {name}" for name in rng.sample(GROUPS, rng.randrange(3))]
        assert it.ask(CREATE, delegation(f"Role {i}", rng.choice([10, 20, 20, 30, 40, 50, 60]), tabs, assignees))["return"]
    assert it.ask(REFRESH)["return"]  # it decides ties anew


def variation(rng, stored):
    """A stored delegation with some of its parts changed."""
    document = {member: value for member, value in stored.items() if member != "user_group"}
    assignees = [{"type": item["type"], "name": item["name"]} for item in stored["user_group"]]
    somebody = rng.choice([{"type": "user", "name": rng.choice(USERS)}, {"type": "group", "name": rng.choice(GROUPS)}])
    for _ in range(rng.randrange(1, 3)):
        rng.choice([lambda: document.update({rng.choice(FEW): rng.choice(["true", "false"])}),
                    lambda: document.update(priority=rng.choice([5, 10, 20, 30, 40, 50, 60, 70])),
                    lambda: document.update(name=document["name"] + "x"),
                    lambda: document.update(user_group=[*assignees, somebody]),
                    lambda: document.update(user_group=assignees[1:])])()
    return document


def attempt(it, rng, actor):
    """The answer to one try of the actor, and the METHOD."""
    stored = it.ask("DelegationUserGroupDelegationInfoList", {"detail": True})["out"]
    method = rng.choice([CREATE, UPDATE, UPDATE, UPDATE, SINGLE, DELETE, REFRESH, "apply", "undo"])
    if method == "undo":
        return it.ask("admin.undo", {"actor": actor, "number": rng.randrange(1, len(it.records()) + 2), "force": True}), method
    if method == "apply":
        document = {"format": 1, "delegations": [{"name": f"Applied {rng.randrange(3)}", "priority": rng.randrange(80),
                                                  "tabs": rng.sample(FEW, 2), "users": rng.sample(USERS, 2)}]}
        return it.ask("admin.apply", {"actor": actor, "document": document, "prune": rng.random() < 0.2, "force": True}), method
    if method in (UPDATE, SINGLE, DELETE) and not stored:
        method = CREATE
    if method == CREATE:
        params = [delegation(f"New {rng.randrange(10**6)}", rng.randrange(80), set(rng.sample(FEW, rng.randrange(3))),
                             [f"user {name}" for name in rng.sample(USERS, rng.randrange(3))])]
    elif method == REFRESH:
        params = []
    elif method == DELETE:
        params = [[item["id"] for item in rng.sample(stored, 1)]]
    else:
        documents = [variation(rng, item) for item in rng.sample(stored, min(len(stored), rng.randrange(1, 3)))]
        params = [documents[0] if method == SINGLE else documents]
    return it.change(method, params, actor=actor), method


def check_world(program, rng, seen):
    with Journaled(program, rng) as it:
        random_world(it, rng)
        begin = it.tabs()
        actors = [name for name in USERS if "delegation" in begin[name]][:rng.randrange(1, 3)] or [USERS[0]]
        held = set().union(*(begin[actor] for actor in actors))
        for _ in range(25):
            actor = rng.choice(actors)
            rows, tabs = contents(it.world.database), it.tabs()
            result, method = attempt(it, rng, actor)
            refused = not isinstance(result, dict) or "refused" in result
            seen[result if not isinstance(result, dict) else result["refused"]["rule"] if refused else "done"] += 1
            if refused:
                assert contents(it.world.database) == rows, (method, result)
                continue
            if method == REFRESH:  # what was put off comes out now
                tabs = begin
            now = it.tabs()
            for name in USERS:
                assert now[name] - tabs[name] <= held, (actor, method, name, result)
                if method != REFRESH:
                    assert now[name] - tabs[name] <= tabs[actor], (actor, method, name, result)
            assert len(actors) > 1 or now[actor] == begin[actor], (actor, method, result)
        assert it.ask(REFRESH)["return"]
        now = it.tabs()
        for name in USERS:
            assert now[name] - begin[name] <= held, name


def office(program, rng, *documents):
    it = Journaled(program, rng)
    for document in (delegation("Own", 60, {"delegation", "queue"}, ["user user1"]), *documents):
        assert it.ask(CREATE, document)["return"]
    return it


def expect_refused(it, rule, *changes):
    """That user1 is refused each (METHOD, PARAMETER) by the rule."""
    for method, param in changes:
        assert it.change(method, [param], actor="user1")["refused"]["rule"] == rule, (method, param)


def check_an_administrator_may_and_nobody_else_is_asked(program, rng):
    with office(program, rng) as it:
        everything = delegation("All", 99, set(TABS))
        assert it.change(CREATE, [everything], actor="user2")["refused"]["rule"] == "no_delegation_tab"
        assert it.change(CREATE, [everything], actor="nobody") == "no_user"
        for misspelt in ({"Actor": "user1"}, {"actor": None}):
            assert it.change(DELETE, [[1]], **misspelt) == "usage"
        assert it.change(CREATE, [everything], actor="root")["return"]
        expect_refused(it, "own_or_above", (DELETE, [1]))
        expect_refused(it, "name_taken", (CREATE, delegation("All", 1, {"queue"})))
        it.world.users["user1"], it.world.users["user7"] = it.world.users["user7"], it.world.users["user1"]
        it.world.write_accounts()  # the uid is another account's now, whose delegation this is not
        assert it.change(CREATE, [delegation("X", 1, set())], actor="user7")["refused"]["rule"] == "no_delegation_tab"


def check_what_comes_out_only_later(program, rng):
    """A tab where nobody sees it yet, or that falls to somebody at the next refresh, is given all the same."""
    with office(program, rng, delegation("Top", 50, set(), ["user user3"]), delegation("Under", 40, {"service"}, ["user user3"])) as it:
        expect_refused(it, "tab_not_held", (CREATE, delegation("Unused", 1, {"service"})),
                       (UPDATE, delegation("Top", 50, {"service"}, [], id=2)),
                       (UPDATE, delegation("Under", 40, {"service"}, ["user user3", "user user1"], id=3)),
                       (UPDATE, delegation("Under", 45, {"service"}, id=3)), (SINGLE, delegation("Top", 10, set(), id=2)))
        it.world.execute("update user2delegation_real_table set delegationidx = 2 where uid = 1004",  # who is due more
                         "update delegation_table set priority = 30 where delegationidx = 2")
        expect_refused(it, "tab_not_held", (UPDATE, delegation("Top", 20, set(), id=2)))
        assert it.change(UPDATE, [delegation("Under", 40, {"queue"}, id=3)], actor="user1")["return"]
    with office(program, rng, delegation("Over", 40, {"queue"}, ["group group1"]),
                delegation("Deep", 20, {"service"}, ["group group1"])) as it:
        it.world.execute("delete from user2group_table")  # of the members only the next refresh knows
        expect_refused(it, "tab_not_held", (DELETE, [2]), (UPDATE, delegation("Over", 10, {"queue"}, id=2)))


def check_what_was_confirmed_is_what_is_done(program, rng):
    """Who changes the database while the tool waits for an answer makes it ask anew."""
    with office(program, rng, delegation("Desk", 10, {"queue"}, ["user user2"])) as it:
        terminal, typed = os.openpty()
        command = [*shlex.split(program), f"--demo={it.world.directory}", "delete", "Desk"]
        tool = subprocess.Popen(command, stdin=typed, stderr=subprocess.PIPE)
        shown = b""
        while b"go on?" not in shown:
            shown += tool.stderr.read1() or b"go on? (it has not asked)"
        assert it.ask(UPDATE, delegation("Desk", 10, {"queue", "service"}, id=2))["return"]
        os.write(terminal, b"y\n")
        assert tool.wait() == 5 and it.ids() == [1, 2], tool.stderr.read()
        tool.stderr.close()
        os.close(terminal)
        os.close(typed)


def main():
    chosen = options(worlds=12, seed=1)
    rng, seen = random.Random(chosen.seed), collections.Counter()
    for _ in range(chosen.worlds):
        check_world(chosen.program, rng, seen)
    check_an_administrator_may_and_nobody_else_is_asked(chosen.program, rng)
    check_what_comes_out_only_later(chosen.program, rng)
    check_what_was_confirmed_is_what_is_done(chosen.program, rng)
    print(dict(seen))
    for needed in ("done", "tab_not_held", "own_or_above"):
        assert seen[needed] >= chosen.worlds, needed


if __name__ == "__main__":
    main()
