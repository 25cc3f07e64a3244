"""The declarations of the library's headers as cffi reads them, so that no second copy can drift from the first."""

import re
import shlex
import subprocess
import sysconfig
from pathlib import Path

PACKING = re.compile(r"^#pragma pack\((push, *(\d+)|pop)\)$", re.MULTILINE)


def _source(header, seen):
    """The header with what it includes from its own folder in place; the system's headers are cffi's to know."""
    path = header.resolve()
    if path in seen:
        return ""
    seen.add(path)

    def included(match):
        return _source(path.parent / match[1], seen)

    text = re.sub(r'^#include "([^"]+)"$', included, path.read_text(), flags=re.MULTILINE)
    return re.sub(r"^#include <[^>]+>$", "", text, flags=re.MULTILINE)


def declarations(include):
    """Pairs of a text for cdef and the packing of its records (None: as the compiler aligns them)."""
    seen = set()
    text = "\n".join(_source(Path(include) / name, seen) for name in ("brisolt.h", "brisolt_host.h"))
    compiler = shlex.split(sysconfig.get_config_var("CC") or "cc")[0]
    # Without __GNUC__ the headers leave out what only this compiler reads.
    command = [compiler, "-E", "-P", "-U__GNUC__", "-x", "c", "-"]
    text = subprocess.run(command, input=text, stdout=subprocess.PIPE, check=True, text=True).stdout
    pieces, packing, start = [], None, 0
    for mark in PACKING.finditer(text):
        pieces.append((text[start : mark.start()], packing))
        packing = int(mark[2]) if mark[2] else None
        start = mark.end()
    pieces.append((text[start:], packing))
    return pieces


def functions(include):
    """The names of the functions that the headers declare."""
    text = "".join(piece for piece, _ in declarations(include))
    return set(re.findall(r"\b(\w+)\((?!\*)[^;{}]*\)\s*;", text)) - {"void"}
