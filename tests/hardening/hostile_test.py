#!/usr/bin/env python3
"""Hostile ids, texts and sizes at every place where they enter, through `delegationctl rpc` and the host's account files.

Nobody is let in, the rules hold, the log keeps its form, and memory stays bounded.

usage: hostile_test.py DELEGATIONCTL [--share N]     N > 1: no huge documents
"""
import re
import sys

from world import HOSTILE, World, contents, delegation, options, violations

IDS = [-1, 0, 2**31 - 1, 2**31, 2**32 - 2, 2**32 - 1, 2**63, 2**64 - 1]
EVERYTHING = ("DelegationUserGroupDelegationInfoList", {"detail": True})
FLUSH = "Webapi_Queue_Flush_v1"
BOUND = 400  # MiB


class Hostile:
    def __init__(self, program):
        self.program = program

    def world(self):
        world = World(self.program)
        world.users.update(ann=1001, bob=1002)
        world.groups["ops"] = (200, ["bob"])
        world.write_accounts()
        return world

    def check(self, world, what, settled=True):
        found = violations(world.database, settled)
        assert not found, f"{what}: {found}"

    def names(self):
        """Texts that nobody is called by and nothing has; model_test.py has them in documents."""
        with self.world() as world, world.rpc() as rpc:
            assert rpc.call("DelegationDelegationCreate", FIRST)[0]
            for text in HOSTILE:
                shown = repr(text[:30]) + f" of {len(text.encode())} bytes"
                assert rpc.call("DelegationUserAllowWebapi", text, FLUSH)[0] == -1, shown
                assert rpc.call("DelegationUserAllowWebapi", "ann", text)[0] == 1, shown
                assert rpc.call("DelegationUserDelegationEntriesGet", text) == (False, None), shown
                assert rpc.call("DelegationDelegationEntryAllList", text) == (True, []), shown
                assert rpc.call("DelegationDefaultDelegationEntryGet", text) == (False, ""), shown
            world.check_log()

    def ids(self):
        with self.world() as world, world.rpc() as rpc:
            world.users.update({f"u{uid}": uid for uid in IDS if 0 < uid < 2**32})
            world.groups.update({f"g{gid}": (gid, [f"u{gid}"]) for gid in IDS if 0 < gid < 2**32})
            world.write_accounts()
            for uid in IDS[2:6]:
                known = uid != 2**32 - 1
                for name, tab in ((f"user u{uid}", "all_domain_quota"), (f"group g{uid}", "queue")):
                    done, idx = rpc.call("DelegationDelegationCreate", delegation(name, 1, {tab}, [name]))
                    assert done == known, name
                    assert rpc.call("DelegationRefresh")[0]
                    self.check(world, name)
                    assert rpc.call("DelegationUserAllowWebapi", f"u{uid}", FLUSH)[0] == (-1 if not known else "u" in name[0])
                    assert rpc.call("DelegationUserHasAllDomainDelegations", uid)[0] == (known and name.startswith("user"))
                    assert rpc.call("DelegationDelegationDelete", [idx])[0]
            before = contents(world.database)
            for idx in IDS:
                assert not rpc.call("DelegationDelegationDelete", [idx])[0], idx
                assert not rpc.call("DelegationDelegationUpdate", {**FIRST, "id": idx})[0], idx
                assert not rpc.call("DelegationDelegationUpdateImpFromSingle", {**FIRST, "id": idx})[0], idx
            assert contents(world.database) == before
            world.check_log()

    def host_names(self):
        """Account and group names that no JSON could bring: bytes of the host's files."""
        short = [text.encode() for text in HOSTILE if len(text) < 99 and text and not set(text) & set("\n\r\0:, \t")] + [b"caf\xe9", b"\xff\xfe"]
        with self.world() as world, world.rpc() as rpc:
            for names in (short, short + [text.encode() for text in HOSTILE if len(text) > 99], short):  # too long a one ends a refresh
                records = {"passwd": [b"%s:x:%d:100::/:\n" % (name, 2000 + i) for i, name in enumerate(names)],
                           "group": [b"%s:x:%d:%s\n" % (name, 3000 + i, names[0]) for i, name in enumerate(names)]}
                records["group"].append(b"ops:x:200:%s\n" % b",".join(names))
                for name, lines in records.items():
                    with open(f"{world.directory}/{name}", "wb") as file:
                        file.write(b"".join(lines))
                for name in [b"ops", *names]:
                    if name.isascii() or b"\xe6" in name:
                        rpc.call("DelegationDelegationCreate", delegation("D", 1, {"queue"}, ["group " + name.decode()]))
                        self.check(world, name[:40], settled=False)
                assert rpc.call("DelegationRefresh")[0] == (names is short)
                self.check(world, "refresh", settled=names is short)
                assert rpc.call(*EVERYTHING)[0]
                listed = rpc.call("DelegationUserList", None)[1]
                stored = contents(world.database)["user_table"]
                assert len(listed) == len(stored) > 10, f"{len(listed)} of {len(stored)}"
            world.check_log()

    def sizes(self):
        """Peaks, in MiB, of processes that get one huge document each."""
        peaks = {}
        deep = {}
        for _ in range(190):
            deep = {"a": deep}
        huge = {"long name": {**FIRST, "name": "n" * 7900000}, "long data": {**FIRST, "queue": "'" * 7900000},
                "many members": {**FIRST, **{str(i): 0 for i in range(500000)}}, "deep": {**FIRST, "queue": deep},
                "many assignees": delegation("Many", 1, set(), ["user ann", "group ops"] * 50000),
                "many strangers": delegation("Many", 1, set(), [f"user u{i}" for i in range(100000)])}
        for what, document in huge.items():
            with self.world() as world:
                with world.rpc() as rpc:
                    rpc.call("DelegationDelegationCreate", document)
                    with open(f"/proc/{rpc.process.pid}/status", encoding="ascii") as status:
                        peaks[what] = int(re.search(r"VmHWM:\s+(\d+) kB", status.read())[1]) >> 10
                    assert rpc.call("DelegationUserAllowWebapi", "bob", FLUSH)[0] == 1
                assert peaks[what] < BOUND, f"{what}: {peaks[what]} MiB"
                self.check(world, what, settled=False)
        return peaks


FIRST = delegation("First", 1, {"log_log"}, ["user ann"])


def main():
    chosen = options(share=1)
    hostile = Hostile(chosen.program)
    hostile.ids()
    hostile.host_names()
    hostile.names()
    peaks = hostile.sizes() if chosen.share == 1 else {}
    print("hostile ids and names", *(f"{what} {peak} MiB" for what, peak in peaks.items()), sep=", ")


if __name__ == "__main__":
    sys.exit(main())
