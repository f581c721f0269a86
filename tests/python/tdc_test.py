"""The module against a decoder in plain Python (plain.py), and against values worked out by hand."""

import io
import os
import random
import struct
import subprocess
import sys
import tempfile
import tracemalloc
import unittest
import warnings

import numpy as np
import vorelutil_tdc as tdc
from plain import MARKERS, Plain

OFFSETS = [-90000, 100, 5, 70000, 1, 2, 3, 2**30]


def words(*values):
    return struct.pack(f"<{len(values)}I", *values)


def pairs(events):
    return list(zip(events["time"].tolist(), events["channel"].tolist()))


def array(*events):
    return np.array(list(events), tdc.EVENT)


def soup(format, size, seed):
    """Words or bytes of every kind, high words and absolute times among them; cut in the middle of a word."""
    draw = random.Random(seed)
    if format == "60b":
        return draw.randbytes(4 * size + 3)
    data = []
    for _ in range(size):
        word = draw.getrandbits(32)
        if format == "56" and draw.random() < 0.7:
            word &= ~(1 << 28)
        if format == "52" and draw.random() < 0.2:
            word |= 63 << 26
        if format == "60" and draw.random() < 0.9:  # mostly in step
            word = word & 0x7FFFFFFF | len(data) % 2 << 31
        data.append(word)
    return words(*data) + b"\x05\x06\x07"


def ascending(format, size, seed, step=3000):
    """An ordinary stream: times ascend, all channels and markers of the format, starts among them."""
    draw = random.Random(seed)
    if format in ("56", "52"):
        time, high, data = 1 << 30, -1, []
        bits = 28 if format == "56" else 26
        for _ in range(size):
            time += draw.randrange(step)
            if time >> bits != high:
                high = time >> bits
                data.append(high | (1 << 28 if format == "56" else 63 << 26))
            code = draw.randrange(8 if format == "56" else 45) << (29 if format == "56" else 26)
            data.append(code | time % (1 << bits))
        return words(*data)
    if format == "60":
        data = [1, 0x80000000]  # time 1
        for _ in range(size):
            kind, delta = draw.randrange(1, 4), lambda: draw.randrange(step)
            channel = lambda: draw.choice((0, 1, 2, 3, 4, 5, 5, 6, 7))
            if kind == 1:
                both = sum((delta() | channel() << 17) << 20 * k for k in range(3))
                data += [both % 2**30 | 1 << 30, both >> 30 | 1 << 31]
            elif kind == 2:
                data += [delta() | channel() << 27, delta() | channel() << 27 | 3 << 30]
            else:
                data += [delta() | 1 << 30, channel() << 27 | 3 << 30]
        return words(*data)
    data = struct.pack("<q", 5 << 2 | 3)
    for _ in range(size):
        kind = draw.randrange(3)
        data += bytes([draw.randrange(45) << 2 | kind]) + draw.randrange(step).to_bytes(kind + 2, "little")
    return data


def in_pieces(data, format, cuts, **settings):
    """Decodes `data` cut at random into pieces of up to `cuts` bytes."""
    draw, decoder, events = random.Random(cuts), tdc.Decoder(format, **settings), []
    while data:
        size = draw.randrange(1, cuts + 1)
        events += pairs(decoder.decode(data[:size]))
        data = data[size:]
    return events + pairs(decoder.finish()), decoder.summary


