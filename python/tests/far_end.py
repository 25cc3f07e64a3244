"""The far end of a pseudo terminal, in a process of its own. It tells the device's path, then does what the lines on
its standard input say and, but for "send", answers when it is done: "send HEX", "take COUNT" (answers with the bytes in
hex, as soon as they have come), "echo", "answer REQUEST REPLY" (in hex: the reply follows each such request), "deaf"
(reads no more), "hang" (closes its end)."""

import os
import select
import sys
import tty


class FarEnd:
    def __init__(self):
        # This end keeps the device open, too: so it stays there between two opens of the other side.
        self.master, self.slave = os.openpty()
        tty.setraw(self.master)
        self.watched = [0, self.master]
        self.echo = False
        self.received = self.asked = self.commands = b""
        self.answers = {}
        self.wanted = None
        print(os.ttyname(self.slave), flush=True)

    def run(self):
        while True:
            ready = select.select(self.watched, [], [])[0]
            if self.master in ready:
                self.arrived(os.read(self.master, 65536))
            if 0 in ready:
                more = os.read(0, 65536)
                if not more:
                    return
                *lines, self.commands = (self.commands + more).split(b"\n")
                for line in lines:
                    self.command(*line.decode().split(" "))
            if self.wanted is not None and len(self.received) >= self.wanted:
                print(self.received[: self.wanted].hex(), flush=True)
                self.received, self.wanted = self.received[self.wanted :], None

    def arrived(self, data):
        if self.echo:
            os.write(self.master, data)
            return
        self.received += data
        self.asked += data
        for request, reply in self.answers.items():
            os.write(self.master, reply * self.asked.count(request))
            self.asked = self.asked.replace(request, b"")

    def command(self, what, *arguments):
        given = [bytes.fromhex(text) for text in arguments] if what in ("send", "answer") else arguments
        if what == "send":
            os.write(self.master, given[0])
        elif what == "take":
            self.wanted = int(given[0])
        elif what == "echo":
            self.echo = True
            print(flush=True)
        elif what == "answer":
            self.answers[given[0]] = given[1]
            print(flush=True)
        elif what == "deaf":
            self.watched = [0]
            print(flush=True)
        elif what == "hang":
            self.watched = [0]
            os.close(self.slave)
            os.close(self.master)
            print(flush=True)


FarEnd().run()
