"""Preprocessing with anisotropy against shortest paths by SciPy.

Usage: path_map_test.py KVO_PARSE KVO_CORE
"""

import itertools
import sys
import unittest

import numpy
from scipy import ndimage, sparse, special

from engine_folder import AFFINE, EngineFolder, SHAPE, save

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


def random_peaks(random, count):
    places = AFFINE[:3, 3] + 2 * numpy.array(BOX) * random.uniform(size=(count, 3))
    return [(*place.round(1), round(random.uniform(2, 6), 2)) for place in places]


def write_studies(folder, studies):
    (folder / "kvo_table.txt").write_text("study n1\n" + "".join(f"s{n} {N}\n" for n in range(len(studies))))
    for n, peaks in enumerate(studies):
        lines = [" ".join(repr(float(value)) for value in peak) for peak in peaks]
        (folder / f"s{n}.peaks.txt").write_text("\n".join(["# space: MNI", *lines, ""]))


class PathMap(unittest.TestCase):
    def test_agrees_with_scipy(self):
        folder = self.enterContext(EngineFolder(PROGRAMS))
        random = numpy.random.default_rng(5)
        mask, template = random_mask(random), random_template(random)
        save(folder.share / "mask_tissue.nii.gz", on_grid(mask))
        low = AFFINE[:3, 3]
        voxel = low + 2 * numpy.argwhere(mask)[800]
        hole = low + 2 * numpy.argwhere(~mask)[700]
        studies = [
            [(*voxel, 4)],
            [(*(voxel + (1, 1, 1)), 3), (*(hole + (0.3, -0.4, 0.2)), 5)],  # as close to eight voxels
            [(*(low + (20, -12, 9)), 4), (*(low - 19), 3), (*(low - (80, 0, 0)), 2)],  # outside, and beyond
            random_peaks(random, 3),
        ]
        write_studies(folder.work, studies)
        flat = numpy.full(BOX, 0.5)
        spike = flat + (numpy.arange(numpy.prod(BOX)).reshape(BOX) == numpy.flatnonzero(mask)[800])
        for name, values, kernels in [
            ("random", template, [(20, 1), (20, 0.5), (8, 0.7), (4, 0.1), (100, 0.9)]),
            ("flat", flat, [(30, 1)]),
            ("one voxel", spike, [(12, 0.5)]),
            ("huge", template * 1e36, [(20, 1)]),
        ]:
            save(folder.share / "cor_tissue.nii.gz", on_grid(values))
            paths = Paths(mask, values)
            for (fwhm, anisotropy), (study, peaks) in itertools.product(kernels, enumerate(studies)):
                if study == 0:
                    folder.must_run(f"pp tissue, {anisotropy}, {fwhm}, tissue, 1")
                with self.subTest(template=name, fwhm=fwhm, anisotropy=anisotropy, study=study):
                    g = folder.load(f"pp/s{study}_g")[tuple(slice(0, n) for n in BOX)]
                    expected, unsure = reference(mask, paths, fwhm, anisotropy, peaks)
                    self.assertLess(unsure.sum(), 20)
                    numpy.testing.assert_allclose(g[~unsure], expected[~unsure], rtol=1e-5, atol=1e-9)

    def test_is_the_mirror_image_at_the_other_corner_of_the_grid(self):
        folder = self.enterContext(EngineFolder(PROGRAMS))
        random = numpy.random.default_rng(8)
        mask, template, peaks = random_mask(random), random_template(random), random_peaks(random, 6)
        ends = 2 * AFFINE[:3, 3] + 2 * (numpy.array(SHAPE) - 1)
        maps = []
        for mirrored in (False, True):
            turned = numpy.flip if mirrored else numpy.asarray
            save(folder.share / "mask_tissue.nii.gz", turned(on_grid(mask)))
            save(folder.share / "cor_tissue.nii.gz", turned(on_grid(template)))
            write_studies(folder.work, [[(*(ends - mm if mirrored else mm), t) for *mm, t in peaks]])
            folder.must_run("pp tissue, 0.8, 30, tissue, 1")
            maps.append(turned(folder.load("pp/s0_g")))
        self.assertGreater(numpy.count_nonzero(maps[0]), 1000)
        numpy.testing.assert_allclose(maps[1], maps[0], rtol=1e-5, atol=1e-9)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
