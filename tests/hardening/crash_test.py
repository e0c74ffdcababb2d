#!/usr/bin/env python3
"""Kills `delegationctl rpc` with SIGKILL at random points of every change and of the first open.

A twin that is never killed makes each change first. Behind a kill the database must be as before or as the twin's, as the
twin's if the change was acknowledged, must keep its rules, and the next process must open it.

usage: crash_test.py DELEGATIONCTL [--kills N] [--seed S]
"""
import os
import pathlib
import random
import shutil
import sys
import time

from world import CREATE, DELETE, REFRESH, UPDATE, World, contents, make_hosts, options, random_change, violations

READ = ("DelegationUserAllowWebapi", "user0", "Webapi_Queue_Flush_v1")


class Crash:
    def __init__(self, program, random):
        self.random = random
        self.world, self.twin = World(program), World(program)
        self.counts = {"before": 0, "after": 0, "acknowledged": 0, "in the middle of a commit": 0}
        self.duration = {}  # of each kind of change, in seconds

    def kill_once(self, first_open):
        world, twin = self.world, self.twin
        members = self.random.random()
        for host in (world, twin):
            make_hosts(host, random.Random(members))  # so that a refresh has something to do
        if first_open:
            for path in (world.database, twin.database):
                for suffix in ("", "-journal", ".lock"):
                    pathlib.Path(path + suffix).unlink(missing_ok=True)
        before = contents(world.database) if os.path.exists(world.database) else None
        ids = [row[0] for row in before["delegation_table"]] if before else []
        method, params = random_change(self.random, ids, (CREATE, UPDATE, DELETE, REFRESH))
        change = (method, *params)
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
