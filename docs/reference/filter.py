#!/usr/bin/env python3
"""Shows Doxygen a file of the manual as it understands it. Writes it to the standard output.

A header gets the marks that it does without (headers.py has the rules); a page's names of functions become links.
"""
import itertools
import pathlib
import re
import sys

sys.dont_write_bytecode = True
import headers

ROOT = pathlib.Path(__file__).resolve().parents[2]


def names():
    """What the pages and the headers may name and link to: functions, records, constants."""
    text = "\n".join(header.read_text() for header in (ROOT / "include").rglob("*.h"))
    records = re.findall(r"^} (\w+);", text, flags=re.M)
    return set(headers.exported(ROOT / "src/api/exports.list")) | set(records) | set(re.findall(r"\b(COM_\w+) =", text))


NAMES = names()


def prose(text):
    """Text in which nothing means anything but the names that it has."""
    text = re.sub(r'([\\@&$#<>%"*_|\[\]-])', r"\\\1", text)
    text = text.replace("::", "\\::")
    text = re.sub(r"`(.+?)`", r"<tt>\1</tt>", text)

    def link(word):
        name = word[0].replace("\\_", "_")
        return f'@ref {name} "{name}"' if name in NAMES else word[0]

    return re.sub(r"(?<![\w.])(?:\\?[\w_])+(?![\w])", link, text)


def is_table(line):
    return line.startswith("  ") or re.search(r"\S {2,}\S", line)


def described(lines):
    """A comment's text: paragraphs as prose, what is laid out by blanks as it stands."""
    out, table = [], []

    def end_table():
        if table:
            out.extend(["@verbatim", *table, "@endverbatim"])
            table.clear()

    for line in lines:
        if is_table(line) and (out or table or line.startswith("  ")):
            table.append(line)
        else:
            end_table()
            out.append(prose(line))
    end_table()
    return out


def comment(lines, start="/**"):
    text = "\n".join(lines).replace("*/", "* /")
    return f"{start}\n{text}\n*/" if "\n" in text or "@" in text else f"{start} {text} */"


def behind(lines):
    """The comments behind and above the members of a record or an enumeration, marked."""
    text = "\n".join(lines)
    standing = lambda c: f"{c[1]}{comment([prose(' '.join(headers.inside([c[2]])))])}"
    text = re.sub(r"(^[ \t]+)(/\*(?!\*).*?\*/)$", standing, text, flags=re.S | re.M)
    return re.sub(r"(?<=[;,{\w}]) +(/\*(?!\*).*?\*/)",
                  lambda c: " " + comment([prose(" ".join(headers.inside([c[1]])))], "/**<"), text, flags=re.S)


def declaration(item):
    text = described(item.text)
    code = item.code
    if item.names and "/*" in code[-1]:
        code = code[:-1] + [code[-1].split("/*")[0].rstrip()]
        text.append(prose(" ".join(headers.inside([item.code[-1][item.code[-1].index("/*"):]]))) + ".")
    elif not item.names:
        code = [behind(code)]
    return ([comment(text)] if text else []) + code


def header(path):
    out, in_group, items = [], False, headers.read(path)
    for number, item in enumerate(items):
        if item.kind == "file":
            title = re.sub(r"^[\w/]+\.h(pp)?: ", "", item.text[0])
            out.append(comment(["@file", prose(title[0].upper() + title[1:]), *described(item.text[1:])]))
        elif item.kind == "section":
            out += ["/**@}*/"] if in_group else []
            in_group, following = True, []
            for text in items[number + 1:]:
                if text.kind != "text":
                    break
                following += ["", *described(text.text)]
                text.kind = "taken"
            out += [comment(["@name " + prose(item.title), *following]), "/**@{*/"]
        elif item.kind == "text":
            out.append(comment(["@file", *described(item.text)]))
        elif item.kind == "declaration":
            out += declaration(item)
        elif item.kind == "other":
            if in_group and (item.code[0].startswith("}") or item.code[0] == "#ifdef __cplusplus"):
                out.append("/**@}*/")
                in_group = False
            out += item.code
    return out


def page(path):
    out, fenced = [], False
    for line in path.read_text().splitlines():
        if line.startswith("```"):
            fenced = not fenced
            line = "```" if line == "```output" else line
        elif not fenced:
            line = re.sub(r"`(\w+)`", lambda c: f"<tt>@ref {c[1]}</tt>" if c[1] in NAMES else c[0], line)
            line = re.sub(r"\[([^\]]+)\]\(\.\./(?!include/)([^)]+)\)", r"`\2`", line) # not part of the site
            line = re.sub(r"\[([^\]]+)\]\(\.\./include/([^)]+)\)", r'@ref \2 "\1"', line)
            line = "" if line.startswith("<!--") else line
        out.append(line)
    return out


def overloads(lines):
    """C++: a member without a text that follows one of its name gets the text of that one; each says how it fails."""
    out, text, held, name = [], [], [], None
    for number, line in enumerate(lines):
        held.append(line)
        member = re.match(r"    (?! |/).*?(~?\w+|operator=)\(", line)
        if member:
            own = [row for row in held if row.lstrip().startswith("///")]
            inherits = member[1] == name and not own
            if not inherits:
                text, name = own, member[1]
            head = " ".join(lines[number:number + 3]).split(" {")[0]
            how = "stands in error" if "error_code &error)" in head else "is thrown" if inherits else ""
            first = next(at for at, row in enumerate(held) if re.match(r"    (?! |/)", row))
            held[first:first] = (text if inherits else []) + ([f"    /// A failure {how}."] if how else [])
        if member or not line or line.startswith("    }"):
            out, held = out + held, []
    return out + held


def main():
    path = pathlib.Path(sys.argv[1])
    if path.suffix == ".h":
        lines = header(path)
    elif path.suffix == ".md":
        lines = page(path)
    else:
        text = path.read_text()
        text = re.sub(r"\A/\*\n \* [\w.]+: (.)", lambda first: "/** @file\n * " + first[1].upper(), text)
        # The names as programs write them; and what is put into another namespace, which is not here.
        text = re.sub(r"^(inline namespace cpp {|} // namespace cpp|template <> .*)$", "", text, flags=re.M)
        lines = overloads(text.splitlines())
    print("\n".join(lines))


if __name__ == "__main__":
    main()
