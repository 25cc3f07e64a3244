"""The far end of a pseudo terminal, in a process of its own. It tells the device's path, then does what the lines on
its standard input say: the name of a function below, and what that is given, bytes in hex. It answers when it is done."""

import os
import select
import sys
import tty


class FarEnd:
    def __init__(self):
        # This end keeps the device open, too: so it stays there between two opens of the other side.
        self.master, self.slave = os.openpty()
        tty.setraw(self.master)
        self.watched, self.echoes, self.answers = [0, self.master], False, {}
        self.received = self.asked = b""

    def arrived(self):
        data = os.read(self.master, 65536)
        if self.echoes:
            os.write(self.master, data)
            return
        self.received += data
        self.asked += data
        for request, reply in self.answers.items():
            os.write(self.master, reply * self.asked.count(request))
            self.asked = self.asked.replace(request, b"")

    def take(self, count):
        while len(self.received) < int(count):
            self.arrived()
        taken, self.received = self.received[: int(count)], self.received[int(count) :]
        return taken.hex()

    def answer(self, request, reply):
        """From now on the reply follows each such request."""
        self.answers[bytes.fromhex(request)] = bytes.fromhex(reply)

    def echo(self):
        self.echoes = True

    def deaf(self):
        self.watched = [0]

    def hang(self):
        self.deaf()
        os.close(self.slave)
        os.close(self.master)


far = FarEnd()
print(os.ttyname(far.slave), flush=True)
while True:
    ready = select.select(far.watched, [], [])[0]
    if far.master in ready:
        far.arrived()
    if 0 in ready:
        what, *given = sys.stdin.readline().split() or sys.exit()
        print("" if what == "send" else getattr(far, what)(*given) or "", flush=True)
        if what == "send":  # which may wait for who reads
            os.write(far.master, bytes.fromhex(given[0]))
