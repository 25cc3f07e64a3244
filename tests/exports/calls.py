#!/usr/bin/env python3
"""Writes a call of each exported function that takes a port or a pointer, from the public headers.

    calls.py LIST ANSWERS OUTPUT HEADER...

LIST names the functions, ANSWERS says what they answer to what they refuse.
"""
import fnmatch
import pathlib
import re
import sys

# What stands for a number that is not looked at; a handle must not be one of our own.
NUMBERS = {"handle": "-1", "deviceHandle": "-1"}


def rows_of(path):
    lines = (line.split("#")[0].split() for line in pathlib.Path(path).read_text().splitlines())
    return [line for line in lines if line]


def code_of(header):
    """The declarations of a header: no comments, no preprocessor, no bodies of records."""
    text = re.sub(r"/\*.*?\*/", "", pathlib.Path(header).read_text(), flags=re.S)
    text = re.sub(r'^\s*#.*$|extern "C" \{', "", text, flags=re.M)
    bodies = 1
    while bodies:
        text, bodies = re.subn(r"\{[^{}]*\}", "", text)
    return [" ".join(declaration.split()) for declaration in text.split(";")]


def parameters_of(declaration, name):
    """(type, name) of each parameter."""
    rest = declaration[declaration.index(name + "(") + len(name):]
    depth, parts = 0, [""]
    for character in rest:
        depth += {"(": 1, ")": -1}.get(character, 0)
        if depth == 0:
            break
        if character == "," and depth == 1:
            parts.append("")
        else:
            parts[-1] += character
    parts[0] = parts[0][1:]
    for part in map(str.strip, parts):
        function = re.fullmatch(r"(.*\(\*)(\w+)(\).*)", part)
        plain = re.fullmatch(r"(.*?[\s*])(\w+)", part)
        if function:
            yield function[1] + function[3], function[2]
        elif plain:
            yield plain[1].strip(), plain[2]


def is_pointer(kind):
    return "*" in kind or kind.endswith("Func")


class Answers:
    def __init__(self, path):
        self.rows = rows_of(path)
        self.used = set()

    def to(self, function, argument):
        for functions, arguments, answer in self.rows:
            matching = [pattern for pattern in functions.split(",") if fnmatch.fnmatchcase(function, pattern)]
            if matching and fnmatch.fnmatchcase(argument, arguments):
                self.used.update((pattern, arguments) for pattern in matching)
                return "{}" if answer == "-" else answer
        return "-1"

    def idle(self):
        return [f"{one} {argument}" for functions, argument, _ in self.rows for one in functions.split(",")
                if (one, argument) not in self.used]


def row(declaration, name, answers):
    """The function's entry in the table, empty when it takes neither."""
    parameters = list(parameters_of(declaration, name))
    pointers = [parameter for kind, parameter in parameters if is_pointer(kind)]
    with_port = any(parameter == "port" for _, parameter in parameters)
    if not pointers and not with_port:
        return ""
    arguments = []
    for kind, parameter in parameters:
        if is_pointer(kind):
            arguments.append(f"with.pointer<{kind}>({pointers.index(parameter)})")
        else:
            arguments.append("with.port" if parameter == "port" else NUMBERS.get(parameter, "1"))
    if "..." in declaration:
        arguments.append("1")  # a format alone is a mistake to a careful compiler
    call = f"{name}({', '.join(arguments)})"
    answer = lambda argument: answers.to(name, argument)
    if re.match(rf"void {name}\(", declaration):
        call = f"({call}, nullptr)"
        answer = lambda argument: "{}"
    refused = [("port", -1), ("closed", -1)] if with_port else []
    refused += [(pointer, number) for number, pointer in enumerate(pointers)]
    cases = ", ".join(
        f'{{"{argument}", {number}, {answer(argument)}}}'
        for argument, number in refused if answer(argument) != "skip")
    return f'{{"{name}", [](const Arguments& with) {{ return word({call}); }},\n {{{cases}}}}},\n'


def main(listed, answers_file, output, headers):
    answers = Answers(answers_file)
    declarations = [declaration for header in headers for declaration in code_of(header)]
    text = ""
    for (name,) in rows_of(listed):
        found = [declaration for declaration in declarations if re.search(rf"\b{name}\(", declaration)]
        if len(found) != 1:
            sys.exit(f"{name} is declared {len(found)} times")
        text += row(found[0], name, answers)
    if answers.idle():
        sys.exit(f"{answers_file}: of no function: {'; '.join(answers.idle())}")
    pathlib.Path(output).write_text(text)


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[4:])
