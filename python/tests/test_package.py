"""The package as its users get it: built by pip and build without a network."""

import importlib.util
import os
import shutil
import subprocess
import sys

import pytest
from conftest import SOURCE

# The binding is long, and need not be fast here.
QUIET = {**os.environ, "CFLAGS": "-O0 -g0", "PIP_NO_INDEX": "1", "PIP_DISABLE_PIP_VERSION_CHECK": "1"}
USE = "import brisolt, brisolt.serial; p = brisolt.Port('loop:packaged', timeout=9); p.write(b'x'); print(p.read(), brisolt.__file__)"


def run(*command, **options):
    done = subprocess.run(command, capture_output=True, text=True, env=QUIET, **options)
    assert done.returncode == 0, done.stdout + done.stderr


@pytest.fixture(scope="module")
def sources(tmp_path_factory):
    """A copy of the sources: a build leaves its files among them."""
    root = tmp_path_factory.mktemp("sources")
    shutil.copytree(SOURCE / "python", root / "python")
    shutil.copytree(SOURCE / "include", root / "include")
    return root / "python"


@pytest.mark.parametrize("way", ["pip", "build"])
def test_it_installs_without_a_network(sources, tmp_path, way):
    if importlib.util.find_spec("pip") is None or importlib.util.find_spec(way) is None:
        pytest.skip(f"python3 -m {way} is not there (Debian: python3-{way}, python3-venv)")
    what = str(sources)
    if way == "build":
        run(sys.executable, "-m", "build", "--outdir", str(tmp_path), cwd=sources)
        (what,) = map(str, tmp_path.glob("*.whl"))
        assert list(tmp_path.glob("*.tar.gz"))
    run(sys.executable, "-m", "pip", "install", "--no-deps", "--target", str(tmp_path / "place"), what, cwd=tmp_path)
    environment = {**os.environ, "PYTHONPATH": str(tmp_path / "place")}
    out = subprocess.check_output([sys.executable, "-c", USE], text=True, env=environment, cwd=tmp_path)
    assert out.startswith("b'x'") and str(tmp_path / "place") in out
