#!/usr/bin/python3
"""The frame road from end to end: a simulated controller as a process, the console without a window, and the
files on disk. Nothing of the project's code is used to judge them: the controller's dump of what it sampled is
arranged here once more, by the rules of the file formats, and compared value by value.

    frame_road.py --vorel PATH --bench PATH
"""

import argparse
import os
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
from datetime import datetime, timedelta
from zoneinfo import ZoneInfo

import numpy as np

SECONDS = 6
RATE = 2000
PICO = 1e-12  # one raw count is a picometre, and so is one count of a length
X_LENGTH, Y_LENGTH = 100000, 75000
LIMIT = 1 << 30
GERMAN = {"LC_ALL": "de_DE.UTF-8", "LANG": "de_DE.UTF-8", "TZ": "Asia/Kolkata"}

# x pixels, y pixels, mode, position of the controller's first sample, environment
CASES = {
    "forward-back": (96, 64, 4, 0, {}),
    "forward-back-german": (96, 64, 4, 0, GERMAN),
    "back-forward": (50, 21, 6, 3000, {}),
    "backward": (37, 50, 5, 1, {}),
    "near-the-limit": (96, 64, 3, LIMIT - 2 * 96 * 64, {}),
}


def check(condition, text):
    if not condition:
        raise AssertionError(text)


def run_console(case, arguments, folder):
    x, y, mode, position, environment = case
    environment = {**os.environ, **environment}
    dump = os.path.join(folder, "dump")
    simulator = subprocess.Popen(
        [arguments.vorel, "sim", "--port", "0", "--surface", dump, "--position", str(position)],
        stdout=subprocess.PIPE, env=environment, text=True)
    try:
        match = re.fullmatch(r"listening on 127\.0\.0\.1:(\d+)\n", simulator.stdout.readline())
        check(match, "the simulated controller does not say where it listens")
        console = subprocess.run(
            [arguments.bench, "--headless", "--port", match[1], "--out", folder, "--seconds", str(SECONDS),
             "--pixels", f"{x}x{y}", "--mode", str(mode), "--rate", str(RATE)],
            env=environment, capture_output=True, text=True, timeout=120)
        check(console.returncode == 0, f"the console ended with {console.returncode}: {console.stderr}")
    finally:
        simulator.send_signal(signal.SIGTERM)
        status = simulator.wait(timeout=60)
    check(status == 0, f"the simulated controller ended with {status}")
    return np.fromfile(dump, "<i4")