class Formats(unittest.TestCase):
    def test_words_worked_out_by_hand(self):
        table = [
            ("56: high part, channel 5", "56", words(0x10000002, 0xA0000003), [(2 * 2**28 + 3, 5)]),
            ("56: wraps before its high word", "56", words(0x10000001, 0x0FFFFFF0, 0x10), [(0x1FFFFFF0, 0), (2**29 + 16, 0)]),
            ("56: before the first high word", "56", words(7, 0x10000000, 7), [(7, 0)]),
            ("52: channel 31, code 32, markers", "52", words(0xFC000001, 31 << 26 | 2, 32 << 26, 33 << 26 | 3, 37 << 26 | 4, 41 << 26 | 5), [(2**26 + 2, 31), (2**26 + 3, 100), (2**26 + 4, 200), (2**26 + 5, 104)]),
            ("52: goes back where its value wraps", "52", words(0xFC000001, 9, 8), [(2**26 + 9, 0), (2**26 + 8, 0)]),
            ("52x: high word, two events", "52x", words(1, 0xF0000002, 0x80000001), [(2**28 + 2, 7), (2**29 + 1, 0)]),
            ("60: three events", "60", words(1000, 1 << 31, 1 << 30 | 0x00A20005, 0xA8000C81), [(1005, 1), (2039, 1), (2042, 5)]),
            ("60: two events, one back", "60", words(1000, 1 << 31, 2 << 27 | 7, 0xDFFFFFFE), [(1007, 2), (1005, 3)]),
            ("60: one event", "60", words(1000, 1 << 31, 1 << 30 | 4, 0xE0000001), [(1004 + 2**30, 4)]),
            ("60: markers on the grid", "60", words(15000, 1 << 31, 1 << 30 | 7, 0xF0000000), [(15000, 100), (15000, 101), (15000, 102)]),
            ("60: before the absolute time", "60", words(1 << 30 | 7, 0xC0000000, 1000, 1 << 31), []),
            ("60b: 8, 3, 4 and 5 bytes", "60b", bytes.fromhex("a30f000000000000 046400 09ceffff 0a00000001"), [(1100, 1), (1050, 2), (16778266, 2)]),
            ("60b: marker", "60b", bytes.fromhex("a30f000000000000 840100"), [(1001, 100)]),
            ("60b: a negative time waits for the next absolute one", "60b", bytes.fromhex("ffffffffffffffff 046400"), []),
        ]  # fmt: skip
        for what, format, data, events in table:
            with self.subTest(what):
                self.assertEqual(pairs(tdc.decode(data, format)), events)

    def test_any_words_in_any_pieces(self):
        settings = [{}, {"markers": 0x0A5}]
        settings += [{"divider": 7, "start_period": 99999}, {"divider": 9, "start_period": 5}]
        for format in ("56", "52", "52x", "60", "60b"):
            for given in settings if format != "52x" else [{}]:
                with self.subTest(format, **given), warnings.catch_warnings():
                    warnings.simplefilter("ignore")
                    data = soup(format, 30000, format)
                    plain = Plain(**given)
                    expected = plain.run(format, data)
                    self.assertGreater(len(expected), 4000)
                    self.assertEqual(pairs(tdc.decode(data, format, **given)), expected)
                    events, summary = in_pieces(data[:9000], format, 7, **given)
                    self.assertEqual(events, Plain(**given).run(format, data[:9000]))
                    events, summary = in_pieces(data, format, 100000, **given)
                    self.assertEqual(events, expected)
                    self.assertEqual(summary.words, len(data) if format == "60b" else len(data) // 4)
                    channels = sum(code < 32 for _, code in expected)
                    self.assertEqual(sum(summary.channels.values()), channels)
                    self.assertEqual(sum(summary.markers.values()), len(expected) - channels)
                    counted = (summary.words_before_high, summary.ordering_errors, summary.cut_bytes)
                    self.assertEqual(counted, (plain.before_high, plain.strays, plain.cut))

    def test_offsets_and_virtual_events_in_any_pieces(self):
        settings = [
            {"offsets": OFFSETS},
            {"offsets": OFFSETS, "markers": 0},
            {"divider": 4},
            {"divider": 4, "offsets": OFFSETS},
            {"divider": 6000},
            {"divider": 16383},
            {"divider": 4, "start_period": 12345, "offsets": OFFSETS},
        ]
        for format in ("56", "52", "60", "60b"):
            for given in settings:
                with self.subTest(format, **given), warnings.catch_warnings():
                    warnings.simplefilter("ignore")
                    # Folded times are in no order, and virtual events may fall due late, behind a marker: the
                    # order beyond one packet is left open here.
                    data = ascending(format, 600 if given.get("divider", 1) < 5 else 60, format)
                    decoded = pairs(tdc.decode(data, format, **given))
                    self.assertTrue(decoded == Plain(**given).run(format, data))
                    data = ascending(format, 20000 if given.get("divider", 1) < 5 else 60, format)
                    decoded, _ = in_pieces(data, format, 9000, **given)
                    self.assertTrue(sorted(decoded) == sorted(Plain(**given).run(format, data)))

    def test_offsets_give_one_order_in_any_pieces(self):
        for format in ("56", "52", "60", "60b"):
            for offsets in (OFFSETS, [-5] * 8, [0] * 7 + [2**31 - 6000]):
                data = ascending(format, 20000, format)
                expected = Plain(offsets=offsets).run(format, data)
                self.assertTrue(pairs(tdc.decode(data, format, offsets=offsets)) == expected)
                self.assertTrue(in_pieces(data, format, 900, offsets=offsets)[0] == expected)

    def test_three_events_a_record_with_the_largest_divider(self):
        # Starts at 11 and 21; the record of three starts then brings three periods of 16383 virtual events.
        starts = words(1, 1 << 31, 1 << 30 | 10, 0xE8000000, 1 << 30 | 10, 0xE8000000)
        three = sum((10 | 5 << 17) << 20 * k for k in range(3))
        data = starts + words(three % 2**30 | 1 << 30, three >> 30 | 1 << 31)
        events = tdc.decode(data, "60", divider=16383)
        self.assertEqual(len(events), 3 * 16383 + 5)
        self.assertEqual(events["time"][events["channel"] == 5].tolist(), [11, 21, 31, 41, 51])

    def test_a_missing_word_loses_its_record_alone(self):
        data = [1000, 1 << 31] + [1 << 30 | 1, 0xC8000000] * 4  # channel 1 at 1001, 1002, 1003, 1004
        for gone, errors in ((4, 1), (5, 1)):
            decoder = tdc.Decoder("60")
            events = decoder.decode(words(*data[:gone], *data[gone + 1 :]))
            self.assertEqual(pairs(events), [(1001, 1), (1002, 1), (1003, 1)])
            self.assertEqual(decoder.summary.ordering_errors, errors)

    def test_a_record_that_the_end_cuts(self):
        data = bytes.fromhex("a30f000000000000 046400 09ceffff 0a00000001")
        for size in range(len(data)):
            decoder = tdc.Decoder("60b")
            events = pairs(decoder.decode(data[:size])) + pairs(decoder.finish())
            whole = [end for end in (8, 11, 15, 20) if end <= size]
            self.assertEqual(events, [(1100, 1), (1050, 2), (16778266, 2)][: max(0, len(whole) - 1)])
            self.assertEqual(decoder.summary.cut_bytes, size - (whole or [0])[-1])

    def test_what_sorting_holds_back_comes_at_the_end(self):
        decoder = tdc.Decoder("56", offsets=[0, 1000, 0, 0, 0, 0, 0, 0])
        self.assertEqual(pairs(decoder.decode(words(0x10000000, 0x20000005, 6, 0x40000008))), [(6, 0)])
        self.assertEqual(pairs(decoder.finish()), [(8, 2), (1005, 1)])
        with self.assertRaisesRegex(ValueError, "finished"):
            decoder.decode(b"")
        # An event at the end of the 64-bit range: a sum of deltas behind the largest absolute time.
        late = words(0x3FFFFFFF, 0xBFFFFFFF, *[0x7FFFFFFF, 0xFBFFFFFF] * 112, 1 << 30 | 111, 0xC8000000)
        events = tdc.decode(late, "60", offsets=[0, 1, 0, 0, 0, 0, 0, 0])
        self.assertEqual(pairs(events), [(2**63 - 1, 1)])


class Input(unittest.TestCase):
    def test_kinds_of_data(self):
        data = ascending("56", 1000, 1)
        expected = pairs(tdc.decode(data, "56"))
        native = np.frombuffer(data, "<u4")
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "run.tdc")
            native.tofile(path)
            mapped = np.memmap(path, "<u4", "r")
            spread = np.zeros(2 * len(native), "u4")
            spread[::2] = native
            for given in (
                bytearray(data), memoryview(data), native, native.astype(">u4"), spread[::2],
                native.view("u1"), mapped, np.frombuffer(b"\0" + data, "u1")[1:],
            ):  # fmt: skip
                self.assertEqual(pairs(tdc.decode(given, "56")), expected)
            with open(path, "rb") as file:
                sevens = (data[i : i + 7] for i in range(0, len(data), 7))
                for source in (path, file, data, native, mapped, io.BytesIO(data), sevens):
                    parts = list(tdc.iter_decode(source, 56, chunk=1001))
                    self.assertEqual(pairs(np.concatenate(parts)), expected)
        self.assertEqual(list(tdc.iter_decode(b"", "56")), [])
        events = tdc.decode(b"", "56")
        self.assertEqual((len(events), events.dtype, events.dtype.itemsize), (0, tdc.EVENT, 16))

    def test_wrong_input_is_refused(self):
        good = words(0x10000000, 1)
        table = [
            (good, "57", {}, "format '57' is unknown: one of 56, 52, 52x, 60, 60b"),
            ([1, 2], "56", {}, "data of type list"),
            ("text", "56", {}, "data of type str"),
            (np.zeros(3), "56", {}, "data of dtype float64"),
            (np.zeros(3, "i4"), "56", {}, "data of dtype int32"),
            (np.zeros((2, 2), "u4"), "56", {}, "data of 2 dimensions"),
            (good, "56", {"divider": 0}, "divider 0 is not between 1 and 16383"),
            (good, "56", {"divider": 2.5}, "divider 2.5 is not a whole number"),
            (good, "56", {"markers": -1}, "markers -1"),
            (good, "56", {"start_period": 2**63}, "start_period 9223372036854775808"),
            (good, "56", {"offsets": [1]}, "1 offsets: 8 are needed"),
            (good, "56", {"offsets": 1}, "offsets 1: 8 whole numbers are needed"),
            (good, "56", {"offsets": [2**31] * 8}, "offset 2147483648"),
        ]
        for data, format, settings, text in table:
            with self.subTest(text), self.assertRaisesRegex(ValueError, text):
                tdc.decode(data, format, **settings)
        with self.assertRaisesRegex(ValueError, "chunk 0"):
            tdc.iter_decode(good, "56", chunk=0)
        with self.assertRaisesRegex(ValueError, "data of type int"):
            list(tdc.iter_decode(5, "56"))
        every = {"markers": 1, "offsets": [0] * 8, "divider": 2, "start_period": 9}
        unused = (
            ("52x", every, [f"{name} has no effect in format 52x" for name in every]),
            ("56", {"markers": 1}, ["markers has no effect in format 56"]),
            ("52", {"divider": 2}, ["divider has no effect in format 52 without a start_period"]),
            ("60b", {"divider": 2}, ["divider has no effect in format 60b without a start_period"]),
            ("60", {"start_period": 9}, ["start_period has no effect without a divider from 2 on"]),
            ("60", {"divider": 9, "start_period": 8}, ["start_period has no effect below the divider"]),
            ("60", {**every, "start_period": 0}, []),
        )
        for format, settings, texts in unused:
            with warnings.catch_warnings(record=True) as told:
                warnings.simplefilter("always")
                tdc.decode(b"", format, **settings)
            self.assertEqual([str(one.message) for one in told], texts)
            self.assertEqual({one.filename for one in told} - {__file__}, set())

    def test_a_large_stream_needs_little_memory(self):
        piece = ascending("56", 300000, 2)
        tracemalloc.start()
        try:
            parts = tdc.iter_decode((piece for _ in range(20)), "56", offsets=[0, 10, -5, 0, 0, 0, 0, 0])
            total = sum(len(events) for events in parts)
            peak = tracemalloc.get_traced_memory()[1]
            # A word may make thousands of events: they come in pieces too.
            periods = words(0x10000000, *range(100000, 30000000, 100000))
            virtual = sum(len(events) for events in tdc.iter_decode(periods, "56", divider=16383))
            peak = max(peak, tracemalloc.get_traced_memory()[1])
        finally:
            tracemalloc.stop()
        self.assertEqual((total, virtual), (6000000, 299 + 297 * 16383))
        self.assertLess(peak, 32 << 20)


