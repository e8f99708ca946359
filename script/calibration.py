"""Simulates meta-analyses and compares what the engine says of them with what was simulated.

Usage: calibration.py INSTALLATION

Without true effects: the share of voxels whose p is below a level should be that level, and the
share of meta-analyses with a corrected p of at most 0.05 anywhere should be 0.05. With true effects:
bias of g, coverage of its 95 % interval, power. Ends with status 1 when a share under no effect is
off: by more than 10 %, or a family-wise error outside of 0.03 to 0.07.
"""

import concurrent.futures
import functools
import os
import pathlib
import subprocess
import sys
import tempfile

import nibabel
import numpy
from scipy import ndimage, special, stats

LEVELS = [0.05, 0.005, 0.001]
FWHM = 10
SIGMA_PER_FWHM = 1 / numpy.sqrt(8 * numpy.log(2))


class Simulation:
    """A working folder with simulated studies in the voxels of a mask."""

    def __init__(self, folder, setting, seed):
        self.folder, self.setting = pathlib.Path(folder), setting
        self.random = numpy.random.default_rng(seed)
        self.inside = setting.mask
        nibabel.save(nibabel.Nifti1Image(self.inside.astype(numpy.uint8), setting.affine),
                     self.folder / "mask_simulated.nii.gz")
        self.rows = []

    def add_study(self, kind, effect=None, tau2=0.0):
        """A study of kind "peaks" or "image"; `effect` is the true g of every voxel, or None."""
        name = f"study{len(self.rows)}"
        two_samples = self.random.random() < 0.5
        n1, n2 = self.random.integers(12, 40, 2)
        self.rows.append(f"{name}\t{n1}\t{n2 if two_samples else 'NA'}")
        if effect is None and kind == "peaks":
            self.write_peaks(name, *self.random_peaks())
            return
        df = n1 + n2 - 2 if two_samples else n1 - 1
        scale = numpy.sqrt(1 / n1 + 1 / n2) if two_samples else numpy.sqrt(1 / n1)
        t = self.t_image(df, scale, effect, tau2)
        if kind == "image":
            self.write_image(name, t, df)
        else:
            self.write_peaks(name, *self.peaks_of(t, stats.t.isf(0.001, df)))

    def random_peaks(self):
        count = self.random.integers(3, 15)
        voxels = numpy.argwhere(self.inside)[self.random.integers(0, self.inside.sum(), count)]
        return voxels, (3.2 + self.random.exponential(0.8, count)) * self.random.choice([-1, 1], count)

    def t_image(self, df, scale, effect, tau2):
        """Smooth noise with the t distribution about the study's own true effect."""
        box = self.setting.box
        noise = ndimage.gaussian_filter(self.random.standard_normal(self.inside[box].shape),
                                        FWHM / 2 * SIGMA_PER_FWHM, mode="wrap")
        noise = noise[self.inside[box]]
        z = noise / noise.std()
        # Exact in both tails: the t of the same tail probability.
        t = numpy.zeros(self.inside.shape)
        t[self.inside] = numpy.sign(z) * special.stdtrit(df, special.ndtr(-numpy.abs(z))) * -1
        if effect is not None:
            t += (effect + (effect > 0) * self.random.normal(0, numpy.sqrt(tau2))) / scale
        return t * self.inside

    def peaks_of(self, t, threshold):
        highest = numpy.zeros(t.shape, bool)
        box = self.setting.box
        highest[box] = (t[box] == ndimage.maximum_filter(t[box], 5)) & (t[box] > threshold)
        return numpy.argwhere(highest), t[highest]

    def write_peaks(self, name, voxels, heights):
        mm = voxels @ self.setting.affine[:3, :3].T + self.setting.affine[:3, 3]
        lines = [f"{x:g} {y:g} {z:g} {t:.4f}" for (x, y, z), t in zip(mm, heights)]
        (self.folder / f"{name}.peaks.txt").write_text("\n".join(["# space: MNI", *lines]) + "\n")

    def write_image(self, name, t, df):
        image = nibabel.Nifti1Image(t.astype(numpy.float32), self.setting.affine)
        image.set_sform(self.setting.affine, 4)
        image.set_qform(self.setting.affine, 4)
        image.header.set_intent("t test", (df,))
        nibabel.save(image, self.folder / f"{name}.nii.gz")

    def run(self, kvo_parse, anisotropy, randomizations):
        (self.folder / "kvo_table.txt").write_text("\n".join(["study\tn1\tn2", *self.rows]) + "\n")
        for command in (f"pp gray_matter, {anisotropy}, {FWHM}, simulated, {randomizations}", "M = mean"):
            run = subprocess.run([kvo_parse, *command.split()], cwd=self.folder, stdout=subprocess.PIPE, text=True,
                                 env=dict(os.environ, OMP_NUM_THREADS="1"))
            if run.returncode != 0:
                sys.exit(f"{command}: {run.stdout}")

    def map(self, kind):
        return numpy.asarray(nibabel.load(self.folder / f"M_{kind}.nii.gz").dataobj)[self.inside]


class Setting:
    """What all simulations share: the installation and the voxels looked at."""

    def __init__(self, installation):
        gray = nibabel.load(installation / "share/mask_gray_matter.nii.gz")
        self.kvo_parse, self.affine = installation / "bin/linux64/kvo_parse", gray.affine
        self.mask = numpy.asarray(gray.dataobj) > 0
        # A part of the brain is enough, and quicker.
        self.mask[:, :, :22] = self.mask[:, :, 50:] = False
        self.box = ndimage.find_objects(self.mask.astype(int))[0]


