"""Times the engine's mean of the bundled studies beside the same estimate in NumPy.

Usage: engine_bench.py ENGINE_BENCH INSTALLATION
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

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


def main(bench, installation):
    kvo_parse = installation / "bin/linux64/kvo_parse"
    mask_file = installation / "share/mask_gray_matter.nii.gz"
    example = pathlib.Path(__file__).resolve().parent.parent / "example"

    def engine(command, threads):
        run = subprocess.run([kvo_parse, *command.split()], stdout=subprocess.PIPE, text=True,
                             env=dict(os.environ, OMP_NUM_THREADS=str(threads)))
        if run.returncode != 0:
            sys.exit(f"{command}: {run.stdout}")

    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        for file in example.iterdir():
            shutil.copy(file, folder)
        studies = [row.split()[0] for row in open("kvo_table.txt").readlines()[1:] if row.strip()]
        mask = numpy.asarray(nibabel.load(mask_file).dataobj) > 0
        print(f"{len(studies)} studies, {mask.sum()} voxels{'':27} engine        NumPy")

        preprocessing, _ = timed(engine, "pp gray_matter, 0, 20, gray_matter, 1", 2)
        engine_1, _ = timed(engine, "MyMean = mean", 1)
        numpy_1, (g, var, maps) = timed(numpy_mean, studies, mask, 2, folder)
        worst = max(numpy.max(numpy.abs(numpy.asarray(nibabel.load(f"MyMean_{n}.nii.gz").dataobj)[mask] - maps[n])
                              / (1e-6 * numpy.abs(maps[n]) + 1e-9)) for n in NAMES)
        files = [f"pp/{s}_{kind}.nii.gz" for kind in ("g", "var") for s in studies]
        engine_estimate = float(subprocess.check_output([bench, mask_file, *files]))
        numpy_estimate = min(timed(estimate, g, var)[0] for _ in range(10))
        line("the estimate alone, one thread", engine_estimate, numpy_estimate,
             f"goal 10 times; largest difference {worst:.2g} of 1e-6")
        line("mean with 1 randomization, one thread", engine_1, numpy_1,
             "files read and written; NumPy: 2 estimates, no p")

        engine("pp gray_matter, 0, 20, gray_matter, 100", 2)
        engine_100, _ = timed(engine, "MyMean = mean", 1)
        numpy_100, _ = timed(numpy_mean, studies, mask, 101, folder)
        line("mean with 100 randomizations, one thread", engine_100, numpy_100,
             "NumPy: 101 estimates, no peaks moved, no p")

        line("pp, two threads", preprocessing)
        engine("pp gray_matter, 0, 20, gray_matter, 500", 2)
        line("mean with 500 randomizations, two threads", timed(engine, "MyMean = mean", 2)[0],
             note="goal below 180 s")
        os.chdir("/")


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve())
