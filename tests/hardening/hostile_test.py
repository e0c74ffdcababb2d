#!/usr/bin/env python3
"""Hostile ids, texts and sizes at every place where they enter, through `delegationctl rpc` and the host's account files.

Nobody is let in, the rules hold, the log keeps its form, and memory stays bounded.

usage: hostile_test.py DELEGATIONCTL [--share N]     N > 1: no huge documents
"""
import re
import sys

from world import HOSTILE, World, contents, delegation, options, violations

IDS = [2**31 - 1, 2**31, 2**32 - 2, 2**32 - 1]
FIRST = delegation("First", 1, {"log_log"}, ["user ann"])
FLUSH = "Webapi_Queue_Flush_v1"
BOUND = 400  # MiB


def host(program):
    world = World(program)
    world.users.update({f"u{uid}": uid for uid in IDS}, ann=1001, bob=1002)
    world.groups.update({f"g{gid}": (gid, [f"u{gid}"]) for gid in IDS}, ops=(200, ["bob"]))
    world.write_accounts()
    return world


def names(rpc):
    """Texts that nobody is called by and nothing has; model_test.py has them in documents."""
    assert rpc.call("DelegationDelegationCreate", FIRST)[0]
    for text in HOSTILE:
        answers = rpc.batch([("DelegationUserAllowWebapi", text, FLUSH), ("DelegationUserAllowWebapi", "ann", text),
                             ("DelegationUserDelegationEntriesGet", text), ("DelegationDelegationEntryAllList", text),
                             ("DelegationDefaultDelegationEntryGet", text)])
        assert answers == [(-1, None), (1, None), (False, None), (True, []), (False, "")], (text[:30], len(text), answers)


def ids(world, rpc):
    for uid in IDS:
        known = uid != 2**32 - 1
        for name, tab in ((f"user u{uid}", "all_domain_quota"), (f"group g{uid}", "queue")):
            done, idx = rpc.call("DelegationDelegationCreate", delegation(name, 1, {tab}, [name]))
            assert done == known and rpc.call("DelegationRefresh")[0], name
            assert not violations(world.database), (name, violations(world.database))
            assert rpc.call("DelegationUserAllowWebapi", f"u{uid}", FLUSH)[0] == (-1 if not known else "u" in name[0])
            assert rpc.call("DelegationUserHasAllDomainDelegations", uid)[0] == (known and name.startswith("user"))
            assert rpc.call("DelegationDelegationDelete", [idx])[0]


def host_names(world, rpc):
    """Account and group names that no JSON could bring: bytes of the host's files."""
    usable = [text.encode() for text in HOSTILE if text and not set(text) & set("\n\r\0:, \t")] + [b"caf\xe9", b"\xff\xfe"]
    short = [name for name in usable if len(name) < 99]
    for names in (short, usable, short):  # too long a one ends a refresh
        records = {"passwd": [b"%s:x:%d:100::/:\n" % (name, 2000 + i) for i, name in enumerate(names)],
                   "group": [b"%s:x:%d:%s\n" % (name, 3000 + i, names[0]) for i, name in enumerate(names)]}
        records["group"].append(b"ops:x:200:%s\n" % b",".join(names))
        for file, lines in records.items():
            with open(f"{world.directory}/{file}", "wb") as accounts:
                accounts.write(b"".join(lines))
        for name in [b"ops", *names]:
            if name.isascii() or b"\xe6" in name:
                rpc.call("DelegationDelegationCreate", delegation("D", 1, {"queue"}, ["group " + name.decode()]))
                assert not violations(world.database, settled=False), name[:40]
        assert rpc.call("DelegationRefresh")[0] == (names is short)
        assert not violations(world.database, settled=names is short), "behind a refresh"
        assert rpc.call("DelegationUserGroupDelegationInfoList", {"detail": True})[0]
        listed, stored = rpc.call("DelegationUserList", None)[1], contents(world.database)["user_table"]
        assert len(listed) == len(stored) > 10, f"{len(listed)} of {len(stored)}"


def sizes(program):
    """Peaks, in MiB, of processes that get one huge document each."""
    deep = {}
    for _ in range(190):
        deep = {"a": deep}
    huge = {"long name": {**FIRST, "name": "n" * 7900000}, "long data": {**FIRST, "queue": "'" * 7900000},
            "many members": {**FIRST, **{str(i): 0 for i in range(500000)}}, "deep": {**FIRST, "queue": deep},
            "many assignees": delegation("Many", 1, set(), ["user ann", "group ops"] * 50000),
            "many strangers": delegation("Many", 1, set(), [f"user x{i}" for i in range(100000)])}
    for what, document in huge.items():
        with host(program) as world:
            with world.rpc() as rpc:
                rpc.call("DelegationDelegationCreate", document)
                with open(f"/proc/{rpc.process.pid}/status", encoding="ascii") as status:
                    peak = int(re.search(r"VmHWM:\s+(\d+) kB", status.read())[1]) >> 10
                assert rpc.call("DelegationUserAllowWebapi", "bob", FLUSH)[0] == 1
            assert peak < BOUND and not violations(world.database, settled=False), f"{what}: {peak} MiB"
            print(what, peak, "MiB")


def main():
    chosen = options(share=1)
    with host(chosen.program) as world, world.rpc() as rpc:
        ids(world, rpc)
        names(rpc)
        host_names(world, rpc)
        world.check_log()
    if chosen.share == 1:
        sizes(chosen.program)


if __name__ == "__main__":
    sys.exit(main())
