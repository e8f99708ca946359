"""The conjunction of two p maps against SciPy.

Usage: multi_test.py KVO_PARSE KVO_CORE SHARE_FOLDER
"""

import sys
import unittest

import numpy
from scipy import ndimage, optimize, special, stats

from engine_folder import AFFINE, EngineFolder, SHAPE, plain

*PROGRAMS, SHARE = sys.argv[1:4]
TOUCHING = numpy.ones((3, 3, 3))


def p_maps(seed):
    """Two p maps that have something in common, each with a mask of its own."""
    random = numpy.random.default_rng(seed)

    def noise():
        field = ndimage.gaussian_filter(random.normal(size=(40, 45, 35)), 3)
        return field / field.std()

    common = noise()
    maps = []
    for shift in (0, 5):
        z = 1.2 * common + 0.8 * noise()
        box = (slice(shift, 40), slice(0, 40 + shift), slice(0, 35 - shift))
        p = numpy.ones(SHAPE)
        p[tuple(slice(s.start + 20, s.stop + 20) for s in box)] = stats.norm.sf(z[box])
        maps.append(p.astype(numpy.float32))
    return maps


def counted(p, error, scenario, tolerable):
    """The p that counts, from its definition."""
    def with_error(p):
        return stats.norm.sf(stats.norm.isf(p) / numpy.sqrt(2))

    if not error or not scenario:
        return with_error(p) if error else p
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
            labels, _ = ndimage.label(tail < float(p), TOUCHING)
            for label, box in enumerate(ndimage.find_objects(labels), 1):
                inside = labels[box] == label
                if inside.sum() >= extent and tail[box][inside].min() <= float(peak_p):
                    clusters.append((-sign, -inside.sum()))
                    right[box][inside] = sign * stats.norm.isf(tail[box][inside])
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
        overlap, error, better, *others = [
            (0, 0, "0.10000"), (1, 0, "0.10000"), (1, 2, "0.10000"),
            (0, 2, "0.10000"), (1, 1, "0.02000"), (1, 2, "0.50000")]
        maps = p_maps(1)
        no_effects = ((None, None), (numpy.float32(0.97), numpy.float32(0.3)))
        for no_effect, limits, more in zip(no_effects, thresholds, (others, others[1:2])):
            with EngineFolder(PROGRAMS, SHARE) as folder:
                for name, p, none in zip(("one", "two"), maps, no_effect):
                    folder.save(f"{name}_p", p, no_effect=none)
                found = {}
                for mode in (overlap, error, better, *more):
                    with self.subTest(mode=mode, limits=limits, no_effect=no_effect):
                        found[mode] = self.check(folder, maps, no_effect, limits, mode)
                self.assertGreater(found[overlap].sum(), 100)
                self.assertFalse((found[error] & ~found[overlap]).any())
                self.assertFalse((found[error] & ~found[better]).any())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
