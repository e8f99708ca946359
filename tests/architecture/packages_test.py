#!/usr/bin/env python3
"""packages_test.py SOURCE BUILD: the product is made from the packages of [build] and what they
depend on: no program, library or header comes from another package, as on a fresh machine."""

import glob
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SOURCE, BUILD = (Path(argument) for argument in sys.argv[1:3])
# Made by the tests' folders; everything else is the product.
NOT_PRODUCT = ("tests/", "bench/", "CMakeFiles/kvo_test")


def listed(section):
    text = (SOURCE / "script/packages.txt").read_text(encoding="utf-8")
    return re.search(rf"^\[{section}\]\n(.*?)(?:\n\[|\Z)", text, re.MULTILINE | re.DOTALL)[1].split()


def installed_packages():
    """The names that each installed package depends on, by name; what provides a name, by the name."""
    depends, providers = {}, {}
    form = "${Package}\t${Essential}\t${Priority}\t${Depends}, ${Pre-Depends}\t${Provides}\n"
    for line in subprocess.check_output(["dpkg-query", "-W", "-f", form], text=True).splitlines():
        name, essential, priority, needs, provides = line.split("\t")
        alternatives = [re.findall(r"(?:^|\|)\s*([a-z0-9][a-z0-9.+-]*)", group) for group in needs.split(",")]
        depends[name] = (essential == "yes" or priority == "required", alternatives)
        for provided in [name, *re.findall(r"(?:^|,)\s*([a-z0-9][a-z0-9.+-]*)", provides)]:
            providers.setdefault(provided, []).append(name)
    return depends, providers


def with_dependencies(names):
    depends, providers = installed_packages()
    waiting = list(names) + [name for name, (always, _) in depends.items() if always]
    found = set()
    while waiting:
        for name in providers.get(waiting.pop(), []):
            if name not in found:
                found.add(name)
                waiting += [name for group in depends[name][1] for name in group]
    return found


def files_of(packages):
    files = set()
    for path in glob.glob("/var/lib/dpkg/info/*.list"):
        if Path(path).stem.split(":")[0] in packages:
            files.update(Path(path).read_text(encoding="utf-8").splitlines())
    # The folders /bin, /lib and so on are links into /usr.
    return files | {"/usr" + file for file in files if not file.startswith("/usr")}


class PackagesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.files = files_of(with_dependencies(listed("build")))

    def expect_own(self, paths):
        strangers = [path for path in paths if path not in self.files and
                     str(Path(path).resolve()) not in self.files]
        # A program such as c++ is a link that the system's alternatives made.
        self.assertEqual([path for path in strangers if "/alternatives/" not in path], [])

    def test_what_is_found_when_the_product_is_configured(self):
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run(["cmake", "--preset", "product", "-S", SOURCE, "-B", folder], cwd=SOURCE,
                           check=True, stdout=subprocess.DEVNULL)
            cache = (Path(folder) / "CMakeCache.txt").read_text(encoding="utf-8")
        values = re.findall(r"^([^#/:=]+):(?:FILEPATH|PATH|STRING|INTERNAL)=(/usr/[^;\n]+)", cache, re.MULTILINE)
        # Tools that CMake itself looks for without need.
        values = [value for name, value in values if not name.startswith(("CMAKE_", "_CMAKE"))]
        self.assertGreater(len(values), 10)
        self.expect_own(path for path in values if Path(path).is_file())
        modules = re.findall(r"^\w+_MODULE_NAME:INTERNAL=(\S+)", cache, re.MULTILINE)
        self.assertGreater(len(modules), 2)
        for module in modules:
            folder = subprocess.check_output(["pkg-config", "--variable=pcfiledir", module], text=True).strip()
            self.expect_own([f"{folder}/{module}.pc"])

    def test_headers_of_the_product(self):
        headers, product = set(), False
        for line in subprocess.check_output(["ninja", "-C", BUILD, "-t", "deps"], text=True).splitlines():
            if not line.startswith(" "):
                product = not line.startswith(NOT_PRODUCT)
            elif product and line.strip().startswith("/usr/"):
                headers.add(line.strip())
        self.assertGreater(len(headers), 500)
        self.expect_own(sorted(headers))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
