#!/usr/bin/env python3
"""Makes the manual pages of the functions from the headers: a page a header, and a link to it for each function.

    manual_pages.py INCLUDE FOLDER VERSION
"""
import itertools
import pathlib
import re
import sys

sys.dont_write_bytecode = True
import headers


def escaped(line):
    line = line.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + line if line.startswith((".", "'")) else line


def filled(lines):
    """A comment's text: paragraphs are filled, what is laid out by blanks stays as it is."""
    out, laid_out = [], False
    for line in lines:
        table = line.startswith("  ") or (laid_out and bool(re.search(r"\S {2,}\S", line)))
        if table != laid_out:
            out.append(".nf" if table else ".fi")
            laid_out = table
        out.append(escaped(line.replace("`", "")) if line else ".PP")
    return out + ([".fi"] if laid_out else [])


def declarations(items):
    """Those that share a text, together: the code, then the text."""
    for _, group in itertools.groupby(items, key=lambda item: item.text or id(item)):
        group = list(group)
        yield ".PP"
        yield ".nf"
        yield ".ft B"
        yield from (escaped(line) for item in group for line in item.code)
        yield ".ft R"
        yield ".fi"
        if group[0].text:
            yield ".RS 4"
            yield from filled(group[0].text)
            yield ".RE"


def page_name(header):
    return header.stem if header.parent.name != "brisolt" else "brisolt_" + header.stem


def about(items):
    """What a header says of itself in a line."""
    text = " ".join(itertools.takewhile(bool, items[0].text))
    return re.sub(r"^[\w/]+\.h: ", "", text).rstrip(".")


def page(header, items, version, others):
    name, names = page_name(header), [name for item in items for name in item.names]
    through = "brisolt_host.h" if "host" in header.stem else "brisolt.h"
    yield f'.TH {name.upper()} 3 "" "brisolt {version}" "Functions of brisolt"'
    yield ".nh"  # a name of a function stays in one piece
    yield from [".SH NAME", ", ".join([name, *names]) + " \\- " + escaped(about(items))]
    yield from [".SH SYNOPSIS", f".B #include <{through}>", ".PP", "Link with", ".BR \\-lbrisolt ."]
    overview = list(itertools.dropwhile(bool, items[0].text))[1:]
    first = next((item.kind for item in items[1:] if item.kind != "other"), "section")
    if overview or first != "section":
        yield from [".SH DESCRIPTION", *filled(overview)]
    for kind, group in itertools.groupby(items[1:], key=lambda item: item.kind):
        group = list(group)
        if kind == "section":
            yield from (".SH " + escaped(item.title.upper()) for item in group)
        elif kind == "text":
            yield from (line for item in group for line in [".PP", *filled(item.text)])
        elif kind == "declaration":
            yield from declarations(group)
    yield from [".SH SEE ALSO", ",\n".join(f".BR {other} (3)" for other in others if other != name)]


def write(file, lines):
    text = "\n".join(lines) + "\n"
    file.write_text(re.sub(r"\n\.PP\n(?=\.(PP|SH|nf\n\.PP))", "\n", text))


def main():
    include, folder, version = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), sys.argv[3]
    folder.mkdir(parents=True, exist_ok=True)
    for old in folder.glob("*.3"):
        old.unlink()
    found = {header: headers.read(header) for header in sorted(include.rglob("*.h"))}
    others = [page_name(header) for header in found]
    for header, items in found.items():
        write(folder / f"{page_name(header)}.3", page(header, items, version, others))
        for name in {name for item in items for name in item.names}:
            (folder / f"{name}.3").write_text(f".so man3/{page_name(header)}.3\n")


if __name__ == "__main__":
    main()
