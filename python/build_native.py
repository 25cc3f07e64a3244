"""Makes brisolt._native, the binding of the whole library.

Run as a program it writes the C source: build_native.py OUTPUT. setup.py compiles it by `builder`.
"""

import os
import shlex
import shutil
import subprocess
import sys
from pathlib import Path

import cffi

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

from declarations import declarations  # noqa: E402 (it is beside this file, which need not be on the path)

# A source archive has the headers beside the package, the repository has them above it.
INCLUDE = next(folder for folder in (HERE / "include", HERE.parent / "include") if folder.is_dir())

SOURCE = """
#include <brisolt.h>
#include <brisolt_host.h>
#include "_calls.h"

static const void *brisolt_calls(void) {
    static const BrisoltCalls calls = {ComHostRead, ComHostWrite, ComStatus, ComCancel, ComHostClose};
    return &calls;
}
"""


def link():
    """Where the library is: the folder that the environment names, what pkg-config knows, or the usual places."""
    folder = os.environ.get("BRISOLT_LIBRARY_DIR")
    if folder:
        return {"library_dirs": [folder], "extra_link_args": ["-Wl,-rpath," + folder]}
    if shutil.which("pkg-config"):
        asked = subprocess.run(["pkg-config", "--libs-only-L", "brisolt"], capture_output=True, text=True)
        folders = [flag[2:] for flag in shlex.split(asked.stdout) if flag.startswith("-L")]
        return {"library_dirs": folders, "extra_link_args": ["-Wl,-rpath," + folder for folder in folders]}
    return {}


def builder():
    ffi = cffi.FFI()
    for text, packing in declarations(INCLUDE):
        ffi.cdef(text, pack=packing)
    ffi.cdef("const void *brisolt_calls(void);")
    folders = [str(INCLUDE), str(HERE / "brisolt")]
    ffi.set_source("brisolt._native", SOURCE, libraries=["brisolt"], include_dirs=folders, **link())
    return ffi


if __name__ == "__main__":
    builder().emit_c_code(sys.argv[1])
