"""The two modules in C, and the headers in a source archive."""

import shutil
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.sdist import sdist

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

from build_native import INCLUDE  # noqa: E402


class WithHeaders(sdist):
    """A source archive is built away from the repository: it takes the library's headers along."""

    def make_release_tree(self, base_dir, files):
        super().make_release_tree(base_dir, files)
        shutil.copytree(INCLUDE, Path(base_dir) / "include", dirs_exist_ok=True)


# The binding is read from the headers when it is to be compiled; who asks for name and version, or for the sources,
# does without.
COMPILES = not {"dist_info", "egg_info", "sdist"} & set(sys.argv)

setup(
    cmdclass={"sdist": WithHeaders},
    ext_modules=[Extension("brisolt._line", ["brisolt/_line.c"], include_dirs=["brisolt"])],
    cffi_modules=["build_native.py:builder"] if COMPILES else [],
)
