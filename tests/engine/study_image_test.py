"""Studies that are images: their effects beside SciPy's interpolation, and what is said of unclear ones.

Usage: study_image_test.py KVO_PARSE KVO_CORE
"""

import os
import sys
import unittest

import nibabel
import numpy
from scipy.ndimage import gaussian_filter, map_coordinates
from scipy.spatial.transform import Rotation
from scipy.special import gammaln

from engine_folder import AFFINE as GRID, EngineFolder, save

PROGRAMS = [os.path.abspath(path) for path in sys.argv[1:3]]
# From MNI to Talairach space: Lancaster et al. 2007, all programs pooled.
LANCASTER = numpy.array([[0.9357, 0.0029, -0.0072, -1.0423], [-0.0065, 0.9396, -0.0726, -1.3940],
                         [0.0103, 0.0752, 0.8967, 3.6475], [0, 0, 0, 1]])
PP = "pp gray_matter, 0, 20, gray_matter, 20"
BOX = [slice(30, 62), slice(50, 70), slice(30, 46)]  # the mask: a box across the midline


def affine(columns, origin):
    matrix = numpy.eye(4)
    matrix[:3, :3] = numpy.array(columns).T
    matrix[:3, 3] = origin
    return matrix


def rotated(degrees, size):
    axes = size * Rotation.from_euler("ZX", [degrees, degrees / 2], degrees=True).as_matrix()
    return affine(axes.T, axes @ [-25, -26, -24] + [3, -6, 4])


LAS3 = affine([[-3, 0, 0], [0, 3, 0], [0, 0, 3]], [66.5, -71, -40])
RAS2 = affine([[2, 0, 0], [0, 2, 0], [0, 0, 2]], [-60, -60, -36])
# On the mask's own grid, so that no data in voxels is no data in the result.
SHAPE = (50, 52, 46)


def noise(shape=SHAPE, seed=1):
    values = gaussian_filter(numpy.random.default_rng(seed).standard_normal(shape), 1.5)
    return (3 * values / values.std()).astype("f4")


