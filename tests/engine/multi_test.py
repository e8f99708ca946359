"""The conjunction of two p maps against NumPy and SciPy; and what threshold and multi make of hostile
names and of what cannot be right.

Usage: multi_test.py KVO_PARSE KVO_CORE SHARE_FOLDER
"""

import gzip
import sys
import unittest
import xml.etree.ElementTree

import numpy
from scipy import ndimage, optimize, special, stats

from engine_folder import AFFINE, EngineFolder, SHAPE, plain

*PROGRAMS, SHARE = sys.argv[1:4]
TOUCHING = numpy.ones((3, 3, 3))


def p_maps(seed):
    """Two p maps that have something in common, each with a mask of its own."""
    random = numpy.random.default_rng(seed)

    def noise():
        field = ndimage.gaussian_filter(random.normal(size=SHAPE), 3)
        return field / field.std()

    common = noise()
    maps = []
    for shift in (0, 5):
        z = 1.2 * common + 0.8 * noise()
        p = numpy.ones(SHAPE)
        box = (slice(10 + shift, 80), slice(10, 90 + shift), slice(5, 80 - shift))
        p[box] = stats.norm.sf(z[box])
        maps.append(p.astype(numpy.float32))
    return maps


def counted(p, error, scenario, tolerable):
    """The p that counts, from its definition."""
    if not error:
        return p

    def with_error(p):
        return stats.norm.sf(stats.norm.isf(p) / numpy.sqrt(2))

    if not scenario:
        return with_error(p)
    tolerable = min(tolerable, 0.4999)  # at 0.5 any factor will do
    factor = optimize.brentq(
        lambda f: special.expit(f * special.logit(with_error(tolerable))) - tolerable, 0.5, 4)
    return special.expit(factor * special.logit(with_error(p)))


def conjunction(maps, no_effect, *mode):
    """p of both directions. `no_effect` has the p of a z of 0 of each map, if that is known."""
    first, second = (m.astype(float) for m in maps)
    outside = (first == 1) | (second == 1)
    tails = []
    for positive in (True, False):
        p = numpy.maximum(*(counted(m if positive else 1 - m, *mode) for m in (first, second)))
        for m, none in zip((first, second), no_effect):
            if none is not None:
                p[(m >= none) if positive else (m <= none)] = 1
        tails.append(numpy.where(outside, 1, p))
    return tails


class Multi(unittest.TestCase):
    def check(self, folder, maps, no_effect, thresholds, mode):
        p, peak_p, extent = thresholds
        error, scenario, tolerable = mode
        command = f"{p}, {peak_p}, {extent}, {error}, {scenario}, {tolerable}"
        lines = folder.must_run(f"multi one, two, {command}")
        ending = f"{p}_{peak_p}_{extent}_{error}_{scenario}_{tolerable}"
        z = folder.load(f"one_two_multi_z_p_{ending}")
        p_image = folder.load(f"one_two_multi_p_values_{error}_{scenario}_{tolerable}")
        with numpy.errstate(divide="ignore"):
            tails = conjunction(maps, no_effect, error, scenario, float(tolerable))
        numpy.testing.assert_allclose(p_image, numpy.minimum(*tails), rtol=1e-5)
        clusters = []
        right = numpy.zeros(SHAPE)
        for sign, tail in zip((1, -1), tails):
            labels, count = ndimage.label(tail < float(p), TOUCHING)
            for label in range(1, count + 1):
                inside = labels == label
                if inside.sum() >= extent and tail[inside].min() <= float(peak_p):
                    clusters.append((-sign, -inside.sum()))
                    right[inside] = sign * stats.norm.isf(tail[inside])
        numpy.testing.assert_allclose(z, right, rtol=1e-5, atol=1e-6)
        rows = folder.table(f"one_two_multi_z_p_{ending}")
        found = {r["cluster"]: (-1 if r["direction"] == "positive" else 1, -int(r["voxels"]))
                 for r in rows}
        self.assertEqual(list(found.values()), sorted(clusters))
        for r in rows:
            voxel = tuple((int(r[f"MNI {a} (mm)"]) - int(o)) // 2
                          for a, o in zip("xyz", AFFINE[:3, 3]))
            self.assertAlmostEqual(float(r["z"]), z[voxel], 5)
            self.assertAlmostEqual(float(r["p (one-tailed)"]), p_image[voxel], 7)
        self.assertIn("one and two: ", "\n".join(map(plain, lines)))
        return z != 0

    def test_modes(self):
        thresholds = [("0.00250", "0.00025", 10), ("0.05000", "0.05000", 1)]
        overlap, _, error, better, *_ = modes = [
            (0, 0, "0.10000"), (0, 2, "0.10000"), (1, 0, "0.10000"), (1, 2, "0.10000"),
            (1, 1, "0.02000"), (1, 2, "0.50000")]
        maps = p_maps(1)
        for no_effect in ((None, None), (numpy.float32(0.97), numpy.float32(0.3))):
            with EngineFolder(PROGRAMS, SHARE) as folder:
                for name, p, none in zip(("one", "two"), maps, no_effect):
                    folder.save(f"{name}_p", p, no_effect=none)
                for limits in thresholds:
                    found = {}
                    for mode in modes:
                        with self.subTest(mode=mode, limits=limits, no_effect=no_effect):
                            found[mode] = self.check(folder, maps, no_effect, limits, mode)
                    self.assertGreater(found[overlap].sum(), 100)
                    self.assertFalse((found[error] & ~found[overlap]).any())
                    self.assertFalse((found[error] & ~found[better]).any())

    def test_is_symmetric_and_the_same_each_time(self):
        with EngineFolder(PROGRAMS, SHARE) as folder:
            for name, p in zip(("one", "two"), p_maps(2)):
                folder.save(f"{name}_p", p, no_effect=0.9)
            contents = []
            for names in (("one", "two"), ("two", "one"), ("one", "two")):
                folder.must_run(f"multi {names[0]}, {names[1]}, 0.01, 0.01, 5, 1, 2, 0.1")
                files = sorted(folder.work.glob(f"{names[0]}_{names[1]}_multi_*"))
                contents.append([file.read_bytes() if file.suffix != ".gz"
                                 else gzip.decompress(file.read_bytes()) for file in files])
                self.assertEqual(len(files), 4)
            self.assertEqual(contents[0], contents[2])
            for first, second in zip(contents[0], contents[1]):
                for a, b in ((b"one", b"_1_"), (b"two", b"_2_")):
                    first, second = first.replace(a, b), second.replace(a, b)
                # What is left is the order of the names.
                self.assertEqual(sorted(first), sorted(second))


