#!/usr/bin/python3
"""Binary snapshots, opened by a program that is not ours: Gwyddion converts them to its own format, which is
decoded here. A whole frame from the console, and one with void pixels.

    gwyddion_reads.py --bench PATH --partial PATH
"""

import argparse
import os
import shutil
import struct
import subprocess
import sys
import tempfile

import numpy as np


def check(condition, text):
    if not condition:
        raise AssertionError(text)


class Gwy:
    """The file format: objects of named, typed components, little-endian."""

    SCALARS = {"i": "<i", "q": "<q", "d": "<d"}

    def __init__(self, path):
        self.bytes = open(path, "rb").read()
        check(self.bytes[:4] == b"GWYP", "no GWY file")
        self.at = 4
        self.root = self.read_object()

    def take(self, count):
        self.at += count
        return self.bytes[self.at - count:self.at]

    def text(self):
        end = self.bytes.index(b"\0", self.at)
        return self.take(end + 1 - self.at)[:-1].decode()

    def number(self, pattern):
        return struct.unpack(pattern, self.take(struct.calcsize(pattern)))[0]

    def read_object(self):
        self.text()  # the class
        end = self.number("<I") + self.at
        components = {}
        while self.at < end:
            name = self.text()
            components[name] = self.value(chr(self.take(1)[0]))
        return components

    def value(self, kind):
        if kind in "bc":
            return self.take(1)[0]
        if kind in self.SCALARS:
            return self.number(self.SCALARS[kind])
        if kind == "s":
            return self.text()
        if kind == "o":
            return self.read_object()
        count = self.number("<I")
        if kind == "D":
            return np.frombuffer(self.take(8 * count), "<f8")
        if kind == "C":
            return self.take(count)
        return [self.value(kind.lower()) for _ in range(count)]


def convert(path):
    """The first channel of a snapshot, and its mask (none: zeros)."""
    out = path + ".gwy"
    # A home of its own: the user's settings are neither read nor written.
    environment = {**os.environ, "HOME": os.path.dirname(path), "LC_ALL": "C.UTF-8"}
    run = subprocess.run(["gwyddion", f"--convert-to-gwy={out}", path], env=environment, capture_output=True, text=True,
                         timeout=120)
    check(run.returncode == 0 and os.path.exists(out), f"gwyddion refuses the file: {run.stdout}{run.stderr}")
    root = Gwy(out).root
    field = root["/0/data"]
    mask = root.get("/0/mask")
    return field, np.zeros(field["data"].size) if mask is None else mask["data"]


def compare(field, mask, image, void, lengths, units):
    rows, columns = image.shape
    check((field["xres"], field["yres"]) == (columns, rows), f"size {field['xres']} x {field['yres']}")
    for key, length in zip(("xreal", "yreal"), lengths):
        check(abs(field[key] - length) <= 1e-6 * length, f"{key} is {field[key]}, {length} expected")
    for key, unit in zip(("si_unit_xy", "si_unit_z"), units):
        check(field[key]["unitstr"] == unit, f"{key} is {field[key]['unitstr']}, {unit} expected")
    check(np.array_equal(mask.reshape(rows, columns) != 0, void), "the mask is another one")
    values = field["data"].reshape(rows, columns)
    single = image.astype("f4").astype("f8")
    # It adds and multiplies in double precision by factors of its own.
    check(np.allclose(values[~void], single[~void], rtol=1e-12, atol=0), "values differ")


def whole_frame(arguments, folder):
    run = subprocess.run([arguments.bench, "--headless", "--seconds", "6", "--out", folder, "--pixels", "40x24",
                          "--rate", "2000"], capture_output=True, text=True, timeout=120)
    check(run.returncode == 0, f"the console ended with {run.returncode}: {run.stderr}")
    text = open(os.path.join(folder, "area.asc"), encoding="utf-8").read().partition("# Start of Data:\n")[2]
    image = np.array([float(line) for line in text.splitlines()]).reshape(24, 40)
    field, mask = convert(os.path.join(folder, "area.bcr"))
    compare(field, mask, image, np.zeros(image.shape, bool), (1e-7, 7.5e-8), ("m", "m"))


def partial_frame(arguments, folder):
    x, y, count = 12, 7, 100
    path = os.path.join(folder, "partial.bcr")
    run = subprocess.run([arguments.partial, path, str(x), str(y), "4", str(count)], check=False)
    check(run.returncode == 0, f"partial_frame ended with {run.returncode}")
    # Mode 4, frame 0: every second line is the forward pass, rows run upwards.
    image, void = np.zeros((y, x)), np.ones((y, x), bool)
    for i in range(count):
        line, column = divmod(i, x)
        if line % 2 == 0:
            row = y - 1 - line // 2
            image[row, column] = (37 * i - 5000 - 100) * 1e-9 / 2
            void[row, column] = False
    check(void.sum() == y * x - 52, "the test's own count of void pixels")  # 4 whole lines, and 4 of the fifth
    field, mask = convert(path)
    compare(field, mask, image, void, (3e-7, 2e-7), ("m", "V"))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--bench", required=True)
    parser.add_argument("--partial", required=True)
    arguments = parser.parse_args()
    if shutil.which("gwyddion") is None:
        print("missing: gwyddion")
        sys.exit(1 if "VORELUTIL_REQUIRE_ALL" in os.environ else 77)
    with tempfile.TemporaryDirectory() as folder:
        whole_frame(arguments, folder)
        partial_frame(arguments, folder)
    print("gwyddion reads what was written")


main()
