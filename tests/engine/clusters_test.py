"""Thresholded maps against SciPy's labelling and counts in the atlas.

Usage: clusters_test.py KVO_PARSE KVO_CORE SHARE_FOLDER REGION_NAMES
"""

import itertools
import sys
import unittest

import numpy
from scipy import ndimage, stats

from engine_folder import EngineFolder, SHAPE, load, mm, plain

*PROGRAMS, SHARE, REGIONS_FILE = sys.argv[1:5]
MASK = load(f"{SHARE}/mask_gray_matter.nii.gz") > 0
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


def shares(inside):
    """The text of a breakdown, from counts of whole atlas values."""
    values, counts = numpy.unique(ATLAS[inside].astype(int), return_counts=True)
    order = sorted(zip(-counts, values))
    total = counts.sum()
    return "; ".join(f"{region(v)} {100 * -n / total:.1f} % ({-n})" for n, v in order)


def peaks_of(height, inside):
    """Local maxima by falling height, those within 8 mm of a higher one left out. No two voxels of
    the map may have the same value."""
    heights = numpy.where(inside, height, -numpy.inf)
    top = inside & (heights == ndimage.maximum_filter(heights, footprint=TOUCHING))
    kept = []
    for voxel in sorted(map(tuple, numpy.argwhere(top)), key=lambda v: -heights[v]):
        if all(2 * numpy.linalg.norm(numpy.subtract(voxel, k)) >= 8 for k in kept):
            kept.append(voxel)
    return kept


def clusters_of(z, p, negative_p, probability, height, extent):
    """(sign, voxels of the grid, peaks), in the order of the report."""
    found = []
    for sign, tail in ((1, p), (-1, negative_p)):
        labels, count = ndimage.label(MASK & (sign * z > 0) & (tail < numpy.float32(probability)),
                                      TOUCHING)
        numbers = numpy.arange(1, count + 1)
        large = numpy.bincount(labels.ravel())[1:] >= extent
        high = numpy.array(ndimage.maximum(sign * z, labels, numbers)) >= height
        for label in numbers[large & high]:
            inside = labels == label
            found.append((sign, inside, peaks_of(sign * z, inside)))
    return sorted(found, key=lambda c: (-c[0], -c[1].sum(), -abs(z[c[2][0]])))


def random_map(seed, smoothness):
    """z with p values of both tails, and a part without effect whose p must not matter."""
    random = numpy.random.default_rng(seed)
    z = ndimage.gaussian_filter(random.normal(size=SHAPE), smoothness)
    z = numpy.where(MASK, z / z[MASK].std(), 0).astype(numpy.float32)
    p = numpy.where(MASK, stats.norm.sf(z), 1).astype(numpy.float32)
    negative_p = numpy.where(MASK, stats.norm.cdf(z), 1).astype(numpy.float32)
    z[:, :30] = 0
    p[:, 20:30] = negative_p[:, 20:30] = 1e-6
    return z, p, negative_p


