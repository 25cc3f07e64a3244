"""python3 -m brisolt.serial: the terminal."""

from .tools import miniterm

miniterm.main()
