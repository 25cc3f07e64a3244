"""A module for each kind of URL that serial_for_url knows, and what they share."""

from __future__ import annotations

from urllib.parse import parse_qs, urlsplit

from ..serialutil import SerialException

TYPE_CHECKING = False
if TYPE_CHECKING:
    from logging import Logger
    from typing import Any


LOGGER_LEVELS = {"debug": 10, "info": 20, "warning": 30, "error": 40}


def split(url: str, scheme: str, form: str) -> tuple[Any, dict[str, str]]:
    """The parts of a URL of this scheme, and its options; SerialException says what form it has to have."""
    parts = urlsplit(url)
    if parts.scheme != scheme:
        raise SerialException(
            f'expected a string in the form "{form}": not starting with {scheme}:// ({parts.scheme!r})'
        )
    return parts, {name: values[0] for name, values in parse_qs(parts.query, True).items()}


def refuse(form: str, why: object) -> SerialException:
    return SerialException(f'expected a string in the form "{form}": {why}')


def address(parts: Any, form: str) -> tuple[str, int]:
    """Host and port of a URL."""
    try:
        host, port = parts.hostname, parts.port
    except ValueError as error:
        raise refuse(form, error) from error
    if not host or port is None:
        raise refuse(form, "host and port are needed")
    return host, port


def logger(kind: str, level: str, form: str) -> Logger:
    """Who writes what an option logging=LEVEL asks for."""
    import logging

    if level not in LOGGER_LEVELS:
        raise refuse(form, f"unknown level {level!r}")
    logging.basicConfig()
    made = logging.getLogger(f"pySerial.{kind}")
    made.setLevel(LOGGER_LEVELS[level])
    made.debug("enabled logging")
    return made
