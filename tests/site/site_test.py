#!/usr/bin/python3
"""The web site in a real browser, and what it says against the real program.

site_test.py INSTALLATION [PICTURES]: with a folder for PICTURES it leaves screenshots to look at."""

import filecmp
import hashlib
import html
import html.parser
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest
import urllib.parse

import nibabel
import numpy
from kvo_browser import set_screen, start_browser
from kvo_driver import Timeout, wait_for

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
SITE = os.path.join(ROOT, "site")
PAGES = ("index.html", "manual/index.html", "manual/formats/index.html", "utilities/index.html")
TOPICS = ("Changes", "folder", "settings", "spm", "pp", "tbss", "globals", "mean", "lm", "lm_groups",
          "lm_regression", "threshold", "multi", "create.mask", "extract", "start", "example")
INSTALLATION, PICTURES = (os.path.abspath(path) if path else None for path in (sys.argv[1:] + [None])[:2])


def text_of(path):
    return pathlib.Path(ROOT, path).read_text(encoding="utf-8")


def start_site():
    """Serves the site; the process, and the address that it prints."""
    site = subprocess.Popen([os.path.join(ROOT, "script/site")], text=True, stdout=subprocess.PIPE)
    return site, site.stdout.readline().strip()


class Links(html.parser.HTMLParser):
    """A page's links, pictures and ids."""

    def __init__(self, page):
        super().__init__()
        self.links, self.pictures, self.ids = [], [], []
        self.feed(text_of("site/" + page))

    def handle_starttag(self, tag, attributes):
        values = dict(attributes)
        if "id" in values:
            self.ids.append(values["id"])
        self.links += [values[key] for key in ("href", "src") if key in values]
        if tag == "img":
            self.pictures.append(values)


class Files(unittest.TestCase):
    def test_links_lead_somewhere(self):
        ids = {page: Links(page).ids for page in PAGES}
        for page in PAGES:
            self.assertEqual(sorted(set(ids[page])), sorted(ids[page]), "ids of " + page)
            for link in Links(page).links:
                with self.subTest(page=page, link=link):
                    parts = urllib.parse.urlsplit(link)
                    self.assertFalse(parts.scheme or link.startswith("/"), "not relative")
                    path = os.path.normpath(os.path.join(os.path.dirname(page), parts.path or "."))
                    if parts.path == "":
                        path = page
                    elif os.path.isdir(os.path.join(SITE, path)):
                        path = os.path.normpath(os.path.join(path, "index.html"))
                    self.assertTrue(os.path.isfile(os.path.join(SITE, path)), "no such file")
                    if parts.fragment:
                        self.assertIn(parts.fragment, ids[path])
                    if parts.query:
                        self.assertIn(urllib.parse.parse_qs(parts.query)["show"][0], ids[path])

    def test_pictures_say_what_they_show_and_how_large_they_are(self):
        used = set()
        for page in PAGES:
            for picture in Links(page).pictures:
                path = os.path.join(SITE, os.path.dirname(page), picture["src"])
                used.add(os.path.realpath(path))
                with self.subTest(page=page, picture=picture["src"]):
                    if path.endswith(".png"):
                        self.assertGreater(len(picture["alt"]), 20)
                        header = pathlib.Path(path).read_bytes()[:24]
                        size = [int.from_bytes(header[at:at + 4], "big") for at in (16, 20)]
                        self.assertEqual([int(picture["width"]), int(picture["height"])], size)
        images = os.path.join(SITE, "manual/images")
        unused = {os.path.join(images, name) for name in os.listdir(images)} - used
        self.assertEqual(unused, set(), "pictures on no page")

    def test_version(self):
        version = re.search(r"project\(quorvane VERSION (\S+)", text_of("CMakeLists.txt"))[1]
        self.assertIn(f"Version {version}<", text_of("site/manual/index.html"))
        update = os.path.join(SITE, f"software/update/update{version}")
        program = pathlib.Path(update).read_bytes()
        self.assertEqual(text_of("site/software/current.txt"), f"{version}\nupdate{version} "
                         f"{len(program)} {hashlib.sha256(program).hexdigest()}\n")
        done = subprocess.run([update], text=True, stdout=subprocess.PIPE, check=True)
        self.assertIn(f"Quorvane {version} is the newest version", done.stdout)

    def test_icon_is_the_program_s(self):
        self.assertTrue(filecmp.cmp(os.path.join(SITE, "icon.svg"),
                                    os.path.join(ROOT, "resources/icon/kvo.svg"), shallow=False))


