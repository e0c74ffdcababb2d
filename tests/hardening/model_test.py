#!/usr/bin/env python3
"""Random sequences of calls and of changes to the accounts, for the library and for model.py; after every step the result,
everybody's tabs and every table are compared.

    model_test.py DELEGATIONCTL [--sequences 500] [--operations 40] [--seed FIRST] [--jobs 2]

Sequence k comes from the seed FIRST + k alone: an interrupted run goes on from the seed that it printed last. A difference is
shown with the shortest sequence, found by leaving out steps, that still has one.
"""
import json
import multiprocessing
import os
import random
import sqlite3
import sys

from model import Model
from world import CREATE, DELETE, HOSTILE, REFRESH, SINGLE, TABS, UPDATE, World, delegation, options, violations

HOST = "host"  # a step that changes the accounts: {"users": {NAME: uid}, "groups": {NAME: (gid, members)}, "down": SOURCE}
ASSIGNEES = [{"type": "user", "name": "nobody"}, {"type": "group", "name": "nothing"}, {"type": "robot", "name": "ann"},
             {"type": "user", "name": "ann\0"}, {"type": "user", "name": 5}, {"type": "group"}, {"name": "ann"}, 5, [],
             {"type": "group", "name": ""}, {"type": "group", "name": None},
             *({"type": kind, "name": text} for kind in ("user", "group") for text in HOSTILE)]
DATA = [[], {}, ["true"], 5000000000, 2**64 - 1, "x" * 2000, "x" * 1960, "true\0", None, True, False, 1, "", "TRUE", "'"]
MISTAKES = ([("name", value) for value in ("", 5, None, "a\0b", "é" * 1000, "'" * 973, *("n" * n for n in range(1943, 1950)))] +
            [("color", value) for value in (5, "\0", "", "c" * 3000)] +
            [("priority", value) for value in (2**63, [], {}, 2**31, -2**31 - 1, 2**31 - 1, -2**31, "10", True, 5.5, None)] +
            [("id", value) for value in (99, 0, -1, -2, "1", True, 2**31, 2**63, 2**64 - 1)] +
            [("user_group", value) for value in ({}, None, "ann", True)])


