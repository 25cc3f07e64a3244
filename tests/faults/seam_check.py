"""Whether every call of the host that objects make is in the seam's list: seam_check.py NM LIST OBJECT..."""

import re
import subprocess
import sys
from pathlib import Path

nm, rows, *objects = sys.argv[1:]
text = Path(rows).read_text(encoding="utf-8")
known = set(re.findall(r"^[a-z]+ +([a-z0-9_]+) ", text, re.M))
known.update(name for line in re.findall(r"^- ([^\n]+?): ", text, re.M) for name in line.split())
files = [file for each in objects for file in each.split(";") if file]
symbols = subprocess.run([nm, "-uC", *files], check=True, capture_output=True, text=True).stdout
ours = re.compile(r"_[A-Z]|line|brisolt|__(cxa|gxx|asan|ubsan|tsan|lsan|sanitizer|stack|tls|errno|libc_single)")
asked = set()
for symbol in re.findall(r"^ +U (.+)$", symbols, re.M):
    if re.search(r"_chk$|^__isoc", symbol):  # the host's other names for a function
        symbol = re.sub(r"^__(?:isoc\d+_)?(\w+?)(?:_chk)?$", r"\1", symbol)
    # Of C++ what has no seam of its own: files and folders; the rest of its library is memory and the like.
    library = re.match(r"(std::filesystem::(?!__cxx11::path)\w+|std::basic_[io]?fstream)", symbol)
    if library:
        asked.add(library[1])
    elif re.fullmatch(r"[a-z_]\w*", symbol) and not ours.match(symbol):
        asked.add(symbol)
if missing := sorted(asked - known):
    sys.exit("past the seam, and seam.list does not say why: " + " ".join(missing))