class Pages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.site, cls.address = start_site()
        # The pages say how large their pictures are, and look the same but for them without.
        cls.browser = start_browser(images=bool(PICTURES))

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        cls.site.terminate()
        cls.site.communicate()

    def open(self, path, width=1280, height=900, scheme="light"):
        set_screen(self.browser, width, height, scheme)
        self.browser.get(self.address + path)
        self.assertEqual(self.browser.get_log("browser"), [], path)

    def evaluate(self, expression):
        return self.browser.execute_script("return " + expression)

    def picture(self, name):
        if PICTURES:
            self.browser.save_screenshot(os.path.join(PICTURES, name + ".png"))

    def check_heading(self, topic, focused):
        """The topic's heading is at the top of the window, or as high as it gets, and not covered."""
        def state():
            return self.evaluate(f"""(() => {{
                const heading = document.getElementById({topic!r}).querySelector('h1, h2, h3');
                const box = heading.getBoundingClientRect();
                const seen = document.elementFromPoint(box.left + 5, box.top + box.height / 2);
                return {{top: box.top, seen: heading.contains(seen),
                         atEnd: innerHeight + scrollY >= document.documentElement.scrollHeight - 2,
                         focused: document.activeElement === heading}};
            }})()""")

        def is_right():
            now = state()
            return (now["seen"] and now["focused"] == focused
                    and (0 <= now["top"] < 80 or now["atEnd"]))
        try:
            wait_for(is_right, "the heading")
        except Timeout:
            self.fail(state())

    def test_each_topic_opens_at_its_section(self):
        for topic in TOPICS:
            with self.subTest(topic=topic):
                self.open("manual/?show=" + topic)
                self.check_heading(topic, focused=True)
                self.picture(f"{topic}-1280")
        self.open("manual/", 390, 844)
        for topic in TOPICS:
            with self.subTest(topic=topic, width=390):
                self.evaluate(f"document.getElementById({topic!r}).querySelector('h1, h2, h3').scrollIntoView()")
                self.check_heading(topic, focused=False)
                self.picture(f"{topic}-390")

    def test_unknown_topic_is_said(self):
        self.open("manual/?show=<i>nonsense")
        notice = "document.getElementById('no-such-topic')"
        wait_for(lambda: "<i>nonsense" in self.evaluate(notice + ".innerText"), "the notice")
        self.open("manual/")
        self.assertTrue(self.evaluate(notice + ".hidden"))

    def test_contents_work_without_scripts(self):
        self.addCleanup(self.browser.execute_cdp_cmd, "Emulation.setScriptExecutionDisabled", {"value": False})
        self.browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": True})
        self.open("manual/?#create.mask")
        self.check_heading("create.mask", focused=False)

    def test_nothing_is_wider_than_a_phone(self):
        for path in ("", "manual/", "utilities/?show=Statistics"):
            for width in (320, 390):
                self.open(path, width, 844)
                self.assertLessEqual(self.evaluate("document.documentElement.scrollWidth"),
                                     width, path)

    def test_text_is_readable_in_light_and_dark(self):
        # The contrast that the Web Content Accessibility Guidelines ask of text, by their formula.
        contrast = """(() => {
            const light = (color) => {
              const [r, g, b] = color.match(/\\d+/g).map(Number).map((byte) => byte / 255)
                .map((c) => c <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4);
              return 0.2126 * r + 0.7152 * g + 0.0722 * b;
            };
            const paper = (element) => {
              for (; element; element = element.parentElement) {
                const color = getComputedStyle(element).backgroundColor;
                if (!color.startsWith('rgba(0, 0, 0, 0')) return light(color);
              }
              return 1;
            };
            let least = 21;
            for (const element of document.querySelectorAll('h1, h2, p, a, code, td, th, dd, figcaption, label, input')) {
              const ink = light(getComputedStyle(element).color), under = paper(element);
              least = Math.min(least, (Math.max(ink, under) + 0.05) / (Math.min(ink, under) + 0.05));
            }
            return least;
        })()"""
        for scheme in ("light", "dark"):
            for path in ("", "manual/?show=example", "utilities/?show=Statistics"):
                with self.subTest(scheme=scheme, path=path):
                    self.open(path, scheme=scheme)
                    self.assertGreaterEqual(self.evaluate(contrast), 4.5)
                    self.picture(f"{scheme}-{path.partition('/')[0] or 'index'}")

    def convert(self, **fields):
        """Fills the form as typing does; the table's first row, without the value given."""
        for name, value in fields.items():
            self.evaluate(f"""(() => {{
                const radio = [...document.getElementsByName({name!r})].find((r) => r.value === {value!r});
                const field = radio ?? document.getElementById({name!r});
                if (radio) radio.checked = true; else field.value = {value!r};
                field.dispatchEvent(new Event('input', {{bubbles: true}}));
            }})()""")
        return self.evaluate(
            "[...document.querySelectorAll('#results td')].map((cell) => cell.textContent)")

    def test_converters_compute_in_the_page(self):
        # Columns: given, t, z, p one-tailed, p two-tailed, -log10 p, r, F, d, g. Values from R.
        cases = (
            (dict(kind="p", n1="20", n2="20", tails="2", values="0.05"),
             "0.05 2.02439 1.95996 0.025 0.05 1.60206 0.312006 4.09817 0.64017 0.627437"),
            (dict(kind="p", direction="negative"),
             "0.05 -2.02439 -1.95996 0.975 0.05 0.0109954 -0.312006 4.09817 -0.64017 -0.627437"),
            (dict(kind="d", direction="positive", n1="16", n2="", values="1"),
             "1 4 3.2487 0.000579658 0.00115932 3.23683 0.718421 16 1 0.949008"),
            (dict(kind="log10p", tails="1", values="400"), "400 * 42.8102 1e-400 2e-400 400"),
        )
        problem = "document.getElementById('problem').textContent"
        self.open("utilities/?show=Statistics")
        self.assertEqual(self.evaluate("document.activeElement.id"), "Statistics")
        self.assertIn("degrees of freedom", self.evaluate(problem))
        for fields, expected in cases:
            row = self.convert(**fields)
            with self.subTest(fields=fields, row=row):
                self.assertEqual(self.evaluate(problem), "")
                wanted = expected.split()
                shown = ["*" if cell == "*" else text for cell, text in zip(wanted, row)]
                self.assertEqual(shown, wanted)
        self.picture("utilities")
        self.convert(kind="r", values="0.5\n1.5\n-0.5")
        self.assertIn("1.5", self.evaluate(problem))
        self.assertRegex(self.evaluate("document.getElementById('t-values').value"),
                         r"^(\d[\d.]*)\n\?\n-\1$")
        self.convert(n1="2.5")
        self.assertIn("n1", self.evaluate(problem))


