#!/usr/bin/env python3
"""Delegations as documents, over random worlds: what export writes, diff predicts and apply makes of it.

usage: document_test.py DELEGATIONCTL SHARE [--rounds N] [--seed N]

SHARE is the directory of the schema and the templates. A model of a page says what a document makes of another one; the
tool's export must agree, also for renamed and swapped names. A failing step must leave every row as it was.
"""
import argparse
import copy
import json
import pathlib
import re
import shlex
import sqlite3
import subprocess
import sys
from random import Random

import jsonschema

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "hardening"))
from world import TABS, World, contents, violations  # noqa: E402

NAMES = ("Alpha", "Beta", 'Quo"te \'s', "Übung 日本", "Delta", "back\\slash")
ASSIGNEES = {"users": [f"u{i}" for i in range(10)], "groups": [f"g{i}" for i in range(5)]}


class Failure(Exception):
    """What an admin method has refused; args[0] is its code."""


def ask(rpc, method, *params):
    rpc.process.stdin.write(json.dumps({"jsonrpc": "2.0", "id": 1, "method": method, "params": params}).encode() + b"\n")
    rpc.process.stdin.flush()
    answer = json.loads(rpc.process.stdout.readline())
    if "error" in answer:
        raise Failure(answer["error"]["data"]["code"], answer["error"]["message"])
    return answer["result"]


def export(rpc):
    return ask(rpc, "admin.export")["out"]


def some(random, things, most):
    return random.sample(things, random.randint(0, most))


def random_delegation(random, name, complete):
    element = {"name": name, "priority": random.choice((-7, 0, 20, 20, 100)), "color": random.choice(("none", "red"))}
    tabs = some(random, TABS, 5)
    element["tabs"] = tabs
    if random.random() < 0.3:
        element["entries"] = {tab: random.choice(("false", "x", "")) for tab in some(random, TABS, 2) if tab not in tabs}
    for member, names in ASSIGNEES.items():
        element[member] = some(random, names, 3)
    left_out = () if complete else ("priority", "color", "tabs", "users", "groups")
    return {member: value for member, value in element.items() if member not in left_out or random.random() < 0.7}


def random_document(random, stored):
    """A document on the delegations of the export `stored`, some of them renamed, which may swap names."""
    elements = [random_delegation(random, name, not stored) for name in some(random, NAMES, 4)]
    free = [old["name"] for old in stored]
    for element in elements:
        if element["name"] in free and random.random() < 0.5:
            free.remove(element["name"])  # stays what it is
            element["keeps"] = True
    for element in elements:
        if not element.pop("keeps", False) and free and random.random() < 0.6:
            element["was"] = free.pop(random.randrange(len(free)))
    return {"format": 1, "delegations": elements}


def expected(before, document, prune):
    """The export after a document has been applied to the export `before`; None where a name would be taken."""
    old = {element["name"]: element for element in before["delegations"]}
    renamed = {element["was"] for element in document["delegations"] if "was" in element}
    result = []
    for element in document["delegations"]:
        name = element["name"]
        source = element.get("was", None if name in renamed else name)
        new = copy.deepcopy(old.pop(source, {"priority": 0, "color": "none", "tabs": [], "users": [], "groups": []}))
        if "tabs" in element or "entries" in element:
            entries = element.get("entries", {})
            new["tabs"] = sorted(element.get("tabs", []))
            new["entries"] = {tab: data for tab, data in entries.items() if data != "false"}
        for member in ("name", "priority", "color", "users", "groups"):
            if member in element:
                new[member] = sorted(set(element[member])) if member in ASSIGNEES else element[member]
        if not new.get("entries"):
            new.pop("entries", None)
        result.append(new)
    kept = [] if prune else list(old.values())
    if {element["name"] for element in result} & {element["name"] for element in kept}:
        return None
    return {"format": 1, "delegations": sorted(result + kept, key=lambda e: (-e["priority"], e["name"].encode()))}


