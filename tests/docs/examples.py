#!/usr/bin/env python3
"""Compiles the examples of a page of the manual, and runs those that need nothing but this machine.

    examples.py PAGE --include FOLDER --library FOLDER [--cc CC] [--cxx CXX] [--flags=FLAGS]
                     [--package FOLDER] [--interpreter PYTHON]

An example is a fenced block marked c, cpp or python. One without a main is the middle of a function that has an
open port, `port` (a loop; in C++ a brisolt::port). A block marked output that follows is what the example prints.
Not run is what names a device, a host or a modem, and what stands behind the line <!-- compiled only -->.
Python examples are run where the package has been built (--package) and else only parsed.
"""
import argparse
import ast
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ELSEWHERE = re.compile(r'"/dev/|\'/dev/|"(usb|tcp|tls|rfc2217|rfc2217-tls):|ComTAPI_')
PATIENCE = 60  # seconds; the slowest takes two

HEADERS = "brisolt.h brisolt_host.h poll.h signal.h stdio.h stdlib.h string.h unistd.h".split()
C_AROUND = "".join(f"#include <{header}>\n" for header in HEADERS) + """
static void example(int32_t port) {
    (void)port;
#line %d "%s"
%s
}

int main(void) {
    int32_t port = ComHostOpen("loop:example", 9600, "8N1");
    if (port < 0)
        return 99;
    example(port);
    ComHostClose(port, 1000);
    return 0;
}
"""

CPP_AROUND = """
#include <brisolt.hpp>
#include <array>
#include <iostream>
#include <thread>
using namespace std::chrono_literals;

int main() {
    [[maybe_unused]] brisolt::port port("loop:example");
#line %d "%s"
%s
}
"""


class Example:
    def __init__(self, page, line, language, text, compiled_only):
        self.line, self.language, self.text, self.output = line, language, text, None
        self.whole = bool(re.search(r"\bmain\(", text))
        self.runs = not compiled_only and not ELSEWHERE.search(text)
        around = '#line %d "%s"\n%s' if self.whole else C_AROUND if language == "c" else CPP_AROUND
        self.source = around % (line, page, text)
        # A whole program in C++ is for either; what is only in the newer one is shown in the middle of one.
        self.standards = ["gnu99"] if language == "c" else ["c++17", "c++20"] if self.whole else ["c++20"]


def examples_of(page):
    """The examples of a page, each with what it prints where the page tells."""
    found, mark = [], ""
    lines = iter(enumerate(page.read_text().splitlines(), 1))
    for number, line in lines:
        if not line.startswith("```"):
            mark = line.strip() or mark
            continue
        language = line[3:].strip()
        body = []
        for _, inner in lines:
            if inner.startswith("```"):
                break
            body.append(inner)
        else:
            sys.exit(f"{page}:{number}: a block without an end")
        text = "\n".join(body) + "\n"
        if language == "output":
            found[-1].output = text
        elif language in ("c", "cpp", "python"):
            found.append(Example(page, number + 1, language, text, mark == "<!-- compiled only -->"))
        mark = ""
    return found


def compiler_fault(example, options, folder):
    source, program = f"{folder}/example.{example.language}", f"{folder}/example"
    pathlib.Path(source).write_text(example.source)
    strict = ["-Wall", "-Wextra", "-Wpedantic", "-Werror", "-O1", *options.flags.split(), f"-I{options.include}"]
    if not example.whole:
        strict += ["-Wno-unused-variable", "-Wno-unused-but-set-variable"]
    compiler = options.cc if example.language == "c" else options.cxx
    library = [f"-L{options.folder}", "-lbrisolt", f"-Wl,-rpath,{options.folder}"]
    for standard in example.standards:
        arguments = [compiler, f"-std={standard}", *strict, source, "-o", program, *library]
        done = subprocess.run(arguments, capture_output=True, text=True)
        if done.returncode:
            return f"it does not compile as {standard}\n{done.stderr}"
    return None


def fault_of(example, options, folder):
    """What is wrong with an example, None: nothing."""
    command = [f"{folder}/example"]
    if example.language == "python":
        ast.parse(example.text)
        command = [options.interpreter, "-c", example.text]
        example.runs = example.runs and pathlib.Path(options.package, "brisolt").is_dir()
    elif fault := compiler_fault(example, options, folder):
        return fault
    if not example.runs:
        return None
    environment = dict(os.environ, PYTHONPATH=options.package)
    done = subprocess.run(command, cwd=folder, env=environment, capture_output=True, text=True, timeout=PATIENCE)
    if done.returncode:
        return f"it ends with {done.returncode}\n{done.stdout}{done.stderr}"
    if example.output is not None and done.stdout != example.output:
        return f"it prints\n{done.stdout}and not\n{example.output}"
    return None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("page", type=pathlib.Path)
    parser.add_argument("--include", required=True)
    parser.add_argument("--library", dest="folder", required=True)
    parser.add_argument("--cc", default="cc")
    parser.add_argument("--cxx", default="c++")
    parser.add_argument("--flags", default="", help="of the compilers, such as -m32")
    parser.add_argument("--package", default="/none")
    parser.add_argument("--interpreter", default=sys.executable)
    options = parser.parse_args()

    faults, examples = 0, examples_of(options.page)
    for example in examples:
        with tempfile.TemporaryDirectory() as folder:
            fault = fault_of(example, options, folder)
        if fault:
            faults += 1
            print(f"{options.page}:{example.line}: {fault}")
    print(f"{len(examples)} examples, {sum(example.runs for example in examples)} of them to be run, {faults} wrong")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
