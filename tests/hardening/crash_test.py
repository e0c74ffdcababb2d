#!/usr/bin/env python3
"""Kills `delegationctl rpc` with SIGKILL at random points of every change and of the first open.

A twin that is never killed makes each change first. Behind a kill the database must be as before or as the twin's, as the
twin's if the change was acknowledged, must keep its rules, and the next process must open it.

usage: crash_test.py DELEGATIONCTL [--kills N] [--seed S]
"""
import os
import random
import shutil
import sys
import time

from world import TABS, World, contents, delegation, options, violations

USERS = [f"u{i}" for i in range(12)]
GROUPS = [f"g{i}" for i in range(4)]
READ = ("DelegationUserAllowWebapi", "u0", "Webapi_Queue_Flush_v1")


class Crash:
    def __init__(self, program, random):
        self.random = random
        self.world, self.twin = World(program), World(program)
        self.counts = {"before": 0, "after": 0, "acknowledged": 0, "in the middle of a commit": 0}
        self.duration = {}  # of each kind of change, in seconds

    def change_host(self):
        """Who is a member, and now and then who exists at all, so that a refresh has something to do."""
        rest = ["u0", *self.random.sample(USERS[1:], 9)]
        for world in (self.world, self.twin):
            world.users = {name: 1000 + USERS.index(name) for name in rest}
        self.world.groups = self.twin.groups = {
            name: (200 + i, self.random.sample(rest, 4)) for i, name in enumerate(GROUPS)}
        self.world.write_accounts()
        self.twin.write_accounts()

    def change(self):
        ids = [row[0] for row in contents(self.world.database)["delegation_table"]] if os.path.exists(self.world.database) else []
        choose, assignees = self.random, [f"group {self.random.choice(GROUPS)}"]
        assignees += [f"user {name}" for name in choose.sample(sorted(self.world.users), 3)]
        document = delegation(f"D{choose.randrange(1000)}", choose.randrange(5), set(choose.sample(TABS, 5)), assignees)
        if len(ids) < 2:
            return ("DelegationDelegationCreate", document)
        return choose.choice([
            ("DelegationDelegationCreate", document),
            ("DelegationDelegationUpdate", [{**document, "id": idx} for idx in choose.sample(ids, 2)]),
            ("DelegationDelegationDelete", choose.sample(ids, 2)),
            ("DelegationRefresh",)])

    def kill_once(self, first_open):
        world, twin = self.world, self.twin
        self.change_host()
        if first_open:
            for path in (world.database, twin.database):
                for name in (path, path + "-journal", path + ".lock"):
                    if os.path.exists(name):
                        os.remove(name)
        change = self.change()
        before = None if first_open else contents(world.database)
        with twin.rpc() as rpc:
            rpc.call("DelegationDelegationDefaultEntriesGet")
            start = time.monotonic()
            answer = rpc.call(*change)
            kind = "first open" if first_open else change[0]
            self.duration[kind] = max(self.duration.get(kind, 0) * 0.9, time.monotonic() - start)
        assert answer[0], change
        after = contents(twin.database)

        victim = world.rpc()
        victim.call("DelegationDelegationDefaultEntriesGet")  # up and running, the database not yet touched
        victim.send([change])
        time.sleep(self.random.random() * 1.2 * self.duration[kind])
        victim.process.kill()
        acknowledged = victim.receive() is not None
        victim.kill()
        self.counts["in the middle of a commit"] += os.path.exists(world.database + "-journal")

        with world.rpc() as rpc:  # the next open
            assert rpc.call(*READ)[0] in (0, 1), f"the next process cannot read behind {kind}"
        now = contents(world.database)
        empty = {table: [] for table in now}
        assert not violations(world.database), f"{kind}: {violations(world.database)}"
        assert now in (before or empty, after), f"{kind} is half applied"
        assert now == after or not acknowledged, f"{kind} was acknowledged and is lost"
        self.counts["acknowledged" if acknowledged else "after" if now == after else "before"] += 1
        if now != after:
            shutil.copy(world.database, twin.database)


def main():
    chosen = options(kills=200, seed=int(time.time()))
    print(f"seed {chosen.seed}", flush=True)
    crash = Crash(chosen.program, random.Random(chosen.seed))
    with crash.world, crash.twin:
        for i in range(chosen.kills):
            crash.kill_once(first_open=i % 10 == 0)
    states = ", ".join(f"{count} {state}" for state, count in crash.counts.items())
    print(f"{chosen.kills} kills ({states}): none half applied, none acknowledged and lost")


if __name__ == "__main__":
    sys.exit(main())
