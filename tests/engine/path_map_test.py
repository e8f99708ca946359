"""Preprocessing with anisotropy against shortest paths by SciPy, and what must hold of any such kernel.

Usage: path_map_test.py KVO_PARSE KVO_CORE
"""

import sys
import unittest

import numpy
from scipy import ndimage, sparse, special

from engine_folder import AFFINE, EngineFolder, SHAPE, load, save

PROGRAMS = sys.argv[1:3]
TISSUE = 20  # mm: the FWHM along the tissue
END = 3 / numpy.sqrt(8 * numpy.log(2))  # of a kernel, in its FWHM
N = 20  # participants of each study
# The part of the grid that the masks are in; it has a corner of the grid.
BOX = (26, 22, 18)


def on_grid(box):
    image = numpy.zeros(SHAPE)
    image[tuple(slice(0, n) for n in BOX)] = box
    return image


def random_mask(random):
    """A ragged piece with holes, and a small one apart from it."""
    mask = ndimage.gaussian_filter(random.normal(size=BOX), 1.2) > -0.09
    mask[18:20] = False
    mask[20:] &= ndimage.gaussian_filter(random.normal(size=BOX), 1)[20:] > 0
    return mask


def random_template(random):
    return 37 * ndimage.gaussian_filter(random.normal(size=BOX), 1.5) - 5


def graph(mask, template):
    """The steps between neighbouring voxels, by the voxels' places in the box."""
    number = numpy.arange(mask.size).reshape(mask.shape)
    values = template[mask]
    height = TISSUE * (template - values.min()) / max(numpy.ptp(values), 1e-30)
    rows, columns, lengths = [], [], []
    for step in numpy.ndindex(3, 3, 3):
        step = numpy.array(step) - 1
        if tuple(step) <= (0, 0, 0):
            continue
        here = tuple(slice(max(0, -s), n - max(0, s)) for s, n in zip(step, mask.shape))
        there = tuple(slice(max(0, s), n - max(0, -s)) for s, n in zip(step, mask.shape))
        both = mask[here] & mask[there]
        rows.append(number[here][both])
        columns.append(number[there][both])
        lengths.append(numpy.sqrt(4 * (step**2).sum() + (height[here] - height[there])[both] ** 2))
    cells = numpy.concatenate(lengths), (numpy.concatenate(rows), numpy.concatenate(columns))
    return sparse.csr_matrix(cells, shape=(mask.size, mask.size))


class Paths:
    """The shortest paths from voxels, each computed once."""

    def __init__(self, mask, template):
        self.steps, self.known = graph(mask, template), {}

    def lengths_from(self, start):
        if start not in self.known:
            found = sparse.csgraph.dijkstra(self.steps, directed=False, indices=start)
            self.known[start] = found.reshape(BOX)
        return self.known[start]


UNIFORM = Paths(numpy.ones(BOX, bool), numpy.zeros(BOX))


def reference(mask, paths, fwhm, anisotropy, peaks):
    """g in the box, and where a kernel ends so close by that rounding decides."""
    places = numpy.moveaxis(numpy.indices(BOX), 0, -1) * 2.0 + AFFINE[:3, 3]
    kernels, effects, unsure = numpy.zeros(BOX), numpy.zeros(BOX), numpy.zeros(BOX, bool)
    factor = special.gamma((N - 1) / 2) / numpy.sqrt((N - 1) / 2) / special.gamma((N - 2) / 2)
    for *mm, t in peaks:
        straight = numpy.linalg.norm(places - mm, axis=-1)
        # The closest voxel, x running fastest where several are as close.
        order = numpy.lexsort((*numpy.indices(BOX).reshape(3, -1), straight.round(9).ravel()))
        start = next(n for n in order if mask.ravel()[n])
        along = numpy.full(BOX, numpy.inf)
        if straight.ravel()[start] < END * TISSUE:
            path, uniform = paths.lengths_from(start), UNIFORM.lengths_from(start)
            apart = numpy.linalg.norm(places - places.reshape(-1, 3)[start], axis=-1)
            ratio = path / numpy.where(uniform > 0, uniform, 1)
            along = straight + numpy.where(uniform > 0, apart * (ratio - 1), 0)
        u = (1 - anisotropy) * straight / fwhm + anisotropy * numpy.minimum(along / TISSUE, END)
        kernel = numpy.where(mask & (u < END - 1e-9), 16.0 ** -(u**2), 0)
        unsure |= (abs(u - END) < 2e-6) & ((anisotropy < 1) | (along / TISSUE < END + 2e-6))
        kernels += kernel
        effects += kernel**2 * t / numpy.sqrt(N) * factor
    return effects / numpy.where(kernels > 0, kernels, 1), unsure & mask


