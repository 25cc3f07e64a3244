"""The far end of the measured line: it echoes, takes, or sends without end, as its argument says."""

import os
import sys
import tty


def main(what):
    master, slave = os.openpty()
    tty.setraw(master)
    print(os.ttyname(slave), flush=True)
    block = (b"x" * 39 + b"\n") * 100
    while True:
        if what == "echo":
            os.write(master, os.read(master, 65536))
        elif what == "sink":
            os.read(master, 65536)
        else:
            os.write(master, block)


main(sys.argv[1])
