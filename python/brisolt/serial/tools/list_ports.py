"""The serial ports of this machine: comports(), grep(), and a program: python3 -m brisolt.serial.tools.list_ports"""

from __future__ import annotations

import re
import sys

from .list_ports_linux import comports

TYPE_CHECKING = False
if TYPE_CHECKING:
    from collections.abc import Iterator

    from .list_ports_common import ListPortInfo

__all__ = ["comports", "grep", "main"]


def grep(regexp: str, include_links: bool = False) -> Iterator[ListPortInfo]:
    """The ports whose device, description or hardware id a regular expression finds, letter case aside."""
    wanted = re.compile(regexp, re.IGNORECASE)
    for info in comports(include_links):
        if any(wanted.search(text) for text in (info.device, info.description, info.hwid)):
            yield info


def main() -> None:
    import argparse

    parser = argparse.ArgumentParser(description="Serial port enumeration")
    parser.add_argument("regexp", nargs="?", help="only show ports that match this regex")
    parser.add_argument("-v", "--verbose", action="store_true", help="show more messages")
    parser.add_argument("-q", "--quiet", action="store_true", help="suppress all messages")
    parser.add_argument("-n", type=int, help="only output the N-th entry")
    parser.add_argument("-s", "--include-links", action="store_true", help="include links to real devices")
    args = parser.parse_args()
    if args.regexp and not args.quiet:
        print(f"Filtered list with regexp: {args.regexp!r}", file=sys.stderr)
    found = sorted(grep(args.regexp, args.include_links) if args.regexp else comports(args.include_links))
    for number, info in enumerate(found, 1):
        if args.n is None or args.n == number:
            print(f"{info.device:20}")
            if args.verbose:
                print(f"    desc: {info.description}\n    hwid: {info.hwid}")
    if not args.quiet:
        print(f"{len(found)} ports found" if found else "no ports found", file=sys.stderr)


if __name__ == "__main__":
    main()
