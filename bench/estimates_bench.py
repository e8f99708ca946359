"""Times estimates from peaks beside the same in NumPy and SciPy.

Usage: estimates_bench.py ESTIMATES_BENCH INSTALLATION
"""

import os
import pathlib
import subprocess
import sys
import tempfile
import time

os.environ["OPENBLAS_NUM_THREADS"] = "1"

import nibabel
import numpy
from scipy import sparse, special

TAU2, SMOOTHNESS, WIDTH, EFFECT_SD = 0.07, 11, 28, 0.8
SIDE, DRAWS, ROUNDS, STILL = 4, 64, 40, 0.003
EFFECTS = numpy.arange(-3, 4.001, 0.05)
HEIGHTS = numpy.arange(-8, 14.01, 0.02)
SHAPE = 91, 109, 91
CELLS = [-(-n // SIDE) for n in SHAPE]
SIGMA = WIDTH / (4 * numpy.sqrt(numpy.log(2))) / 2


def log_density():
    """Of maxima by HEIGHTS, per mm³: Bardeen et al. 1986."""
    x = numpy.arange(0.02, 20, 0.02)
    a = numpy.sqrt(2.5) * x
    curvature = (x**3 - 3 * x) / 2 * (special.erf(a) + special.erf(a / 2)) + numpy.sqrt(0.4 / numpy.pi) * (
        (7.75 * x**2 + 1.6) * numpy.exp(-0.625 * x**2) + (0.5 * x**2 - 1.6) * numpy.exp(-2.5 * x**2))
    mean = numpy.sqrt(0.6) * HEIGHTS[:, None]
    log = special.logsumexp(-(x - mean) ** 2 / 0.8, 1, numpy.maximum(curvature, 0) * 0.02 / numpy.sqrt(0.8 * numpy.pi))
    radius = SMOOTHNESS / numpy.sqrt(4 * numpy.log(2)) * numpy.sqrt(0.6)
    return log - HEIGHTS**2 / 2 - 2 * numpy.log(2 * numpy.pi) - 3 * numpy.log(radius)


LOG = log_density()
ABOVE = numpy.flip(numpy.cumsum(numpy.flip(numpy.exp(LOG)))) * 0.02


def rows(axis, voxels):
    """Weights of the cells of an axis, for each coordinate."""
    away = numpy.arange(CELLS[axis]) * SIDE + (SIDE - 1) / 2 - numpy.asarray(voxels, float)[:, None]
    weights = numpy.exp(-away**2 / (2 * SIGMA**2)) * (numpy.abs(away) <= 3.2 * SIGMA)
    return weights / numpy.sqrt((weights**2).sum(1, keepdims=True))


def smoothed(values, matrices):
    for axis, matrix in enumerate(matrices):
        values = numpy.moveaxis(numpy.tensordot(matrix, values, (1, axis)), 0, axis)
    return values


class Fit:
    def __init__(self, peaks, mask):
        self.mask = mask
        self.volumes = numpy.zeros(CELLS)
        numpy.add.at(self.volumes, tuple(numpy.argwhere(mask).T // SIDE), 8)
        self.inside = self.volumes > 0
        self.at_cells = [rows(a, numpy.arange(CELLS[a]) * SIDE + (SIDE - 1) / 2) for a in range(3)]
        voxel = (peaks[:, 4:7] + [90, 126, 72]) / 2
        cell = numpy.rint(voxel).astype(int) // SIDE
        peaks, voxel = peaks[self.inside[tuple(cell.T)]], voxel[self.inside[tuple(cell.T)]]
        x, y, z = (rows(a, voxel[:, a]) for a in range(3))
        self.places = sparse.vstack([sparse.csr_matrix(numpy.einsum("a,b,c->abc", *w).reshape(1, -1))
                                     for w in zip(x, y, z)]).tocsr()
        self.base, self.slope, self.height = peaks[:, 1], peaks[:, 2], peaks[:, 7]
        kinds, self.kind = numpy.unique(peaks[:, 1:4], axis=0, return_inverse=True)
        studies, first, self.listed = numpy.unique(peaks[:, 0], return_index=True, return_counts=True)
        self.kind_of_study = self.kind[first]
        self.expected, self.information_of = zip(*(self.tables(*kind) for kind in kinds))

    @staticmethod
    def log_of_height(height, effect, base, slope):
        s = numpy.sqrt(base + slope * effect**2 + TAU2)
        sign = numpy.where(height < 0, -1, 1)
        x = sign * (height - effect) / s
        place = numpy.clip(((x + 8) / 0.02).astype(int), 0, len(LOG) - 2)
        by_x = (LOG[place + 1] - LOG[place]) / 0.02
        ds = slope * effect / s
        return (LOG[place] + by_x * (x - HEIGHTS[place]) - numpy.log(s), by_x * (-sign - x * ds) / s - ds / s)

    def tables(self, base, slope, threshold):
        s = numpy.sqrt(base + slope * EFFECTS**2 + TAU2)
        expected = sum(numpy.interp((threshold + sign * EFFECTS) / s, HEIGHTS, ABOVE) for sign in (-1, 1))
        information = numpy.zeros(len(EFFECTS))
        for sign in 1, -1:
            step = (numpy.maximum(threshold, sign * EFFECTS) + 7 * s - threshold) / 40
            heights = sign * (threshold + (numpy.arange(40)[:, None] + 0.5) * step)
            log, by_effect = self.log_of_height(heights, EFFECTS, base, slope)
            information += (numpy.exp(log) * by_effect**2 * step).sum(0)
        return expected, information

    def set_shares(self, cells):
        expected = numpy.array([(numpy.interp(cells[self.inside], EFFECTS, table) * self.volumes[self.inside]).sum()
                                for table in self.expected])[self.kind_of_study]
        shares = numpy.minimum(1, self.listed / expected)
        self.total = sum(a * self.expected[k] for a, k in zip(shares, self.kind_of_study))
        self.total_information = sum(a * self.information_of[k] for a, k in zip(shares, self.kind_of_study))

    def value(self, noise, cells):
        effect = EFFECT_SD * (self.places @ noise.ravel())
        return (self.log_of_height(self.height, effect, self.base, self.slope)[0].sum()
                - (self.volumes * numpy.interp(cells, EFFECTS, self.total)).sum() - (noise**2).sum() / 2)

    def cells_of(self, noise):
        return EFFECT_SD * smoothed(noise, self.at_cells)

    def to_noise(self, field):
        return EFFECT_SD * smoothed(field, [matrix.T for matrix in self.at_cells])

    def derivatives(self, noise, cells):
        effect = EFFECT_SD * (self.places @ noise.ravel())
        by_effect = self.log_of_height(self.height, effect, self.base, self.slope)[1]
        steps = numpy.clip(((cells + 3) / 0.05).astype(int), 0, len(EFFECTS) - 2)
        slope = self.to_noise(-self.volumes * (self.total[steps + 1] - self.total[steps]) / 0.05)
        self.information = self.volumes * numpy.interp(cells, EFFECTS, self.total_information)
        return slope + EFFECT_SD * (self.places.T @ by_effect).reshape(CELLS)

    def solved(self, b, tolerance):
        x, residual, direction = numpy.zeros(CELLS), b, b
        square = (b**2).sum()
        enough = tolerance**2 * square
        for _ in range(25):
            if square <= enough:
                break
            product = direction + self.to_noise(self.information * self.cells_of(direction))
            length = square / (direction * product).sum()
            x = x + length * direction
            residual = residual - length * product
            following = (residual**2).sum()
            direction, square = residual + following / square * direction, following
        return x

    def fit(self):
        noise = cells = numpy.zeros(CELLS)
        for _ in range(ROUNDS):
            self.set_shares(cells)
            step = self.solved(self.derivatives(noise, cells) - noise, 0.1)
            before, length, moved = self.value(noise, cells), 1.0, 0.0
            while length > 1e-6:
                following = noise + length * step
                cells_there = self.cells_of(following)
                if self.value(following, cells_there) >= before:
                    moved = numpy.sqrt((self.volumes * (cells_there - cells) ** 2).sum() / self.volumes.sum())
                    noise, cells = following, cells_there
                    break
                length /= 2
            if moved < STILL:
                break
        self.derivatives(noise, cells)
        return noise

    def maps(self, noise):
        matrices = [rows(a, numpy.arange(SHAPE[a])) for a in range(3)]
        random = numpy.random.default_rng(1)
        variance = 0
        for _ in range(DRAWS):
            b = (self.to_noise(numpy.sqrt(self.information) * random.standard_normal(CELLS))
                 + random.standard_normal(CELLS))
            variance += (EFFECT_SD * smoothed(self.solved(b, 0.02), matrices)[self.mask]) ** 2 / DRAWS
        return EFFECT_SD * smoothed(noise, matrices)[self.mask], variance


def timed(work, *arguments):
    start = time.perf_counter()
    result = work(*arguments)
    return time.perf_counter() - start, result


def main(bench, installation):
    mask_file = installation / "share/mask_brain.nii.gz"
    mask = numpy.asarray(nibabel.load(mask_file).dataobj) > 0

    def engine(studies, threads, folder):
        said = subprocess.check_output([bench, str(studies), mask_file, folder], text=True,
                                       env=dict(os.environ, OMP_NUM_THREADS=str(threads)))
        return [float(part) for part in said.split()]

    print(f"Estimates from peaks, {mask.sum()} voxels; {os.getloadavg()[0]:.1f} programs were running")
    with tempfile.TemporaryDirectory() as folder:
        for studies, goal in (21, 3), (1000, 60):
            parts = engine(studies, 2, folder)
            print(f"{studies} studies, two threads: {sum(parts):.2f} s (goal at most {goal}): choice of what is "
                  f"assumed {parts[0]:.2f}, fit {parts[1]:.2f}, maps {parts[2]:.2f}", flush=True)
            _, *parts = engine(studies, 1, folder)
            peaks = numpy.loadtxt(f"{folder}/peaks.txt")
            # NumPy's grid has i first, as its images do.
            fit_seconds, (fit, noise) = timed(lambda: (fit := Fit(peaks, mask), fit.fit()))
            map_seconds, (estimate, _) = timed(fit.maps, noise)
            ours = numpy.zeros(mask.shape)
            ours.T[mask.T] = numpy.fromfile(f"{folder}/estimate.f32", numpy.float32)
            off = numpy.abs(ours[mask] - estimate).max()
            print(f"  fit and maps, one thread: {sum(parts):.2f} s, NumPy {fit_seconds + map_seconds:.2f} s: "
                  f"{(fit_seconds + map_seconds) / sum(parts):.1f} times (goal 10; fit "
                  f"{fit_seconds / parts[0]:.1f}, maps {map_seconds / parts[1]:.1f}); "
                  f"estimates differ by at most {off:.4f}", flush=True)


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve())
