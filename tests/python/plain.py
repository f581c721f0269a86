"""The packet formats once more, in plain Python, one record at a time: what the module is compared with."""

import struct

MARKERS = (100, 101, 102, 103, 104, 200, 201, 202, 203)
CODES_52 = {33: 100, 34: 101, 35: 102, 36: 103, 37: 200, 38: 201, 39: 202, 40: 203, 41: 104}


def signed(value, bits):
    value &= (1 << bits) - 1
    return value - (1 << bits) if value >> (bits - 1) else value


class Plain:
    """Decodes a whole stream; `result()` gives pairs of time and channel as they are delivered."""

    def __init__(self, markers=0x1FF, offsets=None, divider=1, start_period=0):
        self.markers = {code for bit, code in enumerate(MARKERS) if markers >> bit & 1}
        self.offsets = offsets or [0] * 8
        self.divider, self.start_period = divider, start_period
        self.time, self.high, self.last_start, self.period, self.made = 0, -1, 0, 0, 0
        self.flat, self.queue = [], []
        self.before_high, self.strays, self.cut = 0, 0, 0

    def run(self, format, data):
        getattr(self, "f" + format)(data)
        return self.result()

    def result(self):
        if not any(self.offsets):
            return self.flat
        others = [event for event in self.flat if event[1] > 7]
        return sorted(sorted(self.queue) + others, key=lambda event: event[0])

    def add(self, time, channel):
        if any(self.offsets) and channel < 8:
            self.queue.append((signed(time + self.offsets[channel], 64), channel))
        else:
            self.flat.append((time, channel))

    def channel(self, channel, start=False):
        time = self.time
        if self.divider > 1 and self.start_period:
            part = self.start_period // self.divider
            time = time % part if part else time
        elif self.divider > 1 and self.period > 0:
            part = self.period / self.divider
            while self.time - self.last_start >= (self.made + 1) * part and self.made < self.divider:
                self.made += 1
                self.add(self.last_start + int(self.made * part), 0)
        if start and self.divider > 1:
            if self.last_start:
                self.period = self.time - self.last_start
            self.last_start, self.made = self.time, 0
        self.add(time, channel)

    def marker(self, code, time):
        if code in self.markers:
            self.flat.append((time, code))

    def words(self, data):
        self.cut = len(data) % 4
        return [word for (word,) in struct.iter_unpack("<I", data[: len(data) - self.cut])]

    def rolled(self, low):
        if self.high + low < self.time:
            self.high += 2**28
        self.time = self.high + low

    def f56(self, data):
        for word in self.words(data):
            if word >> 28 & 1:
                self.high = (word % 2**28) << 28
            elif self.high < 0:
                self.before_high += 1
            else:
                self.rolled(word % 2**28)
                self.channel(word >> 29, word >> 29 == 0)

    def f52x(self, data):
        for word in self.words(data):
            if not word >> 31:
                self.high = (word % 2**28) << 28
            elif self.high < 0:
                self.before_high += 1
            else:
                self.rolled(word % 2**28)
                self.flat.append((self.time, word >> 28 & 7))

    def f52(self, data):
        for word in self.words(data):
            code = word >> 26
            if code == 63:
                self.high = (word % 2**26) << 26
            elif self.high < 0:
                self.before_high += 1
            else:
                self.time = self.high + word % 2**26
                self.code(code)

    def code(self, code):
        if code < 32:
            self.channel(code)
        elif code in CODES_52:
            self.marker(CODES_52[code], self.time)

    def f60(self, data):
        first = None
        for word in self.words(data):
            if not word >> 31:
                self.strays += first is not None
                first = word
            elif first is None:
                self.strays += 1
            else:
                self.record(first, word)
                first = None
        self.cut += 4 * (first is not None)

    def record(self, low, high):
        kind = (high >> 30 & 1) * 2 + (low >> 30 & 1)
        both = (high % 2**30) << 30 | low % 2**30  # 60 bits
        if kind == 0:
            self.time = both
        elif self.time == 0:
            pass
        elif kind == 1:
            for k in range(3):  # three times 17 bits of delta and 3 of channel
                self.event(signed(both >> 20 * k, 17), both >> 20 * k + 17 & 7)
        elif kind == 2:
            self.event(signed(low, 27), low >> 27 & 7)
            self.event(signed(high, 27), high >> 27 & 7)
        else:
            self.event(signed(both, 57), both >> 57)

    def event(self, delta, channel):
        self.time = signed(self.time + delta, 64)
        if channel < 6:
            self.channel(channel, channel == 5)
        elif channel == 6:
            flags = self.time % 5000
            for bit, code in enumerate(MARKERS):
                if flags >> bit & 1:
                    self.marker(code, signed(self.time - flags, 64))

    def f60b(self, data):
        while data:
            kind, size = data[0] & 3, (3, 4, 5, 8)[data[0] & 3]
            if len(data) < size:
                self.cut = len(data)
                return
            if kind == 3:
                self.time = int.from_bytes(data[:8], "little", signed=True) >> 2
            elif self.time >= 0:
                self.time = signed(self.time + int.from_bytes(data[1:size], "little", signed=True), 64)
                self.code(data[0] >> 2)
            data = data[size:]
