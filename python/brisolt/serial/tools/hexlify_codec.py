"""A codec of hexadecimal numbers: b"@ab" is the text "40 61 62 "."""

from __future__ import annotations

import codecs

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any

__all__ = ["Codec", "IncrementalDecoder", "IncrementalEncoder", "StreamReader", "StreamWriter", "getregentry",
           "hex_decode", "hex_encode"]  # fmt: skip


HEXDIGITS = "0123456789ABCDEF"


def hex_encode(data: str, errors: str = "strict") -> tuple[bytes, int]:
    return bytes(int(number, 16) for number in data.split()), len(data)


def hex_decode(data: Any, errors: str = "strict") -> tuple[str, int]:
    return "".join(f"{byte:02X} " for byte in bytes(data)), len(data)


class Codec(codecs.Codec):
    encode = staticmethod(hex_encode)
    decode = staticmethod(hex_decode)


class IncrementalEncoder(codecs.IncrementalEncoder):
    """Takes digits as they are typed: two make a byte, with blanks between them or without."""

    def __init__(self, errors: str = "strict") -> None:
        super().__init__(errors)
        self.digit = ""

    def reset(self) -> None:
        self.digit = ""

    def getstate(self) -> Any:
        return 0x100 + (int(self.digit, 16) << 4) if self.digit else 0

    def setstate(self, state: Any) -> None:
        self.digit = f"{state >> 4 & 0xF:X}" if state else ""

    def encode(self, data: str, final: bool = False) -> bytes:
        made = bytearray()
        for character in data:
            if character.upper() in HEXDIGITS:
                if self.digit:
                    made.append(int(self.digit + character, 16))
                    self.digit = ""
                else:
                    self.digit = character
                continue
            if self.errors == "strict" and character != " ":
                raise UnicodeError(f"non-hex digit found: {character!r}")
            if self.errors == "strict" and self.digit:
                raise UnicodeError("odd number of hex digits")
            if character == " ":
                self.digit = ""
        return bytes(made)


class IncrementalDecoder(codecs.IncrementalDecoder):
    def decode(self, data: Any, final: bool = False) -> str:
        return hex_decode(data)[0]


class StreamWriter(Codec, codecs.StreamWriter):
    pass


class StreamReader(Codec, codecs.StreamReader):
    pass


def getregentry() -> codecs.CodecInfo:
    return codecs.CodecInfo(
        name="hexlify",
        encode=hex_encode,  # type: ignore[arg-type]
        decode=hex_decode,  # type: ignore[arg-type]
        incrementalencoder=IncrementalEncoder,
        incrementaldecoder=IncrementalDecoder,
        streamwriter=StreamWriter,
        streamreader=StreamReader,
    )
