#!/usr/bin/env python3
"""Seeds faults into a delegation world, one by one and several at once: check must find each by its code and nothing on
clean data, and repair must leave it clean, keep a copy, and give nobody what no assignment supports.

usage: check_test.py DELEGATIONCTL FAILING [--mixes N] [--seed N]     FAILING is the library of ../tools/failing_platform.cpp
"""
import os
import pathlib
import re
import shutil
import sys
from random import Random

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "hardening"))
from world import CONFIGURATION, TABS, World, contents, delegation, execute, options, supporters, violations

USERS = ("ann", "bob", "carol", "dave", "eva", "frank", "grace", "henry", "iris", "jack", "kate", "liam")


def make(world):
    """Three delegations that do not meet; nothing to find."""
    world.users.update({name: 1001 + i for i, name in enumerate(USERS)}, root=0)
    world.groups.update(administrators=(2000, ["root"]), desk=(2001, ["bob", "carol", "dave"]), post=(2002, ["eva"]))
    world.write_accounts()
    with world.rpc() as rpc:
        for document in (delegation("Desk", 20, {"queue", "log_list"}, ["group desk", "user grace"]),
                         delegation("Post", 50, {"mail_delivery"}, ["group post", "user ann"]),
                         delegation("Audit", 70, {"audit_search"}, [f"user {name}" for name in USERS[7:]])):
            assert rpc.call("DelegationDelegationCreate", document)[0]


def rows(*statements):
    """A fault in the database."""
    return lambda world: world.execute(*statements)


def accounts(change):
    """A fault on the host."""
    return lambda world: (change(world), world.write_accounts())


def both(first, second):
    return lambda world: (first(world), second(world))


def file(change):
    """A fault of the file; `change` gets its path."""
    return lambda world: change(pathlib.Path(world.database))


def foreign(path):
    path.unlink()
    execute(path, "create table notes(text)")


def damage(path):
    data = bytearray(path.read_bytes())
    data[-4096 * 3:-4096] = b"\xff" * 8192
    path.write_bytes(data)


LINK = "insert into user2delegation_table values"
TYPE = ("insert into delegation_entry_table values (900, 'mail_fax', 'true')",
        "insert into delegation2delegation_entry_table values (2, 900)")
DROP = "delete from delegation2delegation_entry_table where delegationidx = 2 and delegationentryidx in " \
       "(select delegationentryidx from delegation_entry_table where type = 'queue')"