class Encoding(unittest.TestCase):
    def test_events_read_back(self):
        draw = random.Random(3)
        top = {"56": 2**56 - 1, "52": 2**52 - 1, "60": 2**55}
        for format, codes in (("56", range(8)), ("52", [*range(32), *MARKERS]), ("60", range(6))):
            times = sorted(draw.randrange(1, 2**40) for _ in range(70000)) + [2**41, 2**41, top[format]]
            events = array(*((time, draw.choice(codes)) for time in times))
            self.assertTrue((tdc.decode(tdc.encode(events, format), format) == events).all())
        far = [(1, 0), (2**60 - 1, 5), (2, 3), (5000, 203), (5001, 1), (10000, 104), (2**59, 4), (2**59 - 7, 1)]
        back = [(9, 100), (8, 104), (2**52 - 1, 203), (2**52 - 2, 0)]
        for format, events in (("60", far), ("52", back)):
            self.assertEqual(pairs(tdc.decode(tdc.encode(array(*events), format), format)), events)

    def test_60b_as_it_has_always_been(self):
        events = array((1, 1), (0x10000, 2), (0x1000000, 3), (2**32, 4))
        expected = "05 0100  09 000001  00000001 00  0000000004000000 10 0000".replace(" ", "")
        self.assertEqual(tdc.encode(events, "60b").tobytes().hex(), expected)
        many = array(*[(1, 1)] * 70001, *[(0x10000, 2)] * 3)
        self.assertEqual(tdc.encode(many, "60b").tobytes(), b"\5\1\0" * 70001 + b"\t\0\0\1" * 3)
        self.assertEqual(len(tdc.encode(array(), "60b")), 0)

    def test_events_that_a_format_cannot_carry(self):
        table = [
            ("56", [(1, 1), (2, 8)], "event 1: channel 8"),
            ("56", [(1, 100)], "channel 100"),
            ("52", [(1, 32)], "channel 32"),
            ("60", [(1, 6)], "channel 6"),
            ("52", [(2**52, 1)], "time 4503599627370496"),
            ("56", [(-1, 1)], "time -1"),
            ("60", [(0, 1)], "time 0"),
            ("60", [(1, 1), (10001, 101)], "event 1: time 10001 of a marker is no multiple of 5000"),
            ("56", [(5, 1), (4, 1)], "event 1: time 4 lies before"),
            ("52", [(2**26, 1), (2**26 - 1, 1)], "event 1: time 67108863 lies before"),
        ]
        for format, events, text in table:
            with self.subTest(format, text=text), self.assertRaisesRegex(ValueError, text):
                tdc.encode(array(*events), format)
        other = np.array([(5, 1)], [("channel", "u1"), ("time", ">i4")][::-1])
        self.assertEqual(tdc.encode(other, "56").tolist(), [0x10000000, 0x20000005])
        floats = np.array([(1.5, 1)], [("time", "f8"), ("channel", "u1")])
        for events, text in ((np.zeros(2), "lack the field 'time'"), (floats, "does not fit int64")):
            with self.assertRaisesRegex(ValueError, text):
                tdc.encode(events, "56")
        with self.assertRaisesRegex(ValueError, "format '52x' is unknown: one of 56, 52, 60, 60b"):
            tdc.encode(array(), "52x")


