"""brisolt.serial beside pyserial, in one run: what the same program takes on the one and on the other.

The sides take turns, round by round; a figure is the median of the rounds' ratios. Below 1 is quicker.
"""

import gc
import importlib
import os
import statistics
import subprocess
import sys
import time
from contextlib import contextmanager
from pathlib import Path

import brisolt.serial as ours

try:
    theirs = importlib.import_module("serial")
except ImportError:
    sys.exit("pyserial is needed to compare with (Debian: python3-serial)")

HERE = Path(__file__).parent
ROUNDS = 9


@contextmanager
def far_end(what):
    process = subprocess.Popen([sys.executable, str(HERE / "far_end.py"), what], stdout=subprocess.PIPE, text=True)
    try:
        yield process.stdout.readline().strip()
    finally:
        process.kill()
        process.wait()


def opened(module, path):
    return module.Serial(path, 115200, timeout=10, write_timeout=10)


def trips(port):
    for _ in range(300):
        port.write(b"x")
        port.read(1)
    return 300


def receive(size):
    def work(port):
        for _ in range(total := (1 << 20) // size):
            port.read(size)
        return total

    return work


def send(size):
    def work(port):
        data = b"x" * size
        for _ in range(total := (1 << 20) // size):
            port.write(data)
        return total

    return work


def single_bytes(port):
    for _ in range(4000):
        port.read(1)
    return 4000


def lines(port):
    for _ in range(1000):
        port.readline()
    return 1000


def waiting(port):
    for _ in range(5000):
        port.in_waiting
    return 5000


# Name, far end, work, limits of the ratios of time and of processor time.
ROWS = (
    ("trip of 1 byte", "echo", trips, 0.95, 0.85),
    ("receive, 1 KB a call", "source", receive(1 << 10), 1.00, 0.90),
    ("receive, 64 KB a call", "source", receive(1 << 16), 1.00, 0.90),
    ("send, 1 KB a call", "sink", send(1 << 10), 1.00, 0.90),
    ("send, 64 KB a call", "sink", send(1 << 16), 1.00, 0.90),
    ("byte by byte", "source", single_bytes, 0.10, None),
    ("readline, 1,000 lines", "source", lines, 0.10, None),
    ("in_waiting", "echo", waiting, 0.30, None),
)  # fmt: skip


def measured(work, port):
    """Microseconds a call: time and processor time."""
    gc.collect()
    start, used = time.perf_counter(), time.process_time()
    count = work(port)
    return (time.perf_counter() - start) * 1e6 / count, (time.process_time() - used) * 1e6 / count


def compare(what, work):
    """Medians of both sides and of the rounds' ratios."""
    rounds = []
    with far_end(what) as one, far_end(what) as other:
        with opened(ours, one) as port, opened(theirs, other) as peer:
            work(port), work(peer)
            for _ in range(ROUNDS):
                rounds.append((measured(work, port), measured(work, peer)))
    ratio = [statistics.median(mine[i] / its[i] for mine, its in rounds) for i in (0, 1)]
    mine, its = (statistics.median(side[0] for side in sides) for sides in zip(*rounds))
    return mine, its, ratio


PROGRAM = """
import time
start = time.perf_counter()
import {module} as serial
took = time.perf_counter() - start
port = serial.Serial({path!r})
resident = next(line for line in open("/proc/self/status") if line.startswith("VmRSS"))
print(took * 1e6, resident.split()[1])
"""


def import_and_memory():
    os.environ.pop("PYTHONDONTWRITEBYTECODE", None)  # both sides are compiled once, as an installed package is
    sides = {"brisolt.serial": [], "serial": []}
    with far_end("sink") as path:
        for _ in range(15):
            for module, results in sides.items():
                program = PROGRAM.format(module=module, path=path)
                out = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True, check=True)
                results.append(tuple(map(float, out.stdout.split())))
    return [[statistics.median(result[i] for result in results) for results in sides.values()] for i in (0, 1)]


def show(name, mine, its, ratio, limit, processor="", verdict=""):
    print(f"{name:24}{mine:>12}{its:>12}{ratio:>9}{limit:>8}{processor:>12}  {verdict}")


def verdict_of(*pairs):
    return "ok" if all(limit is None or value <= limit for value, limit in pairs) else "ABOVE"


def main():
    wanted = sys.argv[1:]
    show("microseconds a call", "brisolt", "pyserial", "ratio", "limit", "processor")
    for name, what, work, limit, used in ROWS:
        if wanted and not any(word in name for word in wanted):
            continue
        mine, its, ratio = compare(what, work)
        processor = f"{ratio[1]:.2f}" + (f" <{used:.2f}" if used else "")
        verdict = verdict_of((ratio[0], limit), (ratio[1], used))
        show(name, f"{mine:.2f}", f"{its:.2f}", f"{ratio[0]:.2f}", f"{limit:.2f}", processor, verdict)
    if not wanted or "import" in wanted:
        times, memory = import_and_memory()
        ratio = times[0] / times[1]
        show("import", f"{times[0]:.0f}", f"{times[1]:.0f}", f"{ratio:.2f}", "1.00", "", verdict_of((ratio, 1.0)))
        show("memory, a port open", f"{memory[0]:.0f} KB", f"{memory[1]:.0f} KB", f"{memory[0] / memory[1]:.2f}", "")


main()