def effective(world):
    """{user: (id, tabs)} as stored."""
    rows = contents(world.database)
    data = {entry: (kind, value) for entry, kind, value in rows["delegation_entry_table"]}
    tabs = {}
    for idx, entry in rows["delegation2delegation_entry_table"]:
        if data[entry][1] == "true":
            tabs.setdefault(idx, set()).add(data[entry][0])
    names = dict(rows["user_table"])
    return {names[uid]: (idx, tabs.get(idx, set())) for uid, idx in rows["user2delegation_real_table"]}


def real_effect(before, after):
    people = {}
    for name in before.keys() | after.keys():
        had, has = before.get(name, (None, set())), after.get(name, (None, set()))
        if had != has:
            people[name] = (sorted(has[1] - had[1]), sorted(had[1] - has[1]))
    return people


def as_people(effect):
    return {person["name"]: (person["gained"], person["lost"]) for person in effect["people"]}


def make_world(random, program):
    world = World(program)
    world.users = {name: 1000 + i for i, name in enumerate(ASSIGNEES["users"])}
    world.groups = {name: (200 + i, some(random, ASSIGNEES["users"], 4)) for i, name in enumerate(ASSIGNEES["groups"])}
    world.write_accounts()
    return world


def run(world, *arguments, stdin=None):
    command = [*shlex.split(world.program), f"--demo={world.directory}", "--json", "--yes", *arguments]
    done = subprocess.run(command, input=stdin, capture_output=True, text=True, timeout=120)
    return done.returncode, json.loads(done.stdout)


def fails_whole(world, rpc, document):
    """A step that fails behind others: an unknown name, and a statement that the database refuses."""
    before = contents(world.database)
    unknown = copy.deepcopy(document)
    unknown["delegations"].append({"name": "Last", "users": ["nobody at all"]})
    try:
        ask(rpc, "admin.apply", {"document": unknown})
        raise AssertionError("an unknown user was taken")
    except Failure as failure:
        assert failure.args[0] in ("no_user", "name_taken"), failure.args
    assert contents(world.database) == before
    last = copy.deepcopy(document)
    last["delegations"].append({"name": "Last", "tabs": ["queue"], "users": ["u1"]})
    with sqlite3.connect(world.database) as database:
        database.execute("create trigger refuse before insert on delegation_table when new.name = 'Last' "
                         "begin select raise(abort, 'refused'); end")
    database.close()
    try:
        assert ask(rpc, "admin.apply", {"document": last})["return"] is False
    except Failure as failure:
        assert failure.args[0] == "name_taken", failure.args
    assert contents(world.database) == before, "half of a document was stored"
    with sqlite3.connect(world.database) as database:
        database.execute("drop trigger refuse")
    database.close()


def one_world(random, program, schema, pairs):
    with make_world(random, program) as world, world.rpc() as rpc:
        first = random_document(random, [])
        assert ask(rpc, "admin.apply", {"document": first})["return"] is True
        assert export(rpc) == expected({"delegations": []}, first, False)
        for _ in range(pairs):
            before, rows, holders = export(rpc), contents(world.database), effective(world)
            jsonschema.validate(before, schema)
            assert ask(rpc, "admin.diff", {"document": before, "prune": True})["out"]["differs"] is False, before
            document, prune = random_document(random, before["delegations"]), random.random() < 0.6
            jsonschema.validate(document, schema)
            wanted = expected(before, document, prune)
            request = {"document": document, "prune": prune, "force": True}
            if wanted is None:
                try:
                    raise AssertionError(ask(rpc, "admin.apply", request))
                except Failure as failure:
                    assert failure.args[0] == "name_taken", failure.args
                assert contents(world.database) == rows
                continue
            fails_whole(world, rpc, document)
            question = {member: request[member] for member in ("document", "prune") if member in request}
            predicted = ask(rpc, "admin.diff", question)["out"]
            assert contents(world.database) == rows, "a look has changed something"
            done = ask(rpc, "admin.apply", request)
            assert done["return"] is True, (before, request, done)
            assert export(rpc) == wanted, (before, request, export(rpc), wanted)
            assert predicted["differs"] is (before != wanted) and predicted["changes"] == done["changes"]
            assert predicted["effect"] == done["effect"]
            assert as_people(done["effect"]) == real_effect(holders, effective(world)), (before, request, done)
            assert not violations(world.database), violations(world.database)
        return world_through_files(world)


