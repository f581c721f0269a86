"""Events as arrays, their way back to words, and histograms."""

from __future__ import annotations

import ctypes
import weakref
from typing import Any, Union

import numpy as np

from ._library import CAPACITY, library

EVENT = np.dtype({"names": ["time", "channel"], "formats": ["<i8", "u1"], "offsets": [0, 8], "itemsize": 16})
"""One event: `time` in clock periods, `channel` a channel or a marker code."""

MARKER_CODES = (100, 101, 102, 103, 104, 200, 201, 202, 203)
"""The markers' codes; bit 0 to 8 of a marker mask stands for each of them, in this order."""

Data = Union[bytes, bytearray, memoryview, np.ndarray]

FORMATS = ("56", "52", "52x", "60", "60b")

_BLOCK = 65536  # events that one call of an encoder gets
GRID = 5000  # clock periods: where format 60 has its markers


class Instance:
    """An instance of the library, freed with this object."""

    def __init__(self) -> None:
        lib = library()
        self.handle: int = lib.tdc56Init()
        weakref.finalize(self, lib.tdc56DeInit, self.handle)


def format_name(format: Union[str, int], known: tuple[str, ...] = FORMATS) -> str:
    if not isinstance(format, (str, int)):
        text = f"format of type {type(format).__name__}: the data come first, then the name of a format"
        raise ValueError(text)
    name = str(format)
    if name not in known:
        raise ValueError(f"format {format!r} is unknown: one of {', '.join(known)} is needed")
    return name


def whole_number(name: str, value: Any, low: int, high: int) -> int:
    """`value` as an int; ValueError outside low to high, and for what is no whole number."""
    if isinstance(value, (bool, np.bool_)) or not isinstance(value, (int, np.integer)):
        raise ValueError(f"{name} {value!r} is not a whole number")
    if not low <= value <= high:
        raise ValueError(f"{name} {value} is not between {low} and {high}")
    return int(value)


def as_events(events: Any) -> np.ndarray:
    """`events` as a contiguous array of EVENT, without a copy where it is one."""
    array = np.asarray(events)
    if array.ndim != 1:
        raise ValueError(f"events of {array.ndim} dimensions: one is needed")
    fields = array.dtype.fields or {}
    for field, kind in (("time", "i8"), ("channel", "u1")):
        if field not in fields:
            raise ValueError(f"events of dtype {array.dtype} lack the field {field!r}")
        if not np.can_cast(fields[field][0], kind, "safe"):
            raise ValueError(f"the field {field!r} of dtype {fields[field][0]} does not fit {np.dtype(kind)}")
    if array.dtype == EVENT and array.flags.c_contiguous and array.flags.aligned:
        return array
    result = np.zeros(len(array), EVENT)
    for field in ("time", "channel"):
        result[field] = array[field]
    return result


def as_bytes(data: Data) -> np.ndarray:
    """`data` as a contiguous array of bytes, without a copy where possible."""
    try:
        array = np.asarray(data if isinstance(data, np.ndarray) else memoryview(data))
    except TypeError:
        text = f"data of type {type(data).__name__}: bytes or a NumPy array is needed"
        if isinstance(data, str):
            text += "; iter_decode takes a file's name"
        raise ValueError(text) from None
    if array.ndim != 1:
        raise ValueError(f"data of {array.ndim} dimensions: one is needed")
    if array.dtype.kind != "u" or array.itemsize not in (1, 4):
        raise ValueError(f"data of dtype {array.dtype}: uint32 words or uint8 bytes are needed (np.fromfile(name, '<u4'))")
    return np.ascontiguousarray(array, "<u4" if array.itemsize == 4 else "u1").view("u1")


def by_time(events: np.ndarray) -> np.ndarray:
    """Sorted; equal times stay in their order."""
    return events[np.argsort(events["time"], kind="stable")]


