#!/usr/bin/env python3
"""Holds the sources to the table of folders in CONTRIBUTING.md: who may include whom.

    includes.py [ROOT]

Each include that the table does not allow is told with its file, line and arrow; the exit status is then 1.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parent.parent).resolve()
SEARCHED = ["src", "include", "tools", "tests", "."]  # as the compiler is told, behind the file's own folder
SYSTEM = {
    "C++": r"[a-z_]+",
    "C": r"(stdint|stddef|stdio|stdarg|limits)\.h",
    "any": r".*",
}


class Row:
    def __init__(self, place, allowed, system):
        self.place, self.allowed, self.system = place, allowed, system


def read_table():
    """The rows by folder, in the order of the table, whose rule is that arrows point down."""
    rows = {}
    for line in (ROOT / "CONTRIBUTING.md").read_text().splitlines():
        cells = [cell.strip() for cell in line.split("|")[1:-1]]
        if len(cells) == 4 and cells[0].startswith("`"):
            for folder in re.findall(r"`(.+?)`", cells[0]):
                rows[folder] = Row(len(rows), cells[2], cells[3])
    for folder, row in rows.items():
        if row.allowed == "everything below":
            row.allowed = {name for name, other in rows.items() if other.place > row.place}
        else:
            names = re.findall(r"`(.+?)`", row.allowed)
            row.allowed = {name if (ROOT / name).exists() else f"src/{name}" for name in names}
    return rows


def room_of(path, rows):
    """The longest folder of the table that the file is in."""
    parents = [str(parent) for parent in path.parents]
    return next((parent for parent in parents if parent in rows), None)


def resolve(path, name, quoted):
    for folder in ([path.parent] if quoted else []) + [pathlib.Path(folder) for folder in SEARCHED]:
        found = (ROOT / folder / name).resolve()
        if found.is_file() and ROOT in found.parents:
            return found.relative_to(ROOT)
    return None


def faults_of_table(rows):
    if not rows:
        yield "CONTRIBUTING.md: the table of folders is not there"
    for folder, row in rows.items():
        if row.system not in SYSTEM:
            yield f"CONTRIBUTING.md: {folder}: system headers are {', '.join(SYSTEM)}, not \"{row.system}\""
        for name in row.allowed:
            target = rows.get(name) or rows.get(room_of(pathlib.Path(name), rows))
            if not (ROOT / name).exists() or not target:
                yield f"CONTRIBUTING.md: {folder} may include {name}, which is not there"
            elif target.place <= row.place:
                yield f"CONTRIBUTING.md: {folder} -> {name} points up the table: a circle"


def faults_of_file(path, rows):
    room = room_of(path, rows)
    if not room:
        yield f"{path}: its folder is not in the table of CONTRIBUTING.md"
        return
    system = "C++" if path.suffix == ".hpp" and rows[room].system == "C" else rows[room].system
    lines = (ROOT / path).read_text(errors="replace").splitlines()
    for number, line in enumerate(lines, 1):
        match = re.match(r'\s*#\s*include\s*([<"])([^>"]+)', line)
        if not match:
            continue
        quoted, name = match[1] == '"', match[2]
        target = resolve(path, name, quoted)
        if target:
            other = room_of(target, rows)
            if other != room and not {other, str(target)} & rows[room].allowed:
                yield f"{path}:{number}: {name}: {room} -> {other} is not allowed"
        elif quoted:
            yield f"{path}:{number}: {name} is not in the tree"
        elif not re.fullmatch(SYSTEM[system], name):
            yield f"{path}:{number}: <{name}>: {room} takes no headers but those of {system} itself"


def main():
    rows = read_table()
    faults = list(faults_of_table(rows))
    files = [] if faults else [
        path.relative_to(ROOT)
        for folder in {folder.split("/")[0] for folder in rows}
        for path in sorted((ROOT / folder).rglob("*"))
        if path.suffix in (".h", ".hpp", ".c", ".cpp")
    ]
    for path in files:
        faults += faults_of_file(path, rows)
    if not faults and not files:
        faults = ["there are no sources"]
    print("\n".join(faults) if faults else f"{len(files)} files include what they may", flush=True)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