class Names(unittest.TestCase):
    def test_are_texts(self):
        cases = ["<script>alert(1)</script>".replace("/", "|"), "&amp;<b>", "@SUM(A1:A9)",
                 "-2*3", "日本語のマップ", "e\u0301\u202e", "x" * 200, "%s%n", "$(reboot)", "a;b|c"]
        z = numpy.zeros(SHAPE)
        z[40:44, 50:54, 40:44] = 3
        p = numpy.where(z > 0, 0.0001, 1)
        for name in cases:
            with self.subTest(name=name), EngineFolder(PROGRAMS, SHARE) as folder:
                folder.preprocessed([name])
                folder.save(f"{name}_z", z)
                folder.save(f"{name}_p", p)
                folder.save(f"{name}_n_p", numpy.ones(SHAPE))
                bases = [f"{name}_z_p_0.00500_1.000_10"]
                lines = folder.must_run(f"threshold {name}, p, 0.005, 1, 10")
                other = "m"
                folder.save(f"{other}_p", p)
                if len(name) < 200:
                    lines += folder.must_run(f"multi {name}, {other}, 0.01, 0.01, 1, 0, 0, 0.1")
                    bases.append(f"{name}_{other}_multi_z_p_0.01000_0.01000_1_0_0_0.10000")
                self.assertIn(name, "\n".join(map(plain, lines)))
                for base in bases:
                    map_cell = folder.table(base)[0]["map"]
                    self.assertIn(map_cell.removeprefix("'"), (name, f"{name} and {other}"))
                    self.assertNotIn(map_cell[0], "=+-@")
                    page = (folder.work / f"{base}.html").read_text(encoding="utf-8")
                    root = xml.etree.ElementTree.fromstring(page[page.index("<html"):])
                    self.assertIn(name.replace("\u202e", ""),
                                  "".join(root.itertext()).replace("\u202e", ""))
                    self.assertEqual([e for e in root.iter() if e.tag.endswith("script")], [])


