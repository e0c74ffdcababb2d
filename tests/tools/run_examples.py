#!/usr/bin/env python3
"""Runs the examples of a file against the real delegationctl.

usage: run_examples.py DELEGATIONCTL FILE|README.md|PAGE.scd

FILE holds groups. A group opens with "# sentence", which is its name, and has a new demo world of its own. Then come
  $ command   [exit N] [typed TEXT]
  expected output
The command runs in a shell; its expected exit status is 0 unless it says otherwise; TEXT is typed on a terminal, without it
there is none. Output is stdout and stderr as they come, without empty lines; the hint behind an error may be left out. "..."
stands for any text in a line; WORLD for the world's directory.
Of a README or a manual page the indented commands behind "$", with their output, are one group.
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

WRAPPER = '#!/bin/sh\nexec "$DELEGATIONCTL" --demo="$WORLD" "$@"\n'


def groups(text):
    """[(name, [(line number, command line, expected output)])]"""
    found = []
    for number, line in enumerate(text.splitlines(), 1):
        if line.startswith("# "):
            found.append((line[2:], []))
        elif line.startswith("$ "):
            found[-1][1].append([number, line[2:], ""])
        elif found and found[-1][1] and line:
            found[-1][1][-1][2] += line + "\n"
    return found


def readme_examples(text):
    """The same for a README, whose commands go on in the next line behind a "|"."""
    blocks = re.findall(r"^    \$ .*\n(?:(?:    .*)?\n)*", re.sub(r"\|\n +", "| ", text), re.MULTILINE)
    return groups("# the examples work as printed\n" + re.sub(r"^    ", "", "".join(blocks), flags=re.MULTILINE))


def run(command, typed, environment, directory):
    if typed is None:
        stdin = subprocess.DEVNULL
    else:
        terminal, stdin = os.openpty()
        os.write(terminal, typed.encode() + b"\n")
    return subprocess.run(["/bin/sh", "-c", command], stdin=stdin, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          env=environment, cwd=directory, timeout=300, text=True, errors="backslashreplace")


def matches(expected, hint, actual):
    return re.fullmatch(re.escape(expected).replace(r"\.\.\.", ".*") + hint, actual) is not None


def check(group, program, directory):
    world = f"{directory}/world"
    wrapper = pathlib.Path(directory, "delegationctl")
    wrapper.write_text(WRAPPER)
    wrapper.chmod(0o755)
    environment = {**os.environ, "DELEGATIONCTL": program, "WORLD": world, "PATH": f"{directory}:{os.environ['PATH']}"}
    for unwanted in ("NO_COLOR", "DELEGATIONCTL_DB", "MAILSERVER_CONF"):
        environment.pop(unwanted, None)
    run("delegationctl list", None, environment, directory)  # makes the world
    failures = 0
    for number, line, expected in group:
        command, status, typed = re.fullmatch(r"(.*?)(?:\s+\[exit (\d)\])?(?:\s+\[typed (.*)\])?", line).groups()
        done = run(command, typed, environment, directory)
        actual = re.sub(r"\n{2,}", "\n", done.stdout.replace(world, "WORLD"))
        hint = r"(  .*\n)?" if int(status or 0) > 1 else ""
        if done.returncode != int(status or 0) or not matches(expected, hint, actual):
            failures += 1
            print(f"line {number}: $ {command}\nexpected [exit {status or 0}]\n{expected}got [exit {done.returncode}]\n{actual}")
    return failures


def main():
    program, examples = os.path.abspath(sys.argv[1]), pathlib.Path(sys.argv[2])
    failures = 0
    find = readme_examples if examples.suffix in (".md", ".scd") else groups
    for name, group in find(examples.read_text(encoding="utf-8")):
        with tempfile.TemporaryDirectory() as directory:
            failed = check(group, program, directory)
        print("FAILED" if failed else "ok", name, flush=True)
        failures += failed
        if not group:
            failures += 1
            print("FAILED no examples in", name)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
