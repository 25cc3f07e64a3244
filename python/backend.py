"""The build of the package, by setuptools. What it needs is asked for only where it is missing: the build folder that
pip and build make hides what the system has, and on a machine without a network it must do."""

import importlib.util
import os
import sys

NEEDS = {"setuptools": "setuptools", "cffi": "cffi>=1.15"}

# Where Debian has the packages of its own.
sys.path += [
    folder for folder in ("/usr/lib/python3/dist-packages",) if folder not in sys.path and os.path.isdir(folder)
]


def _missing():
    return [wanted for name, wanted in NEEDS.items() if importlib.util.find_spec(name) is None]


def get_requires_for_build_wheel(config_settings=None):
    return _missing()


def get_requires_for_build_sdist(config_settings=None):
    return _missing()


def get_requires_for_build_editable(config_settings=None):
    return _missing()


def __getattr__(name):
    """All other hooks are those of setuptools."""
    if name.startswith("__"):
        raise AttributeError(name)
    from setuptools import build_meta

    return getattr(build_meta, name)
