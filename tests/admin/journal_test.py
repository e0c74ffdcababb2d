#!/usr/bin/env python3
"""Random changes, recorded and past the journal: the journal must tell all of them, rebuild the database from nothing, take
changes back, name the record in which a byte was flipped, and never stand in the way of a change.

usage: journal_test.py DELEGATIONCTL [--worlds N] [--flips N] [--seed N]
"""
import hashlib
import json
import os
import pathlib
import random
import shutil
import sqlite3
import sys

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "hardening"))
from world import (CREATE, DELETE, REFRESH, UPDATE, USERS, World, contents, delegation, execute, make_hosts, options, random_change,
                   random_document)


class Journaled:
    """A world with a connection to it, and the questions that the tests ask again and again."""

    def __init__(self, program, rng):
        self.world = World(program)
        make_hosts(self.world, rng)
        self.rpc = self.world.rpc()
        self.ask = self.rpc.ask
        self.path = self.world.database + ".admin"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.rpc.end()
        shutil.rmtree(self.world.directory)

    def change(self, method, params, **actor):
        return self.ask("admin.change", {"method": method, "params": params, **actor})

    def records(self):
        return self.ask("admin.history", {})["out"]

    def export(self):
        """The documents of all delegations."""
        return self.ask("admin.export")["out"]["delegations"]

    def ids(self):
        return [item["id"] for item in self.ask("DelegationDelegationList", None)["out"]]

    def tabs(self):
        return {name: set(self.ask("DelegationUserDelegationEntriesGet", name)["out"]["enable_tabs"]) for name in USERS}


def expect_effect(effect, had, has):
    """What is told of the people is what came to them: tabs by user before and after."""
    told = {person["name"]: (set(person["gained"]), set(person["lost"])) for person in effect["people"]}
    for name in USERS:
        assert told.get(name, (set(), set())) == (has[name] - had[name], had[name] - has[name]), (name, effect)


def replay(records):
    """The delegations by id that following the records from nothing gives; each must begin where the one before ended."""
    documents = {}
    for number, record in enumerate(records, 1):
        assert record["number"] == number and record["previous"] == (records[number - 2]["hash"] if number > 1 else "")
        for change in record["delegations"]:
            assert documents.pop(change["id"], None) == change["before"] != change["after"], record
            if change["after"] is not None:
                documents[change["id"]] = change["after"]
    return documents


def alike(documents, others):
    key = lambda document: json.dumps(document, sort_keys=True)
    return sorted(documents, key=key) == sorted(others, key=key)


def change_past(it, rng):
    """Changes past the journal, in whose place a directory stands, are one record, told once, or none if they come to
    nothing."""
    known, before = it.records(), (contents(it.world.database), it.export())
    there = os.path.exists(it.path)
    if there:
        os.rename(it.path, it.path + ".aside")
    os.mkdir(it.path)
    for _ in range(rng.randrange(3)):
        method, params = random_change(rng, it.ids())
        it.ask(method, *params)
    os.rmdir(it.path)
    if there:
        os.rename(it.path + ".aside", it.path)
    records, after = it.records(), (contents(it.world.database), it.export())
    new = records[len(known):]
    assert records[:len(known)] == known and len(new) <= 1 and it.records() == records
    assert not known or alike(replay(records).values(), after[1])
    assert not known or before[1] == after[1] or [record["kind"] for record in new] == ["outside"]
    assert before[0] != after[0] or not new


def check_story(program, rng):
    """Every change is told once, with what it did to people, and can be taken back."""
    with Journaled(program, rng) as it:
        for _ in range(12):
            change_past(it, rng)
            known, before, had = len(it.records()), it.export(), it.tabs()
            method, params = random_change(rng, it.ids())
            if method == REFRESH:
                make_hosts(it.world, rng)
            plain = rng.random() < 0.3
            result = it.ask(method, *params) if plain else it.change(method, params, **rng.choice([{}, {"actor": "root"}]))
            records, has, after = it.records(), it.tabs(), it.export()
            assert alike(replay(records).values(), after), (method, params)
            assert [record["kind"] for record in records].count("start") == 1 and "warning" not in result
            number = len(records) if len(records) > max(known, 1) else None
            assert plain or result["record"] == number
            if number is None:
                assert after == before and had == has
                continue
            expect_effect(records[-1]["effect"], had, has)
            if records[-1]["delegations"] and rng.random() < 0.5:
                assert it.ask("admin.undo", {"number": number})["return"] and alike(it.export(), before), records[-1]
                assert it.ask("admin.undo", {"number": number}) in ("changed_since", "name_taken")
                assert it.ask("admin.undo", {"number": number + 1})["return"] and alike(it.export(), after)
        assert it.ask("admin.history_verify")["out"]["intact"]
        with Journaled(program, rng) as other:  # which the replayed delegations make the same
            document = {"format": 1, "delegations": list(replay(it.records()).values())}
            assert other.ask("admin.apply", {"document": document})["return"] and other.export() == it.export()