class Clusters(unittest.TestCase):
    def check(self, folder, z, p, negative_p, probability, height, extent, pFWE=None):
        lines = folder.must_run(f"threshold Map, p, {probability}, {height}, {extent}")
        base = f"Map_z_p_{probability}_{height}_{extent}"
        right = clusters_of(z, p, negative_p, float(probability), float(height), extent)
        kept = numpy.zeros(SHAPE, dtype=numpy.float32)
        for _, inside, _ in right:
            kept[inside] = z[inside]
        numpy.testing.assert_array_equal(folder.load(base), kept)

        def row(number, cluster, nth):
            sign, inside, peaks = cluster
            voxel = peaks[nth]
            tail = p if sign > 0 else negative_p
            return [str(number), "positive" if sign > 0 else "negative", str(inside.sum()),
                    str(8 * inside.sum()), str(nth + 1), *map(str, mm(voxel)),
                    "%.7g" % z[voxel], "%.7g" % tail[voxel],
                    "" if pFWE is None else "%.7g" % pFWE[0 if sign > 0 else 1][voxel],
                    region(ATLAS[voxel]), shares(inside)]

        rows = [row(number, cluster, nth) for number, cluster in enumerate(right, 1)
                for nth in range(len(cluster[2]))]
        self.assertEqual([list(r.values())[1:] for r in folder.table(base)], rows)
        counts = [sum(c[0] == sign for c in right) for sign in (1, -1)]
        text = "\n".join(map(plain, lines))
        if right:
            self.assertIn(f"Map: {counts[0]} cluster", text)
            self.assertIn(f"positive and {counts[1]} of negative effect", text)
            self.assertIn("%s,%s,%s" % tuple(rows[0][5:8]), text)
        else:
            self.assertIn("No cluster of Map survives", text)
        self.assertTrue((folder.work / f"{base}.html").read_text(encoding="utf-8"))
        return len(right)

    def test_random_maps(self):
        found = 0
        cases = [(1, 2.5, "0.00500", "1.000", 10), (2, 1.5, "0.02500", "2.500", 3),
                 (3, 1, "0.20000", "1.000", 1), (4, 4, "0.50000", "0.500", 20),
                 (5, 3, "0.00001", "4.200", 1), (6, 3, "1e-07", "9.000", 1)]
        for seed, smoothness, *thresholds in cases:
            with self.subTest(seed=seed), EngineFolder(PROGRAMS, SHARE) as folder:
                folder.preprocessed(["Map"])
                z, p, negative_p = random_map(seed, smoothness)
                for name, values in (("z", z), ("p", p), ("n_p", negative_p)):
                    folder.save(f"Map_{name}", values)
                found += self.check(folder, z, p, negative_p, *thresholds)
        self.assertGreater(found, 100)

    def test_folders_of_earlier_versions_and_corrected_p(self):
        with EngineFolder(PROGRAMS, SHARE) as folder:
            folder.preprocessed(["Other", "Map"], NULL_VALUES)
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

    def test_shapes(self):
        # Corners of boxes in the grid with their z, and (voxels, MNI of the peaks) of each cluster.
        cases = [
            ("a plateau has one peak, in its middle", [((40, 50, 40), (45, 53, 43), 3)],
             [(45, [(-6, -24, 10)])]),
            ("boxes that touch by a corner are one",
             [((40, 50, 40), (42, 52, 42), 3), ((42, 52, 42), (44, 54, 44), 4)],
             [(16, [(-6, -22, 12)])]),
            ("boxes with a voxel between them are two",
             [((40, 50, 40), (42, 52, 42), 3), ((43, 50, 40), (46, 52, 42), 3)],
             [(12, [(-2, -26, 8)]), (8, [(-10, -26, 8)])]),
            ("the signs are apart", [((40, 50, 40), (42, 52, 42), -5), ((42, 50, 40), (44, 51, 41), 3)],
             [(2, [(-6, -26, 8)]), (8, [(-10, -26, 8)])]),
            ("a ledge below a peak is none; peaks 8 mm apart are two",
             [((40, 50, 40), (48, 51, 41), 2), ((40, 50, 40), (41, 51, 41), 5),
              ((44, 50, 40), (45, 51, 41), 4), ((47, 50, 40), (48, 51, 41), 3)],
             [(8, [(-10, -26, 8), (-2, -26, 8)])]),
            ("the edge of the grid is no neighbour of the other edge",
             [((90, 50, 40), (91, 51, 41), 3), ((0, 51, 40), (1, 52, 41), 2)],
             [(1, [(90, -26, 8)]), (1, [(-90, -24, 8)])]),
        ]
        for what, boxes, right in cases:
            with self.subTest(what), EngineFolder(PROGRAMS, SHARE) as folder:
                z = numpy.zeros(SHAPE)
                for low, high, value in boxes:
                    z[tuple(slice(*ends) for ends in zip(low, high))] = value
                folder.preprocessed(["Map"], mask="all")
                folder.save("mask_all", numpy.ones(SHAPE))
                folder.save("Map_z", z)
                folder.save("Map_p", numpy.where(z > 0, 0.001, 1))
                folder.save("Map_n_p", numpy.where(z < 0, 0.001, 1))
                folder.must_run("threshold Map, p, 0.005, 1, 1")
                found = [(int(rows[0]["voxels"]),
                          [tuple(int(r[f"MNI {axis} (mm)"]) for axis in "xyz") for r in rows])
                         for rows in (list(group) for _, group in itertools.groupby(
                             folder.table("Map_z_p_0.00500_1.000_1"), lambda r: r["cluster"]))]
                self.assertEqual(found, right)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
