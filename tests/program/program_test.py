#!/usr/bin/python3
"""program_test.py INSTALLATION: the real program with its real companions, as a person uses it."""

import os
import re
import signal
import subprocess
import sys
import tempfile
import unittest

import nibabel
import numpy

from kvo_driver import Display, Program, fresh_copy, wait_for

INSTALLATION = os.path.abspath(sys.argv.pop(1))


def tree(folder):
    """Every file of a folder with its content."""
    content = {}
    for parent, _, names in os.walk(folder):
        for name in names:
            path = os.path.join(parent, name)
            with open(path, "rb") as file:
                content[os.path.relpath(path, folder)] = file.read()
    return content


class ProgramTest(unittest.TestCase):
    """Each test has an installation and a meta-analysis of its own, in folders whose names the shell
    would act on, and the user's language has decimal commas."""

    @classmethod
    def setUpClass(cls):
        cls.display = Display()
        cls.addClassCleanup(cls.display.close)
        locales = cls.enterClassContext(tempfile.TemporaryDirectory())
        subprocess.run(["localedef", "-i", "de_DE", "-f", "UTF-8", os.path.join(locales, "de_DE.UTF-8")],
                       check=True)
        cls.display.environment.update(LOCPATH=locales, LC_ALL="de_DE.UTF-8")
        assert cls.display.run("/usr/bin/printf", "%.1f", "0,5") == "0,5"

    def setUp(self):
        scratch = self.enterContext(tempfile.TemporaryDirectory())
        self.installation = os.path.join(scratch, "it's \"quorvane\" $(touch x) & co")
        self.folder = os.path.join(scratch, "my `touch x` <b>$HOME\\analysis; *")
        fresh_copy(INSTALLATION, self.installation)
        fresh_copy(os.path.join(INSTALLATION, "example"), self.folder)
        os.remove(os.path.join(self.folder, "kvo_batch.txt"))

    def start(self):
        program = Program(self.installation, self.display, stdout=subprocess.PIPE)
        self.addCleanup(program.process.stdout.close)
        self.addCleanup(program.process.wait)
        self.addCleanup(program.process.kill)
        program.close_about()
        return program

    def open_on_folder(self):
        with open(os.path.join(self.installation, "etc/linux64.ini"), "w", encoding="utf-8") as file:
            file.write(f"working directory = {self.folder}\nbrain viewer = none\n")
        return self.start()

    def path(self, name):
        return os.path.join(self.folder, name)

    def test_first_start(self):
        program = self.start()
        console = program.console()
        self.assertIn("Welcome to Quorvane v4.31", console)
        self.assertIn("WARNING: Working folder not found.", console)
        self.assertTrue(console.rstrip().endswith(
            "Waiting for the user to click a button or menu item or to type a command..."), console)
        self.assertEqual(program.close(), 0)
        self.assertEqual(program.process.stdout.read(), "See you soon!\n")

    def test_two_typed_commands_leave_maps(self):
        program = self.open_on_folder()
        program.command("pp gray_matter, 0.0, 20, gray_matter, 1")
        program.command("MyMean = mean")
        console, batch = program.console(), program.batch()

        for line in ["pp gray_matter, 0.0, 20, gray_matter, 1\n", "MyMean = mean\n", "OK\n",
                     "DONE\n"]:
            self.assertIn(line, console)
        self.assertNotIn("WARNING", console)
        self.assertEqual(batch, "# User command:\npp gray_matter, 0.0, 20, gray_matter, 1\n\n"
                                "# User command:\nMyMean = mean\n\n")
        for map_name in ["g", "var", "z", "p", "ci_low", "ci_high", "info"]:
            image = nibabel.load(self.path(f"MyMean_{map_name}.nii.gz"))
            self.assertEqual(image.shape, (91, 109, 91))
            self.assertEqual(int(image.header["sform_code"]), 4)
            self.assertTrue(numpy.isfinite(image.get_fdata()).all(), map_name)
        g = nibabel.load(self.path("MyMean_g.nii.gz")).get_fdata()
        variance = nibabel.load(self.path("MyMean_var.nii.gz")).get_fdata()
        z = nibabel.load(self.path("MyMean_z.nii.gz")).get_fdata()
        inside = variance > 0
        for map_name in ["tau2", "I2", "Q"]:  # which peaks do not tell
            withheld = nibabel.load(self.path(f"MyMean_{map_name}.nii.gz")).get_fdata()
            self.assertTrue(numpy.isnan(withheld[inside]).all(), map_name)
        self.assertGreater(inside.sum(), 100000)
        numpy.testing.assert_allclose(z[inside], g[inside] / numpy.sqrt(variance[inside]),
                                      rtol=1e-4, atol=1e-6)
        self.assertEqual([name for name in os.listdir(self.folder) if name.endswith(".tmp")], [])
        self.assertEqual(program.close(), 0)

    def test_the_batch_of_the_example_leads_to_reports(self):
        with open(os.path.join(INSTALLATION, "example/kvo_batch.txt"), encoding="utf-8") as file:
            batch = file.read()
        self.assertEqual(batch.count(" 50"), 2)
        with open(self.path("kvo_batch.txt"), "w", encoding="utf-8") as file:
            file.write(batch.replace(" 50", " 1"))
        program = self.open_on_folder()
        console = program.run_batch()
        self.assertNotIn("WARNING", console)
        # That the numbers are right is the matter of the manual's test.
        self.assertRegex(console, r"\n +1  positive +\d+ +\d+ +-?\d+,-?\d+,-?\d+ +\d\.\d{3}  .*\n")
        self.assertIn("  Right insula, BA 48\n", console)
        self.assertRegex(console, r"Estimated g: \d\.\d{3} \(95 % interval")
        for report in ("MyMean_z_p_0.00500_1.000_10.html", "extract_Right_insula.html"):
            self.assertIn(report, console)
            self.assertTrue(os.path.exists(self.path(report)), report)
        self.assertEqual(program.close(), 0)

    def test_a_refused_command_changes_nothing(self):
        before = tree(self.folder)
        program = self.open_on_folder()
        self.assertIn("WARNING: ", program.command("MyMean = mean nosuchfilter"))
        program.close()
        self.assertEqual(tree(self.folder), before)

    def test_a_killed_front_end_leaves_whole_files_only(self):
        before = tree(self.folder)
        program = self.open_on_folder()
        program.start_command("pp gray_matter, 0.0, 20, gray_matter, 1")
        program.wait_for_window("^KVO Working")
        program.process.send_signal(signal.SIGKILL)
        program.process.wait()

        def engine_gone():
            return subprocess.run(["pgrep", "-f", re.escape(self.installation)], check=False,
                                  stdout=subprocess.DEVNULL).returncode != 0
        wait_for(engine_gone, "the engine to finish or stop")
        after = tree(self.folder)
        for name, content in before.items():
            self.assertEqual(after[name], content, name)
        for name in after:
            if name.endswith(".nii.gz"):
                nibabel.load(self.path(name)).get_fdata()
        finished = os.path.exists(self.path("kvo_pp.txt"))
        self.assertEqual(finished, any(name.startswith("pp/") for name in after), sorted(after))

    def test_without_a_display_the_error_is_printed(self):
        environment = {name: value for name, value in os.environ.items() if name != "DISPLAY"}
        result = subprocess.run([os.path.join(self.installation, "bin/linux64/kvo_gui")],
                                env=environment, text=True, check=False, capture_output=True)
        self.assertEqual(result.returncode, 1)
        self.assertIn("The program will close as this problem could cause fatal errors.",
                      result.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