class Output:
    """The array that the library writes into; grows in big steps."""

    def __init__(self, expected: int) -> None:
        self.array = np.empty(expected and expected + CAPACITY, EVENT)
        self.size = 0
        self._address = self.array.ctypes.data

    def room(self) -> int:
        """The address behind the last event, with room for a pop."""
        if self.size + CAPACITY > len(self.array):
            self.array.resize(max(self.size + 4 * CAPACITY, len(self.array) * 3 // 2), refcheck=False)
            self._address = self.array.ctypes.data
        return self._address + EVENT.itemsize * self.size

    def merge(self, begin: int, others: list[np.ndarray]) -> None:
        """Merges `others` by time into the events from `begin` on, behind those of the same time."""
        if sum(map(len, others)) == 0:
            return
        merged = by_time(np.concatenate((self.array[begin : self.size], *others)))
        self.size = begin + len(merged)
        self.room()
        self.array[begin : self.size] = merged

    def take(self) -> np.ndarray:
        """Hands the events out; the array is empty then."""
        events, size = self.array, self.size
        self.__init__(0)
        events.resize(size, refcheck=False)
        return events


# format: first and last time, last channel, whether there are markers, the words that begin the stream. The
# high word 0 is what a reader of 56 and 52 must see first.
_ENCODINGS = {
    "56": (0, 2**56 - 1, 7, False, [0x10000000]),
    "52": (0, 2**52 - 1, 31, True, [0xFC000000]),
    "60": (1, 2**60 - 1, 5, True, []),
    "60b": (1, 2**61 - 1, 63, False, []),
}  # fmt: skip


def encode(events: Any, format: Union[str, int]) -> np.ndarray:
    """Events to packet words, as test data.

    `events`: array with the fields `time` and `channel`. Times go from 0 in the formats 56 and 52, and from 1
    in 60 and 60b, to 2**56 - 1, 2**52 - 1, 2**60 - 1, 2**61 - 1. They must not descend in format 56, nor in 52
    to a lower multiple of 2**26. Channels go up to 7, 31, 5, 63; 52 and 60 carry markers too, 60 at multiples
    of 5000. What the format cannot carry is a ValueError that names the first such event. Format 52x has no
    encoder.

    Result: uint32 words (`.tofile` writes them); 60b: uint8 bytes. 56 and 52 begin with a high word 0, so
    that `decode` gives the same events.

    Kept: what is written as 60b does not read back, as its records lack the type bits that `decode` looks at.
    """
    name = format_name(format, tuple(_ENCODINGS))
    array = as_events(events)
    _check(array, name)
    return _encode60b(array) if name == "60b" else _encode_words(array, name)


def _check(events: np.ndarray, name: str) -> None:
    first, last, channels, markers, _ = _ENCODINGS[name]
    time, channel = events["time"], events["channel"]
    known = channel <= channels
    if markers:
        known |= np.isin(channel, MARKER_CODES)
    high = time >> {"56": 0, "52": 26}.get(name, 63)
    checks = (
        (~known, "channel {channel} is not one of the format"),
        ((time < first) | (time > last), f"time {{time}} is not between {first} and {last}"),
        (np.append(high[:1], high[:-1]) > high, "time {time} lies before the one of the event before"),
        (
            (channel > 99) & (time % GRID != 0) & (name == "60"),
            f"time {{time}} of a marker is no multiple of {GRID}",
        ),
    )
    at = min((int(np.argmax(wrong)) for wrong, _ in checks if wrong.any()), default=-1)
    for wrong, text in checks:
        if at >= 0 and wrong[at]:
            raise ValueError(f"format {name}, event {at}: " + text.format(time=time[at], channel=channel[at]))


def _encode_words(events: np.ndarray, name: str) -> np.ndarray:
    call = {"56": library().tdc56Encode, "52": library().tdc56Encode52, "60": library().tdc56Encode60}[name]
    instance = Instance()
    parts = [np.array(_ENCODINGS[name][4], "<u4")]
    ends = [*_far_steps(events), len(events)] if name == "60" else [len(events)]
    begin = 0
    while begin < len(events):
        if begin == ends[0]:
            ends.pop(0)
        block = events[begin : min(begin + _BLOCK, ends[0])]
        begin += len(block)
        words = np.empty(2 * len(block) + 2, "<u4")  # two an event, and the absolute time of format 60
        count = ctypes.c_int(len(block))
        size = call(instance.handle, block.ctypes.data, count, words.ctypes.data, len(words))
        parts.append(words[:size])
    return np.concatenate(parts)


def _far_steps(events: np.ndarray) -> list[int]:
    """Where format 60 needs a new absolute time: events that lie 2**56 or more behind or before their
    predecessor. A marker lies where its carrier does, its flag behind it."""
    flags = np.zeros(256, "i8")
    flags[list(MARKER_CODES)] = 1 << np.arange(len(MARKER_CODES))
    steps = np.diff(events["time"] + flags[events["channel"]])
    return (np.flatnonzero((steps >= 2**56) | (steps < -(2**56))) + 1).tolist()


def _encode60b(events: np.ndarray) -> np.ndarray:
    # The result of a call is whole words only, so the bytes that each event takes are counted here.
    time = events["time"]
    sizes = np.select([time > 0xFFFFFFFF, time > 0xFFFFFF, time > 0xFFFF], [11, 5, 4], 3)
    ends = np.cumsum(sizes)
    data = np.zeros((int(ends[-1]) if len(ends) else 0) + 4, "u1")
    instance = Instance()
    for begin in range(0, len(events), _BLOCK):
        block = events[begin : begin + _BLOCK]
        offset = int(ends[begin] - sizes[begin])
        length = int(ends[begin + len(block) - 1]) - offset
        count = ctypes.c_int(len(block))
        output = data[offset:].ctypes.data
        library().tdc56Encode60b(instance.handle, block.ctypes.data, count, output, -(-length // 4))
    return data[:-4]


def histogram(events: Any, start: int, stop: int, bin_width: int, bins: int) -> np.ndarray:
    """Start-stop histogram: how many stops came how long after the latest start at or before them.

    `events`: array with the fields `time` and `channel`, in any order. `start`, `stop`: channels or marker
    codes, 0 to 255; when they are the same, each event stops the one before it and starts the next.
    `bin_width`: clock periods, 1 or more; `bins`: 1 or more.

    Result: int64 counts by bin. A stop counts once, in bin floor((stop - start) / bin_width); one beyond the
    last bin or before the first start is dropped. At equal times the start comes first.
    """
    start = whole_number("start", start, 0, 255)
    stop = whole_number("stop", stop, 0, 255)
    bin_width = whole_number("bin_width", bin_width, 1, 2**63 - 1)
    bins = whole_number("bins", bins, 1, 2**62)
    array = as_events(events)
    starts = np.sort(array["time"][array["channel"] == start])
    if start == stop:
        starts, stops = starts[:-1], starts[1:]
        latest = np.arange(len(stops))
    else:
        stops = array["time"][array["channel"] == stop]
        latest = np.searchsorted(starts, stops, side="right") - 1
        stops, latest = stops[latest >= 0], latest[latest >= 0]
    # Differences of 64-bit times need 64 bits without sign.
    bin_of = (stops.astype("u8") - starts[latest].astype("u8")) // np.uint64(bin_width)
    return np.bincount(bin_of[bin_of < bins].astype("i8"), minlength=bins)
