"""Streams of packet words to arrays of events."""

from __future__ import annotations

import collections
import ctypes
import itertools
import os
import sys
import warnings
from dataclasses import dataclass, field
from typing import Any, BinaryIO, Iterable, Iterator, Optional, Sequence, Union

import numpy as np

from ._events import (
    EVENT,
    GRID,
    MARKER_CODES,
    Data,
    Instance,
    Output,
    as_bytes,
    by_time,
    format_name,
    whole_number,
)
from ._library import CAPACITY, library

Source = Union[str, "os.PathLike[str]", BinaryIO, Data, Iterable[Data]]

_PIECE = 1 << 20  # bytes that are looked at together
_BATCH = 1 << 18  # events from which on an iterator hands them out
_FREE = {"56": 1.0, "52": 1.0, "52x": 1.0, "60": 1.5, "60b": 4 / 3}  # most events a word, ordinarily
_CARRIER = 9  # markers that one event of format 60 may stand for


_OTHER_FILES = {b"\x93NUMPY": "a NumPy file", b"time,channel": "CSV of events", b"\x89PNG\r\n": "a picture"}


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
    `offsets`: 8 values of 32 bits, added to the times of the channels 0 to 7. If one of them is not 0, events
    come sorted by time, equal times by channel; markers and channels above 7 have no offset and are merged in
    behind events of the same time. Events wait until nothing can come before them. (Some come late all the
    same: where the stream itself goes back in time, where offsets lie 2**31 apart, and virtual events that
    fall due behind a marker.) Folded times begin anew all the time: with folding, events come sorted only among
    what is decoded at once, and their order depends on how the stream was cut (`vorel tdc decode` may give
    another one).
    `divider`, 1 to 16383: from 2 on, and with a start period of 0, virtual events on channel 0 divide each
    start period into that many parts (formats 56 and 60).
    `start_period`, 0 to 2**63 - 1: with a divider from 2 on, each channel event's time is folded to the
    remainder by start_period // divider (all formats but 52x).
    A setting that has no effect, in the format or with the others, is told as a warning; a wrong one is a
    ValueError.

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
        try:
            shifts = [0] * 8 if offsets is None else list(offsets)
        except TypeError:
            raise ValueError(f"offsets {offsets!r}: 8 whole numbers are needed") from None
        if len(shifts) != 8:
            raise ValueError(f"{len(shifts)} offsets: 8 are needed")
        shifts = [whole_number("offset", shift, -(2**31), 2**31 - 1) for shift in shifts]
        given = {
            "markers": markers != 0x1FF,
            "offsets": offsets is not None,
            "divider": divider != 1,
            "start_period": start_period != 0,
        }
        for name, why in _without_effect(self._format, divider, start_period):
            if given[name]:
                warnings.warn(f"{name} has no effect {why}", stacklevel=_outside())

        self.summary = Summary()
        self._bytes = 0
        self._counts = np.zeros(256, "i8")
        self._rest = np.empty(0, "u1")  # bytes of a word or record that is not whole yet
        self._finished = False
        self._lib = library()
        self._main = self._instance(divider, start_period)
        self._sorting = any(shifts) and self._format != "52x"
        # While sorting, the library keeps what does not pass its queue: an instance without offsets gives
        # that, and it waits here, in ascending order.
        self._others: Optional[Instance] = None
        self._popped = np.empty(CAPACITY, EVENT)
        self._waiting: collections.deque[np.ndarray] = collections.deque()
        self._highest = -(2**63)  # time in `_waiting` so far
        self._waiting_back: list[np.ndarray] = []  # those that lay before one that waited
        self._delay = 0
        if self._sorting:
            # Events may still come with the stream's time plus the least offset, markers of format 60 with a
            # time before it. A delay, taken off again later, keeps the queue from handing out what lies
            # behind those.
            lag = GRID if self._format == "60" else 1
            self._delay = min(lag - min(*shifts, 0), 2**31 - 1 - max(shifts))
            shifts = [shift + self._delay for shift in shifts]
            self._lib.tdc56SetOffsets(self._main.handle, (ctypes.c_int32 * 8)(*shifts))
            if self._format != "56":
                self._others = self._instance(divider if start_period else 1, start_period)

        # A packet must not exceed the library's buffer: most events of a word, or of a record of format 60.
        virtual = divider if start_period == 0 and self._format in ("56", "60") else 1
        most = 1 if virtual == 1 else virtual + 1
        if self._format == "60":
            most = 3 * max(most, _CARRIER)
        self._packet = CAPACITY // most  # 0: not even one record of three events fits

    def decode(self, data: Data) -> np.ndarray:
        """The events of the stream's next piece, which may be cut anywhere."""
        data = self._begin(data)
        out = self._output(data)
        for _ in self._advance(data, out):
            pass
        return self._count(out)

    def finish(self) -> np.ndarray:
        """The stream is over: what waits in the queue comes out, whatever its time. No piece may follow."""
        out = Output(0)
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
        return as_bytes(data)

    def _output(self, data: np.ndarray) -> Output:
        """Room for what `data` ordinarily holds."""
        return Output(int(len(data) / 4 * _FREE[self._format]))

    def _count(self, out: Output) -> np.ndarray:
        """Hands out what `out` holds."""
        events = out.take()
        self._counts += np.bincount(events["channel"], minlength=256)
        counted = {int(code): int(self._counts[code]) for code in np.flatnonzero(self._counts)}
        self.summary.channels = {code: n for code, n in counted.items() if code not in MARKER_CODES}
        self.summary.markers = {code: n for code, n in counted.items() if code in MARKER_CODES}
        self.summary.words_before_high = self._lib.tdc56GetDroppedWords(self._main.handle)
        return events

    def _batches(self, steps: Iterator[None], out: Output) -> Iterator[np.ndarray]:
        for _ in steps:
            if out.size >= _BATCH:
                yield self._count(out)
        if out.size:
            yield self._count(out)

    # The generators below stop after each packet, so that the caller can hand out what `out` holds.

    def _advance(self, data: np.ndarray, out: Output) -> Iterator[None]:
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

    def _packets(self, words: np.ndarray, out: Output) -> Iterator[None]:
        if self._packet == 0:
            yield from self._event_by_event(words, out)
            return
        address, step = words.ctypes.data, self._packet * (2 if self._format == "60" else 1)
        for begin in range(0, len(words), step):
            self._decode(address + 4 * begin, min(step, len(words) - begin), out)
            yield

    def _records(self, data: np.ndarray, out: Output) -> Iterator[int]:
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
        return words, used

    def _decode(self, address: int, size: int, out: Output) -> None:
        """Decodes one packet; `size` in words, format 60b: in bytes."""
        if self._format == "52x":
            out.size += self._lib.tdc56Decode52x(self._main.handle, address, size, out.room())
            return
        begin = out.size
        self._feed(self._main, address, size, 0 if self._sorting else self._markers)
        if self._others:
            self._feed(self._others, address, size, self._markers)
        while self._pop(self._main, out) == CAPACITY and self._sorting:
            pass
        if self._sorting:
            self._merge(begin, self._time() - self._delay, out)

    def _event_by_event(self, words: np.ndarray, out: Output) -> Iterator[None]:
        """Records of format 60, those of several events as records of one event each."""
        for low, high in words.reshape(-1, 2).tolist():
            events = _several_events(low, high)
            if not events:
                self._decode_words([low, high], out)
            elif self._time() != 0:  # else there is no absolute time yet
                for delta, channel in events:
                    if self._time() != 0:
                        self._decode_words(_one_event(delta, channel), out)
                    else:  # amid a record that is a time as any other; before one it delivers nothing
                        self._decode_words([1, 0x80000000, *_one_event(delta - 1, channel)], out)
                    yield
            yield

    def _decode_words(self, words: list[int], out: Output) -> None:
        packet = np.array(words, "<u4")
        self._decode(packet.ctypes.data, len(packet), out)

    def _time(self) -> int:
        return int(self._lib.tdc56GetTime(self._main.handle))

    def _feed(self, instance: Instance, address: int, size: int, markers: int) -> None:
        if self._format == "56":
            self._lib.tdc56Decode(instance.handle, address, size)
        elif self._format == "52":
            self._lib.tdc56Decode52(instance.handle, address, size, markers)
        elif self._format == "60":
            self._lib.tdc56Decode60(instance.handle, address, size, markers)
        else:
            self._lib.tdc56Decode60b(instance.handle, address, -size, markers)

    def _pop(self, instance: Instance, out: Output) -> int:
        count = int(self._lib.tdc56Pop(instance.handle, out.room()))
        out.size += count
        return count

    def _merge(self, begin: int, limit: int, out: Output) -> None:
        """Takes the delay off the queue's events, those from `begin` on, and merges the others up to `limit`
        in."""
        out.array["time"][begin : out.size] -= self._delay
        if self._others:
            count = self._lib.tdc56Pop(self._others.handle, self._popped.ctypes.data)
            self._set_aside(self._popped[:count])
            out.merge(begin, self._ready(limit))

    def _set_aside(self, events: np.ndarray) -> None:
        others = events[events["channel"] > 7]
        if len(others) == 0:
            return
        # An ordinary stream's times ascend; folded ones, and those of a stream that goes back, do not.
        highest = np.maximum.accumulate(np.maximum(others["time"], self._highest))
        back = others["time"] < highest
        self._highest = int(highest[-1])
        if not back.all():
            self._waiting.append(others[~back])
        if back.any():
            self._waiting_back.append(others[back])

    def _ready(self, limit: int) -> list[np.ndarray]:
        """Takes out what waits up to `limit`."""
        ready = []
        while self._waiting:
            first = self._waiting.popleft()
            count = int(np.searchsorted(first["time"], max(limit, -(2**63)), "right"))
            ready.append(first[:count])
            if count < len(first):
                self._waiting.appendleft(first[count:])
                break
        rest = []
        for events in self._waiting_back:
            due = events["time"] <= limit
            if due.any():
                ready.append(events[due])
                events = events[~due]
            if len(events):
                rest.append(events)
        self._waiting_back = rest
        return ready

    def _drain(self, out: Output) -> Iterator[None]:
        self._begin(b"")
        self._finished = True
        self.summary.cut_bytes = len(self._rest)
        if not self._sorting:
            return
        # The queue gives what the stream's time has passed. Records of format 60 move that to the largest
        # one: an absolute time, and events of channel 7, which count for nothing else.
        last = [0x3FFFFFFF, 0xBFFFFFFF, *(_one_event(2**56 - 1, 7) * 112), *_one_event(112, 7)]
        words, begin = np.array(last, "<u4"), out.size
        self._lib.tdc56Decode60(self._main.handle, words.ctypes.data, len(words), 0)
        while self._pop(self._main, out) == CAPACITY:
            pass
        self._merge(begin, 2**63 - 1, out)
        yield


