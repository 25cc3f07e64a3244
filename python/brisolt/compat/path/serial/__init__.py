"""`import serial` with this folder on the path: brisolt.serial takes this module's place."""

import os
import sys

try:
    import brisolt
except ImportError:  # the package is where this file is, which need not be on the path
    _here = os.path.abspath(__file__)
    for _ in range(5):
        _here = os.path.dirname(_here)
    sys.path.append(_here)

from brisolt.compat.alias import install

install()
