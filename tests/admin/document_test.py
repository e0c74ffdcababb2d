#!/usr/bin/env python3
"""Delegations as documents, over random worlds: what export writes, diff predicts and apply makes of it.

usage: document_test.py DELEGATIONCTL SHARE [--rounds N] [--seed N]

SHARE is the directory of the schema and the templates. A model of a page says what a document makes of another one; the
tool's export must agree, also for renamed and swapped names. A failing step must leave every row as it was.
"""
import copy
import json
import pathlib
import re
import shlex
import subprocess
import sys
from random import Random

import jsonschema

from journal_test import Journaled, expect_effect
from world import GROUPS, TABS, USERS, World, contents, options, violations

NAMES = ("Alpha", "Beta", 'Quo"te \'s', "Übung 日本", "Delta", "back\\slash")
ASSIGNEES = {"users": USERS, "groups": GROUPS}


def some(random, things, most):
    return random.sample(things, random.randint(0, most))


def random_delegation(random, name, complete):
    element = {"name": name, "priority": random.choice((-7, 0, 20, 20, 100)), "color": random.choice(("none", "red"))}
    tabs = element["tabs"] = some(random, TABS, 5)
    if random.random() < 0.3:
        element["entries"] = {tab: random.choice(("false", "x", "")) for tab in some(random, TABS, 2) if tab not in tabs}
    element.update({member: some(random, names, 3) for member, names in ASSIGNEES.items()})
    left_out = () if complete else ("priority", "color", "tabs", "users", "groups")
    return {member: value for member, value in element.items() if member not in left_out or random.random() < 0.7}


def random_document(random, stored):
    """A document on the stored delegations, some of them renamed, which may swap names."""
    elements = [random_delegation(random, name, not stored) for name in some(random, NAMES, 4)]
    stay = {element["name"] for element in elements if random.random() < 0.5}
    free = [old["name"] for old in stored if old["name"] not in stay]
    for element in elements:
        if element["name"] not in stay and free and random.random() < 0.6:
            element["was"] = free.pop(random.randrange(len(free)))
    return {"format": 1, "delegations": elements}


def expected(before, document, prune):
    """The delegations after a document has been applied to those of `before`; None where a name would be taken."""
    old = {element["name"]: element for element in before}
    renamed = {element["was"] for element in document["delegations"] if "was" in element}
    result = []
    for element in document["delegations"]:
        name = element["name"]
        source = element.get("was", None if name in renamed else name)
        new = copy.deepcopy(old.pop(source, {"priority": 0, "color": "none", "tabs": [], "users": [], "groups": []}))
        if "tabs" in element or "entries" in element:
            new["tabs"] = sorted(element.get("tabs", []))
            new["entries"] = {tab: data for tab, data in element.get("entries", {}).items() if data != "false"}
        for member in ("name", "priority", "color", "users", "groups"):
            if member in element:
                new[member] = sorted(set(element[member])) if member in ASSIGNEES else element[member]
        if not new.get("entries"):
            new.pop("entries", None)
        result.append(new)
    kept = [] if prune else list(old.values())
    if {element["name"] for element in result} & {element["name"] for element in kept}:
        return None
    return sorted(result + kept, key=lambda e: (-e["priority"], e["name"].encode()))


def fails_whole(it, document):
    """A step that fails behind others: an unknown name, and a statement that the database refuses."""
    before = contents(it.world.database)

    def with_last(*users):
        last = {"name": "Last", "tabs": ["queue"], "users": users}
        return it.ask("admin.apply", {"document": {"format": 1, "delegations": [*document["delegations"], last]}})

    assert with_last("nobody at all") in ("no_user", "name_taken")
    assert contents(it.world.database) == before
    it.world.execute("create trigger refuse before insert on delegation_table when new.name = 'Last' "
                     "begin select raise(abort, 'refused'); end")
    answer = with_last(USERS[1])
    assert answer == "name_taken" or answer["return"] is False, answer
    assert contents(it.world.database) == before, "half of a document was stored"
    it.world.execute("drop trigger refuse")


