"""Options of a path, given as keywords."""

from __future__ import annotations

__all__ = ["with_options"]

# The keys that are switched; all others say yes or no.
_SWITCHED = {"dtr", "rts", "low-latency", "rs485-termination"}


def _value(key: str, value: object) -> str:
    if isinstance(value, bool):
        if key in _SWITCHED:
            return "on" if value else ("leave" if key == "low-latency" else "off")
        if key == "close":
            return "lower" if value else "leave"
        return "yes" if value else "no"
    return str(value)


def with_options(path: str, options: dict[str, object]) -> str:
    """The path with `options` behind it: low_latency="on" becomes low-latency=on, True and False become the words
    of the key. None leaves a key out."""
    given = []
    for name, value in options.items():
        if value is None:
            continue
        key = name.replace("_", "-")
        text = _value(key, value)
        if any(mark in key + text for mark in "&=?\0"):
            raise ValueError(f"option {name}={value!r}: its text may hold none of & = ?")
        given.append(f"{key}={text}")
    if not given:
        return path
    return path + ("&" if "?" in path else "?") + "&".join(given)
