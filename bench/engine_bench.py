"""Times the engine's mean and linear model beside the same estimates in NumPy, and how the engine grows.

Usage: engine_bench.py ENGINE_BENCH INSTALLATION
The longest runs make KVO_BENCH_RANDOMIZATIONS randomizations, 500 when the environment has no other number.
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

os.environ["OPENBLAS_NUM_THREADS"] = "1"

import nibabel
import numpy

NAMES = ["g", "var", "z", "tau2", "I2", "Q"]


def estimate(g, var):
    """The random-effects mean of DerSimonian and Laird (1986) of studies x voxels."""
    weight = 1 / var
    total = weight.sum(0)
    mean = (weight * g).sum(0) / total
    q = (weight * (g - mean) ** 2).sum(0)
    df = len(g) - 1
    tau2 = numpy.maximum((q - df) / (total - (weight**2).sum(0) / total), 0)
    weight = 1 / (var + tau2)
    total = weight.sum(0)
    pooled = (weight * g).sum(0) / total
    i2 = numpy.maximum(100 * (q - df) / numpy.where(q > 0, q, 1), 0)
    return dict(zip(NAMES, [pooled, 1 / total, pooled * numpy.sqrt(total), tau2, i2, q]))


def linear_model(g, var, design):
    """The meta-regression with tau2 by the method of moments: coefficients, their variances and z, tau2, I2, QE."""
    studies, p = design.shape
    pairs = numpy.einsum("ki,kj->kij", design, design).reshape(studies, p * p).T

    def squares(weight):
        return (pairs @ weight).T.reshape(-1, p, p)

    def products(weight):
        return (design.T @ (weight * g)).T[..., None]

    weight = 1 / var
    information = squares(weight)
    residuals = g - design @ numpy.linalg.solve(information, products(weight))[..., 0].T
    q = (weight * residuals**2).sum(0)
    hat = numpy.linalg.solve(information, squares(weight**2))
    df = studies - p
    tau2 = numpy.maximum((q - df) / (weight.sum(0) - numpy.trace(hat, axis1=1, axis2=2)), 0)
    weight = 1 / (var + tau2)
    covariance = numpy.linalg.inv(squares(weight))
    coefficients = (covariance @ products(weight))[..., 0]
    variances = numpy.diagonal(covariance, axis1=1, axis2=2)
    i2 = numpy.maximum(100 * (q - df) / numpy.where(q > 0, q, 1), 0)
    return coefficients, variances, coefficients / numpy.sqrt(variances), tau2, i2, q


def exchanges(y, column, number):
    """How often z of the column, dealt out to the studies at random, is as large as it is, and the largest anywhere."""
    random = numpy.random.default_rng(1)
    squares, df = (y**2).sum(0), numpy.float32(len(y) - 2)

    def z(rows):
        projections = rows @ y
        return projections / numpy.sqrt(numpy.maximum(1, (squares - projections**2) / df))

    observed, beyond, largest = z(column[None])[0], numpy.zeros(y.shape[1], int), []
    for _ in range(0, number, 20):
        values = z(random.permuted(numpy.tile(column, (20, 1)), axis=1))
        beyond += (values >= observed).sum(0)
        largest.append(values.max(1))
    return beyond, largest


def write_images(studies, mask):
    """Gives the studies images of t statistics in the place of their peaks, about their maps of effects."""
    random = numpy.random.default_rng(1)
    sizes = dict(row.split()[:2] for row in open("kvo_table.txt").readlines()[1:] if row.strip())
    for study in studies:
        g, n1 = nibabel.load(f"pp/{study}_g.nii.gz"), int(sizes[study])
        t = (g.get_fdata() + random.normal(0, 0.3, mask.shape)) * numpy.sqrt(n1) * mask
        image = nibabel.Nifti1Image(t.astype(numpy.float32), g.affine)
        image.set_sform(g.affine, 4)
        image.header.set_intent("t test", (n1 - 1,))
        nibabel.save(image, f"{study}.nii.gz")
        os.remove(f"{study}.peaks.txt")


def in_pieces(work, g, var, *arguments):
    """As much at a time as stays in the processor's cache."""
    piece = 400000 // len(g)
    return [work(g[:, v:v + piece], var[:, v:v + piece], *arguments) for v in range(0, g.shape[1], piece)]


