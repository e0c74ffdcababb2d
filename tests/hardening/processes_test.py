#!/usr/bin/env python3
"""Many `delegationctl rpc` processes on one database: nothing lost, nobody refused wrongly, no answer from an old state.

usage: processes_test.py DELEGATIONCTL [--share N]    does a Nth of it (under a checker that slows everything down)
"""
import contextlib
import os
import shutil
import sys

from world import World, contents, delegation, options, violations

FLUSH = "Webapi_Queue_Flush_v1"  # of the tab "queue"
ALLOWED, NOT_ALLOWED, ERROR = 0, 1, -1


def world_of_processes(program, users, groups=(), processes=1):
    """A world with so many users u0.., the groups, and running processes."""
    stack = contextlib.ExitStack()
    world = stack.enter_context(World(program))
    world.users = {f"u{i}": 1000 + i for i in range(users)}
    world.groups = dict(groups)
    world.write_accounts()
    world.record_nothing()
    return stack, world, [stack.enter_context(world.rpc()) for _ in range(processes)]


def all_at_once(processes, batches):
    """Gives each process its batch, then collects the answers: a list of (return, out) for each process."""
    for process, batch in zip(processes, batches):
        process.send(batch)
    return [process.receive() for process in processes]


def changes(p, number, operations, own):
    """Process p's calls of this round; `own` are the delegations that it has made and not deleted."""
    for i in range(operations):
        document = delegation(f"P{p}-{number}-{i}", number, {"queue"} if i % 2 else {"service"},
                              [f"user u{(p * 7 + i) % 20}", "group ops"])
        if i % 6 == 1 and own:
            yield "DelegationDelegationUpdate", {**document, "id": own[i % len(own)]}
        elif i % 6 == 2 and len(own) > 4:
            yield "DelegationDelegationDelete", [own.pop(0)]
        else:
            yield {3: ("DelegationRefresh",), 4: ("DelegationDelegationList", None),
                   5: ("DelegationUserAllowWebapi", f"u{i % 20}", FLUSH)}.get(i % 6, ("DelegationDelegationCreate", document))


def mixed_changes(program, processes=8, rounds=10, operations=50):
    """Everybody creates, updates and deletes delegations of his own, refreshes and reads; then all of it must be there."""
    stack, world, rpcs = world_of_processes(program, 20, {"ops": (200, ["u1", "u2"])}, processes)
    own = [{} for _ in range(processes)]  # of each process: {index: (name, priority)}
    with stack:
        for number in range(rounds):
            batches = [list(changes(p, number, operations, list(own[p]))) for p in range(processes)]
            for p, answers in enumerate(all_at_once(rpcs, batches)):
                for (method, *params), (returned, out) in zip(batches[p], answers):
                    good = returned != ERROR if method == "DelegationUserAllowWebapi" else returned is True
                    assert good, f"round {number}: {p} {method} {params} {returned}"
                    if method == "DelegationDelegationDelete":
                        del own[p][params[0][0]]
                    elif method in ("DelegationDelegationCreate", "DelegationDelegationUpdate"):
                        own[p][out or params[0]["id"]] = params[0]["name"], params[0]["priority"]
            expected = sorted((idx, *fields) for rows in own for idx, fields in rows.items())
            found = [(idx, name, priority) for idx, name, _, priority in contents(world.database)["delegation_table"]]
            assert found == expected, f"round {number}: lost or wrong: {set(found) ^ set(expected)}"
            assert not violations(world.database), f"round {number}: {violations(world.database)}"
    print(f"{processes} processes x {rounds * operations} operations: none lost, none refused, every index right")


def first_open(program, rounds=60, processes=16):
    for _ in range(rounds):
        stack, world, rpcs = world_of_processes(program, 1, (), processes)
        with stack:
            for rpc in rpcs:
                rpc.call("DelegationDelegationDefaultEntriesGet")  # up and running, the database not yet touched
            assert not os.path.exists(world.database)
            answers = all_at_once(rpcs, [[("DelegationDelegationCreate", delegation(f"P{p}", p, set(), ["user u0"]))]
                                         for p in range(processes)])
            ids = [answer[0][1] for answer in answers]
            assert all(answer[0][0] for answer in answers) and sorted(ids) == list(range(1, processes + 1)), answers
            names = {idx: name for idx, name, *_ in contents(world.database)["delegation_table"]}
            assert names == {idx: f"P{p}" for p, idx in enumerate(ids)}, names
            assert not violations(world.database), violations(world.database)
    print(f"first open by {processes} processes, {rounds} rounds: all stored")


