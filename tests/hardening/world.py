"""A mail host of a test's own, `delegationctl rpc` over it, and the check that what is stored keeps its rules.

    world = World("build/release/tools/delegationctl/delegationctl")
    world.users["ann"] = 1001
    world.groups["ops"] = (200, ["ann"])
    world.write_accounts()
    with world.rpc() as rpc:
        rpc.call("DelegationDelegationCreate", delegation("Desk", 10, {"queue"}, ["group ops"]))   # (True, 1)
    assert violations(world.database) == []
"""
import argparse
import json
import os
import re
import shlex
import shutil
import sqlite3
import subprocess
import tempfile

TABS = ("log_log service user_policy mail_monitor server_list mail_migration conf_import monitor_all log_analysis log_management "
        "log_list log_report queue security_spam security_antivirus security_auth security_contentscan "
        "security_dataprotection all_domain_general all_domain_user_group all_domain_alias all_domain_autobcc "
        "all_domain_quota all_domain_disclaimer mail_delivery mail_delivery_security delegation audit_search quaypost").split()

HOSTILE = ["'", "''", '"', "%", "%s%n%s%n%999999d", "%q", "\\", "\\x41", "a\nb", "\r\n", "\t", "\x1b[31m\x1b]0;x\x07", "\x7f\x01",
         "\u009b31m", "\u202eb", "東\U0001F600", "x'); drop table user_table; --", "-1", "true ", "", "a\0b", "\0", "\ufffe"]
LENGTHS = [1900, *range(1955, 1990, 6), *range(2040, 2061, 5), 100000]  # in bytes, around those at which a statement is cut
HOSTILE += [(unit * length).encode()[:length].decode(errors="ignore") for length in LENGTHS for unit in ("n", "é'")]
LOG_LINE = re.compile(rb"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4} [a-z0-9_]+\.(cpp|h):\d+ [^\x00-\x1f\x7f]*")
LONGEST_LOG_LINE = 2047 + 64
CONFIGURATION = """[delegation]
database = {0}/delegation.db
[accounts]
vanish_limit = {1}
[log]
target = {0}/log
"""


def delegation(name, priority, tabs, assignees=None, **members):
    """A change document; `assignees` are "user NAME" and "group NAME", None leaves them out."""
    document = {tab: "true" if tab in tabs else "false" for tab in TABS}
    document.update(name=name, color="none", priority=priority)
    if assignees is not None:
        document["user_group"] = [dict(zip(("type", "name"), assignee.split(" "))) for assignee in assignees]
    return {**document, **members}