def start_of(position, size):
    start = -(-position // size) * size
    return 0 if start + size >= LIMIT else start


def arrange(samples, x, y, mode, start):
    """The image of one frame, row 0 on top: the pass that was saved."""
    passes = 2 if mode in (4, 6) else 1
    lines = samples.reshape(y, passes, x)
    image = {3: lines[:, 0], 4: lines[:, 0], 5: lines[:, 0, ::-1], 6: lines[:, -1]}[mode]
    frame = start // (passes * x * y)
    return image[::-1] if frame % 2 == 0 else image


def texts(samples):
    return ["%.9g" % (sample * PICO) for sample in samples.tolist()]


def compare_texts(found, expected, what):
    check(len(found) == len(expected), f"{what}: {len(found)} values, {len(expected)} expected")
    for i, (left, right) in enumerate(zip(found, expected)):
        check(left == right, f"{what}: value {i} is {left}, {right} expected")


def check_stamp(text, pattern, environment):
    stamp = datetime.strptime(text, pattern)
    zone = ZoneInfo(environment["TZ"]) if "TZ" in environment else None
    now = datetime.now(zone).replace(tzinfo=None)
    check(abs(now - stamp) < timedelta(minutes=10), f"time stamp {text}, but it is {now}")


def check_area(folder, case, image):
    x, y, mode, _, environment = case
    text = open(os.path.join(folder, "area.asc"), encoding="utf-8").read()
    header, _, data = text.partition("# Start of Data:\n")
    lines = header.splitlines()
    check_stamp(lines.pop(1)[2:], "%Y-%m-%dT%H:%M:%S", environment)
    compare_texts(lines, [
        "# Vorel frame view snapshot",
        "# display:   channel height " + ("bwd" if mode == 5 else "fwd"),
        f"# x-pixels:  {x}", f"# y-pixels:  {y}",
        "# x-length:  1e-07", "# y-length:  7.5e-08", "# x-offset:  5e-08", "# y-offset:  3.75e-08",
        "# x-unit:    m", "# y-unit:    m", "# z-unit:    m", f"# scanspeed: {RATE}"], "area.asc, header")
    compare_texts(data.splitlines(), texts(image.ravel()), "area.asc")

    binary = open(os.path.join(folder, "area.bcr"), "rb").read()
    check(len(binary) == 2048 + 4 * x * y, f"area.bcr has {len(binary)} bytes")
    lines = binary[:2048].decode().splitlines()
    check_stamp(lines.pop(1)[len("starttime "):], "%d %m %y %H:%M:%S", environment)
    compare_texts(lines[:-1], [
        "fileformat = bcrf", f"xpixels = {x}", f"ypixels = {y}", "xlength = 1e-07", "ylength = 7.5e-08",
        "xoffset = 5e-08", "yoffset = 3.75e-08", "xunit = m", "yunit = m", "zunit = m", f"scanspeed = {RATE}",
        "voidpixels = 0", "intelmode = 0"], "area.bcr, header")
    check(lines[-1].strip(" ") == "" and binary[2047:2048] == b"\n", "area.bcr: the header is not filled up")
    values = np.frombuffer(binary, ">f4", offset=2048)
    expected = (image.astype("f8") * PICO).astype("f4").ravel()
    check(np.array_equal(values, expected), "area.bcr: values differ")


def find(samples, dump, what):
    """Where a series stands in the dump: exactly one place, as the samples are noisy."""
    places = np.flatnonzero(dump[:dump.size - samples.size + 1] == samples[0])
    places = [p for p in places if np.array_equal(dump[p:p + samples.size], samples)]
    check(len(places) == 1, f"{what}: found {len(places)} times in the dump")
    return places[0]


def read_line(folder, name, environment):
    lines = open(os.path.join(folder, name), encoding="utf-8").read().splitlines()
    check(lines[0] == "# Vorel frameless snapshot" and lines[6] == "X ; Y", f"{name}: header")
    check_stamp(lines[1][2:], "%Y-%m-%dT%H:%M:%S", environment)
    rows = [line.split(" ; ") for line in lines[7:]]
    return [row[0] for row in rows], [row[1] for row in rows]


def raw(values):
    return np.array([round(float(value) / PICO) for value in values], "<i4")


def check_series(folder, case, dump):
    """Line, stream and log. Result: the place of the line and of the stream in the dump."""
    x, _, mode, position, environment = case
    passes = 2 if mode in (4, 6) else 1
    places, values = read_line(folder, "line.csv", environment)
    check(len(values) == passes * x, f"line.csv has {len(values)} rows")
    line = find(raw(values), dump, "line.csv")
    up, down = list(range(x)), list(range(x - 1, -1, -1))
    pixels = {3: up, 4: up + down, 5: down, 6: down + up}[mode]
    step = X_LENGTH * PICO / (x - 1)
    check(np.allclose(np.array(places, "f8"), np.array(pixels) * step, rtol=1e-8, atol=1e-20), "line.csv: x")

    places, values = read_line(folder, "stream.csv", environment)
    check(len(values) == x, f"stream.csv has {len(values)} rows")
    stream = find(raw(values), dump, "stream.csv")
    indices = start_of(position, x) + np.arange(x)
    check(np.allclose(np.array(places, "f8"), indices / RATE, rtol=1e-6), "stream.csv: x")

    lines = open(os.path.join(folder, "log.csv"), encoding="utf-8").read().splitlines()
    check_stamp(lines.pop(1)[2:], "%Y-%m-%dT%H:%M:%S", environment)
    check(lines[:4] == ["# Vorel data log", "# display:   channel signal", "# unit:    m", "# Start of Data:"],
          f"log.csv: header {lines[:4]}")
    compare_texts(lines[4:], values, "log.csv")
    return line, stream


def check_time_stamps(folder):
    """The first events, and the histogram of channel 1 after the start channel 5, counted here once more."""
    text = open(os.path.join(folder, "timestamps.csv"), encoding="utf-8").read().splitlines()
    check(text[0] == "time,channel" and len(text) == 50001, f"timestamps.csv has {len(text)} lines")
    times, channels = np.array([line.split(",") for line in text[1:]], "i8").T
    check(times[0] == 1000 and channels[0] == 5, "the stream does not begin with its first start")
    check(np.all(np.diff(times[channels == 5]) > 0), "starts are not in order")
    starts, stops = times[channels == 5], times[channels == 1]
    before = np.searchsorted(starts, stops, "right") - 1
    bins = (stops - starts[before])[before >= 0] // 10
    expected = np.bincount(bins[bins < 500], minlength=500)
    lines = open(os.path.join(folder, "histogram.csv"), encoding="utf-8").read().splitlines()
    compare_texts(lines, ["bin,count"] + [f"{i},{count}" for i, count in enumerate(expected)], "histogram.csv")
    check(expected[50:60].min() > 5 * expected[:50].max(), "no edge where the decay begins")


def check_trace(folder, dump):
    """No sample is missing between telegrams: each block continues the last one, or begins where it was told
    to. Result: the positions that scans were set to."""
    expected, starts, total = None, [], 0
    for line in open(os.path.join(folder, "trace.log"), encoding="utf-8"):
        start = re.search(r": tx: SET  Len=20 Addr=45 Ind=0 CNo=\S+ ([0-9a-f]+)\.$", line)
        block = re.search(r": rx: TELL Len=(\d+) Addr=100 Ind=(\d+) ", line)
        if start:
            expected = int(start[1], 16)
            starts.append(expected)
        if block:
            check(int(block[2]) == expected, f"samples at {block[2]}, {expected} expected")
            count = (int(block[1]) - 16) // 4
            expected += count
            total += count
    check(total == dump.size, f"{total} samples were received, {dump.size} were sent")
    return starts


def check_case(name, arguments, folder):
    case = CASES[name]
    x, y, mode, position, _ = case
    size = x * y * (2 if mode in (4, 6) else 1)
    dump = run_console(case, arguments, folder)
    start = start_of(position, size)
    check_area(folder, case, arrange(dump[:size], x, y, mode, start))
    line, stream = check_series(folder, case, dump)
    check(size <= line < stream, "the scans are not in order")
    check_time_stamps(folder)
    starts = check_trace(folder, dump)
    check(starts[0] == start, f"the area began at {starts[0]}")
    if name == "near-the-limit":
        check(start > 0 and starts[3] == start, "the last area does not begin near the limit")
        check(len(starts) > 4 and starts[4] < 2 * size, "the scan did not go on at a low position")
    with open(os.path.join(folder, "bench.png"), "rb") as picture:
        check(picture.read(8) == b"\x89PNG\r\n\x1a\n", "bench.png is no picture")


class Misleading(threading.Thread):
    """Passes telegrams on, but those that set the time-stamp format name an address that nobody knows."""

    def __init__(self, port):
        super().__init__(daemon=True)
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.target = socket.create_connection(("127.0.0.1", port))
        self.start()

    def run(self):
        client, _ = self.listener.accept()
        threading.Thread(target=self.copy, args=(client,), daemon=True).start()
        stream = client.makefile("rb")
        while header := stream.read(20):
            length, kind, address, index, number = struct.unpack("<5i", header)
            address = 0x7777 if address == 0x50 else address
            self.target.sendall(struct.pack("<5i", length, kind, address, index, number) + stream.read(length - 16))
        self.target.close()

    def copy(self, client):
        try:
            while data := self.target.recv(65536):
                client.sendall(data)
        except OSError:  # the console has ended
            pass


def check_refusal(arguments, folder):
    simulator = subprocess.Popen([arguments.vorel, "sim", "--port", "0"], stdout=subprocess.PIPE, text=True)
    try:
        link = Misleading(int(simulator.stdout.readline().rpartition(":")[2]))
        console = subprocess.run(
            [arguments.bench, "--headless", "--port", str(link.listener.getsockname()[1]), "--out", folder,
             "--seconds", str(SECONDS), "--pixels", "24x16"], capture_output=True, text=True, timeout=120)
    finally:
        simulator.send_signal(signal.SIGTERM)
        simulator.wait(timeout=60)
    check(console.returncode == 1, f"without time stamps the console ended with {console.returncode}")
    check("vorelbench: the time stamps: the controller refused time stamps off: invalid address\n" in console.stderr,
          f"without time stamps the console says {console.stderr}")


def without_stamp(path):
    lines = open(path, "rb").read().split(b"\n")
    del lines[1]
    return lines


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--vorel", required=True)
    parser.add_argument("--bench", required=True)
    arguments = parser.parse_args()

    german = subprocess.run(["locale", "decimal_point"], env={**os.environ, **GERMAN}, capture_output=True, text=True)
    if german.stdout != ",\n":
        print("missing: locale de_DE.UTF-8")
        sys.exit(1 if "VORELUTIL_REQUIRE_ALL" in os.environ else 77)

    failures = []
    with tempfile.TemporaryDirectory() as base:
        def run(name):
            folder = os.path.join(base, name)
            os.mkdir(folder)
            try:
                check_case(name, arguments, folder)
                print(f"{name}: every sample in its place")
            except Exception as error:  # of any kind: the other cases go on
                failures.append(f"{name}: {error}")

        threads = [threading.Thread(target=run, args=(name,)) for name in CASES]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        try:
            check_refusal(arguments, os.path.join(base, "refusal"))
        except Exception as error:
            failures.append(f"refusal: {error}")
        if not failures:
            for file in ("area.asc", "area.bcr", "line.csv", "stream.csv", "log.csv", "timestamps.csv", "histogram.csv"):
                pair = [without_stamp(os.path.join(base, name, file)) for name in ("forward-back", "forward-back-german")]
                if pair[0] != pair[1]:
                    failures.append(f"{file} is another one in a German session")
    for failure in failures:
        print("FAILED", failure)
    sys.exit(1 if failures else 0)


main()
