#!/usr/bin/env python3
"""The rules of the house that a compiler does not check: who may include whom, and what may stand only in one place.

usage: floors_test.py SOURCE_DIRECTORY
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(sys.argv[1])
SRC = ROOT / "src"

# Floors, ground to roof. A floor includes lower ones and itself.
FLOOR = {"platform": 0, "base": 1, "role": 2, "storage": 3, "tables": 4, "handlers": 4, "model": 4, "calculator": 5,
         "api": 6}
# What handlers make and what records call is one circle; it stays out of their headers.
CIRCLE = {"tables", "handlers", "model"}
# Everything that is installed; nothing else may be included by it or by the tools.
PRIVATE = {"role/belongs.h", "role/host_accounts.h", "role/qualify.h", "role/role_query.h", "role/statements.h",
           "model/group_members.h", "handlers/table_handler.h", "tables/tab2webapi_table.h"}

faults = []


def fault(path, line, text):
    faults.append(f"{path.relative_to(ROOT)}:{line}: {text}")


def is_private(include):
    return include in PRIVATE or include.startswith("platform/linux/") or (
        include.startswith("base/") and include != "base/export.h")


def includes(path):
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = re.match(r'#include "([^"]+)"', line)
        if match:
            yield number, match[1]


def check_source(path):
    name, folder = str(path.relative_to(SRC)), path.relative_to(SRC).parts[0]
    public = path.suffix == ".h" and not is_private(name)
    for number, include in includes(path):
        target = include.split("/")[0]
        if target not in FLOOR:
            fault(path, number, f"{include} is on no floor")
        # base/log.h stands on the platform's declarations, and the platform's own sources log through it
        elif FLOOR[target] > FLOOR[folder] and (folder, target) != ("platform", "base"):
            fault(path, number, f"{folder}/ includes {include}, which is above it")
        elif public and (is_private(include) or folder != target and {folder, target} <= CIRCLE):
            fault(path, number, f"a public header includes {include}")
        elif include.startswith("platform/linux/") and folder != "platform":
            fault(path, number, "the platform is reached only through platform/*.h")


INSTALLED_OF_ADMIN = set(re.findall(r"^  (\w+\.h)$", (ROOT / "admin/CMakeLists.txt").read_text(), re.M))


def check_above(path):
    """admin/ and the tools see installed headers only; admin/'s own sources also its private ones."""
    inside = path.is_relative_to(ROOT / "admin")
    public = inside and path.name in INSTALLED_OF_ADMIN
    for number, include in includes(path):
        folder, _, name = include.rpartition("/")
        private = name not in INSTALLED_OF_ADMIN if folder == "admin" else folder and is_private(include)
        if private and (folder != "admin" or public or not inside):
            fault(path, number, f"includes {include}, which is not installed")


def check_only_in(pattern, allowed, why):
    for path in sorted(SRC.rglob("*.[hc]*")):
        name = str(path.relative_to(SRC))
        if name in allowed or name.startswith("platform/"):
            continue
        for number, line in enumerate(path.read_text().splitlines(), 1):
            if re.search(pattern, line.split("//")[0]):
                fault(path, number, why)


sources = sorted(SRC.rglob("*.h")) + sorted(SRC.rglob("*.cpp"))
for source in sources:
    check_source(source)
for folder in "admin", "tools":
    for source in sorted((ROOT / folder).rglob("*.[hc]*")):
        check_above(source)
check_only_in(r"\bsqlite3_stmt\b|\bsqlite3_step\(", {"role/role_query.h", "role/statements.h", "role/statements.cpp"},
              "statements are prepared only in role_query.h and statements.cpp")
check_only_in(r"(?<![\w.>:])(open|fopen|creat|openat)\(|[io]?fstream\b", {"role/role_db_handler.cpp"},
              "closing a file that SQLite has open drops its locks: files are opened only in role_db_handler.cpp")
check_only_in(r"\bsqlite3_open", {"role/role_db_handler.cpp"}, "databases are opened only in role_db_handler.cpp")

print(*faults, sep="\n")
print(f"{len(sources)} files, {len(faults)} faults")
sys.exit(1 if faults or len(sources) < 40 else 0)