def read_during_refresh(program, refreshes=200, readers=3):
    stack, world, rpcs = world_of_processes(program, 200, (), 1 + readers)
    checks = 0
    with stack:
        writer = rpcs[0]
        world.groups = {"ops": (200, ["u0"])}
        world.write_accounts()
        assert writer.call("DelegationDelegationCreate", delegation("Desk", 5, {"queue"}, ["user u1", "group ops"]))[0]
        for i in range(refreshes):
            world.groups = {"ops": (200, ["u0", *(f"u{2 + (i * 37 + k) % 198}" for k in range(60))])}
            world.write_accounts()
            batch = [("DelegationUserAllowWebapi", user, FLUSH) for user in ("u0", "u1")] * 15
            answers = all_at_once(rpcs, [[("DelegationRefresh",)]] + [batch] * readers)
            assert answers[0][0][0] is True
            refused = [returned for answer in answers[1:] for returned, _ in answer if returned != ALLOWED]
            assert not refused, f"refresh {i}: {refused}"
            checks += readers * len(batch)
        assert not violations(world.database), violations(world.database)
    print(f"{refreshes} refreshes, {checks} checks meanwhile: nobody refused who is allowed")


def nothing_stale(program, checks=100000, readers=4, each=25):
    """After a change has returned, every process answers by it."""
    stack, world, rpcs = world_of_processes(program, 4, {"ops": (200, ["u1", "u2"])}, 1 + readers)
    with stack:
        writer, rest = rpcs[0], rpcs[1:]
        assert writer.call("DelegationDelegationCreate", delegation("Desk", 1, {"queue"}, ["group ops"]))[0]
        changes = [  # and what u1 and u2 may do behind it
            (("DelegationDelegationUpdate", delegation("Desk", 1, set(), id=1)), [NOT_ALLOWED, NOT_ALLOWED]),
            (("DelegationDelegationUpdate", delegation("Desk", 1, {"queue"}, id=1)), [ALLOWED, ALLOWED]),
            (("DelegationDelegationUpdate", delegation("Desk", 1, {"queue"}, ["user u1"], id=1)), [ALLOWED, NOT_ALLOWED]),
            (("DelegationDelegationUpdate", delegation("Desk", 1, {"queue"}, ["group ops"], id=1)), [ALLOWED, ALLOWED]),
            (("DelegationDelegationCreate", delegation("Over", 2, set(), ["user u2"])), [ALLOWED, NOT_ALLOWED]),
            (("DelegationDelegationDelete", [2]), [ALLOWED, ALLOWED])]
        for i in range(checks // (readers * each)):
            change, due = changes[i % len(changes)]
            assert writer.call(*change)[0] is True, change
            batch = [("DelegationUserAllowWebapi", f"u{1 + k % 2}", FLUSH) for k in range(each)]
            for answer in all_at_once(rest, [batch] * readers):
                found = [returned for returned, _ in answer]
                assert found == [due[k % 2] for k in range(each)], f"behind {change[0]} number {i}: {found}"
    print(f"{checks} checks behind {checks // (readers * each)} changes: none by the old state")


def files_change(program):
    """The file is moved away, comes back, and is replaced by another, under processes that have it open."""
    stack, world, (first, second) = world_of_processes(program, 4, (), 2)

    def expect(*answers):
        for rpc in (first, second):
            assert rpc.call("DelegationUserAllowWebapi", "u1", FLUSH)[0] in answers, answers

    with stack:
        assert first.call("DelegationDelegationCreate", delegation("Desk", 1, {"queue"}, ["user u1"]))[0]
        expect(ALLOWED)
        shutil.copy(world.database, world.database + ".old")
        os.rename(world.database, world.database + ".moved")
        expect(NOT_ALLOWED, ERROR)
        for rpc in (first, second):
            assert rpc.call("DelegationDelegationCreate", delegation("New", 1, set()))[0] is False
            assert rpc.call("DelegationRefresh")[0] is False
        assert not os.path.exists(world.database), "the missing file was made anew"
        os.rename(world.database + ".moved", world.database)
        expect(ALLOWED)
        assert first.call("DelegationDelegationDelete", [1])[0]
        expect(NOT_ALLOWED)
        os.rename(world.database + ".old", world.database)
        expect(ALLOWED)
        assert second.call("DelegationDelegationUpdate", delegation("Desk", 1, set(), id=1))[0]
        expect(NOT_ALLOWED)
        assert not violations(world.database), violations(world.database)
    print("the file moved, missing, back and replaced under open handles: answered by the file that is there")


def main():
    chosen = options(share=1)
    program, share = chosen.program, chosen.share
    mixed_changes(program, rounds=max(1, 10 // share))
    first_open(program, rounds=-(-60 // share))
    read_during_refresh(program, refreshes=-(-200 // share))
    nothing_stale(program, checks=100000 // share)
    files_change(program)


if __name__ == "__main__":
    sys.exit(main())