def check_older_undo(program, rng):
    """An older record is taken back only if nobody has touched the same since."""
    with Journaled(program, rng) as it:
        for _ in range(4):
            it.change(CREATE, [random_document(rng)])
        for _ in range(8):
            chosen = rng.choice(it.ids())
            it.change(UPDATE, [random_document(rng, id=chosen)])
        records = it.records()
        number = rng.choice([record["number"] for record in records if record["kind"] == "change"])
        (change,) = records[number - 1]["delegations"]
        touched = [record["number"] for record in records[number:] if record["delegations"][0]["id"] == change["id"]]
        result = it.ask("admin.undo", {"number": number})
        assert (result == "changed_since") == bool(touched), (number, touched, result)
        if touched:
            assert it.ask("admin.undo", {"number": number, "force": True})["return"]
        assert replay(it.records()).get(change["id"]) == change["before"]
        old = it.change(CREATE, [delegation("Old", 1, set())])
        it.change(DELETE, [[old["out"]]])
        assert it.change(CREATE, [delegation("New", 1, set())])["out"] == old["out"]  # the id is used again
        it.ask("admin.undo", {"number": old["record"], "force": True})
        given = it.change(CREATE, [delegation("Given", 1, {"queue"}, ["user user1", "group group1"])])["out"]
        deleted = it.change(DELETE, [[given]])["record"]
        it.world.users["user1"] = 5001  # the account of that name is somebody else's now
        it.world.write_accounts()
        assert it.ask("admin.undo", {"number": deleted}) == "no_user"
        assert it.ask("admin.undo", {"number": deleted, "force": True})["return"]
        assert [(one["users"], one["groups"]) for one in it.export() if one["name"] == "Given"] == [([], ["group1"])]
        assert "New" in [document["name"] for document in it.export()]


def places(data, records):
    """Byte offset of the file: number of the record that stands there."""
    found = {}
    texts = "".join(text + digest for _, text, digest in records)
    for number, text, digest in records:
        for piece in [text[i:i + 48] for i in range(0, len(text), 48)] + [digest]:
            if data.count(piece.encode()) == texts.count(piece) == 1:
                begin = data.index(piece.encode())
                found.update({begin + i: number for i in range(len(piece))})
    return found


def check_flips(program, rng, flips):
    """A flipped byte of a record is named. Anywhere else it is noticed, or does no harm."""
    with Journaled(program, rng) as it:
        while len(it.records()) < 14:
            it.change(*random_change(rng, it.ids()))
        with sqlite3.connect(it.path) as database:
            rows = database.execute("select number, record, hash from journal order by number").fetchall()
        told, data = it.records(), pathlib.Path(it.path).read_bytes()
        where = places(data, rows)
        assert set(where.values()) == {row[0] for row in rows}
        offsets = rng.sample(sorted(where), flips // 2) + rng.sample(range(len(data)), flips // 2)
        for offset in offsets:
            with open(it.path, "r+b") as file:
                file.seek(offset)
                file.write(bytes([data[offset] ^ rng.randrange(1, 256)]))
            answer = it.ask("admin.history_verify")
            if offset in where:
                assert answer["out"]["altered"] == where[offset], (offset, where[offset], answer)
            elif answer != "database" and answer["return"]:
                assert it.ask("admin.history", {})["out"] == told, offset
            pathlib.Path(it.path).write_bytes(data)
        for statement in ("update journal set hash = ''", "delete from journal", "insert into journal values(99, '', '')",
                          "replace into journal values(1, '', '')"):
            try:
                execute(it.path, statement)
                raise AssertionError(statement)
            except sqlite3.IntegrityError:
                pass
        forged = rows[4][1].replace('"time":', '"time":1')
        forgery = ("update journal set record = ?, hash = ? where number = 5", (forged, hashlib.sha256(forged.encode()).hexdigest()))
        with sqlite3.connect(it.path) as database:
            guards = [sql for sql, in database.execute("select sql from sqlite_master where name in ('journal_update', 'journal_delete')")]
        for altered, statement in ((6, forgery), (13, "delete from journal where number > 12")):
            execute(it.path, "drop trigger journal_update", "drop trigger journal_delete", statement, *guards)
            assert it.ask("admin.history_verify")["out"]["altered"] == altered
            pathlib.Path(it.path).write_bytes(data)


def check_obstacles(program, rng):
    """Whatever is in the journal's place, changes and checks go on, and say when they are not recorded."""
    def damage(path):
        path.write_bytes(path.read_bytes()[:5000])
    obstacles = {"missing": lambda path: path.unlink(), "empty": lambda path: path.write_bytes(b""), "cut": damage,
                 "garbage": lambda path: path.write_bytes(b"x" * 5000),
                 "directory": lambda path: (path.unlink(), path.mkdir()),
                 "link": lambda path: (path.rename(path.with_suffix(".real")), path.symlink_to(path.with_suffix(".real"))),
                 "other": lambda path: (path.unlink(), shutil.copy(str(path)[:-6], path))}
    for name, put in obstacles.items():
        with Journaled(program, rng) as it:
            it.change(CREATE, [delegation("Desk", 10, {"queue"}, ["user user1"])])
            put(pathlib.Path(it.path))
            result = it.ask(CREATE, delegation("Post", 20, {"queue", "service"}, ["user user2"]))
            assert result["return"] and len(it.ids()) == 2 and ("warning" in result) == (name not in ("missing", "empty")), name
            assert it.ask("DelegationUserAllowWebapi", "user2", "Webapi_Queue_Flush_v1") == {"return": 0}
            assert it.change(DELETE, [[1]], actor="root")["return"] and len(it.ids()) == 1
            verified = it.ask("admin.history_verify")
            assert verified == "database" or verified["return"] == (name in ("missing", "empty")), (name, verified)


def main():
    chosen = options(worlds=4, flips=400, seed=1)
    rng = random.Random(chosen.seed)
    for _ in range(chosen.worlds):
        check_story(chosen.program, rng)
        check_older_undo(chosen.program, rng)
    check_flips(chosen.program, rng, chosen.flips)
    check_obstacles(chosen.program, rng)


if __name__ == "__main__":
    main()
