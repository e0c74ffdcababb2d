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
import pathlib
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
BROKEN = re.search(r'kBroken = R"\((.*?)\)";', (pathlib.Path(__file__).parent.parent / "support/invariants.h").read_text(), re.S)[1]
LOG_LINE = re.compile(rb"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4} [a-z0-9_]+\.(cpp|h):\d+ [^\x00-\x1f\x7f]*")
LONGEST_LOG_LINE = 2047 + 64
USERS = [f"user{i}" for i in range(8)]
GROUPS = [f"group{i}" for i in range(4)]
CREATE, UPDATE, SINGLE, DELETE, REFRESH = ("DelegationDelegationCreate", "DelegationDelegationUpdate",
                                           "DelegationDelegationUpdateImpFromSingle", "DelegationDelegationDelete",
                                           "DelegationRefresh")
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


def make_hosts(world, rng):
    """The accounts that random changes are about, with new members in every group."""
    world.users.update({name: 1001 + i for i, name in enumerate(USERS)}, root=0)
    world.groups["administrators"] = (2000, ["root"])
    for i, name in enumerate(GROUPS):
        world.groups[name] = (2001 + i, rng.sample(USERS, rng.randrange(4)))
    world.write_accounts()


def random_document(rng, **members):
    assignees = [f"user {name}" for name in rng.sample(USERS, rng.randrange(3))]
    assignees += [f"group {name}" for name in rng.sample(GROUPS, rng.randrange(3))]
    name = "".join(rng.choice("abc'\"é\\ ") for _ in range(3)) + str(rng.randrange(10**6))
    return delegation(name, rng.randrange(-5, 100), set(rng.sample(TABS, rng.randrange(5))),
                      assignees if rng.random() < 0.7 else None, **members)


def random_change(rng, ids, kinds=(CREATE, CREATE, UPDATE, UPDATE, SINGLE, DELETE, REFRESH)):
    """(METHOD, PARAMS); `ids` are those of the stored delegations."""
    kind = rng.choice(kinds)
    if kind in (CREATE, REFRESH) or not ids:
        return (REFRESH, []) if kind == REFRESH else (CREATE, [random_document(rng)])
    if kind == DELETE:
        return DELETE, [rng.sample(ids, rng.randrange(1, min(len(ids), 2) + 1))]
    documents = [random_document(rng, id=chosen) for chosen in rng.sample(ids, 1 if kind == SINGLE else min(len(ids), 2))]
    return kind, [documents[0] if kind == SINGLE else documents]


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

    def ask(self, method, *params):
        """The whole "result", or the code of the error."""
        self.process.stdin.write(json.dumps({"jsonrpc": "2.0", "id": 1, "method": method, "params": params}).encode() + b"\n")
        self.process.stdin.flush()
        answer = json.loads(self.process.stdout.readline())
        return answer["result"] if "result" in answer else answer["error"]["data"]["code"]


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

    def run(self, *arguments, stdin="", **environment):
        """The exit status and the JSON of a verb."""
        done = subprocess.run([*shlex.split(self.program), f"--demo={self.directory}", "--json", *arguments], input=stdin, text=True,
                              capture_output=True, env={**os.environ, **environment}, timeout=120)
        return done.returncode, json.loads(done.stdout)

    def execute(self, *statements):
        """Statements, each a text or a (text, values), past the library."""
        execute(self.database, *statements)


def execute(path, *statements):
    with sqlite3.connect(path) as database:
        for statement in statements:
            database.execute(*([statement] if isinstance(statement, str) else statement))
    database.close()


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
    """What the stored rows break. Not `settled`: behind a change that ended half-way for bad input, where people may be
    short of what they are due, but nobody has what no assignment supports."""
    with sqlite3.connect(f"file:{path}?mode=ro", uri=True) as database:
        found = database.execute(BROKEN).fetchall()
        found += [text for text, in database.execute("pragma integrity_check") if text != "ok"]
    database.close()
    if settled:
        rows = contents(path)
        effective, kinds = dict(rows["user2delegation_real_table"]), {idx: kind for idx, kind, _ in rows["delegation_entry_table"]}
        dues = {uid: winner(rows, uid) for uid, _ in rows["user_table"]}
        found += [f"user {uid} has {effective.get(uid)} and is due {due}" for uid, due in dues.items() if effective.get(uid) != due]
        for idx, *_ in rows["delegation_table"]:
            if sorted(kinds[entry] for owner, entry in rows["delegation2delegation_entry_table"] if owner == idx) != sorted(TABS):
                found.append(f"delegation {idx} lacks a type or has an unknown one")
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
