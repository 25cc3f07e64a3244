#!/usr/bin/env python3
"""Writes a call with drawn arguments of each exported function that takes a port, from the public headers.

    storm_calls.py LIST OUTPUT HEADER...
"""
import pathlib
import re
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "exports"))
from calls import code_of, is_pointer, parameters_of, rows_of

# How an argument is drawn, by the name of the parameter; other numbers are any number.
NAMES = {
    "port": "port", "baudRate": "baudRate", "dataBits": "dataBits", "parity": "smallNumber", "stopBits": "smallNumber",
    "milliseconds": "time", "seconds": "time", "timeout": "time", "quiet": "time", "window": "window",
    "thread": "thread", "deviceHandle": "handle", "rxBufSize": "ringSize", "txBufSize": "ringSize", "events": "events",
}
FILES = {"path", "name", "fileName", "log", "firstName", "secondName", "report", "databaseFile", "debugFile", "directory"}
FORGETS = "ComInitMalloc"  # whose blocks they would be then nobody knows


def drawn(function, kind, name):
    if "(*)" in kind or kind.endswith("Func"):
        return f"with.callback<{kind}>()"
    if name == "format":
        return '"%d"'
    if kind == "const char *":
        of_device = function == "ComHostMapDevice"
        return "with.devicePath()" if of_device else "with.fileName()" if name in FILES else "with.text()"
    if kind == "const char *const *":
        return "with.texts()"
    if is_pointer(kind):
        record = re.fullmatch(r"(?:const )?(Com\w+) \*", kind)
        return f"with.record<{record[1]}>()" if record else f"static_cast<{kind}>(with.room())"
    if function == "ComTAPI_OPENPORT" and name == "handle":
        return "with.handle()"
    how = "portWithoutBlocks" if function == FORGETS else NAMES.get(name, "number")
    return f"static_cast<{kind}>(with.{how}())"


def main(listed, output, headers):
    declarations = [declaration for header in headers for declaration in code_of(header)]
    text = ""
    for (name,) in rows_of(listed):
        (declaration,) = [one for one in declarations if re.search(rf"\b{name}\(", one)]
        parameters = list(parameters_of(declaration, name))
        if not any(parameter == "port" for _, parameter in parameters):
            continue
        arguments = [drawn(name, kind, parameter) for kind, parameter in parameters]
        if "..." in declaration:
            arguments.append("1")
        call = f"{name}({', '.join(arguments)})"
        call = f"with.keepFile({call})" if name in ("ComOpenReadFile", "ComOpenWriteFile") else f"(void){call}"
        text += f'{{"{name}", [](Draw& with) {{ {call}; }}}},\n'
    pathlib.Path(output).write_text(text)


main(sys.argv[1], sys.argv[2], sys.argv[3:])
