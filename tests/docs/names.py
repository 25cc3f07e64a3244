#!/usr/bin/env python3
"""Holds the manual to the library and to itself.

    names.py ROOT [COMMAND]

  - each exported function is in the index docs/functions.md, under a list of headers that has its own, and its
    declaration has a description;
  - each name in the pages that looks like one of the library's is one;
  - each subcommand of `brisolt` in the pages is one (COMMAND is the program);
  - each link leads to a file, each link to a heading to that heading, and the first page leads to all others.
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(sys.argv[1]).resolve()
sys.path.insert(0, str(ROOT / "docs/reference"))
sys.dont_write_bytecode = True
import headers  # noqa: E402

HEADERS = sorted((ROOT / "include").rglob("*.h"))
PAGES = sorted((ROOT / "docs").glob("*.md")) + [ROOT / "README.md"]
OURS = re.compile(r"(?:COM_|Com[A-Z_]|C(?=(?:Get|Set)(?:Port|Modem|Ascii)Parm))\w+")


def faults_of_index():
    exported = headers.exported(ROOT / "src/api/exports.list")
    text = (ROOT / "docs/functions.md").read_text()
    index = re.findall(r"`(\w+)`", text)
    yield from (f"docs/functions.md: {name} is missing" for name in exported if name not in index)
    yield from (f"docs/functions.md: {name} stands there twice" for name in set(index) if index.count(name) > 1)
    described = {name for header in HEADERS for item in headers.read(header) if item.text for name in item.names}
    yield from (f"{name} has no description in its header" for name in exported if name not in described)
    place = {name: header for header in HEADERS for item in headers.read(header) for name in item.names}
    for section in text.split("\n## ")[1:]:
        title = "docs/functions.md: " + section.split("\n")[0]
        listed = {(ROOT / "docs" / link).resolve() for link in re.findall(r"\]\(([^)]+\.h)\)", section)}
        used = {place[name] for name in re.findall(r"`(\w+)`", section) if name in place}
        yield from (f"{title}: {header.name} is not in its list" for header in sorted(used - listed))
        yield from (f"{title}: {header.name} has none of its functions" for header in sorted(listed - used))


def faults_of_names():
    known = set(re.findall(r"\w+", "\n".join(header.read_text() for header in HEADERS)))
    for page in PAGES:
        for name in sorted(set(OURS.findall(page.read_text()))):
            beginning = name.endswith("_") or name in ("ComSetNotify",)
            if name not in known and not (beginning and any(other.startswith(name) for other in known)):
                yield f"{page.relative_to(ROOT)}: there is no {name}"


def faults_of_commands(command):
    told = subprocess.run([command, "--help"], capture_output=True, text=True, check=True).stdout
    known = re.findall(r"^  ([a-z]\w+) ", told, flags=re.M)
    for page in PAGES:
        for name in sorted(set(re.findall(r"(?:`|^    )brisolt ([a-z]\w+)", page.read_text(), flags=re.M))):
            if name not in known:
                yield f"{page.relative_to(ROOT)}: there is no brisolt {name}"


def anchors(page):
    titles = re.findall(r"^#+ (.+)$", page.read_text(), flags=re.M)
    return {re.sub(r"[^\w -]", "", title.lower()).replace(" ", "-") for title in titles}


def faults_of_links():
    reached = set()
    for page in PAGES:
        text = re.sub(r"^```.*?^```", "", page.read_text(), flags=re.S | re.M)
        for link in re.findall(r"\]\(([^)\s]+)\)", text):
            if re.match(r"[a-z]+:", link):
                continue
            place, _, heading = link.partition("#")
            target = (page.parent / place).resolve() if place else page
            if not target.exists():
                yield f"{page.relative_to(ROOT)}: {link} leads nowhere"
            elif heading and heading not in anchors(target):
                yield f"{page.relative_to(ROOT)}: {link}: no such heading"
            if page.name == "index.md":
                reached.add(target)
    for page in PAGES:
        if page not in reached and page.name not in ("README.md", "index.md"):
            yield f"docs/index.md does not name {page.name}, so that the site is without it"


faults = [*faults_of_index(), *faults_of_names(), *faults_of_links()]
if len(sys.argv) > 2:
    faults += faults_of_commands(sys.argv[2])
print("\n".join(faults) if faults else f"{len(PAGES)} pages, {len(HEADERS)} headers: all names and links are good")
sys.exit(1 if faults else 0)