class PathMap(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(EngineFolder(PROGRAMS))
        self.work = self.folder.work
        self.random = numpy.random.default_rng(5)
        self.mask, self.template = random_mask(self.random), random_template(self.random)
        self.save_share()

    def save_share(self):
        save(self.folder.share / "mask_tissue.nii.gz", on_grid(self.mask))
        save(self.folder.share / "cor_tissue.nii.gz", on_grid(self.template))

    def write_studies(self, studies):
        names = [f"s{n:02}" for n in range(len(studies))]
        (self.work / "kvo_table.txt").write_text("study n1\n" + "".join(f"{s} {N}\n" for s in names))
        for name, peaks in zip(names, studies):
            lines = [" ".join(repr(float(value)) for value in peak) for peak in peaks]
            (self.work / f"{name}.peaks.txt").write_text("\n".join(["# space: MNI", *lines, ""]))

    def random_studies(self, count):
        low, size = AFFINE[:3, 3], 2 * numpy.array(BOX)
        return [[(*(low + size * self.random.uniform(size=3)).round(1), round(self.random.uniform(2, 6), 2))
                 for _ in range(1 + s)] for s in range(count)]

    def preprocess(self, anisotropy, fwhm=20, randomizations=1, threads=1):
        self.folder.must_run(f"pp tissue, {anisotropy}, {fwhm}, tissue, {randomizations}", threads)

    def maps(self):
        inside = tuple(slice(0, n) for n in BOX)
        return [load(name)[inside] for name in sorted(self.work.glob("pp/*_g.nii.gz"))]

    def assert_close(self, map_, expected, what, tolerance=1e-5):
        difference = abs(map_ - expected) - tolerance * abs(expected)
        worst = numpy.unravel_index(difference.argmax(), BOX)
        self.assertLessEqual(difference.max(), 1e-9,
                             f"{what}: {map_[worst]} is not {expected[worst]} in voxel {worst}")

    def test_agrees_with_scipy(self):
        low = AFFINE[:3, 3]
        voxel = low + 2 * numpy.argwhere(self.mask)[800]
        hole = low + 2 * numpy.argwhere(~self.mask)[700]
        studies = [
            [(*voxel, 4)],
            [(*(voxel + (1, 1, 1)), 3), (*(hole + (0.3, -0.4, 0.2)), 5)],  # as close to eight voxels
            [(*(low + (20, -12, 9)), 4), (*(low - 19), 3), (*(low - (80, 0, 0)), 2)],  # outside, and beyond
            self.random_studies(3)[-1],
        ]
        self.write_studies(studies)
        flat = numpy.full(BOX, 0.5)
        spike = flat + (numpy.arange(numpy.prod(BOX)).reshape(BOX) == numpy.flatnonzero(self.mask)[800])
        for name, template, kernels in [
            ("random", self.template, [(20, 1), (20, 0.5), (8, 0.7), (4, 0.1), (100, 0.9)]),
            ("flat", flat, [(30, 1)]),
            ("one voxel", spike, [(12, 0.5)]),
            ("huge", self.template * 1e36, [(20, 1)]),
        ]:
            save(self.folder.share / "cor_tissue.nii.gz", on_grid(template))
            paths = Paths(self.mask, template)
            for fwhm, anisotropy in kernels:
                self.preprocess(anisotropy, fwhm)
                for study, (map_, peaks) in enumerate(zip(self.maps(), studies)):
                    with self.subTest(template=name, fwhm=fwhm, anisotropy=anisotropy, study=study):
                        expected, unsure = reference(self.mask, paths, fwhm, anisotropy, peaks)
                        self.assertLess(unsure.sum(), 20)
                        self.assert_close(numpy.where(unsure, 0, map_), numpy.where(unsure, 0, expected), "g")

    def test_full_anisotropy_does_not_depend_on_the_fwhm(self):
        self.write_studies(self.random_studies(3))
        self.preprocess(1, 10)
        narrow = self.maps()
        self.preprocess(1, 50)
        self.assertTrue(numpy.array_equal(narrow, self.maps()))

    def test_uniform_tissue_is_isotropic(self):
        self.mask[:], self.template[:] = True, 0.25
        self.save_share()
        self.write_studies(self.random_studies(3))
        self.preprocess(0)
        isotropic = self.maps()
        for anisotropy in 0.3, 1:
            self.preprocess(anisotropy)
            for one, other in zip(isotropic, self.maps()):
                self.assert_close(other, one, f"anisotropy {anisotropy}", 2e-5)

    def test_reaches_less_far_as_anisotropy_rises(self):
        studies = [[peak] for study in self.random_studies(2) for peak in study]
        self.write_studies(studies)
        for fwhm in 20, 45:
            maps = []
            for anisotropy in 0, 1e-6, 0.3, 0.7, 1:
                self.preprocess(anisotropy, fwhm)
                maps.append(numpy.array(self.maps()))
                if len(maps) == 1:
                    continue
                self.assertLessEqual((maps[-1] / numpy.where(maps[-2] > 0, maps[-2], 1e-9)).max(), 1 + 1e-6,
                                     (fwhm, anisotropy))
            self.assertLess(abs(maps[1] - maps[0]).max(), 1e-4, "not continuous at 0")
            self.assertLess(maps[-1].sum(), 0.9 * maps[0].sum(), "the template has no effect")

    def test_paths_are_as_long_back_and_peaks_have_no_order(self):
        low, voxels = AFFINE[:3, 3], numpy.argwhere(self.mask)
        chosen = voxels[self.random.choice(len(voxels), 12, replace=False)]
        self.write_studies([[(*(low + 2 * voxel), 4)] for voxel in chosen])
        self.preprocess(0.8)
        between = numpy.array([[map_[tuple(voxel)] for voxel in chosen] for map_ in self.maps()])
        self.assertGreater((between > 0).sum(), 30)
        self.assertLess(abs(between - between.T).max(), 1e-5)

        peaks = self.random_studies(9)[-1]
        self.write_studies([peaks, peaks[::-1]])
        self.preprocess(0.8)
        forth, back = self.maps()
        self.assert_close(forth, back, "backwards", 1e-6)

    def test_no_anisotropy_needs_no_template(self):
        self.write_studies(self.random_studies(3))
        self.preprocess(0)
        before = [path.read_bytes() for path in sorted(self.work.glob("pp/*"))]
        (self.folder.share / "cor_tissue.nii.gz").unlink()
        self.preprocess(0)
        self.assertEqual(before, [path.read_bytes() for path in sorted(self.work.glob("pp/*"))])

    def test_gives_the_same_bytes_with_any_number_of_threads(self):
        self.write_studies(self.random_studies(4))
        results = []
        for threads in 1, 2, 3:
            self.preprocess(0.5, 20, 20, threads)
            self.folder.must_run("M = mean", threads)
            results.append(self.folder.snapshot())
            self.assertIn("M_pFWE.nii.gz", results[-1])
            self.assertEqual(results[-1], results[0], threads)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
