"""Writes what estimate_calibration has found into its section of docs/calibration.md, with a picture; and pictures
for the manual.

Usage: estimate_calibration.py TABLE REPETITIONS SLICE
Ends with status 1 when a goal is missed; the section says which.
"""

import base64
import collections
import csv
import pathlib
import re
import struct
import sys
import textwrap
import zlib

ROOT = pathlib.Path(__file__).resolve().parent.parent
DOCS = ROOT / "docs"
PICTURES = ROOT / "site/manual/images"
HEADING = "## Estimates from peaks"
METHODS = {"joint": "this system's estimate", "silence as zero": "silence as zero",
           "all listed": "every maximum listed", "local": "plain local likelihood"}
PLAIN, NEGATIVE, UNKNOWN, IMAGES, NOTHING = ("peaks with heights", "negative peaks listed too", "heights unknown",
                                             "half of the studies are images", "no effect anywhere")
SETTINGS = PLAIN, NEGATIVE, UNKNOWN, IMAGES, NOTHING
# Where a goal is set for bins of true effects, these count.
BINS_OF_GOALS = [0, 0.2, 0.4, 0.6, 0.8, 1.0]
FEWEST_VOXELS = 30
COLOURS = ["#1b6ca8", "#d1495b", "#e0a100", "#3a7d44", "#7b4b94", "#5c6770"]

Cell = collections.namedtuple("Cell", "bias coverage width voxels")


def read(path):
    """Cells by setting, method, rule and bin; of each truth by itself, and of all as truth None."""
    sums = collections.defaultdict(lambda: [0.0] * 4)
    with open(path, encoding="utf-8", newline="") as file:
        for row in csv.DictReader(file, delimiter="\t"):
            for truth in (row["truth"], None):
                of = sums[row["setting"], truth, row["method"], row["rule"], float(row["bin"])]
                for n, column in enumerate(("bias", "covered", "width", "voxels")):
                    of[n] += float(row[column])
    return {key: Cell(*(value / voxels for value in values), voxels)
            for key, (*values, voxels) in sums.items() if voxels >= FEWEST_VOXELS}


def distinct(cells, n):
    return list(dict.fromkeys(key[n] for key in cells if key[n] is not None))


def number(value, sign=""):
    return f"{value:{sign}.2f}"


def bin_name(middle):
    return {-0.2: "below -0.1", 1.2: "above 1.1"}.get(middle, f"{middle:.1f}")


def table(cells, setting, method, truth=None):
    """By rule and bin: bias, coverage and width."""
    bins = sorted({key[4] for key in cells if key[:3] == (setting, truth, method)})
    yield "| true g | " + " | ".join(map(bin_name, bins)) + " |"
    yield "|---" * (len(bins) + 1) + "|"
    for rule in distinct(cells, 3):
        found = [cells.get((setting, truth, method, rule, middle)) for middle in bins]
        yield f"| {rule} | " + " | ".join(
            f"{number(c.bias, '+')} {number(c.coverage)} {number(c.width)}" if c else "–" for c in found) + " |"


def faults(cells, setting, rule):
    """The goals that estimates under a setting and a rule miss."""
    found = {b: cells[setting, None, "joint", rule, b] for b in BINS_OF_GOALS
             if (setting, None, "joint", rule, b) in cells}
    if setting == NOTHING:
        if abs(found[0].bias) > 0.05:
            yield f"mean {number(found[0].bias, '+')}"
        if found[0].coverage < 0.93:
            yield f"coverage {number(found[0].coverage)}"
        return
    mean_bias = sum(abs(cell.bias) for cell in found.values()) / len(found)
    mean_coverage = sum(cell.coverage for cell in found.values()) / len(found)
    # Of unknown heights the bias is only stated.
    most_bias = {IMAGES: 0.05, UNKNOWN: 9}.get(setting, 0.15)
    biased = [f"{number(cell.bias, '+')} at {bin_name(b)}" for b, cell in found.items() if abs(cell.bias) > most_bias]
    if biased:
        yield "bias " + ", ".join(biased)
    if mean_bias > min(most_bias, 0.1) and setting != UNKNOWN:
        yield f"mean bias {number(mean_bias)}"
    uncovered = [f"{number(cell.coverage)} at {bin_name(b)}" for b, cell in found.items()
                 if cell.coverage < 0.85 and setting != UNKNOWN]
    if uncovered:
        yield "coverage " + ", ".join(uncovered)
    if mean_coverage < 0.9:
        yield f"mean coverage {number(mean_coverage)}"


def missed(cells):
    for setting in SETTINGS:
        for rule in distinct(cells, 3):
            parts = list(faults(cells, setting, rule))
            if parts:
                yield f"{setting}, {rule}: {'; '.join(parts)}"


def drawing(width, height, parts):
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}" '
            f'font-family="sans-serif" font-size="12">\n<rect width="{width}" height="{height}" fill="#fff"/>\n'
            + "\n".join(parts) + "\n</svg>\n")


