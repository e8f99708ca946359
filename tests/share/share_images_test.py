"""The images of the share folder, read with nibabel and compared with the packaged images they come
from and with general anatomy.

Usage: share_images_test.py SHARE_FOLDER PACKAGED_FOLDER KVO_MAKE_SHARE
"""

import filecmp
import os
import subprocess
import sys
import tempfile
import unittest

import nibabel
import numpy
from scipy import ndimage

SHARE, PACKAGED, MAKE_SHARE = sys.argv[1:4]

AFFINE = [[2, 0, 0, -90], [0, 2, 0, -126], [0, 0, 2, -72], [0, 0, 0, 1]]

# The number of 2 mm voxels that is plausible for an adult's brain in MNI space.
MASKS = {
    "mask_brain": (215_000, 245_000),
    "mask_intracranial": (240_000, 280_000),
    "mask_gray_matter": (110_000, 145_000),
    "mask_white_matter": (85_000, 115_000),
    "mask_cerebrospinal_fluid": (30_000, 50_000),
    "mask_tbss": (25_000, 50_000),
}
OTHERS = [
    "kvo_template",
    "atlas_aal_frw",
    "cor_gray_matter",
    "cor_white_matter",
    "cor_cerebrospinal_fluid",
    "cor_fractional_anisotropy",
]
WHITE_MATTER = {117, *range(120, 126), 127, *range(129, 135), 139, *range(164, 170)}

# Region at an MNI coordinate, from general anatomy.
REGIONS = [
    ((-36, -16, 62), 1, "left precentral gyrus"),
    ((-38, -22, 56), (1, 57), "left hand area, on the border of pre- and postcentral gyrus"),
    ((38, -14, 60), 2, "right precentral gyrus"),
    ((-44, -28, 56), 57, "left postcentral gyrus"),
    ((38, 6, 2), 30, "right insula"),
    ((-38, 6, 2), 29, "left insula"),
    ((6, 6, 60), 20, "right supplementary motor area"),
    ((-4, 18, 36), (31, 33), "left cingulate gyrus, anterior or middle"),
    ((10, -18, 8), 78, "right thalamus"),
    ((-10, -18, 8), 77, "left thalamus"),
    ((26, 4, 0), 74, "right putamen"),
    ((-12, 12, 10), 71, "left caudate nucleus"),
    ((-24, -4, -18), 41, "left amygdala"),
    ((30, -22, -14), 38, "right hippocampus"),
    ((58, -24, 22), 64, "right supramarginal gyrus, parietal operculum"),
    ((-44, -20, 8), 79, "left Heschl's gyrus"),
    ((10, -84, 6), 44, "right calcarine cortex"),
    ((-50, 16, 14), 11, "left inferior frontal gyrus, opercular part"),
    ((40, -54, -20), 56, "right fusiform gyrus"),
    ((-30, -66, -30), (91, 99), "left cerebellum, crus I or lobule VI"),
    ((2, -56, -34), 115, "vermis, lobule IX"),
    ((2, 26, 4), 132, "genu of the corpus callosum"),
    ((-24, -20, 36), 133, "left corticospinal projections, corona radiata"),
    ((26, -22, 36), 134, "right corticospinal projections, corona radiata"),
]

# Which tissue masks hold a coordinate.
TISSUES = [
    ((0, 0, 0), dict(brain=1, intracranial=1)),
    ((26, -20, 34), dict(brain=1, gray_matter=0, white_matter=1, cerebrospinal_fluid=0)),
    ((-26, 20, 24), dict(brain=1, gray_matter=0, white_matter=1, cerebrospinal_fluid=0)),
    ((-10, -18, 8), dict(brain=1, gray_matter=1, cerebrospinal_fluid=0)),
    ((38, 6, 2), dict(brain=1, gray_matter=1)),
    ((0, -30, -10), dict(brain=1, gray_matter=1)),
    ((6, 12, 10), dict(brain=1, cerebrospinal_fluid=1)),
    ((-30, 26, 70), dict(brain=0, intracranial=0, gray_matter=0, white_matter=0)),
    ((0, 60, -50), dict(brain=0, intracranial=0, cerebrospinal_fluid=0)),
]


def load(name):
    return nibabel.load(os.path.join(SHARE, name + ".nii.gz"))


def values(name):
    return numpy.asanyarray(load(name).dataobj)


def packaged(name):
    image = nibabel.as_closest_canonical(nibabel.load(os.path.join(PACKAGED, name + ".nii.gz")))
    return image, numpy.asanyarray(image.dataobj)


