#!/usr/bin/env python3
"""Writes performance.md and its plots from what the measuring programs have printed.

usage: report.py FIGURES DIRECTORY COMMAND    FIGURES: lines of JSON; COMMAND: what was run, for the reader
"""
import datetime
import json
import math
import os
import platform
import re
import sqlite3
import subprocess
import sys


def machine():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        found = re.search(r"model name\s*: (.*)", file.read())
    compiler = subprocess.run(["g++", "-dumpfullversion"], capture_output=True, text=True, check=True).stdout.strip()
    return [("processor", f"{found[1] if found else platform.machine()}, {os.cpu_count()} cores"), ("kernel", platform.release()),
            ("SQLite", sqlite3.sqlite_version), ("compiler", f"g++ {compiler}, RelWithDebInfo"),
            ("date", datetime.date.today().isoformat()), ("load", "other work: %.1f at the end" % os.getloadavg()[0])]


def rows(figures):
    """(what, measured, unit, goal, stretch); measured is None where the figures lack it."""
    def get(name, n, member="ratio", scale=1.0):
        value = figures.get((name, n), {}).get(member)
        return None if value is None else value * scale

    def relation(above, below):
        return None if above is None or below is None else above / below

    def difference(name, n, scale):
        figure = figures.get((name, n))
        return figure and (figure["library_ns"] - figure["limit_ns"]) * scale

    def ns(name, n):
        return get(name, n, "library_ns")

    yield "check without host lookups / limit, 10,000 stored users", get("check", 10000), "", 5.0, 4.2
    for n, goal, stretch in (100, 3.0, 2.2), (10000, 1.5, 1.1):
        yield f"check / (limit + 1 getpwnam + 1 getgrnam), {n:,} host users", get("check_host", n), "", goal, stretch
    yield "check at 100,000 stored users / at 1,000", relation(ns("check", 100000), ns("check", 1000)), "", 1.2, 1.05
    yield "memory of a process that only checks", get("memory", 10000, "kib", 1 / 1024), " MiB", 12, 8
    yield "recalculation of 10,000 users / limit", get("recalculate", 10000), "", 5, 2.5
    yield ("recalculation, per user at 100,000 / at 1,000",
           relation(ns("recalculate", 100000), ns("recalculate", 1000) and 100 * ns("recalculate", 1000)), "", 1.3, 1.0)
    for kind, what in ("first", "all new"), ("changed", "one user in a hundred moved"), ("unchanged", "unchanged"):
        yield f"refresh of 100,000 host users, 100 groups, files: {what}", get("refresh_" + kind, 100000, "library_ns", 1e-9), " s", 6, 3
    yield "longest check during a refresh of 20,000 users / one commit of the same pages", get("check_during_refresh", 20000), "", 3, 1.5
    yield "longest check while nothing changes", get("check_during_unchanged", 20000, "library_ns", 1e-6), " ms", None, 1
    yield "create with 1,000 assignees / in one transaction with lean lookups", get("create", 1000), "", 1.5, 1.1
    yield "the same / in one transaction with lean lookups, each statement prepared once", get("create_prepared_once", 1000), "", None, None
    yield "finding 29 entries among the stored ones / listing them once", get("find_entries", 29), "", 2, 1.1
    yield "listing 100 delegations x 29 entries / one joined statement", get("list", 100), "", 2.5, 1.3
    for name, what, goal in (("explain", "explain USER METHOD", 0.05), ("who_can", "who-can TAB", 5), ("review", "review", 5), ("check", "check", 5)):
        yield f"`delegationctl {what}`, whole process, 100,000 users", get("ask_" + name, 100000, "library_ns", 1e-9), " s", goal, None
    yield "bash completing a user's name behind `delegationctl can`, 100,000 users", get("ask_complete", 100000, "library_ns", 1e-9), " s", 0.05, None
    yield "`delegationctl can`, whole process, against `true`", difference("can", 10000, 1e-6), " ms more", 5, 3


def table(figures):
    missed = []
    lines = ["| what | measured | goal | stretch |", "|---|---:|---:|---:|"]
    for what, measured, unit, goal, stretch in rows(figures):
        shown = "-" if measured is None else f"{measured:.2f}".rstrip("0").rstrip(".") + unit
        if measured is not None and goal is not None and measured > goal:
            missed.append(f"{what}: {shown}")
            shown = f"**{shown}**"
        lines.append(f"| {what} | {shown} | {'' if goal is None else f'{goal:g}{unit}'} | {'' if stretch is None else f'{stretch:g}{unit}'} |")
    lines.append("| syncs of a refresh, create, update or delete, any number of users | exact: `tests/api/syncs_test.cpp` | 8 | 4; 0 when nothing changed |")
    return lines, missed


