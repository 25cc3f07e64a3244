"""Makes `serial` and its submodules other names of `brisolt.serial` and its own: the same modules, so that a class
is the same by either name."""

from __future__ import annotations

import importlib
import importlib.abc
import importlib.machinery
import importlib.util
import sys

TYPE_CHECKING = False
if TYPE_CHECKING:
    from collections.abc import Sequence
    from types import CodeType, ModuleType

NAME, REAL = "serial", "brisolt.serial"


def _real_name(name: str) -> str:
    return REAL + name[len(NAME) :]


class Loader(importlib.abc.InspectLoader):
    """Loads the module of the other name."""

    def __init__(self, real: importlib.machinery.ModuleSpec) -> None:
        self.real = real

    def create_module(self, alias: importlib.machinery.ModuleSpec) -> ModuleType:
        return importlib.import_module(self.real.name)

    def exec_module(self, module: ModuleType) -> None:
        module.__spec__ = self.real  # the import has put that of the alias there

    # For `python3 -m serial.tools.miniterm`:
    def get_code(self, fullname: str) -> CodeType | None:
        code: CodeType | None = self.real.loader.get_code(self.real.name)  # type: ignore[union-attr]
        return code

    def get_source(self, fullname: str) -> str | None:
        source: str | None = self.real.loader.get_source(self.real.name)  # type: ignore[union-attr]
        return source

    def is_package(self, fullname: str) -> bool:
        return self.real.submodule_search_locations is not None


class Finder(importlib.abc.MetaPathFinder):
    def find_spec(
        self, fullname: str, path: Sequence[str] | None, target: ModuleType | None = None
    ) -> importlib.machinery.ModuleSpec | None:
        if fullname != NAME and not fullname.startswith(NAME + "."):
            return None
        real = importlib.util.find_spec(_real_name(fullname))
        if real is None:
            return None
        return importlib.machinery.ModuleSpec(
            fullname, Loader(real), origin=real.origin, is_package=real.submodule_search_locations is not None
        )


def install() -> None:
    """From now on `import serial` gives brisolt.serial."""
    if not any(isinstance(finder, Finder) for finder in sys.meta_path):
        sys.meta_path.insert(0, Finder())
    sys.modules[NAME] = importlib.import_module(REAL)
