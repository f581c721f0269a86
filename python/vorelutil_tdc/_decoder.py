"""Streams of packet words to arrays of events."""

from __future__ import annotations

import ctypes
import os
import warnings
from dataclasses import dataclass, field
from typing import Any, BinaryIO, Iterable, Iterator, Optional, Sequence, Union

import numpy as np

from ._events import EVENT, MARKER_CODES, Instance, format_name, whole_number
from ._library import CAPACITY, library

Data = Union[bytes, bytearray, memoryview, np.ndarray]
Source = Union[str, "os.PathLike[str]", BinaryIO, Data, Iterable[Data]]

_PIECE = 1 << 20  # bytes that are looked at together
_BATCH = 1 << 18  # events from which on an iterator hands them out
_FREE = {"56": 1.0, "52": 1.0, "52x": 1.0, "60": 1.5, "60b": 4 / 3}  # most events a word, ordinarily
_LARGEST_RECORD = 27  # events of a record of format 60: three marker carriers


@dataclass
class Summary:
    """What a `Decoder` has counted since it was made."""

    words: int = 0
    """Words read; format 60b: bytes."""
    channels: dict[int, int] = field(default_factory=dict)
    """Events delivered, by channel; virtual ones count for channel 0."""
    markers: dict[int, int] = field(default_factory=dict)
    """Markers delivered, by code."""
    words_before_high: int = 0
    """Event words of the formats 56, 52 and 52x that were dropped, as no high word had come before them."""
    ordering_errors: int = 0
    """Words of format 60 without a partner, skipped."""
    cut_bytes: int = 0
    """At the end of the stream: bytes of a word or record that is not whole."""