def _without_effect(format: str, divider: int, start_period: int) -> list[tuple[str, str]]:
    """The settings that the format or another setting makes void, and why: as `vorel tdc decode` tells."""
    void = []
    if format in ("56", "52x"):
        void.append(("markers", f"in format {format}"))
    if format == "52x":
        void += [(name, "in format 52x") for name in ("offsets", "divider", "start_period")]
    elif divider < 2:
        void.append(("start_period", "without a divider from 2 on"))
    elif 0 < start_period < divider:
        void.append(("start_period", "below the divider"))
    elif start_period == 0 and format in ("52", "60b"):
        void.append(("divider", f"in format {format} without a start_period"))
    return void


def _outside() -> int:
    """The level, for a warning by the caller, of the first caller outside this module."""
    level, frame = 1, sys._getframe(1)
    while frame.f_back and frame.f_globals is globals():
        level, frame = level + 1, frame.f_back
    return level


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
    data = decoder._begin(data)
    out = decoder._output(data)
    for _ in itertools.chain(decoder._advance(data, out), decoder._drain(out)):
        pass
    return decoder._count(out)


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

    `source`: the path of a file, a file open for reading bytes, data as `decode` takes it (a memory-mapped
    array included), or an iterable of such data. Files and data are read `chunk` bytes at a time. Settings as
    in `Decoder`. Together the arrays hold what `decode` gives (with offsets and folding: in another order). Events that sorting holds back stay in memory
    until their time has come.
    """
    decoder = Decoder(format, markers=markers, offsets=offsets, divider=divider, start_period=start_period)
    return _iterate(decoder, source, whole_number("chunk", chunk, 1, 2**40))


def _iterate(decoder: Decoder, source: Source, chunk: int) -> Iterator[np.ndarray]:
    for data in _chunks(source, chunk):
        yield from decoder._batches(decoder._advance(decoder._begin(data), out := Output(0)), out)
    yield from decoder._batches(decoder._drain(out := Output(0)), out)


def _chunks(source: Source, chunk: int) -> Iterator[Data]:
    if isinstance(source, (str, os.PathLike)):
        with open(source, "rb") as file:
            for signature, kind in _OTHER_FILES.items():
                if file.peek(len(signature)).startswith(signature):
                    raise ValueError(f"{os.fspath(source)} is {kind}, not packet words")
            yield from _chunks(file, chunk)
    elif hasattr(source, "read"):
        while data := source.read(chunk):
            yield data
    elif isinstance(source, (bytes, bytearray, memoryview, np.ndarray)):
        array = source if isinstance(source, np.ndarray) else as_bytes(source)
        step = max(1, chunk // max(1, array.itemsize))
        for begin in range(0, len(array), step):
            yield array[begin : begin + step]
    elif hasattr(source, "__iter__"):
        yield from source
    else:
        as_bytes(source)  # says what is needed


def _one_event(delta: int, channel: int) -> list[int]:
    """A record of format 60 with one event (type 3)."""
    return [delta & 0x3FFFFFFF | 0x40000000, delta >> 30 & 0x07FFFFFF | channel << 27 | 0xC0000000]


def _several_events(low: int, high: int) -> list[tuple[int, int]]:
    """Deltas and channels of a record of format 60 that holds three or two events; empty for the other
    types."""

    def signed(value: int, bits: int) -> int:
        value &= (1 << bits) - 1
        return value - (value >> (bits - 1) << bits)

    kind = (high >> 30 & 1) * 2 + (low >> 30 & 1)
    if kind == 1:
        both = (high & 0x3FFFFFFF) << 30 | low & 0x3FFFFFFF
        return [(signed(both >> at, 17), both >> (at + 17) & 7) for at in (0, 20, 40)]
    if kind == 2:
        return [(signed(word, 27), word >> 27 & 7) for word in (low, high)]
    return []