def world_through_files(world):
    """The verbs, through text: the export is applied to nothing, gives the same again, and is then nothing to change."""
    text = subprocess.run([*shlex.split(world.program), f"--demo={world.directory}", "export"], check=True,
                          capture_output=True, text=True).stdout
    rows = contents(world.database)
    assert run(world, "diff", "--prune", "-f", "-", stdin=text)[0] == 0
    assert run(world, "apply", "--prune", "-f", "-", stdin=text)[1]["changed"] is False
    assert contents(world.database) == rows
    assert run(world, "apply", "--prune", "--force", "-f", "-", stdin='{"format": 1, "delegations": []}')[0] == 0
    assert run(world, "export")[1]["delegations"] == []
    assert run(world, "apply", "-f", "-", stdin=text)[0] == 0
    assert run(world, "export")[1] == json.loads(text)
    assert not violations(world.database), violations(world.database)


def templates_are_good(program, share, schema):
    for path in sorted((share / "templates").glob("*.json")):
        text = re.sub(r",(\s*[]}])", r"\1", re.sub(r"//.*", "", path.read_text()))
        jsonschema.validate(json.loads(text), schema)
        with World(program) as world:
            status, answer = run(world, "apply", "-f", str(path))
            assert status == 0 and len(answer["changes"]) == 1, answer
            assert run(world, "apply", "-f", str(path))[1]["changed"] is False


def what_the_host_lost_stays(program):
    """An export of a world with a user gone and another renamed changes nothing, and none of them is lost by it."""
    with make_world(Random(1), program) as world, world.rpc() as rpc:
        held = {"name": "Desk", "tabs": ["queue"], "users": ["u1", "u2", "u3"], "groups": ["g1"]}
        assert ask(rpc, "admin.apply", {"document": {"format": 1, "delegations": [held]}})["return"] is True
        del world.users["u1"]
        world.users["renamed"] = world.users.pop("u2")
        world.groups = {name: (gid, []) for name, (gid, _) in world.groups.items()}
        world.write_accounts()
        assert ask(rpc, "admin.diff", {"document": export(rpc), "prune": True})["out"]["differs"] is False
        rows = contents(world.database)
        held["users"].append("u4")
        try:
            raise AssertionError(ask(rpc, "admin.apply", {"document": {"format": 1, "delegations": [held]}}))
        except Failure as failure:
            assert failure.args[0] == "no_user" and "u1" in failure.args[1], failure.args
        assert contents(world.database) == rows
        held["users"] = ["renamed", "u3", "u4"]
        assert ask(rpc, "admin.apply", {"document": {"format": 1, "delegations": [held]}})["return"] is True
        assert {row[0] for row in contents(world.database)["user2delegation_table"]} == {1002, 1003, 1004}
        with sqlite3.connect(world.database) as database:
            database.execute("update delegation_table set name = cast(x'41ff' as text)")
        try:
            raise AssertionError(export(rpc))  # would be applied as another name
        except Failure as failure:
            assert failure.args[0] == "refused", failure.args


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("program")
    arguments.add_argument("share", type=pathlib.Path)
    arguments.add_argument("--rounds", type=int, default=6)
    arguments.add_argument("--seed", type=int, default=1)
    options = arguments.parse_args()
    schema = json.loads((options.share / "delegations.schema.json").read_text())
    jsonschema.Draft7Validator.check_schema(schema)
    templates_are_good(options.program, options.share, schema)
    what_the_host_lost_stays(options.program)
    random = Random(options.seed)
    for _ in range(options.rounds):
        one_world(random, options.program, schema, pairs=10)
    print(f"{options.rounds} worlds, 10 documents each: exported, predicted and applied as the model says")


if __name__ == "__main__":
    sys.exit(main())