def voxel(mm):
    return tuple(int(i) for i in numpy.linalg.solve(AFFINE, [*mm, 1])[:3])


def at_every_voxel(image, volume):
    """The volume at the image's voxel that holds each 2 mm voxel's centre; 0 outside."""
    to_image = numpy.linalg.inv(image.affine) @ AFFINE
    return ndimage.affine_transform(
        volume, to_image[:3, :3], to_image[:3, 3], (91, 109, 91), order=0, mode="constant"
    )


class Headers(unittest.TestCase):
    def test_every_image_is_on_the_common_grid(self):
        descriptions = set()
        for name in [*MASKS, *OTHERS]:
            with self.subTest(name):
                image = load(name)
                header = image.header
                self.assertEqual(image.shape, (91, 109, 91))
                self.assertTrue(numpy.array_equal(image.affine, AFFINE))
                self.assertEqual((int(header["sform_code"]), int(header["qform_code"])), (4, 4))
                self.assertTrue(numpy.allclose(header.get_qform(), AFFINE))
                self.assertEqual(header.get_data_dtype(), numpy.float32)
                self.assertTrue(numpy.isfinite(values(name)).all())
                descriptions.add(bytes(header["descrip"]).rstrip(b"\0"))
        self.assertEqual(len(descriptions), len(MASKS) + len(OTHERS), "each says what it is")


class Masks(unittest.TestCase):
    def test_sizes(self):
        for name, (least, most) in MASKS.items():
            with self.subTest(name):
                mask = values(name)
                self.assertTrue(set(numpy.unique(mask)) <= {0, 1})
                self.assertTrue(least <= mask.sum() <= most, mask.sum())
                left, right = mask[:45].sum(), mask[46:].sum()
                self.assertLess(abs(left - right), 0.08 * mask.sum())

    def test_inner_masks_lie_in_outer_ones(self):
        for inner, outer in [
            ("mask_brain", "mask_intracranial"),
            ("mask_gray_matter", "mask_brain"),
            ("mask_white_matter", "mask_brain"),
            ("mask_cerebrospinal_fluid", "mask_intracranial"),
            ("mask_tbss", "mask_white_matter"),
        ]:
            with self.subTest(inner + " in " + outer):
                self.assertFalse(((values(inner) == 1) & (values(outer) == 0)).any())

    def test_tissue_at_known_places(self):
        for mm, expected in TISSUES:
            for tissue, value in expected.items():
                with self.subTest(f"{tissue} at {mm}"):
                    self.assertEqual(values("mask_" + tissue)[voxel(mm)], value)

    def test_shares_of_the_brain_are_those_that_the_texts_state(self):
        brain = values("mask_brain") == 1
        for tissue, covered in [("gray_matter", 57), ("white_matter", 45), ("cerebrospinal_fluid", 12)]:
            self.assertEqual(round(100 * values("mask_" + tissue)[brain].mean()), covered, tissue)
        tissues = [values("cor_" + t) for t in ("gray_matter", "white_matter", "cerebrospinal_fluid")]
        most_probable = numpy.argmax(tissues, axis=0)[brain]
        self.assertEqual([round(100 * (most_probable == t).mean()) for t in range(3)], [50, 39, 11])

    def test_masks_cover_the_regions_they_are_for(self):
        region = numpy.trunc(values("atlas_aal_frw"))
        aal = (region >= 1) & (region <= 116)
        self.assertGreater(values("mask_brain")[aal].mean(), 0.999)
        # The labels of the atlas go on into sulci and white matter, those of tracts into what they end in.
        self.assertGreater(values("mask_gray_matter")[aal].mean(), 0.65)
        self.assertGreater(values("mask_white_matter")[region > 116].mean(), 0.85)


