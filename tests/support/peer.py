#!/usr/bin/env python3
"""What a test has to do with in a process that is not its own. Ends with its standard input, so that it outlives no test.

    peer.py hold PATH             keeps a device or file to itself; prints "held"
    peer.py pty-echo              makes a pseudo terminal, prints its slave's path and sends back what comes
    peer.py send DESCRIPTOR FILE  sends a file over a descriptor that the test handed down
"""
import fcntl
import os
import select
import sys
import termios
import time
import tty


def hold(path):
    held = os.open(path, os.O_RDWR | os.O_NOCTTY)
    # The ioctl keeps out everybody but a privileged user, the lock whoever asks for it.
    if os.isatty(held):
        fcntl.ioctl(held, termios.TIOCEXCL)
    fcntl.flock(held, fcntl.LOCK_EX | fcntl.LOCK_NB)
    print("held", flush=True)
    sys.stdin.read()


def pty_echo():
    master, slave = os.openpty()
    tty.setraw(slave)
    print(os.ttyname(slave), flush=True)
    os.close(slave)
    while not select.select([0], [], [], 0)[0] or os.read(0, 256):
        select.select([0, master], [], [])
        try:
            while select.select([master], [], [], 0)[0]:
                send(master, os.read(master, 4096))
        except OSError:  # nobody has the slave open at the moment
            time.sleep(0.002)


def send(descriptor, data):
    while data:
        select.select([], [descriptor], [])
        try:
            data = data[os.write(descriptor, data):]
        except BlockingIOError:
            pass


if sys.argv[1] == "hold":
    hold(sys.argv[2])
elif sys.argv[1] == "pty-echo":
    pty_echo()
else:
    with open(sys.argv[3], "rb") as file:
        send(int(sys.argv[2]), file.read())
