"""Studies that are images: their effects beside SciPy's interpolation of what nibabel reads, and
what is said of images that are unclear or refused.

Usage: study_image_test.py KVO_PARSE KVO_CORE
"""

import gzip
import os
import sys
import unittest

import nibabel
import numpy
from scipy.ndimage import gaussian_filter, map_coordinates
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
    a, b = numpy.radians(degrees), numpy.radians(degrees / 2)
    about_z = numpy.array([[numpy.cos(a), -numpy.sin(a), 0], [numpy.sin(a), numpy.cos(a), 0], [0, 0, 1]])
    about_x = numpy.array([[1, 0, 0], [0, numpy.cos(b), -numpy.sin(b)], [0, numpy.sin(b), numpy.cos(b)]])
    matrix = numpy.eye(4)
    matrix[:3, :3] = about_z @ about_x * size
    matrix[:3, 3] = matrix[:3, :3] @ [-25, -26, -24] + [3, -6, 4]
    return matrix


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

    def test_left_stays_left(self):
        values = numpy.full(SHAPE, 0.5, "f4")
        values[30:34, 24:28, 18:22] = 9  # of an image from right to left, on the left
        write("A.nii.gz", values, LAS3)
        self.assertEqual(self.said(PP), [])
        g = nibabel.load("pp/A_g.nii.gz").get_fdata()
        x = GRID @ [*numpy.unravel_index(g.argmax(), g.shape), 1]
        self.assertLess(x[0], -20)

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

    def test_refuses_by_name(self):
        def field(**fields):
            def edit(header):
                for name, value in fields.items():
                    header[name] = value
            return lambda: write("A.nii.gz", noise(), edit=edit)

        def with_value(value):
            values = noise()
            values[25, 26, 20] = value
            return lambda: write("A.nii.gz", values)

        def cut(share):
            write("A.nii.gz", noise())
            os.truncate("A.nii.gz", int(os.path.getsize("A.nii.gz") * share))

        def sized(*dims):
            """A header that promises other sizes than there are values."""
            def change():
                write("A.nii", noise((4, 4, 4)))
                with open("A.nii", "rb") as file:
                    data = bytearray(file.read())
                data[40:56] = numpy.array([3, *dims, 1, 1, 1, 1], "<i2").tobytes()
                os.remove("A.nii")
                with gzip.open("A.nii.gz", "wb") as file:
                    file.write(data)
            return change

        def bomb():
            sized(2000, 2000, 500)()
            with gzip.open("A.nii.gz", "rb") as file:
                header = file.read(352)
            zeros = gzip.compress(bytes(1 << 25), 1)
            with open("A.nii.gz", "wb") as file:
                file.write(gzip.compress(header) + 34 * zeros)

        nan = float("nan")
        cases = [
            (field(intent_code=0), "'A.nii.gz' holds no t statistics: its header does not say what its values "
             "are (NIfTI intent 0). Please convert it with 'Convert images' of the menu, or with 'imgcalc "
             "A.nii.gz -set_t 24'."),
            (field(intent_code=5), "'A.nii.gz' holds no t statistics: its values are z scores (NIfTI intent 5). "
             "Please convert it with 'Convert images' of the menu, or with 'imgcalc A.nii.gz -z2t 24 A.nii.gz'."),
            (field(intent_code=24), "'A.nii.gz' holds no t statistics: its values are -log10 p values"),
            (field(intent_code=1001), "'A.nii.gz' holds no t statistics: its values are something else"),
            (lambda: write("A.nii.gz", noise((9, 8, 7, 2))), "'A.nii.gz': holds more than one volume."),
            (lambda: write("A.nii.gz", noise((9, 8))), "'A.nii.gz': is not a volume: it has 2 dimensions."),
            (lambda: write("A.nii.gz", noise(), code=0, edit=lambda h: h["pixdim"].__setitem__(2, nan)),
             "'A.nii.gz': the header does not place the voxels in space: it has neither qform nor sform"),
            (lambda: write("A.nii.gz", noise(), code=0, edit=lambda h: h["pixdim"].__setitem__(slice(1, 4), 2)),
             "'A.nii.gz': the header does not place the voxels in space: it has neither qform nor sform, and "
             f"{' x '.join(map(str, SHAPE))} voxels of 2 mm are no standard grid of MNI space. Please have the "
             "program that made the image write its place into the header."),
            (field(srow_y=[nan] * 4), "'A.nii.gz': the header does not place the voxels in space."),
            (field(srow_x=[0, 2, 0, -60]), "'A.nii.gz': the header does not place the voxels in space."),
            (with_value(numpy.inf), "'A.nii.gz' has the value inf at -10 -8 4 mm, which cannot be a t value."),
            (with_value(-1e38), "'A.nii.gz' has the value -1e+38 at -10 -8 4 mm, which cannot be a t value."),
            (lambda: write("A.nii.gz", numpy.full(SHAPE, nan, "f4")),
             "'A.nii.gz' is empty: each value is 0 or no number."),
            (lambda: write("A.nii.gz", numpy.zeros(SHAPE, "i2")), "'A.nii.gz' is empty"),
            (lambda: write("A.nii.gz", noise(), RAS2 + affine([[0] * 3] * 3, [500, 0, 0]) - numpy.eye(4)),
             "'A.nii.gz' has no data in the mask."),
            (lambda: cut(0.5), "'A.nii.gz': ends early, or its compressed data are damaged."),
            (lambda: cut(0), "'A.nii.gz': is not a NIfTI-1 image."),
            (sized(0, 4, 4), "NIfTI file 'A.nii.gz' has a wrong size (0 along dimension 1)."),
            (sized(-4, 4, 4), "NIfTI file 'A.nii.gz' has a wrong size (-4 along dimension 1)."),
            (sized(32767, 32767, 32767), "NIfTI file 'A.nii.gz' has a wrong size (too many voxels)."),
            (sized(1000, 1000, 2000), "'A.nii.gz': ends early, or its compressed data are damaged."),
            (bomb, "'A.nii.gz': is too large."),
            (lambda: os.symlink("/", "A.nii.gz"), "'A.nii.gz' is not a regular file."),
            (lambda: os.symlink("/dev/zero", "A.nii.gz"), "'A.nii.gz' is not a regular file."),
            (lambda: os.mkfifo("A.nii.gz"), "'A.nii.gz' is not a regular file."),
            (lambda: os.symlink("nowhere", "A.nii.gz"), "Study 'A' has no peaks file 'A.peaks.txt' and no image"),
            (lambda: (write("A.nii.gz", noise()), open("A.peaks.txt", "w").close()),
             "Study 'A' has both a peaks file 'A.peaks.txt' and an image 'A.nii.gz'."),
        ]
        for spoil, reason in cases:
            with self.subTest(reason):
                if os.path.lexists("A.nii.gz"):
                    os.remove("A.nii.gz")
                spoil()
                before = self.folder.snapshot()
                lines = self.folder.run(PP)
                self.assertEqual(len(lines), 1, lines)
                self.assertTrue(lines[0].startswith("WARNING: " + reason), lines)
                self.assertEqual(self.folder.snapshot(), before)

    def test_a_mean_needs_the_images_that_were_preprocessed(self):
        self.table("A 12 14", "B 20 NA")
        with open("B.peaks.txt", "w") as file:
            file.write("# space: MNI\n0 -10 10 4\n")
        write("A.nii.gz", noise())
        self.said(PP)
        lines = self.folder.run("M = mean")
        self.assertEqual(lines[-1], "d")
        self.assertIn("aMeasuring the smoothness of 1 image", lines)
        self.assertIn("aMoving the peaks to random places and shuffling the images (20 times)", lines)
        write("A.nii.gz", noise(seed=2))
        changed = " since preprocessing. Please run preprocessing again."
        self.assertEqual(self.folder.run("M = mean"), ["WARNING: 'A.nii.gz' has changed" + changed])
        os.remove("A.nii.gz")
        os.rename("B.peaks.txt", "A.peaks.txt")
        self.assertEqual(self.folder.run("M = mean"), ["WARNING: 'A.peaks.txt' has been added" + changed])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
