#!/usr/bin/env python3
"""Hostile ids, texts and sizes at every place where they enter, through `delegationctl rpc` and the host's account files.

What is accepted reads back exactly; what is refused takes nothing from what is stored; the rules hold, and the log keeps its
form.

usage: hostile_test.py DELEGATIONCTL [--share N]     N: an N-th of the texts, and no huge documents
"""
import argparse
import re
import sys

from world import World, contents, delegation, violations

IDS = [-1, 0, 2**31 - 1, 2**31, 2**32 - 2, 2**32 - 1, 2**63, 2**64 - 1]
TEXTS = ["'", "''", '"', "%", "%s%n%s%n%999999d", "%q", "\\", "\\x41", "a\nb", "\r\n", "\t", "\x1b[31m\x1b]0;x\x07", "\x7f\x01",
         "\u009b31m", "\u202eb", "東\U0001F600", "x'); drop table user_table; --", "-1", "true ", "", "a\0b", "\0", "\ufffe"]
LENGTHS = [1900, *range(1955, 1990, 6), *range(2040, 2061, 5), 100000]  # in bytes, around those at which a statement is cut
LONG = [(unit * length).encode()[:length].decode(errors="ignore") for length in LENGTHS for unit in ("n", "é'")]
EVERYTHING = ("DelegationUserGroupDelegationInfoList", {"detail": True})
FLUSH = "Webapi_Queue_Flush_v1"
LOG_LINE = re.compile(rb"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4} [a-z0-9_]+\.(cpp|h):\d+ [^\x00-\x1f\x7f]*")
LONGEST_LOG_LINE = 2047 + 64
BOUND = 400  # MiB


class Hostile:
    def __init__(self, program):
        self.program = program
        self.counts = {"accepted": 0, "refused": 0}

    def world(self):
        world = World(self.program)
        world.users.update(ann=1001, bob=1002)
        world.groups["ops"] = (200, ["bob"])
        world.write_accounts()
        return world

    def check(self, world, what, settled=True):
        found = violations(world.database, settled)
        assert not found, f"{what}: {found}"

    def check_log(self, world):
        with open(world.directory + "/log", "rb") as file:
            lines = file.read().split(b"\n")
        assert lines.pop() == b"", "the last log line is cut"
        for line in lines:
            assert LOG_LINE.fullmatch(line) and len(line) <= LONGEST_LOG_LINE, f"log line {line!r}"

    def change(self, world, rpc, what, document):
        """Creates by `document` and updates the first delegation by it; puts the database back to its first two."""
        before, listed = contents(world.database), rpc.call(*EVERYTHING)
        created, idx = rpc.call("DelegationDelegationCreate", document)
        self.judge(world, rpc, f"create: {what}", document, created, idx, before)
        extra = {row[0] for row in contents(world.database)["delegation_table"]} - {1}
        assert rpc.call("DelegationDelegationDelete", sorted(extra))[0]
        updated, _ = rpc.call("DelegationDelegationUpdate", {**document, "id": 1})
        self.judge(world, rpc, f"update: {what}", document, updated, 1, None)
        assert rpc.call("DelegationDelegationUpdate", {**FIRST, "id": 1})[0]
        self.check(world, what)
        assert rpc.call(*EVERYTHING) == listed, f"{what}: something else has changed"

    def judge(self, world, rpc, what, document, accepted, idx, before):
        self.counts["accepted" if accepted else "refused"] += 1
        self.check(world, what, settled=accepted)
        if accepted:
            stored, = [found for found in rpc.call("DelegationDelegationList", None)[1] if found["id"] == idx]
            for member in ("name", "color", "queue"):
                assert stored[member] == document[member], f"{what}: {member} reads back as {stored[member]!r}"
        elif before:
            for table, rows in contents(world.database).items():
                assert set(before[table]) <= set(rows), f"{what}: refused, and {table} lost rows"
        assert rpc.call("DelegationUserAllowWebapi", "bob", FLUSH)[0] == 1, f"{what}: bob was let in"

    def texts(self, texts):
        with self.world() as world, world.rpc() as rpc:
            assert rpc.call("DelegationDelegationCreate", FIRST)[0]
            for text in texts:
                shown = repr(text[:30]) + f" of {len(text.encode())} bytes"
                self.change(world, rpc, "name " + shown, {**FIRST, "name": text})
                self.change(world, rpc, "color " + shown, {**FIRST, "color": text})
                self.change(world, rpc, "data " + shown, {**FIRST, "queue": text})
                for kind in ("user", "group"):
                    assignee = [{"type": kind, "name": text}]
                    self.change(world, rpc, kind + " " + shown, {**FIRST, "user_group": assignee})
                self.change(world, rpc, "type " + shown, {**FIRST, "user_group": [{"type": text, "name": "ann"}]})
                self.change(world, rpc, "member " + shown, {**FIRST, text or "x": text})
                assert rpc.call("DelegationUserAllowWebapi", text, FLUSH)[0] == -1, shown
                assert rpc.call("DelegationUserAllowWebapi", "ann", text)[0] == 1, shown
                assert rpc.call("DelegationUserDelegationEntriesGet", text) == (False, None), shown
                assert rpc.call("DelegationDelegationEntryAllList", text) == (True, []), shown
                assert rpc.call("DelegationDefaultDelegationEntryGet", text) == (False, ""), shown
            self.check_log(world)

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
            self.check_log(world)

    def host_names(self):
        """Account and group names that no JSON could bring: bytes of the host's files."""
        short = [text.encode() for text in TEXTS if text and not set(text) & set("\n\r\0:, \t")] + [b"caf\xe9", b"\xff\xfe"]
        with self.world() as world, world.rpc() as rpc:
            for names in (short, short + [text.encode() for text in LONG], short):  # too long a one ends a refresh
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
                assert len(listed) == len(stored) > len(TEXTS) / 2, f"{len(listed)} of {len(stored)}"
            self.check_log(world)

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
    arguments = argparse.ArgumentParser()
    arguments.add_argument("program")
    arguments.add_argument("--share", type=int, default=1)
    options = arguments.parse_args()
    hostile = Hostile(options.program)
    hostile.ids()
    hostile.host_names()
    hostile.texts((TEXTS + LONG)[::options.share])
    peaks = hostile.sizes() if options.share == 1 else {}
    print(f"{hostile.counts['accepted']} hostile texts accepted and read back, {hostile.counts['refused']} refused",
          *(f"{what} {peak} MiB" for what, peak in peaks.items()), sep=", ")


if __name__ == "__main__":
    sys.exit(main())