def run_engine(folder, command):
    """What the engine says of a command, as the console shows it."""
    done = subprocess.run([os.path.join(INSTALLATION, "bin/linux64/kvo_parse"), *shlex.split(command)],
                          cwd=folder, text=True, stdout=subprocess.PIPE, check=False)
    if done.returncode != 0:
        raise AssertionError(f"{command}: {done.stdout}")
    return html.unescape(done.stdout)


def leave_one_out(folder, studies):
    """Copies of the mean, in the place of those without one study each."""
    for study in studies:
        for kind in ("z", "g", "p", "n_p"):
            shutil.copy(os.path.join(folder, f"MyMean_{kind}.nii.gz"),
                        os.path.join(folder, f"MyMeanJK{study}_{kind}.nii.gz"))
        with open(os.path.join(folder, "kvo_maps.txt"), "a", encoding="utf-8") as maps:
            maps.write(f"MyMeanJK{study}\n")
        with open(os.path.join(folder, "kvo_analyses.txt"), "a", encoding="utf-8") as analyses:
            analyses.write(f"MyMeanJK{study}\t{len(studies) - 1}\t99\tx = mean x\t{study}\n")


def copy_of_example():
    folder = tempfile.mkdtemp(prefix="kvo_example_")
    shutil.copytree(os.path.join(ROOT, "example"), folder, dirs_exist_ok=True)
    return folder


def example_run():
    """The batch of the example, which is what the manual does; the folder and what the engine said."""
    folder = copy_of_example()
    said = ""
    for command in text_of("example/kvo_batch.txt").splitlines():
        if command and not command.startswith("#"):
            said += command + "\n" + run_engine(folder, command)
    return folder, said


