#!/usr/bin/env python3
"""Asks the library and its peers the same questions and prints how they compare, as a markdown table.

Every engine is a program that answers one line of JSON to each line of its standard input:
  load      the library: DelegationRefresh; a peer: makes an engine from the rules file anew     true
  decide    asks all questions; for each, whether it is allowed, and in how many microseconds    [[true, 65.4], ...]

No peer ranks roles: which one is in force for each user (highest priority, on a tie a direct one before a group's) is
resolved here, as a back-end's own job would, and counted into the peer's load time.

usage: compare.py DELEGATIONCTL OURS CASBIN_GO PEERS_MJS"""
import json
import os
import pathlib
import random
import statistics
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE + "/../../tests/hardening")
from world import TABS, World, delegation  # noqa: E402

USERS, GROUPS, ROLES, DECISIONS, ROUNDS = 10000, 100, 20, 4000, 9


class Engine:
    def __init__(self, name, *command):
        self.name, self.command, self.rounds, self.loads, self.deaths = name, command, [], [], 0
        self.start()

    def start(self):
        self.process = subprocess.Popen(self.command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def ask(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()
        answer = self.process.stdout.readline()
        if answer:
            return json.loads(answer)
        self.deaths += 1  # V8 of Node 20 aborts now and then, in the middle of its own optimizing
        print(f"{self.name} has ended with status {self.process.wait()}", file=sys.stderr)
        if self.deaths == 4:
            sys.exit(1)
        self.start()
        if command != "load":
            self.ask("load")
        return self.ask(command)

    def load(self, resolving=0.0):
        start = time.perf_counter()
        assert self.ask("load") is True, self.name
        self.loads.append(resolving + time.perf_counter() - start)

    def decide(self):
        allowed, times = zip(*self.ask("decide"))
        self.rounds.append(statistics.quantiles(times, n=100))
        return allowed

    def microseconds(self, percentile):
        return min(cuts[percentile - 1] for cuts in self.rounds)

    def mebibytes(self):
        pages = pathlib.Path(f"/proc/{self.process.pid}/statm").read_text("ascii").split()[1]
        return int(pages) * os.sysconf("SC_PAGESIZE") / 2**20


def populate(world, rng):
    """Every user in three groups, a role for each group, a role of their own for every tenth user."""
    world.users = {f"user{i:05}": 10000 + i for i in range(USERS)}
    world.groups = {f"group{i:02}": (5000 + i, []) for i in range(GROUPS)}
    for name in world.users:
        for group in rng.sample(sorted(world.groups), 3):
            world.groups[group][1].append(name)
    # Half of the roles are for groups, half for users; each priority is there once in both: ties are between the two.
    roles = [{"name": f"role{i:02}", "priority": 10 * (i // 2), "tabs": rng.sample(TABS, rng.randint(3, 12)), "users": [], "groups": []}
             for i in range(ROLES)]
    for group in world.groups:
        rng.choice(roles[::2])["groups"].append(group)
    for name in list(world.users)[::10]:
        rng.choice(roles[1::2])["users"].append(name)
    world.groups["administrators"] = (4000, [])  # only the library asks for it, before every decision
    world.write_accounts()
    return roles


def document(role, **members):
    assignees = [f"{kind} {name}" for kind in ("user", "group") for name in role[kind + "s"]]
    return delegation(role["name"], role["priority"], role["tabs"], assignees, **members)


def write_rules(world, roles, table):
    """Writes what the peers load; the seconds that it took."""
    start = time.perf_counter()
    offers = [(user, role) for role in roles for user in role["users"]]
    offers += [(user, role) for role in roles for group in role["groups"] for user in world.groups[group][1]]
    best = dict(sorted(reversed(offers), key=lambda offer: offer[1]["priority"]))  # the last offer to a user stays
    world.write("rules.json", json.dumps({
        "methods": [(tab, method) for tab, methods in table.items() for method in methods],
        "tabs": [("everybody", tab) for tab in table if tab not in TABS] + [(role["name"], tab) for role in roles for tab in role["tabs"]],
        "roles": [(user, "everybody") for user in world.users] + [(user, role["name"]) for user, role in best.items()]}))
    return time.perf_counter() - start


def same_answers(engines):
    answers = {engine.decide() for engine in engines}
    assert len(answers) == 1, "the engines disagree"
    return answers.pop()


def compare(world, ours_program, casbin_go, peers_mjs):
    rng = random.Random(1)
    table = json.loads(subprocess.check_output([ours_program, "tabs"]))
    roles = populate(world, rng)
    with world.rpc() as rpc:
        created = rpc.batch([("DelegationDelegationCreate", document(role)) for role in roles])
    assert all(stored for stored, _ in created)
    methods = sorted(set().union(*table.values()))
    decisions = [(rng.choice(list(world.users)), rng.choice(methods)) for _ in range(DECISIONS)]
    world.write("decisions.json", json.dumps([*decisions, ("nobody", "Webapi_Version_Check_v1"), ("user00000", "no_method")]))
    files = [f"{HERE}/casbin.conf", f"{world.directory}/rules.json", f"{world.directory}/decisions.json"]
    ours = Engine("**the library**", ours_program, world.directory, files[-1])
    peers = [Engine("Casbin for Go", casbin_go, *files), Engine("Cedar (wasm)", "node", peers_mjs, "cedar", *files),
             Engine("Casbin for Node", "node", peers_mjs, "casbin", *files)]
    engines = [ours, *peers]

    resolving = write_rules(world, roles, table)
    for engine in engines:
        engine.load(0 if engine is ours else resolving)
    before = [same_answers(engines) for _ in range(ROUNDS)][-1]
    memory = [engine.mebibytes() for engine in engines]

    # Another process takes the tabs of the highest role for groups away: who notices, with nobody loading anything?
    roles[-2]["tabs"] = []
    with world.rpc() as rpc:
        assert rpc.call("DelegationDelegationUpdate", document(roles[-2], id=created[-2][1]))[0]
    resolving = write_rules(world, roles, table)
    notices = [engine.decide() != before for engine in engines]
    for peer in peers:
        peer.load(resolving)
    assert same_answers(engines) != before

    yield (f"{DECISIONS:,} decisions, {before.count(True) / DECISIONS:.0%} of them allowed: {USERS:,} users, {GROUPS} groups, {ROLES} roles, "
           f"{sum(map(len, table.values()))} pairs of tab and method. All engines gave the same answers.\n\n"
           "The library's time to load is that of its refresh from the host; deciding needs none. A peer's includes ranking the roles.\n")
    yield "| engine | decision, median | p99 | against the library | load or refresh | memory | sees a change |"
    yield "|---|---:|---:|---:|---:|---:|---|"
    for engine, resident, noticed in zip(engines, memory, notices):
        median = engine.microseconds(50)
        yield (f"| {engine.name} | {median:.1f} us | {engine.microseconds(99):.1f} us | {median / ours.microseconds(50):.1f} "
               f"| {1000 * min(engine.loads):,.0f} ms | {resident:.0f} MiB | {'at once' if noticed else 'after a load'} |")


if __name__ == "__main__":
    with World(sys.argv[1]) as mail_host:
        print("\n".join(compare(mail_host, *sys.argv[2:])))
