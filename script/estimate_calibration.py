"""Writes what estimate_calibration has found into its section of docs/calibration.md, with a picture.

Usage: estimate_calibration.py TABLE REPETITIONS
Ends with status 1 when a goal is missed; the section says which.
"""

import collections
import csv
import pathlib
import re
import sys
import textwrap

DOCS = pathlib.Path(__file__).resolve().parent.parent / "docs"
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


def picture(cells):
    """True against estimated effects, and coverage, as an SVG."""
    rules, parts = distinct(cells, 3), []

    def panel(left, title, low, high, ticks, value):
        def place(x, y):
            return f"{left + (x + 0.3) / 1.6 * 300:.1f},{320 - (y - low) / (high - low) * 280:.1f}"

        def line(points, style):
            parts.append(f'<polyline points="{" ".join(place(*p) for p in points)}" fill="none" {style}/>')

        parts.append(f'<text x="{left + 150}" y="24" text-anchor="middle">{title}</text>')
        parts.append(f'<text x="{left + 150}" y="362" text-anchor="middle">true g</text>')
        for tick in ticks:
            line([(-0.3, tick), (1.3, tick)], 'stroke="#ddd"')
            x, y = place(-0.3, tick).split(",")
            parts.append(f'<text x="{float(x) - 6}" y="{float(y) + 4}" text-anchor="end">{tick:g}</text>')
        for tick in 0, 0.4, 0.8, 1.2:
            x, y = place(tick, low).split(",")
            parts.append(f'<text x="{x}" y="{float(y) + 18}" text-anchor="middle">{tick:g}</text>')
        for n, rule in enumerate(rules):
            for method, style in ("silence as zero", 'stroke-dasharray="3 4"'), ("joint", 'stroke-width="2.5"'):
                points = sorted((key[4], value(key[4], cell)) for key, cell in cells.items()
                                if key[:4] == (PLAIN, None, method, rule))
                line(points, f'stroke="{COLOURS[n]}" {style}')
        return line

    line = panel(50, "estimated g", -0.4, 1.4, (-0.4, 0, 0.4, 0.8, 1.2), lambda g, cell: g + cell.bias)
    line([(-0.3, -0.3), (1.3, 1.3)], 'stroke="#000" stroke-width="0.8"')
    line = panel(420, "coverage of the 95 % interval", 0, 1, (0, 0.25, 0.5, 0.75, 1), lambda g, cell: cell.coverage)
    line([(-0.3, 0.95), (1.3, 0.95)], 'stroke="#000" stroke-width="0.8"')
    for n, rule in enumerate(rules):
        parts.append(f'<rect x="{50 + n % 3 * 230}" y="{382 + n // 3 * 22}" width="16" height="4" fill="{COLOURS[n]}"/>'
                     f'<text x="{72 + n % 3 * 230}" y="{389 + n // 3 * 22}">{rule.replace("<", "&lt;")}</text>')
    parts.append('<text x="50" y="433">Solid: this system\'s estimate. Dashed: silence as zero. '
                 'Thin: what is right.</text>')
    return ('<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 760 445" font-family="sans-serif" font-size="12">\n'
            '<rect width="760" height="445" fill="#fff"/>\n' + "\n".join(parts) + "\n</svg>\n")


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


def main(path, repetitions):
    cells = read(path)
    off = list(missed(cells))
    file = DOCS / "calibration.md"
    text = file.read_text(encoding="utf-8") if file.exists() else "# What simulations say of the statistics\n"
    file.write_text(put_section(text, section(cells, repetitions, off)), encoding="utf-8")
    (DOCS / "calibration-estimates.svg").write_text(picture(cells), encoding="utf-8")
    print(f"{file}: {len(off)} goals missed", *off, sep="\n")
    sys.exit(1 if off else 0)


if __name__ == "__main__":
    main(sys.argv[1], int(sys.argv[2]))
