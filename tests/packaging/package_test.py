#!/usr/bin/python3
"""package_test.py PACKAGING INSTALLATION: packs the installation and installs it with the archive's
own script, for a user with a home of its own; what is installed is started in every way."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

from kvo_driver import Display, wait_for

PACKAGING, INSTALLATION = (os.path.abspath(path) for path in sys.argv[1:3])
del sys.argv[1:3]


def setUpModule():
    global scratch, archive
    scratch = tempfile.TemporaryDirectory()
    archive = os.path.join(scratch.name, "quorvane-4.31-linux64.tar.gz")
    subprocess.run([os.path.join(PACKAGING, "make_archive.sh"), INSTALLATION, archive], check=True)


def tearDownModule():
    scratch.cleanup()


def write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def tree(folder):
    """The modes and contents of a folder's files."""
    files = {}
    for parent, _, names in os.walk(folder):
        for name in names:
            path = os.path.join(parent, name)
            with open(path, "rb") as file:
                files[os.path.relpath(path, folder)] = (os.stat(path).st_mode & 0o777, file.read())
    return files


class User(unittest.TestCase):
    """A user with a home of its own and the unpacked archive."""

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="kvo it's a home ")
        self.home = self.folder.name
        self.environment = {"HOME": self.home, "PATH": os.environ["PATH"],
                            "XDG_DATA_DIRS": "/usr/share"}
        self.unpacked = self.unpack("unpacked")
        self.menu_entry = os.path.join(self.home, ".local/share/applications/quorvane.desktop")
        self.command = os.path.join(self.home, ".local/bin/kvo_gui")

    def tearDown(self):
        self.folder.cleanup()

    def path(self, *names):
        return os.path.join(self.home, *names)

    def unpack(self, name):
        target = self.path(name)
        os.mkdir(target)
        subprocess.run(["tar", "-xf", archive, "-C", target], check=True)
        return os.path.join(target, "quorvane-4.31-linux64")

    def run_script(self, folder, *arguments):
        return subprocess.run([os.path.join(folder, "install.sh"), *arguments], cwd=folder,
                              env=self.environment, text=True, check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def install(self, *arguments, source=None):
        result = self.run_script(source or self.unpacked, *arguments)
        self.assertEqual(result.returncode, 0, result.stdout)
        return result.stdout


class PackageTest(User):
    def test_the_archive_holds_the_installation(self):
        packed, installed = tree(self.unpacked), tree(INSTALLATION)
        installed.pop("etc/linux64.ini", None)
        self.assertEqual(set(packed) - set(installed), {"install.sh", "MANIFEST"})
        for name, (_, content) in installed.items():
            self.assertEqual(packed[name][1], content, name)
            self.assertEqual(packed[name][0], 0o755 if name.startswith("bin/") else 0o644, name)
        self.assertIn("./install.sh", read(os.path.join(self.unpacked, "README.txt")))

    def test_the_same_installation_gives_the_same_archive(self):
        again = os.path.join(scratch.name, "again", os.path.basename(archive))
        os.mkdir(os.path.dirname(again))
        subprocess.run([os.path.join(PACKAGING, "make_archive.sh"), INSTALLATION, again], check=True)
        with open(archive, "rb") as first, open(again, "rb") as second:
            self.assertTrue(first.read() == second.read())

    def test_the_desktop_takes_the_metadata(self):
        share = os.path.join(self.unpacked, "share")
        metadata = os.path.join(share, "metainfo/localhost.quorvane.kvo_gui.metainfo.xml")
        self.install(self.path("\"q\" $HOME `x` \\ 'p'"))
        page = os.path.join(share, "man/man1/kvo_gui.1")
        for command in [["appstreamcli", "validate", "--no-net", metadata],
                        ["desktop-file-validate", os.path.join(share, "applications/quorvane.desktop")],
                        ["desktop-file-validate", self.menu_entry],
                        ["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", page]]:
            result = subprocess.run(command, text=True, check=False, capture_output=True)
            self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
            self.assertEqual(result.stderr, "", command)

    def test_it_is_installed_and_removed(self):
        before = tree(self.home)
        for arguments, folder in [((), "quorvane"), ((self.path("a b", "c"),), "a b/c")]:
            with self.subTest(folder):
                self.install(*arguments)
                self.assertEqual(tree(self.path(folder)), tree(self.unpacked))
                self.assertTrue(os.path.samefile(self.command,
                                                 self.path(folder, "bin/linux64/kvo_gui")))
                self.assertTrue(os.path.exists(self.path(".local/share/man/man1/kvo_gui.1")))
                result = self.run_script(self.path(folder), "--uninstall")
                self.assertEqual((result.returncode, result.stdout), (0, "Quorvane is removed.\n"))
                self.assertEqual(tree(self.home).keys() - {".local/share/applications/mimeinfo.cache"},
                                 before.keys())
                self.assertFalse(os.path.exists(self.path(folder)))

    def test_an_upgrade_keeps_what_is_the_user_s(self):
        self.install()
        installed = self.path("quorvane")
        write(self.path("quorvane/etc/linux64.ini"), "settings\n")
        write(self.path("quorvane/etc/kvo.gtkrc"), "my look\n")
        write(self.path("quorvane/share/kvo_template.nii.gz"), "my template\n")
        write(self.path("quorvane/example/MyMean_z.nii.gz"), "my result\n")
        os.remove(self.path("quorvane/bin/linux64/kvo_core"))

        newer = self.unpack("newer")
        write(os.path.join(newer, "README.txt"), "newer\n")
        write(os.path.join(newer, "etc/kvo.gtkrc"), "newer look\n")
        os.remove(os.path.join(newer, "share/README.md"))
        subprocess.run("find . -type f ! -name MANIFEST -printf '%P\\0' | xargs -0 sha256sum >M && "
                       "mv M MANIFEST && sed -i '/  M$/d' MANIFEST",
                       shell=True, cwd=newer, check=True)
        output = self.install(source=newer)

        expected = tree(newer)
        expected["etc/linux64.ini"] = (0o644, b"settings\n")
        expected["etc/kvo.gtkrc.new"] = expected["etc/kvo.gtkrc"]
        expected["etc/kvo.gtkrc"] = (0o644, b"my look\n")
        expected["share/kvo_template.nii.gz.new"] = expected["share/kvo_template.nii.gz"]
        expected["share/kvo_template.nii.gz"] = (0o644, b"my template\n")
        expected["example/MyMean_z.nii.gz"] = (0o644, b"my result\n")
        self.assertEqual(tree(installed), expected)
        for name in ["etc/kvo.gtkrc", "share/kvo_template.nii.gz"]:
            self.assertIn(f"You have changed '{self.path('quorvane', name)}': it stays", output)

        output = self.run_script(installed, "--uninstall").stdout
        self.assertIn("Your own files stay", output)
        self.assertEqual(set(tree(installed)),
                         {"etc/kvo.gtkrc", "etc/kvo.gtkrc.new", "share/kvo_template.nii.gz",
                          "share/kvo_template.nii.gz.new", "example/MyMean_z.nii.gz"})

    def test_what_cannot_be_installed_changes_nothing(self):
        os.makedirs(self.path("full/of"))
        write(self.path("file"), "")
        damaged = self.unpack("damaged")
        write(os.path.join(damaged, "share/mask_brain.nii.gz"), "")
        incomplete = self.unpack("incomplete")
        os.remove(os.path.join(incomplete, "bin/linux64/kvo_core"))
        no_list = self.unpack("no list")
        os.remove(os.path.join(no_list, "MANIFEST"))
        before = tree(self.home)
        for source, arguments, message in [
                (self.unpacked, [self.path("full")], "holds other files"),
                (self.unpacked, [self.path("file")], "holds other files"),
                (self.unpacked, ["/proc/self/quorvane"], "cannot create directory"),
                (self.unpacked, [self.path("a=b")], "a menu entry cannot hold the folder name"),
                (self.unpacked, [self.path("a\nb")], "a menu entry cannot hold the folder name"),
                (self.unpacked, [self.path("a%b")], "a menu entry cannot hold the folder name"),
                (self.unpacked, ["--unknown"], "Usage:"),
                (self.unpacked, ["--uninstall", self.path("full")], "holds no installation"),
                (damaged, [], "files are missing or damaged"),
                (incomplete, [], "files are missing or damaged"),
                (no_list, [], "is missing: please unpack the archive again")]:
            with self.subTest(message):
                result = self.run_script(source, *arguments)
                self.assertNotEqual(result.returncode, 0)
                self.assertIn(message, result.stdout)
                self.assertEqual(tree(self.home), before)

    def test_a_file_of_the_user_is_no_command_link(self):
        os.makedirs(os.path.dirname(self.command))
        write(self.command, "mine\n")
        self.assertIn("is a file of yours", self.install())
        self.assertEqual(read(self.command), "mine\n")
        self.run_script(self.path("quorvane"), "--uninstall")
        self.assertEqual(read(self.command), "mine\n")

    def test_of_two_installations_the_menu_has_the_later(self):
        first, second = self.path("first"), self.path("second")
        self.install(first)
        self.install(second)
        self.run_script(first, "--uninstall")
        self.assertIn(f'"{second}/bin', read(self.menu_entry))
        self.assertTrue(os.path.samefile(self.command, os.path.join(second, "bin/linux64/kvo_gui")))
        self.run_script(second, "--uninstall")
        self.assertFalse(os.path.lexists(self.command))
        self.assertFalse(os.path.exists(self.menu_entry))


class StartTest(User):
    """The ways to start an installation: each time the program must find its own root, which it
    shows in the title while it knows no working folder."""

    def setUp(self):
        super().setUp()
        self.display = Display()
        self.environment["DISPLAY"] = self.display.name

    def tearDown(self):
        self.display.close()
        super().tearDown()

    def expect_started(self, root, command, cwd=None):
        with self.subTest(command=command):
            process = subprocess.Popen(command, cwd=cwd or "/", env=self.environment,
                                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
            try:
                window = wait_for(lambda: self.display.run(
                    "xdotool", "search", "--onlyvisible", "--name", "^KVO v").split(), "the window")
                title = self.display.run("xdotool", "getwindowname", window[0]).strip()
                self.assertEqual(title, "KVO v4.31 - " + root)
            finally:
                for window in self.display.run("xdotool", "search", "--name", ".*").split():
                    pid = self.display.run("xdotool", "getwindowpid", window).strip()
                    if pid and os.path.realpath(f"/proc/{pid}/exe").startswith(self.home):
                        os.kill(int(pid), 9)
                process.kill()
                process.wait()
                wait_for(lambda: not self.display.run("xdotool", "search", "--name", "^KVO v"),
                         "the window to go")

    def test_every_way_to_start_it(self):
        root = self.path("my \"q\" $HOME `x` \\ it's")
        self.install(root)
        program = os.path.join(root, "bin/linux64/kvo_gui")
        self.expect_started(root, [program])
        self.expect_started(root, ["./kvo_gui"], os.path.dirname(program))
        self.expect_started(root, [os.path.relpath(program, "/usr/lib")], "/usr/lib")
        self.expect_started(root, [self.command])
        self.environment["PATH"] = os.path.dirname(self.command) + ":" + self.environment["PATH"]
        self.expect_started(root, ["sh", "-c", "kvo_gui"])
        os.symlink(root, self.path("root link"))
        self.expect_started(root, [self.path("root link/bin/linux64/kvo_gui")])
        self.expect_started(root, ["gio", "launch", self.menu_entry])

        moved = self.path("moved here")
        shutil.move(root, moved)
        self.expect_started(moved, [os.path.join(moved, "bin/linux64/kvo_gui")])
        self.install(".", source=moved)
        self.expect_started(moved, ["gio", "launch", self.menu_entry])
        self.expect_started(moved, [self.command])

        second = self.path("second")
        self.install(second)
        self.expect_started(second, ["gio", "launch", self.menu_entry])
        self.expect_started(moved, [os.path.join(moved, "bin/linux64/kvo_gui")])


if __name__ == "__main__":
    unittest.main(verbosity=2)