class Sequence:
    """Makes steps, (METHOD or HOST, ARGUMENT), that fit the state that they meet."""

    def __init__(self, seed):
        self.random = random.Random(seed)
        self.crowd = self.random.random() < 0.15
        self.names = [f"user{i}" for i in range(14)] if self.crowd else "ann bob eve o'neil root jörg".split()
        self.uids = range(1001, 1015) if self.crowd else [0, 500, 1001, 1002, 1003, 2**32 - 2]
        self.group_names = [f"group{i}" for i in range(13)] if self.crowd else "ops web night staff".split()
        self.gids = range(200, 213) if self.crowd else [100, 200, 201, 202]
        self.model = Model(50 if self.crowd else 100)

    def make(self, operations):
        steps = [(HOST, {"users": dict(zip(self.names, self.uids)),
                         "groups": {name: (gid, self.some(self.names)) for name, gid in zip(self.group_names, self.gids)}})]
        apply(self.model, steps[0])
        while len(steps) < operations:
            kinds = {self.create: 4, self.update: 6, self.delete: 8 if len(self.model.delegations) > 5 else 2,
                     lambda: [(REFRESH, None)]: 3, self.change: 6, self.outage: 1}
            for step in self.random.choices(*zip(*kinds.items()))[0]():
                apply(self.model, step)
                steps.append(step)
        return steps[:operations]

    def some(self, choices):
        return self.random.sample(list(choices), min(len(choices), self.random.choice([0, 1, 1, 2, 2, 3, 99])))

    def document(self, **members):
        host = self.model.host
        assignees = [f"user {name}" for name in self.some(host.users)] + [f"group {name}" for name in self.some(host.groups)]
        return delegation(self.random.choice(["Desk", "it's", "a%s"]), self.random.choice([-2, 0, 10, 10, 10, 10, 20]),
                          self.some(["queue", "delegation", "all_domain_quota", "audit_search"]),
                          assignees if self.random.random() < 0.8 else None, **members)

    def create(self):
        document = self.document()
        return self.tried(CREATE, document, self.spoiled(document))

    def update(self):
        documents = [self.document(id=self.random.choice([*self.model.delegations, 1])) for _ in range(self.random.choice([1, 1, 2, 3]))]
        at = self.random.randrange(len(documents))
        spoiled = documents[:at] + [self.spoiled(documents[at])] + documents[at + 1:]
        if len(documents) > 1:
            return self.tried(UPDATE, documents, spoiled)
        return self.tried(self.random.choice([UPDATE, UPDATE, SINGLE]), documents[0], spoiled[0])

    def tried(self, method, good, bad):
        return [(method, argument) for argument in self.random.choice([[good], [good], [bad], [bad, good]])]

    def delete(self):
        known = list(self.model.delegations)[-3:] if len(self.model.delegations) > 5 else self.some(self.model.delegations)[:2]
        return [(DELETE, self.random.choice([known] * 6 + [known + [wrong] for wrong in (99, 0, "1", True, 2**31, 2**64 - 1)] + [None, "1"]))]

    def outage(self):
        steps = [(HOST, {"down": self.random.choice(["passwd", "group"])})]
        for _ in range(self.random.randrange(1, 4)):
            steps += self.random.choice([self.create, self.update, self.delete, lambda: [(REFRESH, None)]])()
        return steps + [(HOST, {"down": None})]

    def change(self):
        """Somebody joins or leaves a group; an account or a group comes, goes, takes another name or another's number."""
        host, pick = self.model.host, self.random.choice
        name, uid, group, gid = pick(self.names), pick(self.uids), pick(self.group_names), pick(self.gids)
        old_gid, members = host.groups.get(group, (gid, []))
        if self.crowd and pick(range(3)) == 0:  # about half of what is stored
            kind, source, stored_ids = pick([("users", "passwd", self.model.users), ("groups", "group", self.model.groups)])
            leaving = set(self.random.sample(sorted(stored_ids), len(stored_ids) // 2) + sorted(stored_ids)[:pick([0, 1])])
            changes = {kind: {other: None for other, number in host.numbers(source).items() if number in leaving}}
        elif pick(range(5)) < 2:
            former = {other: None for other, number in host.users.items() if number == uid and pick(range(9))}
            changes = {"users": {**former, name: pick([uid, uid, None])}}
        else:
            gid = pick([old_gid, old_gid, old_gid, gid])
            changed = [other for other in members if other != name] + [name] * (name not in members)
            former = {other: None for other, (number, _) in host.groups.items() if number == gid and pick(range(9))}
            changes = {"groups": {**former, group: pick([(gid, pick([members, changed, changed, self.some(self.names)]))] * 3 + [None])}}
        return [(HOST, changes)] + pick([[], [(REFRESH, None)]])

    def spoiled(self, document):
        """The document with one mistake in it, or with what looks like one."""
        pick, tab, assignees = self.random.choice, self.random.choice(TABS), document.get("user_group", [])
        at = self.random.randrange(len(assignees) + 1)
        hostile = pick(HOSTILE)
        member, value = pick([pick(MISTAKES), (pick(["name", "color", tab, hostile]), hostile), ("user_group", assignees[:at] + [pick(ASSIGNEES)] + assignees[at:]), (tab, pick(DATA))])
        if pick(range(5)) == 0:
            return {other: value for other, value in document.items() if other != member}
        return {**document, member: value}


def apply(model, step):
    method, argument = step
    if method != HOST:
        return model.call(method, *([] if method == REFRESH else [argument]))
    for records, changes in ((model.host.users, argument.get("users", {})), (model.host.groups, argument.get("groups", {}))):
        for name, record in changes.items():
            records.pop(name, None)
            if record is not None:
                records[name] = record
    model.host.down = argument.get("down", model.host.down)
    return None


def stored(database):
    rows = {name: database.execute(f"select * from {table} order by rowid").fetchall()
            for name, table in {**Model.KEYED, **Model.LINKS}.items()}
    keyed = {name: {key: rest[0] if len(rest) == 1 else tuple(rest) for key, *rest in rows[name]} for name in Model.KEYED}
    return {**rows, **keyed}


def by_owner(rows):
    """The order of one owner's links decides ties; between owners it means nothing."""
    return sorted(rows, key=lambda row: row[0]) if isinstance(rows, list) else rows


def differs(program, steps, vanish_limit):
    """The first difference, as a text that begins with the step's number; None where all agree."""
    with World(program, vanish_limit) as world:
        world.record_nothing()
        try:
            with world.rpc() as rpc:
                rpc.call("DelegationDelegationDefaultEntriesGet")  # it has read the accounts, which may go in the first step
                return next(differences(world, rpc, steps, vanish_limit), None)
        except (AssertionError, OSError) as error:
            return f"the program failed: {error}"


def differences(world, rpc, steps, vanish_limit):
    model, known, database = Model(vanish_limit), {}, None
    world.users, world.groups = model.host.users, model.host.groups
    for number, step in enumerate(steps):
        expected = apply(model, step)
        known.update(model.host.users)
        if expected is None:
            world.write_accounts()
            if model.host.down:
                os.rename(f"{world.directory}/{model.host.down}", f"{world.directory}/{model.host.down}.away")
        calls = [("DelegationUserDelegationEntriesGet", name) for name in [*known, "nobody"]]
        found = rpc.batch(calls if expected is None else [step[:1] if step[0] == REFRESH else step, *calls])
        if found is None:
            raise OSError(f"no answer to step {number}")
        if expected and (found[0][0] != expected[0] or expected[1] is not None and found[0][1] != expected[1]):
            yield f"{number}: expected result {expected}, found {found[0]}"
        for name, answer in zip([*known, "nobody"], found[-len(calls):]):
            if answer != model.tabs(name):
                yield f"{number}: expected {name}'s tabs {model.tabs(name)}, found {answer}"
            granted = {tab for index in model.candidates(known.get(name)) for tab in model.switched_on(index)}
            if answer[1] and not granted.issuperset(answer[1]["enable_tabs"]):
                yield f"{number}: {name} has {answer[1]}, granted are {granted}"
        database = database or sqlite3.connect(f"file:{world.database}?mode=ro", uri=True)
        rows = stored(database)
        for table, expected_rows in model.tables().items():
            if by_owner(rows[table]) != by_owner(expected_rows):
                yield f"{number}: expected in {table} {expected_rows}, found {rows[table]}"
    listed = {found["id"]: found for found in rpc.call("DelegationDelegationList", None)[1]}
    if listed != model.listed():
        yield f"at the end: expected the list {model.listed()}, found {listed}"
    broken = violations(world.database, model.settled())
    if broken:
        yield f"at the end: {broken}"
    world.check_log()


def shortened(program, steps, vanish_limit):
    at = len(steps) - 1
    while at >= 0:
        fewer = steps[:at] + steps[at + 1:]
        if fewer and differs(program, fewer, vanish_limit):
            steps, at = fewer, len(fewer)
        at -= 1
    return steps


def check(task):
    program, operations, seed = task
    sequence = Sequence(seed)
    steps, vanish_limit = sequence.make(operations), sequence.model.vanish_limit
    if not differs(program, steps, vanish_limit):
        return seed, None
    steps = shortened(program, steps, vanish_limit)
    shown = [f"  {number}: {step[0]} {json.dumps(brief(step[1]))}" for number, step in enumerate(steps)]
    return seed, "\n".join([f"seed {seed}: {differs(program, steps, vanish_limit)}", *shown])


def brief(value):
    if isinstance(value, dict):
        missing = [tab for tab in TABS if tab not in value] if "priority" in value else []
        kept = {member: brief(inner) for member, inner in value.items() if inner != "false"}
        return {**kept, "lacks": missing} if missing else kept
    if isinstance(value, list):
        return [brief(inner) for inner in value]
    return f"{value[:8]}... ({len(value)})" if isinstance(value, str) and len(value) > 80 else value


def main():
    arguments = options(sequences=500, operations=40, seed=1, jobs=2)
    tasks = ((arguments.program, arguments.operations, arguments.seed + k) for k in range(arguments.sequences))
    differing = 0
    with multiprocessing.Pool(arguments.jobs) as pool:
        for done, (seed, difference) in enumerate(pool.imap(check, tasks), 1):
            if difference:
                print(difference, flush=True)
                differing += 1
            if done % 1000 == 0:
                print(f"{done} sequences, next seed {seed + 1}", file=sys.stderr, flush=True)
            if differing == 3:
                break
    print(f"model: {done} sequences, {done * arguments.operations} operations, {differing} differences")
    return 1 if differing else 0


if __name__ == "__main__":
    sys.exit(main())
