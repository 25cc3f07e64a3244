"""The package as its users get it: built by build and installed by pip without a network."""

import importlib.util
import os
import shutil
import subprocess
import sys

import brisolt
import pytest
from conftest import SOURCE

# The binding is long, and need not be fast here.
QUIET = {**os.environ, "CFLAGS": "-O0 -g0", "PIP_NO_INDEX": "1", "PIP_DISABLE_PIP_VERSION_CHECK": "1"}
QUIET.pop("PYTHONPYCACHEPREFIX", None)  # pip is compiled where it is, and the builds of each run elsewhere
if shutil.which("ccache"):
    QUIET["CC"] = "ccache cc"
USE = "import brisolt; p = brisolt.Port('loop:packaged', timeout=9); p.write(b'x'); print(p.read(), brisolt.__version__, brisolt.__file__)"


def run(*module, **options):
    command = [sys.executable, "-m", *map(str, module)]
    done = subprocess.run(command, capture_output=True, text=True, env=QUIET, **options)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def test_it_installs_without_a_network(tmp_path):
    """Both hide from a build what the system has, each in a way of its own. The source archive is built once, and is
    what the compiler sees; of the folder it is asked whether pip would install it."""
    for name in "pip", "build":
        if importlib.util.find_spec(name) is None:
            pytest.skip(f"python3 -m {name} is not there (Debian: python3-{name}, python3-venv)")
    for folder in "python", "include":  # a copy: a build leaves its files among the sources
        shutil.copytree(SOURCE / folder, tmp_path / folder)
    run("build", "--sdist", "--outdir", tmp_path, cwd=tmp_path / "python")
    (archive,) = tmp_path.glob("*.tar.gz")
    place = tmp_path / "place"
    into_place = "pip", "install", "--no-deps", "--target", place
    assert "Would install brisolt" in run(*into_place, "--dry-run", ".", cwd=tmp_path / "python")
    run(*into_place, archive, cwd=tmp_path)
    environment = {**os.environ, "PYTHONPATH": str(place)}
    out = subprocess.check_output([sys.executable, "-c", USE], text=True, env=environment, cwd=tmp_path)
    assert out.startswith(f"b'x' {brisolt.__version__} {place}")
