#!/usr/bin/env python3
"""bench/plot_motion.py NAME=FOLDER… > PICTURE.svg: what bench_streaming --benchmark_filter=motion/ wrote with
LUMARO_BENCH_CSV=FOLDER, one line a folder: the points that are drawn over time, for each delay of a read. Below, a
mark for each picture without news while nodes were being read. Dashed, from the first folder: what would be drawn
with all the time in the world."""

import csv
import os
import sys

COLORS = ["#c2410c", "#1d4ed8", "#15803d"]
DELAYS = [("0", "No delay"), ("5", "5 ms a read"), ("50", "50 ms a read")]
LEFT, WIDTH, TOP, HEIGHT, PITCH = 64, 700, 60, 150, 230
SECONDS = 10


def read(folder, name):
    with open(os.path.join(folder, name + ".csv"), newline="", encoding="utf-8") as file:
        return [{key: float(value) for key, value in row.items()} for row in csv.DictReader(file)]


def text(x, y, words, anchor="middle", extra=""):
    return f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" {extra}>{words}</text>'


def line(rows, top, most, style):
    at = lambda row: (LEFT + row["seconds"] / SECONDS * WIDTH, top + HEIGHT * (1 - row["points"] / most))
    points = " ".join("%.1f,%.1f" % at(row) for row in rows)
    return f'<polyline points="{points}" fill="none" {style}/>'


def axes(top, most, title):
    yield f'<path d="M{LEFT} {top}v{HEIGHT}h{WIDTH}" fill="none" stroke="#444"/>'
    yield text(LEFT, top - 10, title, "start", 'font-weight="bold"')
    for second in range(0, SECONDS + 1, 2):
        x = LEFT + second / SECONDS * WIDTH
        yield f'<path d="M{x:.0f} {top + HEIGHT}v4" stroke="#444"/>' + text(x, top + HEIGHT + 34, str(second))
    for million in range(int(most / 1e6) + 1):
        y = top + HEIGHT * (1 - million * 1e6 / most)
        yield f'<path d="M{LEFT} {y:.0f}h{WIDTH}" stroke="#ddd"/>' + text(LEFT - 8, y + 4, str(million), "end")


def panel(series, complete, delay, title, top, most):
    yield from axes(top, most, title)
    yield line(complete, top, most, 'stroke="#666" stroke-dasharray="5 4"')
    for number, (_, folder) in enumerate(series):
        rows = read(folder, "delay-" + delay)
        yield line(rows, top, most, f'stroke="{COLORS[number]}" stroke-width="1.8"')
        for row in rows:
            if row["waiting"] and not row["news"]:
                x = LEFT + row["seconds"] / SECONDS * WIDTH
                y = top + HEIGHT + 6 + 6 * number
                yield f'<path d="M{x:.1f} {y}v5" stroke="{COLORS[number]}"/>'


def legend(series):
    x = LEFT
    styles = [f'stroke="{color}" stroke-width="1.8"' for color in COLORS]
    entries = [(name, style) for (name, _), style in zip(series, styles)]
    for name, style in entries + [("all that the view wants", 'stroke="#666" stroke-dasharray="5 4"')]:
        yield f'<path d="M{x} 16h28" {style}/>' + text(x + 34, 20, name, "start")
        x += 60 + 7 * len(name)


def main():
    series = [argument.split("=", 1) for argument in sys.argv[1:]]
    if not series or any(len(entry) != 2 for entry in series):
        sys.exit(__doc__)
    complete = read(series[0][1], "complete")
    most = 1.1 * max(row["points"] for row in complete)
    height = TOP + PITCH * len(DELAYS)
    print(f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {LEFT + WIDTH + 20} {height}" '
          f'font-family="sans-serif" font-size="13"><rect width="100%" height="100%" fill="white"/>')
    print("\n".join(legend(series)))
    for number, (delay, title) in enumerate(DELAYS):
        print("\n".join(panel(series, complete, delay, title, TOP + number * PITCH, most)))
    middle = TOP + PITCH * len(DELAYS) / 2 - 30
    print(text(18, middle, "millions of points drawn", extra=f'transform="rotate(-90 18 {middle:.0f})"'))
    print(text(LEFT + WIDTH / 2, height - 14, "seconds of flight"))
    print("</svg>")


main()