def one_world(random, program, schema, pairs):
    with Journaled(program, random) as it:
        first = random_document(random, [])
        assert it.ask("admin.apply", {"document": first})["return"] is True
        assert it.export() == expected([], first, False)
        for _ in range(pairs):
            whole, rows, had = it.ask("admin.export")["out"], contents(it.world.database), it.tabs()
            before = whole["delegations"]
            jsonschema.validate(whole, schema)
            assert it.ask("admin.diff", {"document": whole, "prune": True})["out"]["differs"] is False, whole
            document, prune = random_document(random, before), random.random() < 0.6
            jsonschema.validate(document, schema)
            wanted, question = expected(before, document, prune), {"document": document, "prune": prune}
            if wanted is None:
                assert it.ask("admin.apply", {**question, "force": True}) == "name_taken"
                assert contents(it.world.database) == rows
                continue
            fails_whole(it, document)
            predicted = it.ask("admin.diff", question)["out"]
            assert contents(it.world.database) == rows, "a look has changed something"
            done = it.ask("admin.apply", {**question, "force": True})
            assert done["return"] is True and it.export() == wanted, (before, question, done, it.export(), wanted)
            assert predicted["differs"] is (before != wanted) and predicted["changes"] == done["changes"]
            assert predicted["effect"] == done["effect"]
            expect_effect(done["effect"], had, it.tabs())
            assert not violations(it.world.database), violations(it.world.database)
        status, checked = it.world.run("check")  # whatever the library itself makes is healthy; what was meant is only noted
        assert status == 0 and {finding["severity"] for finding in checked["findings"]} <= {"note"}, checked
        through_files(it.world)


def through_files(world):
    """The verbs, through text: the export is applied to nothing, gives the same again, and is then nothing to change."""
    command = [*shlex.split(world.program), f"--demo={world.directory}", "export"]
    text = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    rows, whole = contents(world.database), json.loads(text)
    assert world.run("diff", "--prune", "-f", "-", stdin=text)[0] == 0
    assert world.run("apply", "--yes", "--prune", "-f", "-", stdin=text)[1]["changed"] is False
    assert contents(world.database) == rows
    empty = json.dumps({"format": 1, "delegations": []})
    assert world.run("apply", "--yes", "--prune", "--force", "-f", "-", stdin=empty)[0] == 0
    assert world.run("export")[1]["delegations"] == []
    assert world.run("apply", "--yes", "-f", "-", stdin=text)[0] == 0
    assert world.run("export")[1] == whole and not violations(world.database)


def templates_are_good(program, share, schema):
    for path in sorted((share / "templates").glob("*.json")):
        text = re.sub(r",(\s*[]}])", r"\1", re.sub(r"//.*", "", path.read_text()))
        jsonschema.validate(json.loads(text), schema)
        with World(program) as world:
            status, answer = world.run("apply", "--yes", "-f", str(path))
            assert status == 0 and len(answer["changes"]) == 1, answer
            assert world.run("apply", "--yes", "-f", str(path))[1]["changed"] is False


def what_the_host_lost_stays(program):
    """An export of a world with a user gone and another renamed changes nothing, and none of them is lost by it."""
    with Journaled(program, Random(1)) as it:
        held = {"name": "Desk", "tabs": ["queue"], "users": USERS[1:4], "groups": GROUPS[1:2]}
        request = {"document": {"format": 1, "delegations": [held]}}
        assert it.ask("admin.apply", request)["return"] is True
        del it.world.users[USERS[1]]
        it.world.users["renamed"] = it.world.users.pop(USERS[2])
        it.world.groups = {name: (gid, []) for name, (gid, _) in it.world.groups.items()}
        it.world.write_accounts()
        whole, rows = it.ask("admin.export")["out"], contents(it.world.database)
        assert it.ask("admin.diff", {"document": whole, "prune": True})["out"]["differs"] is False
        held["users"] = [*USERS[1:5]]
        assert it.ask("admin.apply", request) == "no_user" and contents(it.world.database) == rows
        held["users"] = ["renamed", *USERS[3:5]]
        assert it.ask("admin.apply", request)["return"] is True
        assert {row[0] for row in contents(it.world.database)["user2delegation_table"]} == {1003, 1004, 1005}
        it.world.execute("update delegation_table set name = cast(x'41ff' as text)")
        assert it.ask("admin.export") == "refused", "it would be applied as another name"


def main():
    share = pathlib.Path(sys.argv.pop(2))
    chosen = options(rounds=6, seed=1)
    schema = json.loads((share / "delegations.schema.json").read_text())
    jsonschema.Draft7Validator.check_schema(schema)
    templates_are_good(chosen.program, share, schema)
    what_the_host_lost_stays(chosen.program)
    random = Random(chosen.seed)
    for _ in range(chosen.rounds):
        one_world(random, chosen.program, schema, pairs=10)


if __name__ == "__main__":
    sys.exit(main())
