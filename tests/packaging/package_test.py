#!/usr/bin/python3
"""package_test.py PACKAGING INSTALLATION: packs the installation, less most of its data, and installs
it with the archive's own script, for a user with a home of its own. The launcher starts it, for one
user and for several."""

import glob
import http.client
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import unittest

from kvo_driver import Display, wait_for

PACKAGING, INSTALLATION = (os.path.abspath(path) for path in sys.argv[1:3])
del sys.argv[1:3]
NAME = "quorvane-4.31-linux64"
HOSTILE = "my \"q\" $HOME `x` \\ it's"
# Tells how it was started, and ends when its input does.
FAKE_PROGRAM = "#!/bin/sh\nfor word in \"$0\" \"$@\" .; do echo \"$word\"; done\ncat >/dev/null\nexit 7\n"


def setUpModule():
    global scratch, installation, archive
    scratch = tempfile.TemporaryDirectory()
    installation = os.path.join(scratch.name, "installation")
    shutil.copytree(INSTALLATION, installation,
                    ignore=shutil.ignore_patterns("linux64.ini", "kvo_site.txt", "cor_*", "mask_[c-z]*",
                                                  "atlas*", "pain_[01]?*", "images"))
    for name in ("imgcalc", "kvo_core", "kvo_edit", "kvo_parse"):
        write(os.path.join(installation, "bin/linux64", name), "#!/bin/sh\n")
    archive = os.path.join(scratch.name, NAME + ".tar.gz")
    subprocess.run([os.path.join(PACKAGING, "make_archive.sh"), installation, archive], check=True)


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
        self.command = os.path.join(self.home, ".local/bin/quorvane")

    def tearDown(self):
        self.folder.cleanup()

    def path(self, *names):
        return os.path.join(self.home, *names)

    def unpack(self, name):
        target = self.path(name)
        os.mkdir(target)
        subprocess.run(["tar", "-xf", archive, "-C", target], check=True)
        return os.path.join(target, NAME)

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
        packed, installed = tree(self.unpacked), tree(installation)
        self.assertEqual(set(packed) - set(installed), {"install.sh", "MANIFEST"})
        for name, (_, content) in installed.items():
            self.assertEqual(packed[name][1], content, name)
            self.assertEqual(packed[name][0], 0o755 if name.startswith("bin/") else 0o644, name)
        self.assertIn("./install.sh", read(os.path.join(self.unpacked, "README.txt")))

    def test_the_same_installation_gives_the_same_archive(self):
        again = os.path.join(scratch.name, "again", os.path.basename(archive))
        os.mkdir(os.path.dirname(again))
        subprocess.run([os.path.join(PACKAGING, "make_archive.sh"), installation, again], check=True)
        with open(archive, "rb") as first, open(again, "rb") as second:
            self.assertTrue(first.read() == second.read())

    def test_the_desktop_takes_the_metadata(self):
        share = os.path.join(self.unpacked, "share")
        metadata = os.path.join(share, "metainfo/localhost.quorvane.kvo_gui.metainfo.xml")
        self.install(self.path(HOSTILE))
        pages = glob.glob(os.path.join(share, "man/man1/*"))
        self.assertEqual(len(pages), 6)
        for command in [["appstreamcli", "validate", "--no-net", metadata],
                        ["desktop-file-validate", os.path.join(share, "applications/quorvane.desktop")],
                        ["desktop-file-validate", self.menu_entry],
                        ["lexgrog", *pages],
                        ["groff", "-man", "-Tutf8", "-ww", "-z", *pages]]:
            result = subprocess.run(command, text=True, check=False, capture_output=True)
            self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
            self.assertEqual(result.stderr, "", command)

    def test_it_is_installed_and_removed(self):
        before = tree(self.home)
        for arguments, folder in [((), "quorvane"), ((self.path("a b", "c"),), "a b/c")]:
            with self.subTest(folder):
                self.install(*arguments)
                self.assertEqual(tree(self.path(folder)), tree(self.unpacked))
                self.assertTrue(os.path.samefile(self.command, self.path(folder, "bin/quorvane")))
                self.assertTrue(os.path.exists(self.path(".local/share/man/man1/kvo_gui.1")))
                for name in ("linux64.ini", "kvo_site.txt"):
                    write(self.path(folder, "etc", name), "")
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
        shutil.move(first, self.path("moved"))
        self.run_script(self.path("moved"), "--uninstall")
        self.assertIn(f'"{second}/bin', read(self.menu_entry))
        self.assertTrue(os.path.samefile(self.command, os.path.join(second, "bin/quorvane")))
        self.run_script(second, "--uninstall")
        self.assertFalse(os.path.lexists(self.command))
        self.assertFalse(os.path.exists(self.menu_entry))