class Decoder:
    """Decodes one stream, piece by piece.

    `format`: "56", "52", "52x", "60" or "60b".
    `markers`: bit 0 to 8 deliver the markers 100 to 104 and 200 to 203 (formats 52, 60 and 60b).
    `offsets`: 8 values of 32 bits, added to the times of the channels 0 to 7. If one of them is not 0, events come
    sorted by time, equal times by channel; markers and channels above 7 have no offset and are merged in behind
    events of the same time. An event that a negative offset moves before the piece at hand comes late.
    `divider`, 1 to 16383: from 2 on, and with a start period of 0, virtual events on channel 0 divide each start
    period into that many parts (formats 56 and 60).
    `start_period`, 0 to 2**63 - 1: with a divider from 2 on, each channel event's time is folded to the remainder
    by start_period // divider (all formats but 52x).
    A setting that has no effect in the format is told as a warning, a wrong one is a ValueError.

    One thread at a time; different decoders are independent.
    """

    def __init__(
        self,
        format: Union[str, int],
        *,
        markers: int = 0x1FF,
        offsets: Optional[Sequence[int]] = None,
        divider: int = 1,
        start_period: int = 0,
    ) -> None:
        self._format = format_name(format)
        self._markers = whole_number("markers", markers, 0, 0xFFFFFFFF)
        divider = whole_number("divider", divider, 1, CAPACITY - 1)
        start_period = whole_number("start_period", start_period, 0, 2**63 - 1)
        shifts = [0] * 8 if offsets is None else list(offsets)
        if len(shifts) != 8:
            raise ValueError(f"{len(shifts)} offsets: 8 are needed")
        shifts = [whole_number("offset", shift, -(2**31), 2**31 - 1) for shift in shifts]
        if self._format == "52x" and (any(shifts) or divider > 1):
            warnings.warn("offsets and divider have no effect in format 52x", stacklevel=2)
        if self._format in ("52", "60b") and divider > 1 and start_period == 0:
            warnings.warn(f"divider without start_period has no effect in format {self._format}", stacklevel=2)

        self.summary = Summary()
        self._bytes = 0
        self._counts = np.zeros(256, "i8")
        self._rest = np.empty(0, "u1")  # bytes of a word or record that is not whole yet
        self._finished = False
        self._lib = library()
        self._main = self._instance(divider, start_period)
        self._sorting = any(shifts) and self._format != "52x"
        # While sorting, the library keeps what does not pass its queue: this one, without offsets, delivers it.
        self._others: Optional[Instance] = None
        if self._sorting:
            self._lib.tdc56SetOffsets(self._main.handle, (ctypes.c_int32 * 8)(*shifts))
            if self._format != "56":
                self._others = self._instance(divider if start_period else 1, start_period)

        # A packet must not exceed the library's buffer: most events of a word, or of a record of format 60.
        virtual = divider if start_period == 0 and self._format in ("56", "60") else 1
        most = 1 if virtual == 1 else virtual + 1
        self._single = False
        if self._format == "60":
            self._single = 3 * most > CAPACITY
            most = max(most if self._single else 3 * most, _LARGEST_RECORD)
        self._packet = CAPACITY // most

    def decode(self, data: Data) -> np.ndarray:
        """The events of the stream's next piece, which may be cut anywhere."""
        data = self._begin(data)
        out = _Output(int(len(data) / 4 * _FREE[self._format]))
        for _ in self._advance(data, out):
            pass
        return self._count(out)

    def finish(self) -> np.ndarray:
        """The stream is over: what waits in the queue comes out, whatever its time. No piece may follow."""
        out = _Output(0)
        for _ in self._drain(out):
            pass
        return self._count(out)

    def _instance(self, divider: int, start_period: int) -> Instance:
        instance = Instance()
        self._lib.tdc56SetDivider(instance.handle, divider)
        self._lib.tdc56SetStartPeriod(instance.handle, start_period)
        return instance

    def _begin(self, data: Data) -> np.ndarray:
        if self._finished:
            raise ValueError("the decoder is finished: a new stream needs a new one")
        return _as_bytes(data)

    def _count(self, out: _Output) -> np.ndarray:
        """Hands out what `out` holds."""
        events = out.take()
        self._counts += np.bincount(events["channel"], minlength=256)
        counted = {int(code): int(self._counts[code]) for code in np.flatnonzero(self._counts)}
        self.summary.channels = {code: n for code, n in counted.items() if code not in MARKER_CODES}
        self.summary.markers = {code: n for code, n in counted.items() if code in MARKER_CODES}
        self.summary.words_before_high = self._lib.tdc56GetDroppedWords(self._main.handle)
        return events

    def _batches(self, steps: Iterator[None], out: _Output) -> Iterator[np.ndarray]:
        for _ in steps:
            if out.size >= _BATCH:
                yield self._count(out)
        if out.size:
            yield self._count(out)

    # The generators below stop after each packet, so that the caller can hand out what `out` holds.

    def _advance(self, data: np.ndarray, out: _Output) -> Iterator[None]:
        for begin in range(0, len(data), _PIECE):
            piece = data[begin : begin + _PIECE]
            self._bytes += len(piece)
            self.summary.words = self._bytes if self._format == "60b" else self._bytes // 4
            if len(self._rest):
                piece = np.concatenate((self._rest, piece))
            used = 0
            if self._format == "60b":
                for used in self._records(piece, out):
                    yield
            else:
                words = np.require(piece[: len(piece) // 4 * 4].view("<u4"), requirements="A")
                used = 4 * len(words)
                if self._format == "60":
                    words, used = self._pairs(words)
                yield from self._packets(words, out)
            self._rest = piece[used:].copy()

    def _packets(self, words: np.ndarray, out: _Output) -> Iterator[None]:
        address, step = words.ctypes.data, self._packet * (2 if self._format == "60" else 1)
        for begin in range(0, len(words), step):
            self._decode(address + 4 * begin, min(step, len(words) - begin), out)
            yield

    def _records(self, data: np.ndarray, out: _Output) -> Iterator[int]:
        """Packets of format 60b; yields how many bytes are done."""
        address, done = data.ctypes.data, 0
        while True:
            size = self._lib.tdc56Cut60b(address + done, min(len(data) - done, 3 * CAPACITY))
            if size == 0:
                return
            self._decode(address + done, size, out)
            done += size
            yield done

    def _pairs(self, words: np.ndarray) -> tuple[np.ndarray, int]:
        """The records of format 60 among `words`, and the bytes used: a first word at the end waits."""
        second = words >= 0x80000000
        if len(words) and not second[-1]:
            words, second = words[:-1], second[:-1]
        used = 4 * len(words)
        if len(words) % 2 or second[0::2].any() or not second[1::2].all():
            first = np.flatnonzero(~second[:-1] & second[1:])
            self.summary.ordering_errors += len(words) - 2 * len(first)
            words = words[np.stack((first, first + 1), axis=1).ravel()]
        return (_single_events(words) if self._single else words), used

    def _decode(self, address: int, size: int, out: _Output) -> None:
        """Decodes one packet; `size` in words, format 60b: in bytes."""
        if self._format == "52x":
            out.size += self._lib.tdc56Decode52x(self._main.handle, address, size, out.room())
            return
        begin = out.size
        self._feed(self._main, address, size)
        while self._pop(self._main, out) == CAPACITY and self._sorting:
            pass
        if self._others:
            self._feed(self._others, address, size)
            end = out.size
            self._pop(self._others, out)
            out.keep(end, out.array["channel"][end : out.size] > 7)
            if out.size > end:
                out.sort(begin)

    def _feed(self, instance: Instance, address: int, size: int) -> None:
        if self._format == "56":
            self._lib.tdc56Decode(instance.handle, address, size)
        elif self._format == "52":
            self._lib.tdc56Decode52(instance.handle, address, size, self._markers)
        elif self._format == "60":
            self._lib.tdc56Decode60(instance.handle, address, size, self._markers)
        else:
            self._lib.tdc56Decode60b(instance.handle, address, -size, self._markers)

    def _pop(self, instance: Instance, out: _Output) -> int:
        count = int(self._lib.tdc56Pop(instance.handle, out.room()))
        out.size += count
        return count

    def _drain(self, out: _Output) -> Iterator[None]:
        self._begin(b"")
        self._finished = True
        self.summary.cut_bytes = len(self._rest)
        if not self._sorting:
            return
        # The queue gives what the stream's time has passed: records of format 60 move that to the largest one.
        last = _one_event(np.array([2**56 - 1] * 112 + [112]), np.full(113, 7))
        words = np.concatenate((np.array([0x3FFFFFFF, 0xBFFFFFFF], "<u4"), last.ravel()))
        self._lib.tdc56Decode60(self._main.handle, words.ctypes.data, len(words), 0)
        while self._pop(self._main, out) == CAPACITY:
            yield


def decode(
    data: Data,
    format: Union[str, int],
    *,
    markers: int = 0x1FF,
    offsets: Optional[Sequence[int]] = None,
    divider: int = 1,
    start_period: int = 0,
) -> np.ndarray:
    """The events of a whole stream, in the order in which the library delivers them.

    The settings are those of `Decoder`, which also counts what it met on the way.
    """
    decoder = Decoder(format, markers=markers, offsets=offsets, divider=divider, start_period=start_period)
    events, rest = decoder.decode(data), decoder.finish()
    return np.concatenate((events, rest)) if len(rest) else events


def iter_decode(
    source: Source,
    format: Union[str, int],
    *,
    markers: int = 0x1FF,
    offsets: Optional[Sequence[int]] = None,
    divider: int = 1,
    start_period: int = 0,
    chunk: int = _PIECE,
) -> Iterator[np.ndarray]:
    """Decodes a stream of any size in bounded memory: yields its events in arrays that are not empty.

    `source`: the path of a file, a file open for reading bytes, data as `decode` takes it (a memory-mapped array
    included), or an iterable of such data. Files and data are read `chunk` bytes at a time. Settings as in
    `Decoder`. Together the arrays hold what `decode` gives, apart from the order of events that an offset moves
    across a chunk. Events that sorting holds back stay in memory until their time has come.
    """
    decoder = Decoder(format, markers=markers, offsets=offsets, divider=divider, start_period=start_period)
    return _iterate(decoder, source, whole_number("chunk", chunk, 1, 2**40))


def _iterate(decoder: Decoder, source: Source, chunk: int) -> Iterator[np.ndarray]:
    for data in _chunks(source, chunk):
        yield from decoder._batches(decoder._advance(decoder._begin(data), out := _Output(0)), out)
    yield from decoder._batches(decoder._drain(out := _Output(0)), out)


def _chunks(source: Source, chunk: int) -> Iterator[Data]:
    if isinstance(source, (str, os.PathLike)):
        with open(source, "rb") as file:
            yield from _chunks(file, chunk)
    elif hasattr(source, "read"):
        while data := source.read(chunk):
            yield data
    elif isinstance(source, (bytes, bytearray, memoryview, np.ndarray)):
        array = source if isinstance(source, np.ndarray) else _as_bytes(source)
        step = max(1, chunk // max(1, array.itemsize))
        for begin in range(0, len(array), step):
            yield array[begin : begin + step]
    else:
        yield from source


def _as_bytes(data: Data) -> np.ndarray:
    """`data` as a contiguous array of bytes, without a copy where possible."""
    try:
        array = np.asarray(data if isinstance(data, np.ndarray) else memoryview(data))
    except TypeError:
        raise ValueError(f"data of type {type(data).__name__}: bytes or a NumPy array is needed") from None
    if array.ndim != 1:
        raise ValueError(f"data of {array.ndim} dimensions: one is needed")
    if array.dtype.kind != "u" or array.itemsize not in (1, 4):
        raise ValueError(f"data of dtype {array.dtype}: uint32 words or uint8 bytes are needed")
    return np.ascontiguousarray(array, "<u4" if array.itemsize == 4 else "u1").view("u1")


def _one_event(deltas: np.ndarray, channels: np.ndarray) -> np.ndarray:
    """Records of format 60 of one event each (type 3): rows of two words."""
    first = (deltas & 0x3FFFFFFF) | 0x40000000
    second = ((deltas >> 30) & 0x07FFFFFF) | (channels << 27) | 0xC0000000
    return np.stack((first, second), axis=1).astype("<u4")


def _single_events(words: np.ndarray) -> np.ndarray:
    """Records of format 60 with their events in a record each."""
    low, high = words[0::2].astype("i8"), words[1::2].astype("i8")
    kind = ((high >> 30) & 1) * 2 + ((low >> 30) & 1)
    events = np.array([1, 3, 2, 1])[kind]
    place = np.cumsum(events) - events  # of each record's first event
    result = np.empty((int(events.sum()), 2), "<u4")

    whole = (kind == 0) | (kind == 3)
    result[place[whole]] = words.reshape(-1, 2)[whole]
    three, two = kind == 1, kind == 2
    middle = ((low >> 20) & 0x3FF) | ((high & 0x7F) << 10)
    for which, event, delta, channel, bits in (
        (three, 0, low, low >> 17, 17),
        (three, 1, middle, high >> 7, 17),
        (three, 2, high >> 10, high >> 27, 17),
        (two, 0, low, low >> 27, 27),
        (two, 1, high, high >> 27, 27),
    ):
        sign = 1 << (bits - 1)
        signed = ((delta[which] & (2 * sign - 1)) ^ sign) - sign
        result[place[which] + event] = _one_event(signed, channel[which] & 7)
    return result.ravel()


class _Output:
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

    def keep(self, begin: int, which: np.ndarray) -> None:
        """Of the events from `begin` on, only those."""
        kept = self.array[begin : self.size][which]
        self.size = begin + len(kept)
        self.array[begin : self.size] = kept

    def sort(self, begin: int) -> None:
        """The events from `begin` on by time; equal times stay in their order."""
        events = self.array[begin : self.size]
        events[:] = events[np.argsort(events["time"], kind="stable")]

    def take(self) -> np.ndarray:
        """Hands the events out; the array is empty then."""
        events, size = self.array, self.size
        self.__init__(0)
        events.resize(size, refcheck=False)
        return events