def line(points, style):
    return f'<polyline points="{" ".join(points)}" fill="none" {style}/>'


def panel(cells, left, title, ticks, right, value):
    """A value by the true effect, one line for each rule; `right` are points of the thin line of what is right."""
    low, high = ticks[0], max(ticks[-1], right[-1][1])

    def place(x, y):
        return f"{left + (x + 0.3) / 1.6 * 300:.1f},{320 - (y - low) / (high - low) * 280:.1f}"

    yield f'<text x="{left + 150}" y="24" text-anchor="middle">{title}</text>'
    yield f'<text x="{left + 150}" y="362" text-anchor="middle">true g</text>'
    for tick in ticks:
        yield line([place(-0.3, tick), place(1.3, tick)], 'stroke="#ddd"')
        x, y = place(-0.3, tick).split(",")
        yield f'<text x="{float(x) - 6}" y="{float(y) + 4}" text-anchor="end">{tick:g}</text>'
    for tick in 0, 0.4, 0.8, 1.2:
        x, y = place(tick, low).split(",")
        yield f'<text x="{x}" y="{float(y) + 18}" text-anchor="middle">{tick:g}</text>'
    for n, rule in enumerate(distinct(cells, 3)):
        for method, style in ("silence as zero", 'stroke-dasharray="3 4"'), ("joint", 'stroke-width="2.5"'):
            points = sorted((key[4], value(key[4], cell)) for key, cell in cells.items()
                            if key[:4] == (PLAIN, None, method, rule))
            yield line([place(*point) for point in points], f'stroke="{COLOURS[n]}" {style}')
    yield line([place(*point) for point in right], 'stroke="#000" stroke-width="0.8"')


def effects_panel(cells, left):
    return panel(cells, left, "estimated g", (-0.4, 0, 0.4, 0.8, 1.2), [(-0.3, -0.3), (1.3, 1.3)],
                 lambda g, cell: g + cell.bias)


def legend(cells, columns, top):
    rules = distinct(cells, 3)
    for n, rule in enumerate(rules):
        x, y = 50 + n % columns * 230, top + n // columns * 22
        yield (f'<rect x="{x}" y="{y}" width="16" height="4" fill="{COLOURS[n]}"/>'
               f'<text x="{x + 22}" y="{y + 7}">{rule.replace("<", "&lt;")}</text>')
    yield (f'<text x="50" y="{top + 7 + -(-len(rules) // columns) * 22}">Solid: this system\'s estimate. '
           'Dashed: silence as zero. Thin: what is right.</text>')


def picture(cells):
    """True against estimated effects, and coverage, as an SVG."""
    coverage = panel(cells, 420, "coverage of the 95 % interval", (0, 0.25, 0.5, 0.75, 1), [(-0.3, 0.95), (1.3, 0.95)],
                     lambda g, cell: cell.coverage)
    return drawing(760, 445, [*effects_panel(cells, 50), *coverage, *legend(cells, 3, 382)])


def colour(g):
    """White at 0, red above and blue below, full at 1.2."""
    share = min(abs(g) / 1.2, 1)
    towards = (178, 24, 43) if g > 0 else (33, 102, 172)
    return bytes(round(255 + (part - 255) * share) for part in towards)


def png(rows):
    """A PNG of rows of RGB bytes."""
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    header = struct.pack(">IIBBBBB", len(rows[0]) // 3, len(rows), 8, 2, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header)
            + chunk(b"IDAT", zlib.compress(b"".join(b"\0" + row for row in rows), 9)) + chunk(b"IEND", b""))


def slice_picture(path):
    """The true effect, the peaks that studies list of it, and two estimates, in an axial slice, as an SVG."""
    with open(path, encoding="utf-8", newline="") as file:
        rows = list(csv.DictReader(file, delimiter="\t"))
    voxels = {(int(row["x"]), int(row["y"])): row for row in rows if row["what"] == "voxel"}
    left, right = min(x for x, _ in voxels), max(x for x, _ in voxels)
    back, front = min(y for _, y in voxels), max(y for _, y in voxels)
    parts = []
    panels = (("true", "True effect"), (None, "What 20 studies list"), ("naive", "Kernels, silence as zero"),
              ("estimate", "Estimate"))
    for n, (column, title) in enumerate(panels):
        x0 = 8 + n * 188
        parts.append(f'<text x="{x0 + 88}" y="20" text-anchor="middle">{title}</text>')
        lines = []
        for y in range(front, back - 1, -2):
            pixels = (voxels.get((x, y)) for x in range(left, right + 1, 2))
            lines.append(b"".join(b"\xff\xff\xff" if voxel is None else b"\xe8\xe8\xe8" if column is None
                                  else colour(float(voxel[column])) for voxel in pixels))
        data = base64.b64encode(png(lines)).decode()
        parts.append(f'<image x="{x0}" y="30" width="176" height="{176 * len(lines) * 3 // len(lines[0])}" '
                     f'preserveAspectRatio="none" href="data:image/png;base64,{data}"/>')
        if column is None:
            scale = 176 / (right - left + 2)
            parts += [f'<circle cx="{x0 + (int(row["x"]) - left + 1) * scale:.1f}" '
                      f'cy="{30 + (front - int(row["y"]) + 1) * scale:.1f}" r="2.5" fill="#222"/>'
                      for row in rows if row["what"] == "peak"]
    for n in range(49):
        g = -1.2 + n * 0.05
        parts.append(f'<rect x="{256 + n * 5}" y="256" width="5" height="10" fill="#{colour(g).hex()}"/>')
    parts += [f'<text x="{258.5 + (g + 1.2) * 100:.1f}" y="282" text-anchor="middle">{g:g}</text>'
              for g in (-1.2, -0.6, 0, 0.6, 1.2)]
    parts.append('<text x="250" y="266" text-anchor="end">g</text>')
    return drawing(760, 290, parts)


