#!/usr/bin/env python3
"""Draws the 320 x 17 header banner of the effect's controls.

    make_header.py OUT.png [--preview PREVIEW.png [--scale N]]

OUT.png is straight-alpha RGBA. The picture is a strip of coloured tiles in
which two tiles have traded places, the name "Tesselux" in a hand-drawn pixel
face, a small caption, and tiles scattering out towards the right edge.
Every pixel is either fully transparent or fully opaque, so the banner sits on
whatever colour the host paints its panel. --preview writes an enlarged copy
composited on the dark panel colour, for looking at it.
"""
import argparse
import struct
import zlib

W, H = 320, 17
PANEL = (0x23, 0x23, 0x23)

# Wordmark glyphs: 2-pixel stems, 1-pixel bars. Lower case sits on rows 6..13,
# capitals and ascenders start at row 3.
BIG = {
    "T": (3, [
        "##########",
        "##########",
        "....##....",
        "....##....",
        "....##....",
        "....##....",
        "....##....",
        "....##....",
        "....##....",
        "....##....",
        "....##....",
    ]),
    "e": (6, [
        ".#####.",
        "##...##",
        "##...##",
        "#######",
        "##.....",
        "##.....",
        "##...##",
        ".#####.",
    ]),
    "s": (6, [
        ".#####.",
        "##...##",
        "##.....",
        ".#####.",
        ".....##",
        ".....##",
        "##...##",
        ".#####.",
    ]),
    "l": (3, ["##"] * 11),
    "u": (6, [
        "##...##",
        "##...##",
        "##...##",
        "##...##",
        "##...##",
        "##...##",
        "##..###",
        ".###.##",
    ]),
    "x": (6, [
        "##...##",
        "##...##",
        ".##.##.",
        "..###..",
        "..###..",
        ".##.##.",
        "##...##",
        "##...##",
    ]),
}

# Caption glyphs, 3 x 5 capitals.
SMALL = {
    "B": ["##.", "#.#", "##.", "#.#", "##."],
    "C": [".##", "#..", "#..", "#..", ".##"],
    "E": ["###", "#..", "##.", "#..", "###"],
    "F": ["###", "#..", "##.", "#..", "#.."],
    "H": ["#.#", "#.#", "###", "#.#", "#.#"],
    "I": ["###", ".#.", ".#.", ".#.", "###"],
    "K": ["#.#", "#.#", "##.", "#.#", "#.#"],
    "L": ["#..", "#..", "#..", "#..", "###"],
    "M": ["#.#", "###", "###", "#.#", "#.#"],
    "O": [".#.", "#.#", "#.#", "#.#", ".#."],
    "S": [".##", "#..", ".#.", "..#", "##."],
    "T": ["###", ".#.", ".#.", ".#.", ".#."],
    "U": ["#.#", "#.#", "#.#", "#.#", "###"],
    " ": ["..", "..", "..", "..", ".."],
    "/": ["..#", "..#", ".#.", "#..", "#.."],
}

TEXT = (0xEE, 0xEE, 0xEE)
CAPTION = (0x96, 0x96, 0x96)


def lerp(a, b, t):
    return tuple(round(x + (y - x) * t) for x, y in zip(a, b))


def tile_colour(col, cols):
    # Two halves, cool and warm, each shading slightly across its columns:
    # a tile of one colour standing in the other half reads as moved.
    half = cols // 2
    if col < half:
        return lerp((0x17, 0x9E, 0x90), (0x3E, 0xD6, 0xC4), col / max(1, half - 1))
    return lerp((0xF0, 0x6A, 0xA8), (0xC0, 0x3E, 0x80), (col - half) / max(1, cols - half - 1))


class Canvas:
    def __init__(self):
        self.px = [[(0, 0, 0, 0)] * W for _ in range(H)]

    def put(self, x, y, rgb):
        if 0 <= x < W and 0 <= y < H:
            self.px[y][x] = (rgb[0], rgb[1], rgb[2], 255)

    def rect(self, x, y, w, h, rgb):
        for yy in range(y, y + h):
            for xx in range(x, x + w):
                self.put(xx, yy, rgb)

    def glyph(self, x, y, rows, rgb):
        for dy, row in enumerate(rows):
            for dx, c in enumerate(row):
                if c == "#":
                    self.put(x + dx, y + dy, rgb)
        return x + len(rows[0])


def draw_tiles(cv, x0):
    """Two rows of 5 x 5 tiles, aligned with the capital height of the name.
    Two tiles far apart, one from each half, have exchanged places."""
    cols, size, gap, top = 6, 5, 1, 3
    swapped = {(1, 0): (4, 1), (4, 1): (1, 0)}
    for row in range(2):
        for col in range(cols):
            src = swapped.get((col, row))
            colour = tile_colour(src[0] if src else col, cols)
            x = x0 + col * (size + gap)
            y = top + row * (size + gap)
            cv.rect(x, y, size, size, colour)
    return x0 + cols * (size + gap) - gap


def draw_name(cv, x0):
    x = x0
    word = "Tesselux"
    for i, ch in enumerate(word):
        top, rows = BIG[ch]
        x = cv.glyph(x, top, rows, TEXT)
        if i + 1 < len(word):
            x += 1 if ch == "T" else 2
    return x


def draw_caption(cv, x0, text, y):
    x = x0
    for ch in text:
        x = cv.glyph(x, y, SMALL[ch], CAPTION) + 1
    return x - 1


def draw_scatter(cv, x0, x1):
    """Tiles coming loose: 3 x 3 tiles on the same two rows as the big ones,
    thinning out towards the right edge in a fixed pattern."""
    pattern = [
        "##.#.##.#..#.#...#....#...",
        "#.##.#.#..#...#.#...#.....",
    ]
    step = 4
    cols = len(pattern[0])
    for row, line in enumerate(pattern):
        for i, c in enumerate(line):
            if c != "#":
                continue
            x = x0 + i * step
            if x + 3 > x1:
                continue
            colour = tile_colour(min(5, max(0, 5 - i * 6 // cols)), 6)
            cv.rect(x, 4 + row * 6 + (i % 2), 3, 3, colour)


def png_bytes(rows, width, height):
    raw = b"".join(b"\x00" + bytes(v for p in row for v in p) for row in rows)

    def chunk(tag, data):
        c = struct.pack(">I", len(data)) + tag + data
        return c + struct.pack(">I", zlib.crc32(tag + data) & 0xFFFFFFFF)

    ihdr = struct.pack(">IIBBBBB", width, height, 8, 6, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", ihdr) +
            chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b""))


def preview(cv, scale):
    rows = []
    for y in range(H):
        row = []
        for x in range(W):
            r, g, b, a = cv.px[y][x]
            row.append((r, g, b, 255) if a else PANEL + (255,))
        big = [p for p in row for _ in range(scale)]
        rows.extend([big] * scale)
    return png_bytes(rows, W * scale, H * scale)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("out")
    ap.add_argument("--preview")
    ap.add_argument("--scale", type=int, default=4)
    args = ap.parse_args()

    cv = Canvas()
    x = draw_tiles(cv, 6)
    x = draw_name(cv, x + 9)
    x = draw_caption(cv, x + 10, "BLOCK SHUFFLE / TIME SHIFT", 9)
    draw_scatter(cv, x + 10, W - 4)

    with open(args.out, "wb") as f:
        f.write(png_bytes(cv.px, W, H))
    if args.preview:
        with open(args.preview, "wb") as f:
            f.write(preview(cv, args.scale))


if __name__ == "__main__":
    main()