def numpy_mean(studies, mask, estimates, folder):
    """Reads the maps, estimates so many times and writes the results."""
    def read(kind):
        return numpy.array([numpy.asarray(nibabel.load(f"pp/{s}_{kind}.nii.gz").dataobj)[mask] for s in studies],
                           dtype=float)
    g, var = read("g"), read("var")
    for _ in range(estimates):
        maps = estimate(g, var)
    affine = nibabel.load(f"pp/{studies[0]}_g.nii.gz").affine
    for name, values in maps.items():
        image = numpy.zeros(mask.shape, numpy.float32)
        image[mask] = values
        nibabel.save(nibabel.Nifti1Image(image, affine), f"{folder}/{name}.nii.gz")
    return g, var, maps


def timed(work, *arguments):
    start = time.perf_counter()
    result = work(*arguments)
    return time.perf_counter() - start, result


def line(what, engine, other=None, note=""):
    ratio = f"{other:9.3f} s  {other / engine:6.1f} times" if other is not None else " " * 26
    print(f"{what:52} {engine:9.4f} s {ratio}  {note}", flush=True)


def write_copies(example, count):
    """Makes the current folder a meta-analysis of so many studies, copies of the bundled ones by other names."""
    shutil.rmtree("pp", ignore_errors=True)
    rows = [row.split() for row in (example / "kvo_table.txt").read_text().splitlines()[1:] if row.strip()]
    table = ["study n1"]
    for copy in range(count):
        study, n1 = rows[copy % len(rows)]
        table.append(f"{study}_{copy} {n1}")
        shutil.copy(example / f"{study}.peaks.txt", f"{study}_{copy}.peaks.txt")
    pathlib.Path("kvo_table.txt").write_text("\n".join(table) + "\n")


def growth(example, engine):
    """Whether time grows as the number of studies does, and how much memory most of them take."""
    counts = 20, 200, 3000
    commands = {"pp": "pp gray_matter, 1, 20, gray_matter, 1", "mean": "MyMean = mean"}
    seconds, memory = {}, {}
    for count in counts:
        write_copies(example, count)
        for name, command in commands.items():
            seconds[name, count], memory[name, count] = engine(command, 2)
    for name in commands:
        for count in counts:
            per_study = seconds[name, count] / count / (seconds[name, counts[0]] / counts[0])
            note = f"{per_study:.2f} times as long a study as {counts[0]} (goal at most 1.2)"
            if count == counts[-1]:
                # A program's count begins with that of the one that has started it.
                note += f"; at most {memory[name, count] / 1024:.0f} MiB (goal below 2048)"
            line(f"{name} of {count} studies, anisotropy 1, two threads", seconds[name, count], note=note)