class Histogram(unittest.TestCase):
    def test_counts_worked_out_by_hand(self):
        low, high = -(2**63), 2**63 - 1
        table = [
            ("latest start at or before", [(10, 0), (12, 1), (20, 0), (21, 1), (29, 1), (31, 1)], (0, 1, 5, 3), [2, 1, 1]),
            ("beyond the last bin", [(0, 0), (29, 1), (30, 1)], (0, 1, 10, 3), [0, 0, 1]),
            ("before the first start", [(5, 1), (6, 0), (7, 1)], (0, 1, 1, 3), [0, 1, 0]),
            ("equal times: the start is first", [(6, 1), (6, 0)], (0, 1, 1, 2), [1, 0]),
            ("out of order", [(21, 1), (20, 0), (12, 1), (10, 0)], (0, 1, 1, 3), [0, 1, 1]),
            ("start and stop the same", [(10, 3), (12, 3), (12, 3), (15, 3)], (3, 3, 1, 4), [1, 0, 1, 1]),
            ("negative times", [(-10, 0), (-7, 1)], (0, 1, 2, 3), [0, 1, 0]),
            ("ends of the range", [(low, 0), (high, 1)], (0, 1, 2**62, 4), [0, 0, 0, 1]),
            ("nothing", [], (0, 1, 1, 2), [0, 0]),
            ("a single event is no pair", [(5, 3)], (3, 3, 1, 1), [0]),
            ("markers", [(5, 100), (7, 203)], (100, 203, 1, 3), [0, 0, 1]),
        ]  # fmt: skip
        for what, events, arguments, counts in table:
            with self.subTest(what):
                self.assertEqual(tdc.histogram(array(*events), *arguments).tolist(), counts)
        wrong = (((0, 1, 0, 3), "bin_width 0"), ((0, 1, 1, 0), "bins 0"), ((0, 256, 1, 1), "stop 256"))
        for arguments, text in wrong:
            with self.assertRaisesRegex(ValueError, text):
                tdc.histogram(array(), *arguments)


class Library(unittest.TestCase):
    def test_what_was_tried_is_told(self):
        call = "import vorelutil_tdc; vorelutil_tdc.decode(b'', '56')"
        for path, text in (("/nowhere/libvorelutil.so", "No such file"), ("libc.so.6", "tdc56Init")):
            environment = {**os.environ, "VORELUTIL_LIBRARY": path}
            command = [sys.executable, "-c", call]
            run = subprocess.run(command, env=environment, capture_output=True, text=True)
            self.assertEqual(run.returncode, 1)
            self.assertRegex(run.stderr, "OSError: The library vorelutil cannot be loaded; .* Tried: " + path)
            self.assertIn(text, run.stderr)


if __name__ == "__main__":
    unittest.main()
