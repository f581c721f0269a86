#!/usr/bin/python3
"""Draws the product icon and writes it as vorel48.xpm beside this script.

The drawing: a trace that climbs over terraces, glowing on a dark screen with a grid. It is computed 8 times as
large as it is needed and then reduced to 48 x 48 pixels, and to one transparent and 233 opaque colours: the
closest two become one until so many are left. Needs numpy. The result is committed; the build does not run this.
"""

import pathlib

import numpy as np

SIZE, OVER, COLOURS = 48, 8, 233
FIRST, LAST = ord("#"), ord("[")  # characters of the colours' names, without quote and backslash


def distance_to_rounded_square(x, y, half, radius):
    dx, dy = np.abs(x - 24) - (half - radius), np.abs(y - 24) - (half - radius)
    outside = np.hypot(np.maximum(dx, 0), np.maximum(dy, 0))
    return outside + np.minimum(np.maximum(dx, dy), 0) - radius


def distance_to_trace(x, y, points):
    distance = np.full(x.shape, np.inf)
    for (ax, ay), (bx, by) in zip(points, points[1:]):
        dx, dy = bx - ax, by - ay
        t = np.clip(((x - ax) * dx + (y - ay) * dy) / (dx * dx + dy * dy), 0, 1)
        distance = np.minimum(distance, np.hypot(x - ax - t * dx, y - ay - t * dy))
    return distance


def mix(below, above, amount):
    return below + (np.array(above, float) - below) * amount[..., None]


def draw():
    """RGB (48, 48, 3) and coverage (48, 48)."""
    at = (np.arange(SIZE * OVER) + 0.5) / OVER
    x, y = np.meshgrid(at, at)
    edge = distance_to_rounded_square(x, y, 22.5, 8)
    light = np.clip(1.15 - np.hypot(x - 16, y - 8) / 46, 0, 1)
    colour = mix(mix(np.zeros(x.shape + (3,)), (18, 10, 46), np.ones_like(x)), (62, 42, 128), light)
    grid = np.minimum(np.abs((x - 24) % 8 - 4), np.abs((y - 24) % 8 - 4)) < 0.35
    colour = mix(colour, (134, 118, 205), grid * 0.28)
    trace = distance_to_trace(x, y, [(8.5, 36.5), (16, 36.5), (16, 29), (24, 29), (24, 21), (32, 21), (32, 13), (39.5, 13)])
    colour = mix(colour, (255, 120, 40), 0.65 * np.exp(-((trace / 4.2) ** 2)))
    core = mix(np.zeros(x.shape + (3,)), (255, 150, 60), np.ones_like(x))
    core = mix(core, (255, 226, 150), np.clip(1 - trace / 1.6, 0, 1))
    colour = mix(colour, core, 0.0 + (trace < 1.8))
    colour = mix(colour, (150, 135, 225), ((edge > -1.2) & (edge <= 0)) * np.clip(1.2 - y / 60, 0, 1) * 0.8)
    inside = (edge <= 0).astype(float)
    cells = (SIZE, OVER, SIZE, OVER)
    coverage = inside.reshape(cells).mean((1, 3))
    summed = (colour * inside[..., None]).reshape(cells + (3,)).mean((1, 3))
    return summed / np.maximum(coverage, 1e-9)[..., None], coverage


def reduce_colours(pixels):
    """The palette, and the palette index of each of the pixels (n, 3)."""
    palette, index, count = np.unique(pixels.round().astype(int), axis=0, return_inverse=True, return_counts=True)
    index, palette, count = index.reshape(-1), palette.astype(float), count.astype(float)
    alive = np.ones(len(palette), bool)
    gap = ((palette[:, None] - palette[None]) ** 2).sum(2)
    np.fill_diagonal(gap, np.inf)
    while alive.sum() > COLOURS:
        a, b = np.unravel_index(np.argmin(gap), gap.shape)
        palette[a] = (palette[a] * count[a] + palette[b] * count[b]) / (count[a] + count[b])
        count[a] += count[b]
        index[index == b] = a
        alive[b] = False
        gap[b, :] = gap[:, b] = np.inf
        gap[a, :] = gap[:, a] = np.where(alive, ((palette - palette[a]) ** 2).sum(1), np.inf)
        gap[a, a] = np.inf
    rank = np.cumsum(alive) - 1
    return palette[alive].round().astype(int), rank[index]


def main():
    colour, coverage = draw()
    opaque = coverage >= 0.5
    palette, index = reduce_colours(colour[opaque])
    assert len(np.unique(palette, axis=0)) == COLOURS
    base = LAST - FIRST + 1
    names = [chr(FIRST + i // base) + chr(FIRST + i % base) for i in range(COLOURS)]
    picture = np.full((SIZE, SIZE), "  ", dtype=object)
    picture[opaque] = [names[i] for i in index]
    rows = [f"{SIZE} {SIZE} {COLOURS + 1} 2", "   c None"]
    rows += ["%s c #%02X%02X%02X" % (name, *rgb) for name, rgb in zip(names, palette)]
    rows += ["".join(line) for line in picture]
    text = "/* XPM */\n/* Written by make_vorel48.py. */\nchar const* vorel48[] = {\n"
    text += ",\n".join(f'    "{row}"' for row in rows) + "};\n"
    (pathlib.Path(__file__).parent / "vorel48.xpm").write_text(text)


if __name__ == "__main__":
    main()