def without_effect(setting, seed, kinds, anisotropy, randomizations):
    """The shares of voxels below each level in either direction, and whether either is corrected."""
    with tempfile.TemporaryDirectory() as folder:
        simulation = Simulation(folder, setting, seed)
        for kind in kinds:
            simulation.add_study(kind)
        simulation.run(setting.kvo_parse, anisotropy, randomizations)
        tails = [simulation.map("p"), simulation.map("n_p")]
        corrected = [simulation.map("pFWE").min() <= 0.05, simulation.map("n_pFWE").min() <= 0.05]
        return [[(p < level).mean() for level in LEVELS] for p in tails], corrected


def with_effect(setting, seed, kind, studies, tau2):
    """Bias, coverage and power where the true g is 0.5."""
    with tempfile.TemporaryDirectory() as folder:
        simulation = Simulation(folder, setting, seed)
        offset = 2 * (numpy.indices(setting.mask.shape) - setting.centre[:, None, None, None])
        effect = 0.5 * ((offset**2).sum(0) <= 12**2)
        for _ in range(studies):
            simulation.add_study(kind, effect, tau2)
        simulation.run(setting.kvo_parse, 0, 20)
        true = (effect > 0)[setting.mask]
        g, se = simulation.map("g")[true], numpy.sqrt(simulation.map("var")[true])
        return [g.mean() - 0.5, (numpy.abs(g - 0.5) <= 1.96 * se).mean(), (simulation.map("p")[true] < 0.005).mean(),
                (simulation.map("pFWE")[true] <= 0.05).any()]


def simulated(work, setting, seeds, *arguments):
    """Runs two simulations at a time, each with one thread."""
    # Processes, since SciPy's quantiles of t must not be computed by two threads at once.
    with concurrent.futures.ProcessPoolExecutor(2) as pool:
        return list(pool.map(functools.partial(simulate, work, setting, arguments), seeds))


def simulate(work, setting, arguments, seed):
    return work(setting, seed, *arguments)


def check_without_effect(setting, name, count, *arguments):
    """Prints a line of the table. Returns what is off."""
    results = simulated(without_effect, setting, range(count), *arguments)
    # Either direction is a test of its own; those of one simulation are counted as one in the error.
    shares = numpy.array([r[0] for r in results]).mean(1)
    rates, errors = shares.mean(0), shares.std(0, ddof=1) / numpy.sqrt(count)
    family = numpy.array([r[1] for r in results]).mean(1)
    family_rate, family_error = family.mean(), numpy.sqrt(0.05 * 0.95 / count)
    print(f"{name:34}", *[f"{r:.5f} ±{e:.5f}" for r, e in zip(rates, errors)],
          f"{family_rate:.3f} ±{family_error:.3f}", flush=True)
    off = [f"{name}: {rate:.5f} of the voxels have p < {level}" for rate, level in zip(rates, LEVELS)
           if abs(rate - level) > 0.1 * level]
    if not 0.03 <= family_rate <= 0.07:
        off.append(f"{name}: family-wise error {family_rate:.3f}")
    return off


def table_without_effect(setting, count, studies):
    """Prints the table of meta-analyses of no effect. Returns what is off."""
    peaks, image = ["peaks"] * studies, ["image"] * studies
    print(f"No effect: {count} meta-analyses of {studies} studies, {setting.mask.sum()} voxels, 20 randomizations")
    print(f"{'':34} {'p < 0.05':17} {'p < 0.005':17} {'p < 0.001':17} pFWE <= 0.05")
    off = []
    for name, kinds, anisotropy in [("half peaks, half images", peaks[::2] + image[::2], 0),
                                    ("peaks, anisotropy 0", peaks, 0), ("peaks, anisotropy 1", peaks, 1),
                                    ("images", image, 0)]:
        off += check_without_effect(setting, name, count, kinds, anisotropy, 20)
    return off


def table_with_effect(setting, count, cases):
    """Prints the table of true effects. Returns what is off: images of equal studies, without heterogeneity to be
    estimated, must be close to the truth."""
    print(f"\nTrue g of 0.5 within 12 mm, {count} meta-analyses each")
    print(f"{'':34} {'bias of g':>10} {'coverage':>10} {'p < 0.005':>10} {'pFWE<=.05':>10}")
    off = []
    for kind, studies, tau2 in cases:
        bias, coverage, *power = numpy.mean(simulated(with_effect, setting, range(count), kind, studies, tau2), 0)
        name = f"{kind}, {studies} studies, tau2 {tau2}"
        print(f"{name:34} {bias:10.3f} {coverage:10.3f}", *[f"{share:10.3f}" for share in power], flush=True)
        if kind == "image" and tau2 == 0 and (abs(bias) > 0.1 or coverage < 0.85):
            off.append(f"{name}: bias {bias:.3f}, coverage {coverage:.3f}")
    return off


def main(installation):
    setting = Setting(installation)
    voxels = numpy.argwhere(setting.mask)
    setting.centre = voxels[numpy.argmin(((voxels - voxels.mean(0)) ** 2).sum(1))]
    off = table_without_effect(setting, 200, 12)
    cases = [(kind, studies, tau2) for kind in ("image", "peaks") for studies in (5, 20) for tau2 in (0, 0.1)]
    off += table_with_effect(setting, 50, cases)
    if off:
        sys.exit("\n".join(["", *off]))


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]).resolve())