class Example(unittest.TestCase):
    """What the manual says of the example is what comes out."""

    @classmethod
    def setUpClass(cls):
        cls.folder, cls.said = example_run()
        cls.page = text_of("site/manual/index.html")

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    def map(self, kind):
        return nibabel.load(os.path.join(self.folder, f"MyMean_{kind}.nii.gz"))

    def read(self, name):
        return pathlib.Path(self.folder, name).read_text(encoding="utf-8")

    def marked(self, attribute):
        """The texts that the page marks with a data attribute, by its value."""
        return dict(re.findall(rf'data-{attribute}="(\w+)">([^<]+)<', self.page))

    def test_console(self):
        blocks = re.findall(r'<code class="console">(.*?)</code>', self.page, re.DOTALL)
        self.assertEqual(len(blocks), 3)
        for line in html.unescape("\n".join(blocks)).splitlines():
            self.assertIn(line + "\n", self.said)

    def test_peaks(self):
        rows = re.search(r'<tbody id="example-peaks">(.*?)</tbody>', self.page, re.DOTALL)[1]
        checked = 0
        for row in rows.strip().splitlines():
            at = [int(mm) for mm in re.search(r"data-at>([^<]+)<", row)[1].split(",")]
            for kind, shown in re.findall(r'data-map="(\w+)">([^<]+)<', row):
                image = self.map(kind)
                voxel = numpy.linalg.solve(image.affine, [*at, 1])[:3].round().astype(int)
                value = image.get_fdata()[tuple(voxel)]
                decimals = len(shown.partition(".")[2])
                expected = f"{value:.1e}" if "e" in shown else f"{value:.{decimals}f}"
                with self.subTest(at=at, map=kind):
                    self.assertEqual(shown, expected)
                checked += 1
        self.assertEqual(checked, 25)

    def test_counts(self):
        inside = nibabel.load(os.path.join(INSTALLATION, "share/mask_gray_matter.nii.gz")).get_fdata() > 0
        counts = re.findall(r'data-count="(\w+) &lt; ([\d.]+)">(\d+)<', self.page)
        self.assertEqual(len(counts), 2)
        for kind, limit, shown in counts:
            below = (self.map(kind).get_fdata()[inside] < float(limit)).sum()
            self.assertEqual(int(shown), below, (kind, limit))

    def test_the_table_of_peaks_is_the_example(self):
        with tempfile.TemporaryDirectory() as folder:
            shutil.copy(os.path.join(ROOT, "example/studies.csv"), folder)
            run_engine(folder, "import studies.csv")
            for name in ["kvo_table.txt", *(f"pain_{n:02}.peaks.txt" for n in range(1, 22))]:
                ours, example = (
                    [line for line in pathlib.Path(where, name).read_text(encoding="utf-8").splitlines()
                     if not line.startswith("# Study")] for where in (folder, os.path.join(ROOT, "example")))
                self.assertEqual(ours, example, name)

    def test_region_and_leave_one_out(self):
        table = self.read("MyMean_z_p_0.00500_1.000_10.csv")
        self.assertIn(f"Right insula {self.marked('share')['insula']} (", table.splitlines()[1])
        report = self.read("extract_Right_insula.html")
        rows = report[report.index("Leave-one-out"):report.index("Where the studies come from")]
        pooled = re.findall(r">pain_\d+</t[dh]>\s*<td[^>]*>([^<]+)<", rows)
        self.assertEqual(len(pooled), 21)
        self.assertEqual(self.marked("leave-one-out"), {"least": min(pooled), "most": max(pooled)})

    def test_commands_are_those_of_the_engine(self):
        """The command table is that of the engine's help, whose examples do what they say."""
        folder = copy_of_example()
        try:
            help_lines = [line.strip() for line in run_engine(folder, "help").splitlines()]
            section = re.search(r'<section id="commands">.*?</table>', self.page, re.DOTALL)[0]
            rows = re.findall(r"<tr><td><code>([^<]+)</code></td><td><code>([^<]+)</code>", section)
            examples = [line.removeprefix("Example: ") for line in help_lines if line.startswith("Example: ")]
            self.assertEqual([example for _, example in rows], examples)
            for grammar, _ in rows:
                self.assertIn(grammar, help_lines)
            header, *rows = text_of("example/kvo_table.txt").splitlines()[:8]
            lines = [f"{header}\tage\tpatients\tadults\tmean1\tsd1"]
            lines += [f"{row}\t{30 + n**2 % 7}\t{n % 2}\t{int(n > 1)}\t{1 + n % 3}\t2" for n, row in enumerate(rows)]
            pathlib.Path(folder, "kvo_table.txt").write_text("\n".join(lines) + "\n", encoding="utf-8")
            for meta in ("meta1", "meta2"):
                shutil.copy(os.path.join(self.folder, "MyMean_p.nii.gz"), os.path.join(folder, meta + "_p.nii.gz"))
            pathlib.Path(folder, "studies.csv").write_text("study,n,x,y,z,t\nNew,20,40,4,0,4.1\n", encoding="utf-8")
            for example in examples:
                with self.subTest(example=example):
                    if example == "jackknife MyMean":
                        leave_one_out(folder, [row.split()[0] for row in rows])
                    # A single randomization, which is quicker, does as well.
                    run_engine(folder, example.replace(", 50", ", 1"))
            run_engine(folder, "threshold MyModel_01, p, 0.1, 0, 1")
            report = pathlib.Path(folder, "MyModel_01_z_p_0.10000_0.000_1.html").read_text(encoding="utf-8")
            self.assertRegex(report, r"Coefficient</\w+>\s*<\w+[^>]*>of patients<")
        finally:
            shutil.rmtree(folder)


if __name__ == "__main__":
    if PICTURES:
        os.makedirs(PICTURES, exist_ok=True)
    unittest.main(argv=sys.argv[:1])
