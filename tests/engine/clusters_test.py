"""Thresholded maps against SciPy's labelling and counts in the atlas.

Usage: clusters_test.py KVO_PARSE KVO_CORE SHARE_FOLDER REGION_NAMES
"""

import html
import itertools
import json
import re
import sys
import unittest

import numpy
from scipy import ndimage, stats

from engine_folder import EngineFolder, SHAPE, load, mm, plain

*PROGRAMS, SHARE, REGIONS_FILE = sys.argv[1:5]
# A part of the gray matter is enough, and quicker.
PART = (slice(20, 60), slice(22, 72), slice(25, 50))
MASK = numpy.zeros(SHAPE, bool)
MASK[PART] = load(f"{SHARE}/mask_gray_matter.nii.gz")[PART] > 0
ATLAS = load(f"{SHARE}/atlas_aal_frw.nii.gz")
NAMES = dict(line.rstrip("\n").split("\t") for line in open(REGIONS_FILE, encoding="utf-8"))
TOUCHING = numpy.ones((3, 3, 3))
NULL_VALUES = 10**6


def region(value):
    """The name of an atlas value with its Brodmann area."""
    whole, area = int(value), round((float(value) - int(value)) * 100)
    if whole == 0:
        return "outside of the atlas"
    return NAMES[str(whole)] + (f", BA {area}" if area else "")


def shares(voxels):
    """The text of a breakdown, from counts of whole atlas values."""
    values, counts = numpy.unique(ATLAS[tuple(voxels.T)].astype(int), return_counts=True)
    order = sorted(zip(-counts, values))
    return "; ".join(f"{region(v)} {100 * -n / len(voxels):.1f} % ({-n})" for n, v in order)


def peaks_of(heights, tops, voxels):
    """Local maxima by falling height, those within 8 mm of a higher one left out. No two voxels of
    the map may have the same value."""
    kept = []
    for voxel in sorted(map(tuple, voxels[tops[tuple(voxels.T)]]), key=lambda v: -heights[v]):
        if all(2 * numpy.linalg.norm(numpy.subtract(voxel, k)) >= 8 for k in kept):
            kept.append(voxel)
    return kept


def clusters_of(z, p, negative_p, probability, height, extent):
    """(sign, voxels, peaks), in the order of the report."""
    found = []
    for sign, tail in ((1, p), (-1, negative_p)):
        inside = MASK & (sign * z > 0) & (tail < numpy.float32(probability))
        labels, count = ndimage.label(inside, TOUCHING)
        # All neighbours of a voxel that are inside are of its cluster.
        heights = numpy.where(inside, sign * z, -numpy.inf)
        tops = inside & (heights == ndimage.maximum_filter(heights, 3))
        voxels = numpy.argwhere(inside)
        of_voxels = labels[inside]
        order = numpy.argsort(of_voxels, kind="stable")
        for cluster in numpy.split(voxels[order], numpy.bincount(of_voxels, minlength=1)[1:-1].cumsum()):
            if len(cluster) >= extent and heights[tuple(cluster.T)].max(initial=-1) >= height:
                found.append((sign, cluster, peaks_of(heights, tops, cluster)))
        assert count == of_voxels.max(initial=0)
    return sorted(found, key=lambda c: (-c[0], -len(c[1]), -abs(z[c[2][0]])))


def random_map(seed, smoothness):
    """z with p values of both tails, and a part without effect whose p must not matter."""
    random = numpy.random.default_rng(seed)
    z = numpy.zeros(SHAPE, numpy.float32)
    z[PART] = ndimage.gaussian_filter(random.normal(size=z[PART].shape), smoothness)
    z = numpy.where(MASK, z / z[MASK].std(), 0).astype(numpy.float32)
    p, negative_p = (numpy.ones(SHAPE, numpy.float32) for _ in range(2))
    p[MASK], negative_p[MASK] = stats.norm.sf(z[MASK]), stats.norm.cdf(z[MASK])
    z[:, :30] = 0
    p[:, 20:30] = negative_p[:, 20:30] = 1e-6
    return z, p, negative_p


def folder_with_mask(maps, null_values=10**6, mask=MASK):
    folder = EngineFolder(PROGRAMS, SHARE)
    folder.preprocessed(maps, null_values, "part")
    folder.save("mask_part", mask)
    return folder


