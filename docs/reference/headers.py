"""Reads the public headers: which text belongs to which declaration.

The headers are written for whoever reads them as they stand, so their comments bear no marks. What belongs to what
follows from the place:
  - the first comment of a file is the file's;
  - a line /* ---- Title ---- */ begins a section;
  - a comment with nothing directly below it belongs to the section, or to the file when its section has begun;
  - a comment directly above declarations belongs to each of them, up to the next comment or empty line;
  - a comment behind a declaration belongs to that one alone.
"""
import re

SECTION = re.compile(r"/\* ---- (.+?) -+ \*/$")


class Item:
    """A piece of a header. kind: file, section, text, declaration or other (preprocessor lines, braces).

    `text` is the comment that belongs to it, as lines without the frame; `code` its lines; `behind` the lines of a
    declaration and what is said behind them (members of records and enumerations, among others).
    """

    def __init__(self, kind, text=(), code=(), title=""):
        self.kind, self.text, self.code, self.title = kind, list(text), list(code), title

    @property
    def names(self):
        """The functions that a declaration declares."""
        code = re.sub(r"/\*.*?\*/", "", "\n".join(self.code), flags=re.S)
        if self.kind != "declaration" or "{" in code or code.lstrip().startswith("typedef"):
            return []
        found = re.search(r"\(\*(\w+)\(|([A-Za-z_]\w*)\(", code)
        return [found[1] or found[2]] if found else []


def inside(lines):
    """A comment's lines without its frame."""
    text = "\n".join(lines).strip()
    rows = text[2:-2].split("\n")
    rows = [re.sub(r"^ ?\* ?", "", row.strip("\n").lstrip() if row.lstrip().startswith("*") else row) for row in rows]
    rows = [row.rstrip() for row in rows]
    rows[0] = rows[0].strip()
    while rows and not rows[0]:
        rows.pop(0)
    while rows and not rows[-1]:
        rows.pop()
    return rows


def take_comment(lines, at):
    end = at
    while "*/" not in lines[end]:
        end += 1
    return lines[at:end + 1], end + 1


def take_declaration(lines, at):
    """Up to the semicolon, or the end of a body, outside braces and comments."""
    end, depth, comment = at, 0, False
    while True:
        bare, line = "", lines[end]
        while line:
            if comment:
                if "*/" not in line:
                    break
                line, comment = line.split("*/", 1)[1], False
            elif "/*" in line:
                before, line = line.split("/*", 1)
                bare, comment = bare + before, True
            else:
                bare, line = bare + line, ""
        depth += bare.count("{") - bare.count("}")
        end += 1
        if not comment and depth == 0 and bare.rstrip().endswith((";", "}")):
            return lines[at:end], end


def read(path):
    """The items of a header, in their order."""
    lines = path.read_text().splitlines()
    items, at, current = [], 0, []
    while at < len(lines):
        line = lines[at]
        if not line.strip():
            current = []
            at += 1
        elif line.startswith("/*"):
            comment, at = take_comment(lines, at)
            section = SECTION.match(comment[0]) if len(comment) == 1 else None
            below = lines[at] if at < len(lines) else ""
            if section:
                items.append(Item("section", title=section[1]))
            elif not items:
                items.append(Item("file", inside(comment)))
            elif not below.strip() or below.startswith(("/*", "#")):
                items.append(Item("text", inside(comment)))
            else:
                current = inside(comment)
        elif line.startswith(("#", "extern", "}")):
            while lines[at].endswith("\\"):
                items.append(Item("other", code=[lines[at]]))
                at += 1
            items.append(Item("other", code=[lines[at]]))
            at += 1
        else:
            code, at = take_declaration(lines, at)
            # A mark of brisolt.h, which is read alone here.
            text = [line.replace("[port]", "-1 bad or closed port") for line in current]
            items.append(Item("declaration", text, code))
    return items


def exported(path):
    """The names of the export list."""
    names = [line.split("#")[0].strip() for line in path.read_text().splitlines()]
    return [name for name in names if name]
