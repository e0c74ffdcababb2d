#!/usr/bin/env python3
"""Checks that the manual page and the program agree (verbs, options, error codes) and that all their examples work.

usage: manual_test.py DELEGATIONCTL MANUAL ERRORS
"""
import os
import pathlib
import re
import subprocess
import sys


def main():
    program, manual, errors = sys.argv[1], pathlib.Path(sys.argv[2]).read_text(), pathlib.Path(sys.argv[3]).read_text()
    page = manual.replace("\\", "")
    text = subprocess.run([program, "--help"], check=True, capture_output=True, text=True).stdout
    verbs = re.findall(r"^  ([a-z]+)   ", text, re.MULTILINE)
    wanted = [f"*{verb}*" for verb in verbs]
    for verb in verbs:
        text += subprocess.run([program, verb, "--help"], check=True, capture_output=True, text=True).stdout
    wanted += [f"*{option}" for option in set(re.findall(r"--[a-z-]+", text))]
    wanted += [f"*{code}* ({status})" for code, status in codes(errors)]
    missing = [name for name in wanted if name not in page]
    print("missing in the manual page:", missing)
    examples = re.findall(r"^\s*\$ (.*?)(?:\+\+)?$", text + manual, re.MULTILINE)
    failing = [example for example in examples if not works(example, program)]
    print("failing examples:", failing, "of", len(examples))
    return 1 if missing or failing or len(verbs) < 12 or len(examples) < 12 else 0


def works(example, program):
    environment = {**os.environ, "PATH": os.path.dirname(program) + ":" + os.environ["PATH"]}
    done = subprocess.run(["/bin/sh", "-c", example], env=environment, stdin=subprocess.DEVNULL, capture_output=True)
    return done.returncode == 0 and done.stderr == b""


def codes(errors):
    status = {"kUsage": 2, "kFailed": 3, "kUnknown": 4, "kRefused": 5}
    return [(code, status[name]) for code, name in re.findall(r'ErrorCode k\w+\{"(\w+)", (\w+)\}', errors)]


if __name__ == "__main__":
    sys.exit(main())
