"""The shared library, by its C interface (vorelutil/tdc/tdc56.h)."""

from __future__ import annotations

import ctypes
import ctypes.util
import functools
import os
from ctypes import POINTER, c_int, c_int32, c_int64, c_uint32, c_uint64, c_void_p
from typing import Iterator

SONAME = "libvorelutil.so.0.1"

CAPACITY = 16384
"""Records that an instance's buffer holds, and the most that one pop returns."""

# Arrays are passed as addresses.
_SIGNATURES = {
    # name              result     arguments
    "tdc56Init":            (c_void_p, []),
    "tdc56DeInit":          (None,     [c_void_p]),
    "tdc56SetOffsets":      (None,     [c_void_p, POINTER(c_int32)]),
    "tdc56SetDivider":      (None,     [c_void_p, c_int32]),
    "tdc56SetStartPeriod":  (None,     [c_void_p, c_int64]),
    "tdc56Pop":             (c_int32,  [c_void_p, c_void_p]),
    "tdc56GetTime":         (c_int64,  [c_void_p]),
    "tdc56GetDroppedWords": (c_uint64, [c_void_p]),
    "tdc56Decode":          (None,     [c_void_p, c_void_p, c_int]),
    "tdc56Decode52":        (None,     [c_void_p, c_void_p, c_int, c_uint32]),
    "tdc56Decode52x":       (c_int,    [c_void_p, c_void_p, c_int, c_void_p]),
    "tdc56Decode60":        (c_int,    [c_void_p, c_void_p, c_int, c_uint32]),
    "tdc56Decode60b":       (None,     [c_void_p, c_void_p, c_int, c_uint32]),
    "tdc56Cut60b":          (c_int,    [c_void_p, c_int]),
    "tdc56Encode":          (c_int,    [c_void_p, c_void_p, POINTER(c_int), c_void_p, c_int]),
    "tdc56Encode52":        (c_int,    [c_void_p, c_void_p, POINTER(c_int), c_void_p, c_int]),
    "tdc56Encode60":        (c_int,    [c_void_p, c_void_p, POINTER(c_int), c_void_p, c_int]),
    "tdc56Encode60b":       (c_int,    [c_void_p, c_void_p, POINTER(c_int), c_void_p, c_int]),
}  # fmt: skip


def _candidates() -> Iterator[str]:
    named = os.environ.get("VORELUTIL_LIBRARY")
    if named:
        yield named
        return
    yield SONAME
    found = ctypes.util.find_library("vorelutil")
    if found:
        yield found
    yield "libvorelutil.so"


@functools.lru_cache(maxsize=None)
def library() -> ctypes.CDLL:
    """The library, loaded once; OSError if none of the candidates can be used."""
    tried = []
    for name in _candidates():
        try:
            loaded = ctypes.CDLL(name)
            for function, (result, arguments) in _SIGNATURES.items():
                getattr(loaded, function).restype = result
                getattr(loaded, function).argtypes = arguments
            return loaded
        except (OSError, AttributeError) as error:  # AttributeError: a function is missing
            tried.append(f"{name} ({error})")
    raise OSError(
        "The library vorelutil cannot be loaded; VORELUTIL_LIBRARY may hold its path. Tried: "
        + "; ".join(tried)
    )