class Atlas(unittest.TestCase):
    def setUp(self):
        atlas = values("atlas_aal_frw")
        self.region = numpy.trunc(atlas).astype(int)
        self.area = numpy.rint((atlas - self.region) * 100).astype(int)

    def test_regions(self):
        self.assertEqual(set(numpy.unique(self.region)), {*range(0, 117), *WHITE_MATTER})
        for mm, expected, name in REGIONS:
            allowed = expected if isinstance(expected, tuple) else (expected,)
            with self.subTest(f"{name} at {mm}"):
                self.assertIn(self.region[voxel(mm)], allowed)

    def test_left_is_left(self):
        pairs = [(r, r + 1) for r in range(1, 108, 2)]
        pairs += [(120, 121), (122, 123), (124, 125), (127, 130), (129, 131), (133, 134)]
        pairs += [(164, 165), (166, 167), (168, 169)]
        x = numpy.arange(91) * 2 - 90
        for pair in pairs:
            for region, side in zip(pair, (-1, 1)):
                with self.subTest(region=region):
                    places = x[numpy.nonzero(self.region == region)[0]]
                    self.assertGreater(numpy.mean(places) * side, 1)
                    # The brain of the template curves over the midline at its back.
                    self.assertGreater(numpy.mean(places * side >= 0), 0.85)

    def test_regions_agree_with_the_packaged_atlas(self):
        image, aal = packaged("aal")
        # Where a label fills a cube of 3 mm, no way of resampling may give another one.
        uniform = ndimage.minimum_filter(aal, 3) == ndimage.maximum_filter(aal, 3)
        inner = at_every_voxel(image, uniform.astype(numpy.uint8)) == 1
        expected = at_every_voxel(image, aal)
        inner &= expected > 0
        self.assertGreater(inner.sum(), 80_000)
        self.assertTrue((self.region[inner] == expected[inner]).all())

    def test_brodmann_areas(self):
        image, areas = packaged("brodmann")
        expected = at_every_voxel(image, areas)
        shown = self.area > 0
        self.assertTrue(set(numpy.unique(self.area)) <= set(numpy.unique(areas)))
        self.assertGreater((self.area[shown] == expected[shown]).mean(), 0.9)
        cortex = (self.region >= 1) & (self.region <= 90)
        cortex &= ~numpy.isin(self.region, [41, 42, *range(71, 79)])
        self.assertFalse((shown & ~cortex).any())
        self.assertGreater(shown[cortex].mean(), 0.8)
        for mm, value in [((10, -84, 6), 44.17), ((-44, 34, -12), 15.47), ((-8, -84, 6), 43.17)]:
            with self.subTest(mm):
                atlas = values("atlas_aal_frw")[voxel(mm)]
                self.assertEqual(atlas, numpy.float32(value))


class Intensities(unittest.TestCase):
    def test_template_is_the_mean_over_each_voxel(self):
        # On the packaged 1 mm grid the mean over a 2 mm voxel weighs neighbours 1:2:1 on each axis.
        image, head = packaged("ch2")
        mean = head.astype(float)
        for axis in range(3):
            mean = ndimage.convolve1d(mean, [0.25, 0.5, 0.25], axis=axis, mode="constant")
        difference = values("kvo_template") - at_every_voxel(image, mean)
        self.assertLess(abs(difference[1:-1, 1:-1, 1:-1]).max(), 1e-3)

    def test_probabilities(self):
        tissues = [values("cor_" + t) for t in ("gray_matter", "white_matter", "cerebrospinal_fluid")]
        inside = ndimage.binary_erosion(values("mask_brain") == 1, iterations=4)
        for tissue in tissues:
            self.assertTrue(tissue.min() >= 0 and tissue.max() <= 1)
        self.assertLess(abs(sum(tissues)[inside] - 1).max(), 0.01)
        anisotropy = values("cor_fractional_anisotropy")
        self.assertTrue(anisotropy.min() >= 0 and anisotropy.max() <= 0.6)
        genu, insula = voxel((2, 26, 4)), voxel((38, 6, 2))
        self.assertGreater(anisotropy[genu], 2 * anisotropy[insula])


class Program(unittest.TestCase):
    def test_same_sources_give_the_same_bytes(self):
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run([MAKE_SHARE, PACKAGED, folder], check=True)
            names = sorted(os.listdir(folder))
            self.assertEqual(names, sorted(n + ".nii.gz" for n in [*MASKS, *OTHERS]))
            _, different, missing = filecmp.cmpfiles(folder, SHARE, names, shallow=False)
            self.assertEqual((different, missing), ([], []))

    def test_a_bad_source_is_named_and_nothing_is_made(self):
        for spoil, complaint in [
            (lambda path: os.remove(path), "cannot be opened"),
            (lambda path: os.truncate(path, 5000), "ends early"),
        ]:
            with self.subTest(complaint), tempfile.TemporaryDirectory() as folder:
                sources, target = os.path.join(folder, "sources"), os.path.join(folder, "target")
                subprocess.run(["cp", "-r", PACKAGED, sources], check=True)
                spoil(os.path.join(sources, "aal.nii.gz"))
                run = subprocess.run([MAKE_SHARE, sources, target], capture_output=True, text=True)
                self.assertEqual(run.returncode, 1)
                self.assertIn("aal.nii.gz", run.stderr)
                self.assertIn(complaint, run.stderr)
                self.assertFalse(os.path.exists(target))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