def section(cells, repetitions, off):
    each = "one meta-analysis" if repetitions == 1 else f"{repetitions} meta-analyses"
    others = "one truth" if repetitions == 1 else f"{min(repetitions, 4)} truths"
    yield from [HEADING, "", textwrap.fill(f"""\
Simulated by `script/calibrate estimates {repetitions}`: {each} of each truth (of {others}, where something is
different), of 20 studies with 9 to 33 participants. True effects and the studies' deviations are smooth fields, the
true ones with mean 0.19 and standard deviation 0.29; the studies list their maxima by six rules, one-tailed p < .001
and at least 8 mm apart where a rule does not say otherwise. Each cell has the mean bias of g, the share of voxels of
gray matter whose 95 % interval has the truth, and the interval's mean width.""", 100), "",
                "![True against estimated g, and coverage](calibration-estimates.svg)", ""]
    yield """\
Goals: bias at most 0.15 in each bin from 0 to 1.0 and 0.10 on average, 0.05 where half of the studies are
images; coverage 0.85 in each bin and 0.90 on average; of unknown heights the latter alone; where there is
no effect, a mean within 0.05 of it and coverage 0.93. Effects above 1.1 are too rare for a goal. Effects
below 0 can be seen only where studies list their negative peaks too: of those that do not, and do not
say so, the estimate takes none for a sign that there are none, which is what the first bin shows."""
    yield from ["", "Missed:" if off else "None is missed.", *(["", *[f"- {what}" for what in off]] if off else []), ""]
    for setting in SETTINGS:
        yield from [f"### {setting[0].upper()}{setting[1:]}", "", *table(cells, setting, "joint"), ""]
    yield from ["### Other estimates from peaks with heights", "", """\
*Silence as zero* pools kernels of 20 mm around the peaks as if they were images. *Plain local likelihood*
looks at each place with a kernel of 12 mm, under fixed assumptions; *every maximum listed* is the same
with a listed share of 1, so that silence means that nothing is there.""", ""]
    for method in list(METHODS)[1:]:
        yield from [f"{METHODS[method].capitalize()}:", "", *table(cells, PLAIN, method), ""]
    yield from ["### By truth", ""]
    for truth in distinct([key for key in cells if key[0] == PLAIN], 1):
        yield from [f"Effects of {truth}:", "", *table(cells, PLAIN, "joint", truth), ""]


def put_section(text, lines):
    """The text with the section replaced, or behind the others."""
    new = "\n".join(lines).rstrip() + "\n"
    old = re.search(rf"^{re.escape(HEADING)}\n.*?(?=^## |\Z)", text, re.MULTILINE | re.DOTALL)
    if old is None:
        return text.rstrip() + "\n\n" + new
    return text[:old.start()] + new + ("\n" if text[old.end():] else "") + text[old.end():]


def main(path, repetitions, slice_path):
    cells = read(path)
    off = list(missed(cells))
    file = DOCS / "calibration.md"
    text = file.read_text(encoding="utf-8") if file.exists() else "# What simulations say of the statistics\n"
    file.write_text(put_section(text, section(cells, repetitions, off)), encoding="utf-8")
    (DOCS / "calibration-estimates.svg").write_text(picture(cells), encoding="utf-8")
    (PICTURES / "estimate-bias.svg").write_text(
        drawing(520, 490, [*effects_panel(cells, 100), *legend(cells, 2, 382)]), encoding="utf-8")
    (PICTURES / "estimate-slice.svg").write_text(slice_picture(slice_path), encoding="utf-8")
    print(f"{file}: {len(off)} goals missed", *off, sep="\n")
    sys.exit(1 if off else 0)


if __name__ == "__main__":
    main(sys.argv[1], int(sys.argv[2]), sys.argv[3])
