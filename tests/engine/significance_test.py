"""p values of images against all orders and signs of the studies, and TFCE against SciPy's labelling.

Usage: significance_test.py KVO_PARSE KVO_CORE SHARE_FOLDER
"""

import itertools
import sys
import unittest

import numpy
from scipy import ndimage

from engine_folder import EngineFolder, SHAPE, load

*PROGRAMS, SHARE = sys.argv[1:4]
BOX = (slice(30, 42), slice(40, 52), slice(30, 40))
MASK = numpy.zeros(SHAPE, bool)
MASK[BOX] = load(f"{SHARE}/mask_gray_matter.nii.gz")[BOX] > 0
SIZES = [12, 15, 18, 22, 25, 30, 35]
COVARIATE = numpy.array([3.1, 1.2, 5.0, 2.2, 4.4, 0.3, 9.0])
EXCHANGES = 10000


def statistic(column, others, y):
    """z of a column beside others, by weighted least squares of rows that are weighted already."""
    basis = numpy.linalg.qr(others)[0] if others.shape[1] else others
    left = column - basis @ (basis.T @ column)
    y = y - basis @ (basis.T @ y)
    projection = left @ y / numpy.linalg.norm(left)
    df = len(column) - others.shape[1] - 1
    residual = numpy.maximum(0, (y**2).sum(0) - projection**2)
    return projection / numpy.sqrt(numpy.maximum(1, residual / df))


def clusters(z, threshold):
    """For each voxel the size of its cluster above the threshold."""
    image = numpy.zeros(MASK[BOX].shape)
    image[MASK[BOX]] = z
    labels, _ = ndimage.label(image > threshold, numpy.ones((3, 3, 3)))
    sizes = numpy.bincount(labels.ravel())
    sizes[0] = 0
    return sizes[labels[MASK[BOX]]]


def tfce(z):
    """The integral by all the heights that there are."""
    heights = numpy.concatenate([[0], numpy.unique(z[z > 0])])
    total = numpy.zeros(len(z))
    for low, high in itertools.pairwise(heights):
        extent = clusters(z, low)
        total += numpy.where(z > low, numpy.sqrt(extent) * (high**3 - low**3) / 3, 0)
    return total


def rates(p):
    """Benjamini and Hochberg's."""
    order = numpy.argsort(p)
    q = p[order] * len(p) / numpy.arange(1, len(p) + 1)
    adjusted = numpy.empty(len(p))
    adjusted[order] = numpy.minimum.accumulate(q[::-1])[::-1]
    return numpy.minimum(adjusted, 1)


class Significance(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        random = numpy.random.default_rng(7)
        cls.folder = EngineFolder(PROGRAMS, SHARE)
        cls.folder.save("mask_part", MASK)
        rows = ["study n1 x"]
        for s, (n, x) in enumerate(zip(SIZES, COVARIATE)):
            t = ndimage.gaussian_filter(random.normal(size=SHAPE), 1.5) * 12 + 0.12 * x + 0.3
            cls.folder.save(f"s{s}", numpy.where(MASK, t, 0), statistic=n - 1)
            rows.append(f"s{s} {n} {x}")
        (cls.folder.work / "kvo_table.txt").write_text("\n".join(rows) + "\n")
        for command in ("pp gray_matter, 0, 10, part, 100", "M = mean", "L = lm x"):
            cls.folder.must_run(command)
        cls.g = numpy.array([cls.folder.load(f"pp/s{s}_g")[MASK] for s in range(len(SIZES))], float)

    @classmethod
    def tearDownClass(cls):
        cls.folder.__exit__()

    def value(self, name, kind):
        return self.folder.load(f"{name}_{kind}")[MASK].astype(float)

    def check(self, name, intercept, column_of, exchanges, others):
        roots = 1 / numpy.sqrt(1 / numpy.array(SIZES) + self.value(intercept, "tau2").mean())
        y = roots[:, None] * self.g
        observed = statistic(roots * column_of(None), roots[:, None] * others, y)
        numpy.testing.assert_allclose(self.value(name, "TFCE"), tfce(observed) - tfce(-observed), rtol=2e-3, atol=1e-3)
        null = numpy.array([statistic(roots * column_of(e), roots[:, None] * others, y) for e in exchanges])
        for tail, sign in (("", 1), ("n_", -1)):
            p = (sign * null >= sign * observed - 1e-6).mean(0)
            most = (sign * null).max(1)
            pFWE = (most[:, None] >= sign * observed - 1e-6).mean(0)
            forming = numpy.quantile(sign * null, 0.999)
            for kind, true in (("p", p), ("pFWE", pFWE)):
                error = 5 * numpy.sqrt(true * (1 - true) / EXCHANGES) + 0.002
                off = numpy.abs(self.value(name, tail + kind) - true) > error
                self.assertFalse(off.any(), f"{name} {tail}{kind}: {off.sum()} of {len(off)} voxels")
            numpy.testing.assert_allclose(self.value(name, tail + "q"), rates(self.value(name, tail + "p")), rtol=1e-5)
            pcluster = self.value(name, tail + "pcluster")
            self.assertTrue((pcluster[sign * observed < 0.9 * forming] == 1).all())
            self.assertTrue((pcluster[sign * observed > 1.1 * forming] < 1).all())
        smaller = numpy.minimum(self.value(name, "p"), self.value(name, "n_p"))
        numpy.testing.assert_allclose(self.value(name, "both_p"), numpy.minimum(1, 2 * smaller), rtol=1e-6)

    def test_a_term_is_compared_with_all_orders_of_the_studies(self):
        orders = [list(order) for order in itertools.permutations(range(len(SIZES)))]
        self.check("L_1", "L_0", lambda order: COVARIATE if order is None else COVARIATE[order], orders,
                   numpy.ones((len(SIZES), 1)))

    def test_a_mean_is_compared_with_all_signs_of_the_images(self):
        signs = list(itertools.product([1, -1], repeat=len(SIZES)))
        self.check("M", "M", lambda sign: numpy.ones(len(SIZES)) if sign is None else numpy.array(sign), signs,
                   numpy.zeros((len(SIZES), 0)))

    def test_maps_are_thresholded_by_each_kind_of_p(self):
        for kind in ("both_p", "pFWE", "q", "pTFCE", "pcluster", "both_pFWE"):
            self.folder.must_run(f"threshold L_1_{kind}, p, 0.4, 0, 1")
            shown = self.folder.load(f"L_1_{kind}_z_p_0.40000_0.000_1")[MASK]
            z = self.value("L_1", "z")
            p = {sign: self.value("L_1", kind if kind.startswith("both") or sign > 0 else f"n_{kind}") for sign in (1, -1)}
            below = numpy.where(z > 0, p[1], p[-1]) < 0.4
            numpy.testing.assert_array_equal(shown != 0, below & (z != 0), kind)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
