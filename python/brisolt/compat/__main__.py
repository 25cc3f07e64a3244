"""python3 -m brisolt.compat PROGRAM ARGUMENTS... | -m MODULE ARGUMENTS... | (nothing: the folder for PYTHONPATH)"""

from __future__ import annotations

import os
import runpy
import shutil
import sys

USAGE = "usage: python3 -m brisolt.compat [PROGRAM | -m MODULE] ARGUMENTS..."


def folder() -> str:
    return os.path.join(os.path.dirname(os.path.abspath(__file__)), "path")


def program_file(name: str) -> str:
    """The file of a program: a path, or a name that is looked for where the shell looks."""
    found = name if os.path.exists(name) else shutil.which(name)
    if found is None:
        raise SystemExit(f"{name}: no such file, and no program of that name on PATH")
    with open(found, "rb") as file:
        start = file.read(256).split(b"\n")[0]
    if start.startswith(b"\x7fELF"):
        raise SystemExit(f"{found} is no Python program")
    return found


def main() -> None:
    arguments = sys.argv[1:]
    if not arguments:
        print(folder())
        return
    if arguments[0] in ("-h", "--help") or arguments == ["-m"]:
        print(USAGE)
        raise SystemExit(0 if arguments[0] != "-m" else 2)
    # Programs that it starts find `serial` the same way.
    before = os.environ.get("PYTHONPATH")
    os.environ["PYTHONPATH"] = folder() if not before else folder() + os.pathsep + before
    sys.path.insert(0, folder())
    from .alias import install

    install()
    if arguments[0] == "-m":
        sys.argv = arguments[1:]
        sys.path.insert(0, os.getcwd())
        runpy.run_module(sys.argv[0], run_name="__main__", alter_sys=True)
        return
    path = program_file(arguments[0])
    sys.argv = [path, *arguments[1:]]
    sys.path.insert(0, os.path.dirname(os.path.realpath(path)))
    runpy.run_path(path, run_name="__main__")


if __name__ == "__main__":
    main()