class Rpc:
    """One `delegationctl rpc`. `send` and `receive` apart let several processes work at the same time."""

    def __init__(self, program, directory):
        self.process = subprocess.Popen([*shlex.split(program), f"--demo={directory}", "rpc"], stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.end()

    def end(self):
        self.process.stdin.close()
        if self.process.wait(60) != 0:
            raise AssertionError(f"rpc ended with {self.process.returncode}")
        self.process.stdout.close()

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.process.stdin.close()
        self.process.stdout.close()

    def send(self, calls):
        """`calls` is a list of (METHOD, ARGUMENT...)."""
        batch = [{"jsonrpc": "2.0", "id": i, "method": method, "params": params} for i, (method, *params) in enumerate(calls)]
        self.process.stdin.write(json.dumps(batch).encode() + b"\n")
        self.process.stdin.flush()

    def receive(self):
        """A (return, out) for each call of the oldest unanswered batch; None when the process has died."""
        line = self.process.stdout.readline()
        if not line.endswith(b"\n"):
            return None
        results = [answer["result"] for answer in json.loads(line)]
        return [(result["return"], result.get("out")) for result in results]

    def batch(self, calls):
        self.send(calls)
        return self.receive()

    def call(self, method, *params):
        return self.batch([(method, *params)])[0]


class World:
    def __init__(self, program, vanish_limit=100):
        self.program = program
        self.directory = tempfile.mkdtemp(prefix="hardening-", dir="/dev/shm" if os.path.isdir("/dev/shm") else None)
        self.database = self.directory + "/delegation.db"
        self.users = {}   # name: uid
        self.groups = {}  # name: (gid, [member, ...])
        self.write("demo.conf", CONFIGURATION.format(self.directory, vanish_limit))
        self.write_accounts()

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        shutil.rmtree(self.directory)

    def write(self, name, text):
        """Replaces a file whole, so that no reader sees half of it."""
        path = f"{self.directory}/{name}"
        with open(path + ".new", "w", encoding="utf-8") as file:
            file.write(text)
        os.rename(path + ".new", path)

    def write_accounts(self):
        self.write("passwd", "".join(f"{name}:x:{uid}:100::/:/bin/sh\n" for name, uid in self.users.items()))
        self.write("group", "".join(f"{name}:x:{gid}:{','.join(members)}\n" for name, (gid, members) in self.groups.items()))

    def check_log(self):
        with open(self.directory + "/log", "rb") as file:
            lines = file.read().split(b"\n")
        assert lines.pop() == b"", "the last log line is cut"
        for line in lines:
            assert LOG_LINE.fullmatch(line) and len(line) <= LONGEST_LOG_LINE, f"log line {line!r}"

    def record_nothing(self):
        """A directory stands in the journal's place: what the tool keeps beside the library takes longer than it."""
        os.mkdir(self.database + ".admin")

    def rpc(self):
        return Rpc(self.program, self.directory)


def contents(path):
    """Every table's rows in row order."""
    with sqlite3.connect(f"file:{path}?mode=ro", uri=True) as database:
        database.text_factory = lambda text: text.decode(errors="surrogateescape")
        tables = [name for name, in database.execute("select name from sqlite_master where type = 'table'")]
        rows = {table: database.execute(f"select * from {table} order by rowid").fetchall() for table in tables}
    database.close()
    return rows


def winner(rows, uid):
    """The delegation that a user's stored assignments give: highest priority, then direct before group, then the group
    whose membership was stored first, then the lower index."""
    held = {}
    for group, idx in sorted(rows["group2delegation_table"]):
        held.setdefault(group, []).append(idx)
    candidates = sorted(idx for user, idx in rows["user2delegation_table"] if user == uid)
    candidates += [idx for user, group in rows["user2group_table"] if user == uid for idx in held.get(group, [])]
    priority = {idx: priority for idx, _, _, priority in rows["delegation_table"]}
    return max((idx for idx in candidates if idx in priority), key=priority.get, default=None)


def violations(path, settled=True):
    """What the stored rows break, as texts. Not `settled`: behind a change that ended half-way for bad input, where people
    may be short of what they are due, but nobody has what no assignment supports."""
    with sqlite3.connect(f"file:{path}?mode=ro", uri=True) as database:
        integrity = [text for text, in database.execute("pragma integrity_check")]
        version, = database.execute("pragma user_version").fetchone()
    database.close()
    rows = contents(path)
    users = {uid for uid, _ in rows["user_table"]}
    groups = {gid for gid, _ in rows["group_table"]}
    delegations = {idx for idx, *_ in rows["delegation_table"]}
    entries = {idx: (kind, data) for idx, kind, data in rows["delegation_entry_table"]}
    found = [] if integrity == ["ok"] else [f"integrity: {integrity}"]

    def expect(holds, what):
        if not holds:
            found.append(what)

    expect(version == 1, f"version {version}")
    for uid, idx in rows["user2delegation_table"]:
        expect(uid in users and idx in delegations, f"link user {uid} to {idx} without parents")
    for gid, idx in rows["group2delegation_table"]:  # a group that left keeps its links to all but its highest delegation
        expect(idx in delegations, f"link group {gid} to {idx} without its delegation")
    for uid, gid in rows["user2group_table"]:
        expect(uid in users and gid in groups, f"member {uid} of {gid} without parents")
    for idx, entry in rows["delegation2delegation_entry_table"]:
        expect(idx in delegations and entry in entries, f"link {idx} to entry {entry} without parents")
    for idx in delegations:
        kinds = sorted(entries[entry][0] for owner, entry in rows["delegation2delegation_entry_table"]
                       if owner == idx and entry in entries)
        expect(len(set(kinds)) == len(kinds), f"delegation {idx} has a type twice")
        expect(not settled or kinds == sorted(TABS), f"delegation {idx} lacks a type or has an unknown one")
    expect(len(set(entries.values())) == len(entries), "an entry is stored twice")
    for idx in [*delegations, *entries]:
        expect(0 < idx < 2**31, f"index {idx} is out of range")
    effective = dict(rows["user2delegation_real_table"])
    for uid in effective:
        expect(uid in users, f"user {uid} is unknown and has {effective[uid]}")
    for uid in users:
        held, due = effective.get(uid), winner(rows, uid)
        supported = held is None or held in supporters(rows, uid)
        expect(supported, f"user {uid} has {held}, which nothing supports")
        expect(not settled or held == due, f"user {uid} has {held} and is due {due}")
    return found


def supporters(rows, uid):
    """The delegations that some stored assignment gives a user, whatever their priority."""
    groups = {gid for user, gid in rows["user2group_table"] if user == uid}
    return ({idx for user, idx in rows["user2delegation_table"] if user == uid} |
            {idx for gid, idx in rows["group2delegation_table"] if gid in groups})


def options(**defaults):
    """The command line of an attack: the program, and numbers with these defaults."""
    arguments = argparse.ArgumentParser()
    arguments.add_argument("program")
    for name, default in defaults.items():
        arguments.add_argument("--" + name, type=int, default=default)
    return arguments.parse_args()