# What repair mends: code, fault.
REPAIRABLE = [
    ("link_without_parent", rows(LINK + "(7777, 1)", LINK + "(1001, 99)")),
    ("link_without_parent", rows("insert into group2delegation_table values (7777, 3)")),
    ("link_without_parent", rows("insert into user2group_table values (7777, 2001), (1001, 7777)")),
    ("link_without_parent", rows("insert into delegation2delegation_entry_table values (1, 888), (99, 1)")),
    ("effective_unknown_user", rows("insert into user2delegation_real_table values (7777, 3)")),
    ("effective_unsupported", rows("update user2delegation_real_table set delegationidx = 3 where uid = 1002")),
    ("effective_differs", rows("delete from user2delegation_real_table where uid = 1002")),
    ("id_out_of_range", rows("insert into user_table values (-5, 'x'), (4294967295, 'y')")),
    ("id_out_of_range", rows("insert into group_table values (5000000000, 'x')")),
    ("name_missing", rows("update user_table set username = '' where uid = 1001")),
    ("name_missing", rows("update group_table set groupname = null where gid = 2002")),
    ("type_unknown", rows(*TYPE)),
    ("type_repeated", rows("insert into delegation2delegation_entry_table select 3, delegationentryidx from delegation_entry_table "
                           "where type = 'queue' and data = 'true'")),
    ("type_missing", rows(DROP)),
    ("user_gone", accounts(lambda world: world.users.pop("ann"))),
    ("group_gone", accounts(lambda world: world.groups.pop("post"))),
    ("group_gone", both(rows("insert into group2delegation_table values (2002, 1)"), accounts(lambda world: world.groups.pop("post")))),
    ("user_renamed", accounts(lambda world: world.users.update(anna=world.users.pop("ann")))),
    ("group_renamed", accounts(lambda world: world.groups.update(postmen=world.groups.pop("post")))),
    ("uid_reused", accounts(lambda world: world.users.update(ann=1999, mallory=1001))),
    ("gid_reused", accounts(lambda world: world.groups.update(post=(2999, ["eva"]), rabble=(2002, ["frank"])))),
    ("members_stale", accounts(lambda world: world.groups["desk"][1].remove("bob"))),
    ("members_stale", accounts(lambda world: world.groups["desk"][1].append("frank"))),
]
# What only people can mend: code, exit status, fault.
BY_HAND = [
    ("database_missing", 1, file(pathlib.Path.unlink)),
    ("not_a_regular_file", 1, file(lambda path: path.symlink_to(path.rename(f"{path}.real")))),
    ("database_writable", 1, file(lambda path: path.chmod(0o666))),
    ("database_mode", 1, file(lambda path: path.chmod(0o644))),
    ("directory_writable", 1, file(lambda path: path.parent.chmod(0o777))),
    ("lock_file", 1, file(lambda path: pathlib.Path(f"{path}.lock").mkdir())),
    ("database_empty", 1, file(lambda path: path.write_bytes(b""))),
    ("not_a_database", 1, file(lambda path: path.write_bytes(b"mail" * 4096))),
    ("foreign_database", 1, file(foreign)),
    ("integrity", 1, file(damage)),
    ("version_differs", 1, rows("pragma user_version = 2")),
    ("version_differs", 1, rows("pragma user_version = 0")),
    ("schema_differs", 1, rows("drop view group2user_view")),
    ("schema_differs", 1, rows("create trigger t after delete on user_table begin delete from group_table; end")),
    ("journal_mode", 1, rows("pragma journal_mode = wal")),
    ("row_unusable", 1, rows("update delegation_table set priority = 'high' where delegationidx = 1", LINK + "(7777, 1)")),
    ("row_unusable", 1, rows("insert into delegation_table values (-3, 'x', 'none', 1)")),
    ("row_unusable", 1, rows("update delegation_table set name = '' where delegationidx = 2")),
    ("database_unreadable", 3, lambda world: world.write("demo.conf", CONFIGURATION.format(world.directory + "/passwd", 50))),
    ("database_owner", 1, file(lambda path: os.chown(path, 65534, -1))),
    ("accounts_unavailable", 3, accounts(lambda world: world.users.clear())),
    ("configuration", 3, lambda world: world.write("demo.conf", "[nonsense]\nx = y\n")),
    ("no_administrators", 1, accounts(lambda world: world.groups.pop("administrators"))),
    ("stale_name", 1, accounts(lambda world: world.groups["desk"][1].append("nobody-there"))),
    ("outage_suspected", 1, accounts(lambda world: [world.users.pop(name) for name in USERS[:9]])),
    ("tie", 0, rows("update delegation_table set priority = 70", LINK + "(1002, 2)",
                    "update user2delegation_real_table set delegationidx = 2 where uid = 1002")),
    ("nobody_assigned", 0, rows("insert into delegation_table values (9, 'x', 'none', 1)", *(
        f"insert into delegation2delegation_entry_table select 9, delegationentryidx from delegation_entry_table where "
        f"type = '{tab}' and data = 'false'" for tab in TABS))),
    ("always_outranked", 0, rows(LINK + "(1001, 3), (1005, 3)",
                                 "update user2delegation_real_table set delegationidx = 3 where uid in (1001, 1005)")),
    ("tabs_lost", 0, rows(LINK + "(1008, 1)")),
]
# What comes along with a fault, being true as well.
ALONG = {"id_out_of_range": {"user_gone", "group_gone"}, "foreign_database": {"database_mode"}, "tie": {"tabs_lost"}, "always_outranked": {"tabs_lost"},
         "group_gone": {"tabs_lost"},
         "outage_suspected": {"user_gone", "members_stale", "stale_name"}, "user_gone": {"members_stale", "stale_name"},
         "uid_reused": {"members_stale"}, "name_missing": {"effective_unsupported"},
         "row_unusable": {"link_without_parent", "effective_unsupported"}}