def main(bench, installation):
    randomizations = int(os.environ.get("KVO_BENCH_RANDOMIZATIONS", 500))
    kvo_parse = installation / "bin/linux64/kvo_parse"
    mask_file = installation / "share/mask_gray_matter.nii.gz"
    example = pathlib.Path(__file__).resolve().parent.parent / "example"

    def engine(command, threads):
        """Runs a command; returns its seconds and the KiB of memory that its programs took at most."""
        start = time.perf_counter()
        run = subprocess.Popen([kvo_parse, *command.split()], stdout=subprocess.PIPE, text=True,
                               env=dict(os.environ, OMP_NUM_THREADS=str(threads)))
        said = run.stdout.read()
        _, status, usage = os.wait4(run.pid, 0)
        run.returncode = status
        if status != 0:
            sys.exit(f"{command}: {said}")
        return time.perf_counter() - start, usage.ru_maxrss

    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        for file in example.iterdir():
            shutil.copy(file, folder)
        studies = [row.split()[0] for row in open("kvo_table.txt").readlines()[1:] if row.strip()]
        mask = numpy.asarray(nibabel.load(mask_file).dataobj) > 0
        print(f"{len(studies)} studies, {mask.sum()} voxels{'':27} engine        NumPy")

        preprocessing, _ = timed(engine, "pp gray_matter, 0, 20, gray_matter, 1", 2)
        write_images(studies, mask)
        engine("pp gray_matter, 0, 20, gray_matter, 1", 2)
        engine_1, _ = timed(engine, "MyMean = mean", 1)
        numpy_1, (g, var, maps) = timed(numpy_mean, studies, mask, 2, folder)
        worst = max(numpy.max(numpy.abs(numpy.asarray(nibabel.load(f"MyMean_{n}.nii.gz").dataobj)[mask] - maps[n])
                              / (1e-6 * numpy.abs(maps[n]) + 1e-9)) for n in NAMES)
        files = [f"pp/{s}_{kind}.nii.gz" for kind in ("g", "var") for s in studies]
        def engine_seconds(count, terms):
            return float(subprocess.check_output([bench, str(count), str(terms), mask_file, *files]))

        engine_estimate = engine_seconds(len(studies), 0)
        numpy_estimate = min(timed(estimate, g, var)[0] for _ in range(10))
        line("the estimate alone, one thread", engine_estimate, numpy_estimate,
             f"goal 10 times; largest difference {worst:.2g} of 1e-6")
        for count in len(studies), 200:
            many_g, many_var = (numpy.resize(maps_of_studies, (count, mask.sum())) for maps_of_studies in (g, var))
            design = numpy.stack([numpy.cos(t * numpy.arange(1, count + 1)) for t in (0, 1, 2)], 1)
            if count > len(studies):
                line(f"the mean of {count} studies, one thread", engine_seconds(count, 0),
                     min(timed(in_pieces, estimate, many_g, many_var)[0] for _ in range(3)), "goal 10 times")
            line(f"lm with 2 terms of {count} studies, one thread", engine_seconds(count, 2),
                 min(timed(in_pieces, linear_model, many_g, many_var, design)[0] for _ in range(3)), "goal 10 times")
        y = (g / numpy.sqrt(var)).astype(numpy.float32)
        column = numpy.random.default_rng(2).standard_normal(len(y)).astype(numpy.float32)
        some, all_of_them = 200, 10000
        numpy_exchanges = timed(exchanges, y, column / numpy.linalg.norm(column), some)[0] * all_of_them / some
        line("mean of images, 10 000 signs, one thread", engine_1, numpy_1 + numpy_exchanges,
             "files read and written; goal 5 times; NumPy: without clusters and TFCE")
        engine_model, _ = timed(engine, "MyModel = lm n1", 1)
        line("lm of images, 2 x 10 000 exchanges, one thread", engine_model, numpy_1 + 2 * numpy_exchanges,
             "likewise")

        for study in studies:
            os.remove(f"{study}.nii.gz")
            shutil.copy(example / f"{study}.peaks.txt", folder)
        line("pp, anisotropy 0, two threads", preprocessing)
        for anisotropy in 0, 1:
            seconds, _ = engine(f"pp gray_matter, {anisotropy}, 20, gray_matter, {randomizations}", 2)
            if anisotropy > 0:
                line(f"pp, anisotropy {anisotropy}, two threads", seconds, note="goal below 5 s")
            seconds, _ = engine("MyMean = mean", 2)
            line(f"mean, {randomizations} randomizations, anisotropy {anisotropy}, two threads", seconds,
                 note="goal below 20 s" if randomizations == 500 else "")
        growth(example, engine)
        os.chdir("/")


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve())