class LauncherTest(User):
    """The launcher in an installation that belongs to somebody else."""

    def setUp(self):
        super().setUp()
        self.environment["PYTHONPATH"] = "/none"
        self.installed = self.path("for all")
        shutil.move(self.unpacked, self.installed)
        self.put_program(self.installed, "kvo_gui")
        if os.geteuid() == 0:
            os.chown(os.path.join(self.installed, "etc"), 12345, 12345)
        else:
            os.chmod(os.path.join(self.installed, "etc"), 0o555)
        self.running = []

    def tearDown(self):
        for process in self.running:
            process.kill()
            process.communicate()
        os.chmod(os.path.join(self.installed, "etc"), 0o755)
        super().tearDown()

    def put_program(self, folder, name):
        path = os.path.join(folder, "bin/linux64", name)
        write(path, FAKE_PROGRAM)
        os.chmod(path, 0o755)

    def launch(self, home, *arguments, folder=None):
        os.makedirs(home, exist_ok=True)
        process = subprocess.Popen([os.path.join(folder or self.installed, "bin/quorvane"), *arguments],
                                   env={**self.environment, "HOME": home}, text=True,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.running.append(process)
        return process

    def started(self, process):
        """The words that the program has been started with."""
        return list(iter(lambda: process.stdout.readline().rstrip("\n"), "."))

    def end(self, process):
        process.communicate(timeout=20)
        return process.returncode

    def port(self, root):
        address = read(os.path.join(root, "etc/kvo_site.txt"))
        self.assertRegex(address, r"\Ahttp://127\.0\.0\.1:\d+/\n\Z")
        return int(address.split(":")[2].rstrip("/\n"))

    def answer(self, port, path="/index.html", method="GET"):
        connection = http.client.HTTPConnection("127.0.0.1", port, timeout=10)
        connection.request(method, path)
        reply = connection.getresponse()
        content = reply.read().decode()
        connection.close()
        return reply.status, content

    def root(self, home):
        return os.path.join(home, ".local/share/quorvane")

    def test_each_user_has_a_root_of_their_own(self):
        homes = [self.path(name) for name in ("a", "b " + HOSTILE)]
        # The first user starts it twice at once.
        processes = [self.launch(home, "--sync", HOSTILE) for home in (*homes, homes[0])]
        words = [self.started(process) for process in processes]
        ports = []
        for home, said in zip(homes, words):
            root = self.root(home)
            self.assertEqual(said, [os.path.join(root, "bin/linux64/kvo_gui"), "--sync", HOSTILE])
            self.assertEqual(tree(root).keys() - {"etc/kvo_site.txt", "etc/linux64.ini", "README.txt"},
                             {name for name in tree(self.installed)
                              if name.startswith(("bin/linux64/", "etc/", "example/"))})
            self.assertTrue(os.path.samefile(os.path.join(root, "share"),
                                             os.path.join(self.installed, "share")))
            self.assertFalse(os.path.islink(os.path.join(root, "example")))
            self.assertEqual(read(os.path.join(root, "etc/linux64.ini")),
                             f"working directory = {root}/example\n")
            self.assertEqual([name for name in os.listdir(root) if name.startswith(".")], [])
            ports.append(self.port(root))
            self.assertEqual(self.answer(ports[-1])[1], read(os.path.join(self.installed, "site/index.html")))
        self.assertEqual(len(set(ports)), 2)

        self.assertEqual([self.end(process) for process in processes], [7, 7, 7])
        for home in homes:
            self.assertEqual(sorted(os.listdir(os.path.join(self.root(home), "etc"))),
                             ["kvo.gtkrc", "linux64.ini"])

    def test_serves_pages_to_this_machine_and_nothing_else(self):
        root = self.root(self.home)
        os.symlink(self.path("for all/README.txt"), self.path("for all/site/link"))
        first = self.launch(self.home)
        self.started(first)
        port = self.port(root)
        with open("/proc/net/tcp", encoding="ascii") as table:
            listening = [row.split()[1] for row in table if f":{port:04X} 00000000:0000" in row]
        self.assertEqual(listening, [f"0100007F:{port:04X}"])
        for path in ("/manual/?show=pp", "/manual/index.html", "/style.css", "/utilities/?show=Statistics"):
            self.assertEqual(self.answer(port, path)[0], 200, path)
        for path in ("/none", "/software/current.txt", "/../README.txt", "/%2e%2e/README.txt",
                     "/manual/../../README.txt", "//etc/passwd", "/link", "/manual/index.html/", "/%00"):
            self.assertEqual(self.answer(port, path)[0], 404, path)
        os.remove(self.path("for all/site/manual/index.html"))
        self.assertEqual(self.answer(port, "/manual/")[0], 404, "a listing")
        for method in ("HEAD", "POST", "PUT", "DELETE"):
            self.assertEqual(self.answer(port, method=method)[0], 501, method)

        # A later start takes the file over; the earlier one goes on serving, and leaves it.
        second = self.launch(self.home)
        self.started(second)
        self.assertNotEqual(self.port(root), port)
        self.assertEqual(self.answer(port)[0], 200)
        second_port = self.port(root)
        self.end(first)
        self.assertEqual(self.port(root), second_port)
        # However it ends, so do the program and the site.
        second.send_signal(signal.SIGTERM)
        self.assertEqual(second.wait(20), 128 + signal.SIGTERM)
        self.assertFalse(os.path.exists(os.path.join(root, "etc/kvo_site.txt")))
        with self.assertRaises(ConnectionRefusedError), socket.create_connection(("127.0.0.1", second_port)):
            pass

    def test_follows_an_upgrade_and_keeps_what_is_the_user_s(self):
        root = self.root(self.home)
        self.end(self.launch(self.home))
        for name in ("etc/linux64.ini", "etc/mine", "bin/linux64/mine", "example/mine", "mine"):
            write(os.path.join(root, name), "mine\n")
        for name in ("etc/kvo.gtkrc", "share"):
            os.remove(os.path.join(root, name))
        write(os.path.join(root, "etc/kvo.gtkrc"), "mine\n")
        os.mkdir(os.path.join(root, "share"))
        os.symlink("/none", os.path.join(root, "bin/linux64/my link"))
        os.remove(os.path.join(root, "example/kvo_batch.txt"))
        write(os.path.join(root, "etc/kvo_site.txt"), "http://127.0.0.1:9/\n")
        os.mkdir(os.path.join(root, ".new-killed"))
        os.utime(os.path.join(root, ".new-killed"), (0, 0))

        newer = self.path("newer")
        shutil.move(self.installed, newer)
        self.installed = newer
        os.remove(os.path.join(newer, "bin/linux64/imgcalc"))
        self.put_program(newer, "kvo_new")
        self.started(self.launch(self.home))
        self.port(root)
        self.assertEqual(self.end(self.running[-1]), 7)

        for name in ("kvo_gui", "kvo_parse", "kvo_new"):
            self.assertEqual(os.readlink(os.path.join(root, "bin/linux64", name)),
                             os.path.join(newer, "bin/linux64", name))
        self.assertEqual(set(os.listdir(os.path.join(root, "bin/linux64"))),
                         {"kvo_core", "kvo_edit", "kvo_gui", "kvo_new", "kvo_parse", "mine", "my link"})
        for name in ("etc/linux64.ini", "etc/mine", "etc/kvo.gtkrc", "example/mine", "mine"):
            self.assertEqual(read(os.path.join(root, name)), "mine\n", name)
        self.assertEqual(os.listdir(os.path.join(root, "share")), [])
        self.assertFalse(os.path.exists(os.path.join(root, "example/kvo_batch.txt")))
        self.assertFalse(os.path.exists(os.path.join(root, ".new-killed")))

        # The programs work in the user's root, on the brain data there.
        for name in ("kvo_core", "kvo_parse"):
            shutil.copy(os.path.join(INSTALLATION, "bin/linux64", name), os.path.join(newer, "bin/linux64"))
        refused = subprocess.run([os.path.join(root, "bin/linux64/kvo_parse"), "A = mask label, 30"],
                                 cwd=os.path.join(root, "example"), text=True, check=False,
                                 stdout=subprocess.PIPE)
        self.assertIn(f"'{root}/share/atlas_aal_frw.nii.gz'", refused.stdout)

        # Nothing is written where nothing has changed.
        before = {name: os.lstat(os.path.join(root, name)).st_mtime_ns for name in ("bin/linux64", "example")}
        self.end(self.launch(self.home))
        self.assertEqual({name: os.lstat(os.path.join(root, name)).st_mtime_ns for name in before}, before)

    def test_uses_an_installation_of_the_user_s_own(self):
        own = self.unpack("own " + HOSTILE)
        self.put_program(own, "kvo_gui")
        process = self.launch(self.home, folder=own)
        self.assertEqual(self.started(process), [os.path.join(own, "bin/linux64/kvo_gui")])
        self.assertEqual(self.answer(self.port(own))[0], 200)
        self.assertEqual(self.end(process), 7)
        self.assertFalse(os.path.exists(self.root(self.home)))
        self.assertEqual(tree(own).keys() - tree(self.installed).keys(), {"etc/linux64.ini"})

        # Without its pages it starts too, and no other's are taken for them.
        shutil.rmtree(os.path.join(own, "site"))
        write(os.path.join(own, "etc/kvo_site.txt"), "http://127.0.0.1:9/\n")
        process = self.launch(self.home, folder=own)
        self.started(process)
        self.assertFalse(os.path.exists(os.path.join(own, "etc/kvo_site.txt")))
        self.assertEqual(self.end(process), 7)

    def test_says_in_a_sentence_why_it_cannot_start(self):
        write(self.path("file"), "")
        incomplete = self.unpack("incomplete")
        shutil.rmtree(os.path.join(incomplete, "etc"))
        broken = self.unpack("broken")
        os.remove(os.path.join(broken, "bin/linux64/kvo_gui"))
        for folder, home, message in [
                (self.installed, "/proc/none",
                 "Your folder '/proc/none/.local/share/quorvane' cannot be set up: No such file or directory."),
                (self.installed, self.path("file"), "cannot be set up: Not a directory."),
                (incomplete, self.home, f"The installation in '{incomplete}' is not complete."),
                (broken, self.home, "/bin/linux64/kvo_gui' cannot be started: No such file or directory.")]:
            with self.subTest(message):
                result = subprocess.run([os.path.join(folder, "bin/quorvane")], text=True, check=False,
                                        env={**self.environment, "HOME": home}, capture_output=True)
                self.assertEqual((result.returncode, result.stdout), (1, ""))
                self.assertRegex(result.stderr, r"\Aquorvane: [^\n]+\.\n\Z")
                self.assertIn(message, result.stderr)


class StartTest(User):
    """The real program, found to work in the root that it was started for: the title tells."""

    def setUp(self):
        super().setUp()
        self.display = Display(window_manager=False)
        self.environment["DISPLAY"] = self.display.name
        # No network, and no waiting for one.
        write(self.path("wget"), "#!/bin/sh\n")
        os.chmod(self.path("wget"), 0o755)
        self.environment["PATH"] = self.home + ":" + self.environment["PATH"]

    def tearDown(self):
        self.display.close()
        super().tearDown()

    def test_menu_entry_and_shared_installation(self):
        own, shared = self.path(HOSTILE), self.path("shared")
        self.install(own)
        shutil.copytree(self.unpacked, shared)
        os.chmod(os.path.join(shared, "etc"), 0o555)
        if os.geteuid() == 0:
            os.chown(os.path.join(shared, "etc"), 12345, 12345)
        os.symlink(os.path.join(shared, "bin/quorvane"), self.path("quorvane"))
        expected = {"KVO v4.31 - " + os.path.join(root, "example")
                    for root in (own, self.path(".local/share/quorvane"))}
        processes = [subprocess.Popen(command, cwd="/", env=self.environment, stdin=subprocess.DEVNULL,
                                      stdout=subprocess.DEVNULL, start_new_session=True)
                     for command in (["gio", "launch", self.menu_entry], ["quorvane"])]

        def titles():
            windows = self.display.run("xdotool", "search", "--onlyvisible", "--name", "^KVO v").split()
            return {self.display.run("xdotool", "getwindowname", window).strip() for window in windows}
        try:
            wait_for(lambda: titles() == expected, f"{expected}")
        finally:
            # Without their display the programs end, and with them the launchers.
            self.display.close()
            for process in processes:
                process.wait(20)
            wait_for(lambda: not glob.glob(self.path("*/etc/kvo_site.txt")), "the launchers' end")


if __name__ == "__main__":
    unittest.main(verbosity=2)
