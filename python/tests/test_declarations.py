"""Headers, binding and library show the same functions."""

import sys

from conftest import SOURCE

from brisolt._library import ffi, lib

sys.path.insert(0, str(SOURCE / "python"))
from declarations import functions  # noqa: E402


def test_headers_binding_and_exports_name_the_same_functions():
    lines = (SOURCE / "src/api/exports.list").read_text().splitlines()
    exported = {line.split("#")[0].strip() for line in lines} - {""}
    declared = functions(SOURCE / "include")
    bound = {name for name in dir(lib) if callable(getattr(lib, name))} - {"brisolt_calls"}
    assert declared == exported
    assert bound == exported


def test_records_have_the_size_that_the_headers_promise():
    assert ffi.sizeof("ComShowRecord") == 572  # packed, and told in words there
    assert lib.COM_PARITY_SPACE == 5 and lib.COM_HOST_EVENT_BACK == 0x2000