def spotted(value):
    """Noise with a border and every fifth block of three voxels replaced."""
    values = noise()
    blocks = numpy.add.outer(numpy.add.outer(*[numpy.arange(n) // 3 for n in SHAPE[:2]]),
                             numpy.arange(SHAPE[2]) // 3)
    values[blocks % 5 == 0] = value
    values[:8] = value
    return values


def write(path, values, sform=RAS2, code=4, qform=None, qcode=0, intent=3, df=0, edit=None):
    image = nibabel.Nifti1Image(values, None)
    image.header["intent_code"], image.header["intent_p1"] = intent, df
    image.header.set_sform(sform, code)
    image.header.set_qform(qform, qcode)
    if edit:
        edit(image.header)
    image.to_filename(path)


class StudyImage(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(EngineFolder(PROGRAMS))
        self.addCleanup(os.chdir, os.getcwd())
        mask = numpy.zeros((91, 109, 91), "u1")
        mask[tuple(BOX)] = 1
        save(self.folder.share / "mask_gray_matter.nii.gz", mask)
        os.chdir(self.folder.work)
        self.table("A 12 14")

    def table(self, *rows):
        with open("kvo_table.txt", "w") as file:
            file.write("study n1 n2\n" + "\n".join(rows) + "\n")

    def said(self, command):
        """What a command that goes well tells the user."""
        lines = self.folder.must_run(command)
        return [line.strip() for line in lines if line.startswith("  ")]

    def in_mask(self, path):
        return nibabel.load(path).get_fdata()[tuple(BOX)]

    def test_effects_are_those_of_scipy(self):
        one_mm = affine([[0, 0, 1], [0, -1, 0], [1, 0, 0]], [-34, 27, -30])  # PIR-like order of axes
        cases = {
            "the mask's grid": dict(values=noise(), sform=RAS2),
            "half a voxel off": dict(values=noise(), sform=RAS2 + affine([[0] * 3] * 3, [1, -1, 1]) - numpy.eye(4)),
            "3 mm, right to left": dict(values=noise(), sform=LAS3),
            "1 mm, other axes": dict(values=noise((60, 50, 70)), sform=one_mm),
            "rotated": dict(values=noise(), sform=rotated(25, 2.5)),
            "by the qform": dict(values=noise(), sform=None, code=0, qform=rotated(-40, 2.2), qcode=4),
            "integers with a slope": dict(values=(100 * noise()).astype("i2"), sform=LAS3,
                                          edit=lambda header: header.set_slope_inter(0.013, 0)),
            "micrometres": dict(values=noise(), sform=numpy.diag([1e3, 1e3, 1e3, 1]) @ LAS3,
                                edit=lambda header: header.set_xyzt_units("micron")),
            "Talairach": dict(values=noise(), sform=LAS3, code=3),
            "0 beyond the data": dict(values=spotted(0), sform=rotated(10, 2.7)),
            "NaN beyond the data": dict(values=spotted(numpy.nan), sform=LAS3),
            "no data in voxels of the mask": dict(values=spotted(0), sform=RAS2),
            "no data half a voxel off": dict(values=spotted(0), sform=RAS2 + affine([[0] * 3] * 3, [1, 0, 0]) - numpy.eye(4)),
            "a part of the mask": dict(values=noise((24, 52, 46)), sform=RAS2),
        }
        voxels = numpy.stack(numpy.meshgrid(*[range(s.start, s.stop) for s in BOX], indexing="ij"))
        mm = GRID @ numpy.concatenate([voxels.reshape(3, -1), numpy.ones((1, voxels[0].size))])
        for name, case in cases.items():
            with self.subTest(name):
                write("A.nii.gz", **case)
                said = self.said(PP)
                image = nibabel.load("A.nii.gz")
                values = numpy.nan_to_num(image.get_fdata())
                # nibabel gives the affine in the header's unit of length.
                unit = numpy.diag([1e3, 1e3, 1e3, 1] if name == "micrometres" else [1] * 4)
                place = numpy.linalg.inv(image.affine) @ unit @ (LANCASTER @ mm if case.get("code") == 3 else mm)
                at = lambda volume: map_coordinates(volume, place[:3], order=1, mode="grid-constant", cval=0)
                weight = at((values != 0).astype(float))
                has_data = weight > 0.5 - 1e-6
                t = numpy.where(has_data, at(values) / numpy.maximum(weight, 0.1), 0)
                j = numpy.exp(gammaln(24 / 2) - gammaln(23 / 2)) / numpy.sqrt(24 / 2)
                g = (t * numpy.sqrt(1 / 12 + 1 / 14) * j).reshape(voxels[0].shape)
                self.assertGreater(numpy.std(g), 0.2)
                numpy.testing.assert_allclose(self.in_mask("pp/A_g.nii.gz"), g, rtol=2e-6, atol=2e-6)
                numpy.testing.assert_allclose(self.in_mask("pp/A_var.nii.gz"),
                                              1 / 12 + 1 / 14 + g**2 / (2 * 26), rtol=2e-6)
                missing = int((~has_data).sum())
                self.assertEqual(said, [f"A: no data in {missing} of {has_data.size} voxels of the mask"]
                                 if missing else [])

    def test_says_what_is_unclear(self):
        mirrored = RAS2 @ affine([[-1, 0, 0], [0, 1, 0], [0, 0, 1]], [SHAPE[0] - 1, 0, 0])
        moved = affine([[1, 0, 0], [0, 1, 0], [0, 0, 1]], [0, 6, 0]) @ RAS2
        cases = [
            (dict(qform=RAS2, qcode=4, df=24), None),
            (dict(qform=moved, qcode=1), None),
            (dict(qform=mirrored, qcode=1),
             "sform and qform of its header disagree about left and right; the sform is followed"),
            (dict(qform=moved, qcode=4),
             "sform and qform of its header place it up to 6 mm apart; the sform is followed"),
            (dict(code=2), "its header does not name its space (code 2); it is taken to be in MNI space"),
            (dict(sform=None, code=0, qform=RAS2, qcode=1),
             "its header does not name its space (code 1); it is taken to be in MNI space"),
            (dict(values=noise((53, 63, 46)), sform=None, code=0,
                  edit=lambda h: h["pixdim"].__setitem__(slice(1, 4), 3)),
             "its header does not place it in space; its voxels are those of a standard grid of MNI "
             "space, and are taken to be stored from left to right. Please check the result"),
            (dict(df=19), "its header has 19 degrees of freedom, but the table has 24; the table is followed"),
        ]
        for case, doubt in cases:
            with self.subTest(str(doubt)):
                write("A.nii.gz", **{"values": noise(), **case})
                said = [line for line in self.said(PP) if "no data" not in line]
                self.assertEqual(said, [f"A.nii.gz: {doubt}"] if doubt else [])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
