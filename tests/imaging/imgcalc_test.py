"""The image calculator as a program: what it writes, read by nibabel and checked by nifti_tool; its
progress lines, messages and exit statuses; and that a failure changes nothing.

Usage: imgcalc_test.py IMGCALC
"""

import gzip
import itertools
import os
import resource
import signal
import subprocess
import sys
import tempfile
import unittest

import nibabel
import numpy
from scipy import stats

IMGCALC = os.path.abspath(sys.argv[1])
T, Z, LOG10_P = 3, 5, 24
AFFINE = numpy.array([[-2, 0, 0, 90], [0, 2, 0, -126], [0, 0, 2, -72], [0, 0, 0, 1.0]])


def run(*words, **options):
    return subprocess.run([IMGCALC, *map(str, words)], capture_output=True, text=True, **options)


def content(path):
    with open(path, "rb") as file:
        return file.read()


def folder():
    return {name: content(name) for name in os.listdir(".")}


class Imgcalc(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(folder.name)

    def image(self, path, values, sform=(AFFINE, 4), qform=(None, 0), order="<", **fields):
        header_class = nibabel.Nifti1Pair if path.endswith(".hdr") else nibabel.Nifti1Image
        header = header_class.header_class(endianness=order)
        header.set_data_dtype(values.dtype)
        for name, value in fields.items():
            header[name] = value
        image = header_class(values, None, header)
        image.header.set_sform(*sform)
        image.header.set_qform(*qform)
        image.to_filename(path)
        return path

    def noise(self, shape=(9, 8, 7)):
        return numpy.random.default_rng(4).normal(0, 4, shape).astype("f4")

    def done(self, *words):
        result = run(*words)
        self.assertEqual((result.stdout, result.stderr, result.returncode), ("", "", 0), words)

    def check_header(self, path):
        check = subprocess.run(["nifti_tool", "-check_hdr", "-infiles", path],
                               capture_output=True, text=True)
        self.assertIn("header IS GOOD", check.stdout + check.stderr)

    def test_compressing_keeps_the_image_and_its_header(self):
        every_field = dict(intent_code=Z, intent_p1=1, intent_p2=2, intent_p3=3, intent_name=b"name",
                           descrip=b"some words", aux_file=b"other", cal_min=-3.5, cal_max=7.5, toffset=1.5,
                           slice_code=3, slice_start=1, slice_end=2, slice_duration=0.5, xyzt_units=10)
        for kind, ending, order in itertools.product(["f4", "i2", "u1", "i4", "f8"], [".nii", ".hdr"], "<>"):
            with self.subTest(kind=kind, ending=ending, order=order):
                source = self.image("x" + ending, self.noise((5, 4, 3, 6)).astype(kind), order=order,
                                    qform=(AFFINE, 2), **every_field)
                before = nibabel.load(source)
                self.done(source)
                after, first = nibabel.load("x.nii.gz"), content("x.nii.gz")
                self.assertTrue((after.dataobj[...] == before.get_fdata().astype("f4")).all())
                self.check_header("x.nii.gz")
                self.assertEqual(after.header.endianness, "<")
                for name in set(before.header) - {"datatype", "bitpix", "vox_offset", "magic",
                                                  "scl_slope", "scl_inter"}:
                    self.assertEqual(before.header[name].tolist(), after.header[name].tolist(), name)
                self.done(source)
                self.assertEqual(content("x.nii.gz"), first, "the same bytes each time")
                self.assertEqual(first[:8], b"\x1f\x8b\x08" + bytes(5), "neither name nor time")

    def test_scaled_values_are_stored_as_they_are_meant(self):
        for scaling, value in (([0.5, 2], 31.5), ([numpy.nan, numpy.nan], 59)):
            path = self.image("x.nii", numpy.arange(60, dtype="i2").reshape(5, 4, 3))
            stored = bytearray(content(path))
            stored[112:120] = numpy.array(scaling, "<f4").tobytes()
            with open(path, "wb") as file:
                file.write(stored)
            self.done(path)
            self.assertEqual(nibabel.load("x.nii.gz").dataobj[4, 3, 2], value)
            # Some software computes with what is no number.
            written = numpy.frombuffer(gzip.decompress(content("x.nii.gz")), "<f4", 2, 112)
            self.assertEqual(written.tolist(), [1, 0])

    def test_declarations_change_the_header_only(self):
        unset = {"intent_p1": 0.0, "intent_p2": 0.0, "intent_name": b""}
        cases = [
            ("-set_t 12.5", {**unset, "intent_code": T, "intent_p1": 12.5}),
            ("-set_z", {**unset, "intent_code": Z}),
            ("-set_logp", {**unset, "intent_code": LOG10_P}),
            ("-set_mni", {"sform_code": 4, "qform_code": 4}),
            ("-set_tal", {"sform_code": 3, "qform_code": 3}),
        ]
        noise = self.noise((100, 90, 70)).astype("i2")  # more than is copied at once
        for (words, changes), ending, order in itertools.product(cases, [".nii", ".nii.gz", ".hdr"], "<>"):
            with self.subTest(words=words, ending=ending, order=order):
                path = self.image("x" + ending, noise, (AFFINE, 2), (AFFINE, 1), order,
                                  intent_code=11, intent_p1=4, intent_p2=5, intent_name=b"old name",
                                  descrip=b"text")
                opener = gzip.open if ending == ".nii.gz" else open
                before = nibabel.load(path).header
                with opener(path, "rb") as file:
                    bytes_before = file.read()
                self.done(path, *words.split())
                after = nibabel.load(path).header
                with opener(path, "rb") as file:
                    self.assertEqual(file.read()[348:], bytes_before[348:])
                self.assertEqual(after.endianness, order)
                for name in before:
                    expected = changes.get(name, before[name].tolist())
                    self.assertEqual(str(after[name].tolist()), str(expected), name)

    def test_the_space_is_built_from_what_the_header_has(self):
        shear = AFFINE.copy()
        shear[0, 1] = 0.5
        elsewhere = AFFINE @ numpy.diag([1, 1, 1, 1])
        elsewhere[:3, 3] += 20
        metres, micrometres = (numpy.diag([s, s, s, 1]) for s in (1e-3, 1e3))
        replaced = "Replacing its qform, which places voxels up to 34.64 mm elsewhere, by its sform"
        converted = "Converting its lengths to mm"
        cases = [
            ("sform", (AFFINE, 2), (None, 0), 10, AFFINE, AFFINE, ""),
            ("qform", (None, 0), (AFFINE, 1), 0, AFFINE, AFFINE, ""),
            ("both", (AFFINE, 1), (AFFINE, 1), 10, AFFINE, AFFINE, ""),
            ("sform goes before qform", (AFFINE, 2), (elsewhere, 1), 10, AFFINE, AFFINE, replaced),
            ("sheared sform", (shear, 2), (None, 0), 10, shear, None, ""),
            ("metres", (metres @ AFFINE, 2), (None, 0), 9, AFFINE, AFFINE, converted),
            ("micrometres", (None, 0), (micrometres @ AFFINE, 2), 11, AFFINE, AFFINE, converted),
        ]
        for what, sform, qform, units, sform_after, qform_after, said in cases:
            with self.subTest(what):
                path = self.image("x.nii.gz", self.noise(), sform, qform, xyzt_units=units)
                result = run(path, "-set_mni")
                self.assertEqual((result.stderr, result.returncode),
                                 (said and f"imgcalc: {said}.\n", 0))
                header = nibabel.load(path).header
                self.assertEqual(header["xyzt_units"], units if units in (0, 10) else 10)
                self.assertEqual((header["sform_code"], header["qform_code"]), (4, 4))
                numpy.testing.assert_allclose(header.get_sform(), sform_after, atol=1e-5)
                if qform_after is not None:
                    numpy.testing.assert_allclose(header.get_qform(), qform_after, atol=1e-5)

    def test_the_standard_grids_have_their_place_without_a_form(self):
        # Where voxel (0, 0, 0) of an image from left to right is: the bounds that the makers of the
        # templates give.
        mni = [
            ((91, 109, 91), 2, (-90, -126, -72)), ((181, 217, 181), 1, (-90, -126, -72)),
            ((182, 218, 182), 1, (-91, -126, -72)), ((121, 145, 121), 1.5, (-90, -126, -72)),
            ((113, 137, 113), 1.5, (-84, -120, -72)), ((193, 229, 193), 1, (-96, -132, -78)),
            ((197, 233, 189), 1, (-98, -134, -72)), ((61, 73, 61), 3, (-90, -126, -72)),
            ((79, 95, 79), 2, (-78, -112, -70)), ((79, 95, 68), 2, (-78, -112, -50)),
            ((53, 63, 46), 3, (-78, -112, -50)),
        ]
        cases = [("-set_mni", "MNI", *grid, 10) for grid in mni]
        cases += [("-set_tal", "Talairach", (161, 191, 151), 1, (-80, -110, -65), 10),
                  ("-set_mni", "MNI", (91, 109, 91), 0.002, (-90, -126, -72), 9)]
        for option, space, shape, size, origin, units in cases:
            with self.subTest(shape=shape, units=units):
                path = self.image("x.nii.gz", numpy.zeros(shape, "u1"), (None, 0), (None, 0),
                                  pixdim=[1, size, size, size, 1, 1, 1, 1], xyzt_units=units)
                result = run(path, option, "KVO")
                mm = size * 1000 if units == 9 else size
                grid = f"{' x '.join(map(str, shape))} voxels of {mm:g} mm"
                lines = [f"aDeclaring the space of 'x.nii.gz' as {space}",
                         f"aPlacing the {grid} as the standard grid of {space} space does, from left "
                         "to right", "o"]
                if units == 9:
                    lines.insert(1, "aConverting its lengths to mm")
                self.assertEqual(result.stdout.splitlines(), lines)
                expected = numpy.diag([mm, mm, mm, 1.0])
                expected[:3, 3] = origin
                header = nibabel.load(path).header
                numpy.testing.assert_allclose(header.get_sform(), expected, atol=1e-5)
                numpy.testing.assert_allclose(header.get_qform(), expected, atol=1e-5)
        other = self.image("y.nii.gz", numpy.zeros((91, 109, 91), "u1"), (None, 0), (None, 0),
                           pixdim=[1, 2, 2, 2.1, 1, 1, 1, 1])
        for option, space in (("-set_mni", "MNI"), ("-set_tal", "Talairach")):
            before = content(other)
            self.assertEqual(
                run(other, option).stderr,
                "imgcalc: the header of 'y.nii.gz' does not place the voxels in space: it has neither "
                f"qform nor sform, and 91 x 109 x 91 voxels of 2 x 2 x 2.1 mm are no standard grid of "
                f"{space} space. Please have the program that made the image write its place into the "
                "header\n")
            self.assertEqual(content(other), before)

    def test_statistics_become_t_statistics(self):
        values = self.noise()
        special = [0, numpy.nan, numpy.inf, -numpy.inf, 37.9, -37.9]
        values.flat[:6] = special
        for option, intent, tail in [
            ("-z2t", Z, lambda v: stats.norm.logsf(v)),
            ("-logp2t", LOG10_P, lambda v: -v * numpy.log(10)),
        ]:
            with self.subTest(option):
                self.image("x.nii.gz", values, intent_code=intent, cal_max=9, descrip=b"kept")
                self.done("x.nii.gz", option, "30", "x.nii.gz")
                after = nibabel.load("x.nii.gz")
                t = after.get_fdata()
                ordinary = (numpy.abs(values) < 30) & (values != 0)
                expected = numpy.sign(values) * stats.t.isf(numpy.exp(tail(numpy.abs(values))), 30)
                numpy.testing.assert_allclose(t[ordinary], expected[ordinary], rtol=1e-5)
                self.assertEqual(t.flat[0], 0)
                self.assertTrue(numpy.isnan(t.flat[1]))
                self.assertEqual(list(t.flat[2:4]), special[2:4])
                self.assertEqual(t.flat[4], -t.flat[5])
                self.assertEqual([int(after.header[name]) for name in
                                  ("intent_code", "intent_p1", "cal_max", "sform_code")],
                                 [T, 30, 0, 4])
                self.assertEqual(after.header["descrip"], b"kept")
                self.check_header("x.nii.gz")

        # What is beyond the range stays finite.
        self.image("x.nii", numpy.array([[[300, -300]]], "f4"), intent_code=LOG10_P)
        self.done("x.nii", "-logp2t", "2", "y.nii.gz")
        largest = float(numpy.finfo("f4").max)
        self.assertEqual(nibabel.load("y.nii.gz").get_fdata().ravel().tolist(), [largest, -largest])

    def test_names_are_taken_as_they_are_and_told_as_markup(self):
        for name in ["it's.nii", "na\u00efve \u8133.nii", "$HOME.nii", 'say "a".nii', "-set_z.nii", "new\nline.nii"]:
            self.done(self.image(name, self.noise()))
            self.done(name + ".gz", "-set_z")
            self.assertEqual(nibabel.load(name + ".gz").header["intent_code"], Z)
        path = self.image("a <b> & c.nii", self.noise())
        cases = [
            ([path], "aConverting 'a &lt;b&gt; &amp; c.nii' into a NIfTI compressed file\no\n", 0),
            ([path, "-set_t", "3"],
             "aDeclaring the values of 'a &lt;b&gt; &amp; c.nii' as t statistics\no\n", 0),
            (["<none>.nii"], "aConverting '&lt;none&gt;.nii' into a NIfTI compressed file\n"
                             "wFile '&lt;none&gt;.nii' not found\n", 1),
            ([path, "-set_t", "<3>"], "w'&lt;3&gt;' is no number of degrees of freedom: it must be "
                                      "from 1 to 1000000\n", 1),
        ]
        for words, lines, status in cases:
            result = run(*words, "KVO")
            self.assertEqual((result.stdout, result.stderr, result.returncode), (lines, "", status))

    def test_misuse_is_explained_and_changes_nothing(self):
        self.image("x.nii.gz", self.noise())
        self.image("nowhere.nii.gz", self.noise(), (numpy.zeros((4, 4)), 2))
        with open("text.nii", "w") as file:
            file.write("no image")
        with open("cut.nii.gz", "wb") as file:
            file.write(content("x.nii.gz")[:-3])
        before = folder()
        df = "is no number of degrees of freedom: it must be from 1 to 1000000"
        cases = [
            ("", "no image was given; --help explains what to give"),
            ("KVO", "File 'KVO' was not found or is not a NIfTI file (unknown extension)"),
            ("x.nii.gz", "'x.nii.gz' is a NIfTI compressed file already"),
            ("x.nii.gz -set", "'-set' is no option; --help lists them"),
            ("x.nii.gz -set_t", "it must be 'imgcalc PATH -set_t DF'"),
            ("x.nii.gz -set_z 3", "it must be 'imgcalc PATH -set_z'"),
            ("x.nii.gz -z2t 3", "it must be 'imgcalc PATH -z2t DF OUT'"),
            ("x.nii.gz -set_t 0x10", f"'0x10' {df}"),
            ("x.nii.gz -set_t 0.99", f"'0.99' {df}"),
            ("x.nii.gz -set_t 1e7", f"'1e7' {df}"),
            ("x.nii.gz -z2t 3 y.img", "'y.img' cannot be written: its name must end in .nii.gz or "
                                      ".nii"),
            ("x.nii.gz -z2t 3 none/y.nii",
             "File 'none/y.nii' not writable (No such file or directory)"),
            ("text.nii", "NIfTI file 'text.nii' has a wrong header size"),
            ("cut.nii.gz -set_z", "Unexpected end of NIfTI file 'cut.nii.gz'"),
            ("nowhere.nii.gz -set_mni",
             "the header of 'nowhere.nii.gz' does not place the voxels in space"),
        ]
        for words, message in cases:
            with self.subTest(words):
                result = run(*words.split())
                self.assertEqual(result.stderr, f"imgcalc: {message}\n")
                self.assertEqual((result.stdout, result.returncode), ("", 1))
        self.assertEqual(folder(), before)

    def test_a_full_disk_changes_nothing(self):
        self.image("x.nii.gz", self.noise((20, 20, 20)))
        self.image("y.nii", self.noise((20, 20, 20)))
        before = folder()
        for words in (["x.nii.gz", "-set_t", 30], ["x.nii.gz", "-z2t", 30, "x.nii.gz"], ["y.nii"]):
            for room in (0, 100, 20000):
                result = run(*words, preexec_fn=lambda: (
                    signal.signal(signal.SIGXFSZ, signal.SIG_IGN),
                    resource.setrlimit(resource.RLIMIT_FSIZE, (room, room))))
                self.assertIn("not writable (File too large)", result.stderr)
                self.assertEqual(result.returncode, 1)
                self.assertEqual(folder(), before, words)

    def test_a_cancelled_run_changes_nothing(self):
        # While values are converted, and while the image is written.
        for words in (["x.nii", "-z2t", "30", "x.nii"], ["x.nii"]):
            # On a busy machine a small image may be done before the signal comes.
            for repeats in (1, 4, 16, 64):
                self.image("x.nii", numpy.tile(self.noise((50, 50, 50)), (4, 2, 2 * repeats)))
                before = folder()
                process = subprocess.Popen([IMGCALC, *words, "KVO"], stdout=subprocess.PIPE, text=True)
                self.assertTrue(process.stdout.readline().startswith("a"))
                process.send_signal(signal.SIGTERM)
                said = process.communicate()[0]
                if process.returncode != 0:
                    break
            self.assertEqual((said, process.returncode), ("wThe conversion was cancelled\n", 1))
            self.assertEqual(folder(), before)

    def test_help(self):
        result = run("--help")
        self.assertEqual((result.stderr, result.returncode), ("", 0))
        for option in ["-set_t DF", "-set_z", "-set_logp", "-set_mni", "-set_tal", "-z2t DF OUT", "-logp2t DF OUT"]:
            self.assertIn(f"\n  {option} ", result.stdout)


unittest.main(argv=sys.argv[:1])
