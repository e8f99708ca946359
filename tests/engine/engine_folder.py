"""An installation of the engine and a working folder, for the tests that compare the engine with SciPy."""

import csv
import os
import pathlib
import shutil
import subprocess
import tempfile
import xml.etree.ElementTree

import nibabel
import numpy

SHAPE = (91, 109, 91)
P_VALUE = 22  # NIfTI's code of the intent
AFFINE = numpy.array([[2.0, 0, 0, -90], [0, 2, 0, -126], [0, 0, 2, -72], [0, 0, 0, 1]])


def load(path):
    return numpy.asarray(nibabel.load(path).dataobj, dtype=numpy.float32)


def save(path, values, affine=AFFINE, no_effect=None, statistic=None, command=None):
    """With `no_effect`, a p map whose header says what p a z of 0 has; with `statistic`, t of so many degrees of
    freedom; with `command`, an image that the engine has made by it."""
    image = nibabel.Nifti1Image(numpy.asarray(values, dtype=numpy.float32), affine)
    image.set_sform(affine, 4)
    if no_effect is not None:
        image.header["intent_code"] = P_VALUE
        image.header["intent_p1"] = no_effect
    if statistic is not None:
        image.header.set_intent("t test", (statistic,))
    if command:
        image.header["descrip"] = f"KVO 4.31 {command}"
    nibabel.save(image, path)


def mm(voxel):
    return tuple(int(c) for c in AFFINE[:3, :3] @ voxel + AFFINE[:3, 3])


class EngineFolder:
    """Removed with all that it holds at the end of a `with` block. Without a share folder it has an empty one."""

    def __init__(self, programs, share=None):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="kvo_test_"))
        folder = self.root / "bin/linux64"
        folder.mkdir(parents=True)
        for program in programs:
            shutil.copy(program, folder)
        self.parse = folder / "kvo_parse"
        self.share = self.root / "share"
        if share:
            self.share.symlink_to(share)
        else:
            self.share.mkdir()
        self.work = self.root / "work"
        self.work.mkdir()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.root)

    def preprocessed(self, maps, null_values=10**6, mask="gray_matter"):
        """Leaves the lists of a folder that has been preprocessed and has these maps."""
        (self.work / "kvo_pp.txt").write_text(
            f"template = gray_matter\nanisotropy = 1\nfwhm = 20\nmask = {mask}\n"
            "randomizations = 50\nseed = 1\nversion = 4.31\n")
        (self.work / "kvo_maps.txt").write_text("".join(f"{m}\n" for m in maps))
        (self.work / "kvo_nd.txt").write_text(
            "name\tvalues\t0.5\n" + "".join(f"{m}\t{null_values}\t0\n" for m in maps))

    def save(self, name, values, **options):
        save(self.work / f"{name}.nii.gz", values, **options)

    def load(self, name):
        return load(self.work / f"{name}.nii.gz")

    def must_run(self, command):
        """The lines that the command says, without their ends and that of the overview, which ends all."""
        done = subprocess.run([self.parse, *command.split()], cwd=self.work, check=False, stdout=subprocess.PIPE,
                              encoding="utf-8", env={**os.environ, "OMP_NUM_THREADS": "1"})
        lines = done.stdout.splitlines()
        assert done.returncode == 0 and lines[-1] == "d", (command, lines)
        return [line for line in lines if not line.lstrip().startswith("Overview: ")]

    def table(self, base):
        return list(csv.DictReader((self.work / f"{base}.csv").read_text(encoding="utf-8").splitlines()))


def plain(markup_line):
    """The text that the console shows for a line; fails when the line is no valid markup."""
    return "".join(xml.etree.ElementTree.fromstring(f"<m>{markup_line}</m>").itertext())
