"""The reader's values beside nibabel's, for images that other software has written.

Usage: nibabel_test.py PRINT_IMAGE
"""

import glob
import gzip
import itertools
import os
import struct
import subprocess
import sys
import tempfile
import unittest

import nibabel
import numpy

PRINT_IMAGE = sys.argv[1]
PACKAGED = "/usr/share/mricron/templates"

BASIC_TYPES = ["u1", "i2", "i4", "f4"]
OTHER_TYPES = ["f8", "i1", "u2", "u4", "i8", "u8"]
# Slope and intercept; None leaves them as nibabel writes them, 1 and 0.
SCALINGS = [None, (0, 0), (1, 0), (2, 1), (0.1, -0.3), (-1e-5, 0), (1, 12.5), (3e30, 1e31)]
SHAPES = [(7, 5, 3), (1, 1, 1), (7, 5, 3, 1), (7, 5, 3, 10), (7, 5, 3, 2, 3), (7, 5, 3, 1, 2, 3),
          (7, 5, 3, 2, 1, 3, 2), (1, 1, 1, 40), (7, 5, 1, 4)]
ENDINGS = [".nii", ".nii.gz", ".hdr"]


def read(paths, *options):
    """Of each image the reader's header line, as numbers, and its values."""
    run = subprocess.run([PRINT_IMAGE, *options, *paths], capture_output=True)
    if run.returncode != 0:
        raise AssertionError(f"{paths[0]}...: {run.stderr.decode()}")
    images, place = [], 0
    for _ in paths:
        end = run.stdout.index(b"\n", place)
        numbers = [float(word) for word in run.stdout[place:end].split()]
        count = int(numbers[1] * numbers[2])
        images.append((numbers, numpy.frombuffer(run.stdout, "<f4", count, end + 1)))
        place = end + 1 + 4 * count
    return images


def nibabel_values(path):
    image = nibabel.load(path)
    with numpy.errstate(over="ignore"):
        return numpy.asarray(image.dataobj).astype(numpy.float32).ravel(order="F")


def values_of(kind, shape, seed):
    """Values of a type that use its whole range, the extremes and, where it has them, NaN, infinite
    values, minus zero and the smallest numbers."""
    random = numpy.random.default_rng(seed)
    dtype = numpy.dtype(kind)
    count = int(numpy.prod(shape))
    if dtype.kind == "f":
        values = random.normal(0, 1, count) * 10.0 ** random.integers(-30, 30, count)
        special = [numpy.nan, numpy.inf, -numpy.inf, -0.0, 0.0, 1e-44, -3.4e38]
    else:
        limits = numpy.iinfo(dtype)
        values = random.integers(limits.min, limits.max, count, dtype, endpoint=True)
        special = [limits.min, limits.max, 0, 1]
    values = values.astype(dtype)
    values[: min(count, len(special))] = special[: min(count, len(special))]
    return values.reshape(shape)


def save(path, values, order, scaling=None):
    """Writes an image with exactly these stored values. Slope and intercept get into the header
    afterwards: nibabel itself would apply them."""
    header_class = nibabel.Nifti1Pair if path.endswith(".hdr") else nibabel.Nifti1Image
    header = header_class.header_class(endianness=order)
    header.set_data_dtype(values.dtype)
    header["intent_code"] = 5
    image = header_class(values, numpy.diag([2, 3, 4, 1]), header)
    image.header.set_sform(numpy.diag([2, 3, 4, 1]), 4)
    image.to_filename(path)
    if scaling:
        opener = gzip.open if path.endswith(".gz") else open
        with opener(path, "rb") as file:
            content = bytearray(file.read())
        content[112:120] = struct.pack(order + "ff", *scaling)
        with opener(path, "wb") as file:
            file.write(content)


class Reader(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def path(self, name):
        return os.path.join(self.folder.name, name)

    def check(self, path, numbers, values):
        expected = nibabel_values(path)
        same = values.view("u4") == expected.view("u4")
        # A NaN that has been computed with may have any bits.
        same |= numpy.isnan(values) & numpy.isnan(expected)
        self.assertEqual(values.size, expected.size)
        where = numpy.flatnonzero(~same)[:3]
        self.assertTrue(same.all(), f"{where}: {values[where]!r} is not {expected[where]!r}")
        header = nibabel.load(path).header
        self.assertEqual(numbers[3:5], [header["intent_code"], header["sform_code"]])
        self.assertEqual(numbers[5:13], list(header["dim"]))
        # nibabel mends the first of them, which is no size.
        self.assertEqual(
            numbers[14:], [float("%.9g" % size) for size in header["pixdim"][1:].astype(float)])

    def check_all(self, cases, *options):
        """Checks the images of pairs of a path and what is special about it."""
        for (path, what), (numbers, values) in zip(cases, read([path for path, _ in cases], *options)):
            with self.subTest(what):
                self.check(path, numbers, values)
                ending = path[path.index("."):]
                self.assertEqual(ENDINGS.index(ending), [2, 1, 3].index(numbers[0]))

    def test_every_type_order_ending_and_scaling(self):
        for types, *options in (BASIC_TYPES,), (OTHER_TYPES, "all-types"):
            cases = []
            for number, what in enumerate(itertools.product(types, "<>", ENDINGS, SCALINGS)):
                kind, order, ending, scaling = what
                path = self.path(f"{types[0]}{number}{ending}")
                save(path, values_of(kind, (7, 5, 3), number), order, scaling)
                cases.append((path, what))
            self.check_all(cases, *options)

    def test_every_shape(self):
        cases = []
        for number, (shape, order, ending) in enumerate(itertools.product(SHAPES, "<>", ENDINGS)):
            cases.append((self.path(f"x{number}{ending}"), (shape, order, ending)))
            save(cases[-1][0], values_of("i2", shape, number), order)
        self.check_all(cases)
        for (_, (shape, *_)), (numbers, _) in zip(cases, read([path for path, _ in cases])):
            self.assertEqual(numbers[1:3], [numpy.prod(shape[3:]), numpy.prod(shape[:3])])

    def test_packaged_images(self):
        # The smallest of those that are stored in the same way.
        images = {}
        for path in sorted(glob.glob(PACKAGED + "/*.nii.gz"), key=os.path.getsize, reverse=True):
            header = nibabel.load(path).header
            images[tuple(str(header[name]) for name in ("datatype", "scl_slope", "scl_inter", "magic"))] = path
        self.assertGreater(len(images), 2)
        self.check_all([(path, path) for path in images.values()], "all-types")

    def test_images_of_the_nifti_tools(self):
        """Made and converted by the programs of the format's own reference library."""
        for code in (2, 4, 8, 16, 64, 512):
            with self.subTest(type=code):
                path = self.path(f"{code}.nii")
                subprocess.run(["nifti_tool", "-make_im", "-prefix", path, "-new_dim", *"36540000",
                                "-new_datatype", str(code)], check=True, capture_output=True)
                self.check(path, *read([path], "all-types")[0])
        source = os.path.join(PACKAGED, "JHU-WhiteMatter-labels-2mm.nii.gz")
        for tool_kind, name in [("-zn1", "single.nii.gz"), ("-n1", "single.nii"), ("-n2", "pair.hdr")]:
            with self.subTest(kind=tool_kind):
                made = self.path(name)
                subprocess.run(["nifti1_tool", "-copy_im", "-prefix", made, "-infiles", source],
                               check=True, capture_output=True)
                (numbers, values), (_, original) = read([made, source])
                self.check(made, numbers, values)
                self.assertTrue((values == original).all())


unittest.main(argv=sys.argv[:1])
