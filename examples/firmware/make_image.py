#!/usr/bin/env python3
"""Makes a firmware image, to try `vorel firmware`, the console and a simulated controller without hardware.

    make_image.py fpga design.bit --product scan_ctrl --part 7a35tcsg324 --size 200000
    make_image.py dsp dsp.bin --version '$Revision: 1.42 $' --size 65536

The same arguments give the same bytes. docs/formats/firmware.md describes the images.
"""

import argparse
import os
import random
import struct
import sys

MOST_TEXT = 1000
MOST_BIT_TEXT = 126  # and a zero byte: readers take a length's low byte as a signed one
MOST_SIZE = 1 << 30  # that readers take

PREAMBLE = bytes.fromhex("0009 0ff0 0ff0 0ff0 0ff0 0000 01")
SYNC = b"\xff" * 16 + bytes.fromhex("aa995566")


class Parser(argparse.ArgumentParser):
    def error(self, message):
        raise SystemExit(f"make_image.py: {message}")


def noise(count, seed):
    """Bytes that stand for code."""
    generator, piece = random.Random(seed), 1 << 20
    return b"".join(generator.randbytes(min(piece, count - at)) for at in range(0, count, piece))


def field(key, text):
    """A field of a bit file's header: key, length, text with its zero byte."""
    data = os.fsencode(text) + b"\0"
    return key + struct.pack(">H", len(data)) + data


def bit_file(options):
    """Header, length of the configuration data, and the data, which begin with a fixed pattern."""
    header = PREAMBLE + field(b"a", options.product) + field(b"b", options.part)
    header += field(b"c", options.date) + field(b"d", options.time) + b"e"
    length = max(options.size - len(header) - 4, len(SYNC))
    return header + struct.pack(">I", length) + SYNC + noise(length - len(SYNC), options.seed)


def processor_image(options, kind):
    """Code with two texts in its middle: version and product, each behind its key."""
    texts = os.fsencode(f"{kind}Version:{options.version}\0{kind}Product:{options.product}\0")
    code = noise(options.size - len(texts), options.seed)
    middle = len(code) // 2
    return code[:middle] + texts + code[middle:]


def check(options):
    """Ends the program where an option's value has no image."""
    most = MOST_BIT_TEXT if options.kind == "fpga" else MOST_TEXT
    for name in ("product", "version", "date", "time", "part"):
        if len(os.fsencode(getattr(options, name))) > most:
            sys.exit(f"make_image.py: --{name} has more than {most} bytes")
    if not 0 <= options.size <= MOST_SIZE:
        sys.exit(f"make_image.py: --size is not from 0 to {MOST_SIZE}")


def main():
    parser = Parser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("kind", choices=["fpga", "dsp", "sam"])
    parser.add_argument("file")
    parser.add_argument("--product", default="example", help="product, or name of the design")
    parser.add_argument("--version", default="1.0", help="of a dsp or sam image")
    parser.add_argument("--date", default="2026/11/21", help="of a bit file, which has no other version")
    parser.add_argument("--time", default="12:00:00", help="of a bit file")
    parser.add_argument("--part", default="7a35tcsg324", help="of a bit file: the part that it is for")
    parser.add_argument("--size", type=int, default=100000, help="bytes in the file, if the texts fit")
    parser.add_argument("--seed", type=int, default=1, help="another number gives other code")
    options = parser.parse_args()
    check(options)
    if options.kind == "fpga":
        image = bit_file(options)
    else:
        image = processor_image(options, options.kind.capitalize())
    try:
        with open(options.file, "wb") as out:
            out.write(image)
    except OSError as error:
        sys.exit(f"make_image.py: cannot write {options.file}: {error.strerror}")


if __name__ == "__main__":
    main()