class Check:
    def __init__(self, failing):
        self.failing = failing
        self.failures = 0

    def expect(self, holds, *what):
        if not holds:
            self.failures += 1
            print("FAILED", *what, flush=True)

    def codes(self, world, *arguments, **environment):
        status, answer = world.run("check", *arguments, **environment)
        return status, {finding["code"] for finding in answer.get("findings", [])}

    def found(self, name, world, status, wanted, allowed):
        got, codes = self.codes(world)
        self.expect(got == status and wanted <= codes <= wanted | allowed, name, "exit", got, "found", codes, "wanted", wanted)

    def repaired(self, name, world):
        before, (_, found), image = contents(world.database), self.codes(world), bytes_of(world)
        status, codes = self.codes(world, "--repair", "--dry-run")
        self.expect(status == 0 and bytes_of(world) == image, name, "dry run", status, codes)
        self.expect(world.run("check", "--repair")[1]["error"]["code"] == "unconfirmed", name, "repairs without asking")
        status, answer = world.run("check", "--repair", "--yes")
        self.expect(status == 0 and answer["healthy"], name, "repair", status, answer)
        self.expect(contents(world.database + ".before-repair") == before, name, "the copy is not the file as it was")
        self.expect(self.codes(world)[0] == 0 and violations(world.database) == [], name, "still", violations(world.database))
        after = contents(world.database)  # nobody is given anything: assignments and tabs only go, what is in effect is supported
        for kind in ("user", "group"):
            if not found & {kind + "_renamed", "name_missing"}:
                self.expect(held(after, kind) <= held(before, kind), name, f"a {kind} is given something")
        self.expect(tabs(after, True) <= tabs(before, True) - tabs(before, False), name, "new tabs")
        for uid, idx in after["user2delegation_real_table"]:
            self.expect(idx in supporters(after, uid), name, f"user {uid} has {idx} without support")

    def left_alone(self, name, world, status):
        """What only people can mend is found, but neither the check nor a repair touches the file."""
        image = bytes_of(world)
        self.found(name, world, status, {name}, ALONG.get(name, set()))
        offered = [finding["code"] for finding in world.run("check")[1]["findings"] if finding["repairable"]]
        world.run("check", "--repair", "--yes")
        self.expect(offered == [] and bytes_of(world) == image, name, "repair is offered of", offered, "or has changed the file")

    def catalogue(self):
        """Every code that there is, and nothing else, is seeded here and told in the manual."""
        root = pathlib.Path(__file__).resolve().parents[2]
        every = set(re.findall(r'Kind k\w+\{\s*"(\w+)"', (root / "admin/findings.h").read_text()))
        seeded_codes = {code for code, *_ in REPAIRABLE + BY_HAND} | {"cluster", "lookup_failed"}
        self.expect(every == seeded_codes, "not in the catalogue, or no finding:", every ^ seeded_codes)
        manual = (root / "docs/delegationctl.1.scd").read_text()
        self.expect(all(f"*{code}* (" in manual for code in every), "a code is not in the manual page")

    def mix(self, base, random):
        """Several faults at once: they are found, and one repair mends them all."""
        faults = {about(code): (code, seed) for code, seed in random.sample(REPAIRABLE, random.randint(2, 6))}
        codes = {code for code, _ in faults.values()}
        with Fresh(base) as world:
            for _, seed in faults.values():
                seed(world)
            status, found = self.codes(world)
            self.expect(status == 1 and found & codes, "mix", codes, "found", found)
            self.repaired(f"mix {sorted(codes)}", world)

    def silent_host(self, base):
        """While lookups fail, repair mends what is stored and takes nobody for gone."""
        for fail, status, code in (("announce", 1, "cluster"), ("accounts", 3, "lookup_failed")):
            got = self.codes(base, LD_PRELOAD=self.failing, FAIL=fail)
            self.expect(got == (status, {code}), fail, "fails:", got)
        with Fresh(base) as world:
            rows("update user2delegation_real_table set delegationidx = 3 where uid = 1002")(world)
            accounts(lambda world: world.users.pop("ann"))(world)
            before = contents(world.database)["user_table"]
            status, codes = self.codes(world, "--repair", "--yes", LD_PRELOAD=self.failing, FAIL="accounts")
            self.expect(status == 3 and codes == {"lookup_failed"}, "silent host", status, codes)
            self.expect(contents(world.database)["user_table"] == before and violations(world.database) == [], "silent host")


def bytes_of(world):
    return pathlib.Path(world.database).read_bytes() if os.path.isfile(world.database) else None


def held(rows, kind):
    """(name, delegation) of the assignments; by name, since an id may come to somebody else."""
    names = dict(rows[f"{kind}_table"])
    return {(names[key], idx) for key, idx in rows[f"{kind}2delegation_table"] if key in names}


def tabs(rows, on):
    """(delegation, tab) of the entries that switch a tab on, or not."""
    entries = {idx: (kind, data == "true") for idx, kind, data in rows["delegation_entry_table"]}
    links = [(owner, *entries[entry]) for owner, entry in rows["delegation2delegation_entry_table"] if entry in entries]
    return {(owner, kind) for owner, kind, data in links if data == on}


class Fresh(World):
    """A world as `make` leaves it, copied from one that is made once."""
    def __init__(self, base, **options):
        super().__init__(base.program, **options)
        shutil.copy(base.database, self.database)
        self.users = dict(base.users)
        self.groups = {name: (gid, list(members)) for name, (gid, members) in base.groups.items()}
        self.write_accounts()


def about(code):
    """Whose id it is about: two faults about one group can make a third."""
    return {"gid": "group", "uid": "user"}.get(code.split("_")[0], code.split("_")[0])


def main():
    failing = sys.argv.pop(2)
    chosen = options(mixes=6, seed=1)
    check, random = Check(failing), Random(chosen.seed)
    check.catalogue()
    with World(chosen.program) as base:
        make(base)
        check.found("clean data", base, 0, set(), set())
        for code, seed in REPAIRABLE:
            with Fresh(base) as world:
                seed(world)
                check.found(code, world, 1, {code}, ALONG.get(code, set()))
                check.repaired(code, world)
        for code, status, seed in BY_HAND:
            with Fresh(base, vanish_limit=50) as world:
                seed(world)
                check.left_alone(code, world, status)
        check.silent_host(base)
        for _ in range(chosen.mixes):
            check.mix(base, random)
    print("failures:", check.failures)
    return 1 if check.failures else 0


if __name__ == "__main__":
    sys.exit(main())