class Clusters(unittest.TestCase):
    def check(self, folder, z, p, negative_p, probability, height, extent, pFWE=None):
        lines = folder.must_run(f"threshold Map, p, {probability}, {height}, {extent}")
        base = f"Map_z_p_{probability}_{height}_{extent}"
        right = clusters_of(z, p, negative_p, float(probability), float(height), extent)
        kept = numpy.zeros(SHAPE, dtype=numpy.float32)
        for _, voxels, _ in right:
            kept[tuple(voxels.T)] = z[tuple(voxels.T)]
        numpy.testing.assert_array_equal(folder.load(base), kept)

        def row(number, cluster, nth):
            sign, voxels, peaks = cluster
            voxel = peaks[nth]
            tail = p if sign > 0 else negative_p
            return [str(number), "positive" if sign > 0 else "negative", str(len(voxels)),
                    str(8 * len(voxels)), str(nth + 1), *map(str, mm(voxel)),
                    "%.7g" % z[voxel], "%.7g" % tail[voxel],
                    "" if pFWE is None else "%.7g" % pFWE[0 if sign > 0 else 1][voxel],
                    "", "", "", region(ATLAS[voxel]), shares(voxels)]

        rows = [row(number, cluster, nth) for number, cluster in enumerate(right, 1) for nth in range(len(cluster[2]))]
        self.assertEqual([list(r.values())[1:] for r in folder.table(base)], rows)
        counts = [sum(c[0] == sign for c in right) for sign in (1, -1)]
        text = "\n".join(map(plain, lines))
        if right:
            self.assertIn(f"Map: {counts[0]} cluster", text)
            self.assertIn(f"positive and {counts[1]} of negative effect", text)
            self.assertIn("%s,%s,%s" % tuple(rows[0][5:8]), text)
        else:
            self.assertIn("No cluster of Map survives", text)
        page = (folder.work / f"{base}.html").read_text(encoding="utf-8")
        self.assertIn('<tr><th scope="row">Thresholds</th><td>p &lt; ', page)
        return len(right)

    def test_random_maps(self):
        found = 0
        cases = [(1, 2.5, "0.00500", "1.000", 10), (2, 1.5, "0.02500", "2.500", 3),
                 (3, 1, "0.20000", "1.000", 1), (4, 4, "0.50000", "0.500", 20),
                 (5, 3, "0.00001", "3.200", 1), (6, 3, "1e-07", "9.000", 1)]
        with folder_with_mask(["Map"]) as folder:
            for seed, smoothness, *thresholds in cases:
                with self.subTest(seed=seed):
                    z, p, negative_p = random_map(seed, smoothness)
                    for name, values in (("z", z), ("p", p), ("n_p", negative_p)):
                        folder.save(f"Map_{name}", values)
                    found += self.check(folder, z, p, negative_p, *thresholds)
        self.assertGreater(found, 100)

    def test_folders_of_earlier_versions_and_corrected_p(self):
        with folder_with_mask(["Other", "Map"], NULL_VALUES) as folder:
            z, p, _ = random_map(7, 3)
            p[MASK] = numpy.round(p[MASK] * NULL_VALUES + 1) / (NULL_VALUES + 1)
            folder.save("Map_z", z)
            folder.save("Map_p", p)
            negative_p = numpy.minimum(1 - p.astype(float) + 1 / (1 + NULL_VALUES), 1)
            negative_p = negative_p.astype(numpy.float32)
            self.check(folder, z, p, negative_p, "0.00500", "1.000", 10)
            pFWE = [numpy.minimum(1, 50 * t).astype(numpy.float32) for t in (p, negative_p)]
            folder.save("Map_pFWE", pFWE[0])
            folder.save("Map_n_pFWE", pFWE[1])
            self.check(folder, z, p, negative_p, "0.00500", "1.000", 10, pFWE)

    def test_jackknife(self):
        studies, (probability, height, extent) = ["A", "B", "C"], (0.02, 1.5, 8)
        names = ["Map", *(f"MapJK{s}" for s in studies)]
        common, maps = random_map(8, 2)[0], {}
        with folder_with_mask(names) as folder:
            (folder.work / "kvo_table.txt").write_text("study\tn1\n" + "".join(f"{s}\t20\n" for s in studies))
            (folder.work / "kvo_analyses.txt").write_text(
                "map\tstudies\tparticipants\tcommand\tleft_out\nMap\t3\t60\tMap = mean\tNA\n"
                + "".join(f"MapJK{s}\t2\t40\tMapJK{s} = mean x\t{s}\n" for s in studies))
            for seed, name in enumerate(names, 20):
                z = numpy.where(MASK, common + 0.5 * random_map(seed, 2)[0], 0).astype(numpy.float32)
                p, negative_p = (numpy.where(MASK, tail(z), 1).astype(numpy.float32)
                                 for tail in (stats.norm.sf, stats.norm.cdf))
                g = (z / (3 + seed % 2)).astype(numpy.float32)
                maps[name] = g, clusters_of(z, p, negative_p, probability, height, extent)
                for kind, values in (("z", z), ("p", p), ("n_p", negative_p), ("g", g)):
                    folder.save(f"{name}_{kind}", values)
            # A result of other thresholds that is older, and so is not taken.
            folder.must_run("threshold Map, p, 0.4, 0, 1")
            folder.must_run(f"threshold Map, p, {probability}, {height}, {extent}")
            folder.must_run("jackknife Map")
            share = numpy.zeros(SHAPE)
            for name in names[1:]:
                for _, voxels, _ in maps[name][1]:
                    share[tuple(voxels.T)] += 1 / 3
            numpy.testing.assert_allclose(folder.load("Map_jackknife"), share, atol=1e-6)
            survivals, rows = [], folder.table("Map_jackknife")
            self.assertEqual(len(rows), len(maps["Map"][1]))
            for row, (sign, voxels, peaks) in zip(rows, maps["Map"][1]):
                of_cluster = set(map(tuple, voxels))
                survivals.append(sum(any(s == sign and of_cluster & set(map(tuple, v)) for s, v, _ in maps[n][1])
                                     for n in names[1:]))
                g, *runs = (float(maps[name][0][peaks[0]]) for name in names)
                most = max(range(3), key=lambda r: abs(runs[r] - g))
                self.assertEqual(list(row.values())[4:7] + [row["survives in"], row["study that matters most"]],
                                 [*map(str, mm(peaks[0])), str(survivals[-1]), studies[most]])
                self.assertEqual([row["g"], row["lowest g"], row["highest g"], row["g without it"]],
                                 ["%.7g" % v for v in (g, min(runs), max(runs), runs[most])])
            self.assertGreater(len(set(survivals)), 2)
            for base in ("Map_jackknife", "Map_z_p_0.02000_1.500_8"):
                page = (folder.work / f"{base}.html").read_text(encoding="utf-8")
                self.assertEqual(re.findall(r">(\d) of 3</td>", page), [str(s) for s in survivals], base)
            # A run that is missing keeps no report of the threshold from being made.
            (folder.work / "MapJKB_z.nii.gz").unlink()
            folder.must_run(f"threshold Map, p, {probability}, {height}, {extent}")
            page = (folder.work / "Map_z_p_0.02000_1.500_8.html").read_text(encoding="utf-8")
            self.assertIn("There is no run without study 'B'", html.unescape(page))

    def test_results_for_repositories(self):
        names = ["A_1", "A1", "A1JKs"]
        with folder_with_mask(names) as folder:
            (folder.work / "kvo_analyses.txt").write_text(
                "map\tstudies\tparticipants\tcommand\tleft_out\n"
                "A_1\t3\t60\tA_1 = mean\tNA\nA1\t3\t60\tA1 = mean\tNA\nA1JKs\t2\t40\tA1JKs = mean x\ts\n")
            stats_of = {"z": "z", "g": "effect", "n_pFWE": "npFWE"}
            for seed, (name, kind) in enumerate(itertools.product(names, stats_of)):
                folder.save(f"{name}_{kind}", random_map(seed, 2)[0], command=f"{name} = mean")
            folder.save("A1_var", MASK)  # a user's own
            folder.save("../A_z", MASK, command="A = mean")
            with open(folder.work / "kvo_maps.txt", "a", encoding="utf-8") as maps:
                maps.write("../A\n")
            folder.must_run("export bids")
            shared = folder.work / "bids"
            for (name, label), (kind, stat) in itertools.product((("A_1", "A1"), ("A1", "A12")), stats_of.items()):
                stem = f"contrast-{label}_space-MNI152NLin6Asym_res-2_stat-{stat}_statmap"
                self.assertEqual((shared / f"{stem}.nii.gz").read_bytes(),
                                 (folder.work / f"{name}_{kind}.nii.gz").read_bytes())
                about = json.loads((shared / f"{stem}.json").read_text(encoding="utf-8"))
                self.assertEqual([about["Analysis"], about["Facts"]["Studies"], about["Commands"][-1]],
                                 [name, "3", f"{name} = mean"])
            self.assertEqual(len(list(shared.iterdir())), 2 * 2 * 3 + 2)
            dataset = json.loads((shared / "dataset_description.json").read_text(encoding="utf-8"))
            self.assertEqual(dataset["DatasetType"], "derivative")

    def test_shapes(self):
        # Corners of boxes in a plane of the grid with their z, and (voxels, x and y in mm of the
        # peaks) of each cluster. The boxes begin in the plane; z of a peak is in it, or one above.
        cases = [
            ("a plateau has one peak, in its middle", [((40, 50, 0), (45, 53, 3), 3)],
             [(45, [(-6, -24, 1)])]),
            ("boxes that touch by a corner are one",
             [((40, 50, 0), (42, 52, 2), 3), ((42, 52, 2), (44, 54, 4), 4)],
             [(16, [(-6, -22, 2)])]),
            ("boxes with a voxel between them are two",
             [((40, 50, 0), (42, 52, 2), 3), ((43, 50, 0), (46, 52, 2), 3)],
             [(12, [(-2, -26, 0)]), (8, [(-10, -26, 0)])]),
            ("the signs are apart", [((40, 50, 0), (42, 52, 2), -5), ((42, 50, 0), (44, 51, 1), 3)],
             [(2, [(-6, -26, 0)]), (8, [(-10, -26, 0)])]),
            ("a ledge below a peak is none; peaks 8 mm apart are two",
             [((40, 50, 0), (48, 51, 1), 2), ((40, 50, 0), (41, 51, 1), 5),
              ((44, 50, 0), (45, 51, 1), 4), ((47, 50, 0), (48, 51, 1), 3)],
             [(8, [(-10, -26, 0), (-2, -26, 0)])]),
            ("the edge of the grid is no neighbour of the other edge",
             [((90, 50, 0), (91, 51, 1), 3), ((0, 51, 0), (1, 52, 1), 2)],
             [(1, [(90, -26, 0)]), (1, [(-90, -24, 0)])]),
        ]
        z = numpy.zeros(SHAPE)
        with folder_with_mask(["Map"], mask=numpy.ones(SHAPE)) as folder:
            for place, (_, boxes, _) in enumerate(cases):
                for (i, j, k), (i_end, j_end, k_end), value in boxes:
                    z[i:i_end, j:j_end, 10 * place + k:10 * place + k_end] = value
            folder.save("Map_z", z)
            folder.save("Map_p", numpy.where(z > 0, 0.001, 1))
            folder.save("Map_n_p", numpy.where(z < 0, 0.001, 1))
            folder.must_run("threshold Map, p, 0.005, 1, 1")
            clusters = [list(rows) for _, rows in itertools.groupby(
                folder.table("Map_z_p_0.00500_1.000_1"), lambda r: r["cluster"])]
        self.assertEqual(len(clusters), sum(len(right) for _, _, right in cases))
        for place, (what, _, right) in enumerate(cases):
            with self.subTest(what):
                found = []
                for rows in clusters:
                    peaks = [(int(r["MNI x (mm)"]), int(r["MNI y (mm)"]),
                              (int(r["MNI z (mm)"]) - mm((0, 0, 10 * place))[2]) // 2) for r in rows]
                    if 0 <= peaks[0][2] < 10:
                        found.append((int(rows[0]["voxels"]), peaks))
                self.assertCountEqual(found, right)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