class Refusals(unittest.TestCase):
    def test_leave_the_folder_as_it_was(self):
        z = numpy.zeros(SHAPE)
        z[40:44, 50:54, 40:44] = 3
        p = numpy.where(z > 0, 0.0001, 1)
        shifted = AFFINE.copy()
        shifted[0, 3] += 2
        threshold = "threshold Map, p, 0.005, 1, 10"
        multi = "multi Map, Map2, 0.01, 0.01, 1, 0, 0, 0.1"

        def removed(name):
            return lambda folder: (folder.work / name).unlink()

        def saved(name, values, **options):
            return lambda folder: folder.save(name, values, **options)

        def with_value(value):
            other = p.copy()
            other[0, 1, 2] = value
            return other

        def cut(name):
            def spoil(folder):
                file = folder.work / name
                file.write_bytes(file.read_bytes()[:2000])
            return spoil

        cases = [
            (removed("kvo_pp.txt"), threshold, "No maps found. Please run preprocessing"),
            (None, "threshold Mop, p, 0.005, 1, 10", "There is no map 'Mop'. The maps are: Map, B."),
            (None, "threshold <b>, p, 0.005, 1, 10", "There is no map '<b>'."),
            (None, "threshold Map_n, p, 0.005, 1, 10", "'Map_n' is the negative tail of map 'Map'."),
            (removed("kvo_maps.txt"), threshold, "There is no map 'Map'. Please estimate maps"),
            (None, "threshold B, p, 0.005, 1, 10", "'B_z.nii.gz': cannot be opened: No such file"),
            (removed("Map_z.nii.gz"), threshold, "'Map_z.nii.gz': cannot be opened: No such file"),
            (removed("Map_p.nii.gz"), threshold, "'Map_p.nii.gz': cannot be opened: No such file"),
            (saved("Map_p", p, affine=shifted), threshold, "'Map_p.nii.gz' is not on the MNI grid"),
            (saved("Map_z", z[:50]), threshold, "'Map_z.nii.gz' is not on the MNI grid"),
            (saved("Map_z", z + numpy.nan), threshold, "'Map_z.nii.gz' has values in the mask that"),
            (saved("Map_n_p", with_value(1.5)), threshold,
             "'Map_n_p.nii.gz': the value 1.5 at MNI -90,-124,-68 is no p value"),
            (saved("Map_pFWE", with_value(-0.5)), threshold, "'Map_pFWE.nii.gz': the value -0.5"),
            (lambda folder: (removed("Map_n_p.nii.gz")(folder), removed("kvo_nd.txt")(folder)),
             threshold, "'kvo_nd.txt' cannot be opened"),
            (lambda folder: (removed("Map_n_p.nii.gz")(folder),
                             (folder.work / "kvo_nd.txt").write_text("name values\nMap many\n")),
             threshold, "'kvo_nd.txt', line 2: there is no number of values."),
            (cut("Map_z.nii.gz"), threshold, "'Map_z.nii.gz': ends early"),
            (saved("Map_z_p_0.00500_1.000_10", z), threshold,
             "There is already a 'Map_z_p_0.00500_1.000_10.nii.gz' that was made elsewhere."),
            (lambda folder: (folder.work / "Map_z_p_0.00500_1.000_10.csv").mkdir(), threshold,
             "'Map_z_p_0.00500_1.000_10.csv' cannot be replaced: it is a folder."),
            (None, multi.replace("Map2", "Map"), "The two meta-analyses have the same name 'Map'."),
            (None, multi.replace("Map2", "C"), "'C_p.nii.gz': cannot be opened: No such file"),
            (None, multi.replace("Map,", "mask_a,"), "The name 'mask_a' cannot be used"),
            (None, multi.replace("Map2", "x" * 200).replace("Map", "y" * 50),
             "The name of the result"),
            (saved("Map2_p", with_value(0)), multi, "'Map2_p.nii.gz': the value 0 at MNI -90,-124,-68"),
            (saved("Map2_p", with_value(numpy.nan)), multi, "'Map2_p.nii.gz': the value nan at MNI"),
            (saved("Map2_p", p, affine=shifted), multi, "'Map2_p.nii.gz' is not on the MNI grid"),
            (saved("Map2_p", numpy.ones(SHAPE)), multi,
             "'Map_p.nii.gz' and 'Map2_p.nii.gz' have no voxel in common"),
            (cut("Map_p.nii.gz"), multi, "'Map_p.nii.gz': ends early"),
        ]
        for spoil, command, reason in cases:
            with self.subTest(reason), EngineFolder(PROGRAMS, SHARE) as folder:
                folder.preprocessed(["Map", "B"])
                folder.save("Map_z", z)
                for name in ("Map_p", "Map2_p"):
                    folder.save(name, p + numpy.where(p == 1, -1e-3, 0))
                folder.save("Map_n_p", numpy.ones(SHAPE))
                if spoil:
                    spoil(folder)
                before = folder.snapshot()
                lines = folder.run(command)
                self.assertTrue(plain(lines[-1]).startswith("WARNING: " + reason), lines[-1])
                self.assertEqual(folder.snapshot(), before)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