def plot(title, lines):
    """An SVG: cost against number of users, both logarithmic. `lines` is {label: [(n, nanoseconds), ...]}."""
    width, height, left, right, top, bottom = 640, 400, 80, 130, 40, 50
    points = [point for line in lines.values() for point in line]
    low_x, high_x = (f(math.log10(n) for n, _ in points) for f in (min, max))
    low_y, high_y = math.floor(min(math.log10(y) for _, y in points)), math.ceil(max(math.log10(y) for _, y in points))

    def x(n):
        return left + (math.log10(n) - low_x) / (high_x - low_x or 1) * (width - left - right)

    def y(ns):
        return height - bottom - (math.log10(ns) - low_y) / (high_y - low_y or 1) * (height - top - bottom)

    def unit(ns):
        return next(f"{ns / size:g} {name}" for size, name in ((1e9, "s"), (1e6, "ms"), (1e3, "µs"), (1, "ns")) if ns >= size)

    svg = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" font-family="sans-serif" font-size="13">',
           f'<rect width="{width}" height="{height}" fill="white"/><text x="{left}" y="24" font-size="15">{title}</text>',
           f'<text x="{(width - right + left) / 2}" y="{height - 10}" text-anchor="middle">users</text>']
    for exponent in range(low_y, high_y + 1):
        svg.append(f'<path d="M{left} {y(10 ** exponent):.1f}H{width - right}" stroke="#ddd"/>'
                   f'<text x="{left - 8}" y="{y(10 ** exponent) + 4:.1f}" text-anchor="end">{unit(10 ** exponent)}</text>')
    for n in sorted({n for n, _ in points}):
        svg.append(f'<text x="{x(n):.1f}" y="{height - bottom + 18}" text-anchor="middle">{n:,}</text>')
    at = -math.inf  # the label above
    for (label, line), color in sorted(zip(lines.items(), ("#1f5fa8", "#c25a00", "#2f7d32")), key=lambda one: -one[0][1][-1][1]):
        at = max(y(line[-1][1]) + 4, at + 15)
        path = "L".join(f"{x(n):.1f} {y(ns):.1f}" for n, ns in line)
        svg.append(f'<path d="M{path}" fill="none" stroke="{color}" stroke-width="2"/>')
        svg += [f'<circle cx="{x(n):.1f}" cy="{y(ns):.1f}" r="3.5" fill="{color}"/>' for n, ns in line]
        svg.append(f'<text x="{width - right + 10}" y="{at:.1f}" fill="{color}">{label}</text>')
    return "\n".join(svg) + "\n</svg>\n"


def series(figures, name, member):
    return sorted((n, figure[member]) for (found, n), figure in figures.items() if found == name)


def main(source, directory, command):
    with open(source, encoding="utf-8") as file:
        figures = {(line["name"], line["n"]): line for line in map(json.loads, file)}
    sides = (("library", "library_ns"), ("limit", "limit_ns"))
    plots = {
        "check": ("One check, without host lookups", {label: series(figures, "check", member) for label, member in sides}),
        "refresh": ("One refresh, from files", {kind: series(figures, "refresh_" + kind, "library_ns") for kind in ("first", "changed", "unchanged")}),
        "create": ("One create; the users are its assignees", {label: series(figures, "create", member) for label, member in sides}),
    }
    for name, (title, lines) in plots.items():
        with open(f"{directory}/performance-{name}.svg", "w", encoding="utf-8") as file:
            file.write(plot(title, lines))
    lines, missed = table(figures)
    text = ["# Performance", "", f"Written by `{command}`; the programs are in `bench/`. Each holds the *limit* beside the library in the same run: one cached",
            "joined statement and a bit mask for the check, one window-function statement in one transaction for the recalculation, what a create by",
            "the rules asks and writes in one transaction with one host lookup for each assignee, the same answer through plain SQLite for the rest. The two sides take turns; the best turn of each counts, in processor time, in real",
            "time where another process or the disk is waited for. A figure in bold misses its goal.", "", *lines, "", "| machine | |", "|---|---|", *(f"| {key} | {value} |" for key, value in machine()), "",
            "Cost against the number of users:", "", *(f"![{title}](performance-{name}.svg)\n" for name, (title, _) in plots.items()),
            "The plain figures, in ns:", "", "| name | n | library | limit |", "|---|---:|---:|---:|"]
    for (name, n), figure in figures.items():
        if "library_ns" in figure:
            limit = f"{figure['limit_ns']:,.0f}" if "limit_ns" in figure else ""
            text.append(f"| {name} | {n:,} | {figure['library_ns']:,.0f} | {limit} |")
    peers = "build/peers/table.md"
    if directory == "docs" and os.path.exists(peers):
        with open(peers, encoding="utf-8") as file:
            text += ["", "Beside engines that a back-end might pick instead, the same decisions on the same users (`bench/peers/run`):", "", file.read().rstrip()]
    with open(f"{directory}/performance.md", "w", encoding="utf-8") as file:
        file.write("\n".join(text) + "\n")
    print(f"{directory}/performance.md: {len(missed)} goals missed", *missed, sep="\n  ")


main(*sys.argv[1:])
